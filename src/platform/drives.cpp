// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "platform/FileSystem.h"
#include "platform/SysError.h"
#include <cerrno>
namespace orvKestrel {
std::string FileSystem::DriveName(const std::string&) { ThrowSys(ENOSYS); }
std::int64_t FileSystem::FreeBytes(const std::string&) { ThrowSys(ENOSYS); }
bool FileSystem::SameDrive(const std::string&, const std::string&) { return false; }
}  // namespace orvKestrel
