// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "platform/FileSystem.h"
#include "platform/SysError.h"
#include <cerrno>
namespace orvKestrel {
void FileSystem::CopyFile(const std::string&, const std::string&, bool) { ThrowSys(ENOSYS); }
void FileSystem::MoveFile(const std::string&, const std::string&) { ThrowSys(ENOSYS); }
void FileSystem::DeleteFile(const std::string&, bool) { ThrowSys(ENOSYS); }
void FileSystem::DeleteFolder(const std::string&, bool) { ThrowSys(ENOSYS); }
}  // namespace orvKestrel
