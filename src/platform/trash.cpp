// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "platform/FileSystem.h"
#include "platform/SysError.h"
#include <cerrno>
namespace orvKestrel {
void FileSystem::Trash(const std::string&) { ThrowSys(ENOSYS); }
}  // namespace orvKestrel
