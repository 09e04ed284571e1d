// Drives: the file system that holds a path, its free space, and whether two paths share one.
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

namespace orvKestrel {
namespace {

// The deepest existing folder or file on the way from path to "/" (path itself when it exists),
// with its status. A path that does not exist yet still lies on the file system of its nearest
// existing ancestor, as a drive letter names a drive whether or not the folder exists.
std::string NearestExisting(const std::string& path, struct stat& st) {
  std::string p = paths::GetAbsolutePathName(path);
  for (;;) {
    if (::stat(p.c_str(), &st) == 0) return p;
    if (p == "/") {
      st = {};
      return p;
    }
    p = paths::GetParentFolderName(p);
    if (p.empty()) p = "/";
  }
}

}  // namespace

std::string FileSystem::DriveName(const std::string& path) {
  if (path.empty()) return {};
  struct stat st {};
  std::string p = NearestExisting(path, st);
  // Climb while the parent is still on the same file system: the last such folder is the mount
  // point.
  while (p != "/") {
    std::string parent = paths::GetParentFolderName(p);
    if (parent.empty()) parent = "/";
    struct stat up {};
    if (::stat(parent.c_str(), &up) != 0 || up.st_dev != st.st_dev) break;
    p = std::move(parent);
  }
  return p;
}

ErrorOr<std::int64_t> FileSystem::FreeBytes(const std::string& path) {
  // An injected fault stands for the query, asked or remembered.
  if (const int err = Injected(FaultOp::Statvfs)) return SysError(err, "statvfs", path);
  const auto now = StatusCache::Clock::now();
  if (const auto remembered = cache_.FreeBytes(path, now)) return *remembered;
  struct statvfs vfs {};
  if (::statvfs(path.c_str(), &vfs) != 0) return SysError(errno, "statvfs", path);
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  std::uint64_t bytes = 0;
  std::int64_t result = kMax;
  if (!__builtin_mul_overflow(vfs.f_bavail, vfs.f_frsize, &bytes) &&
      bytes <= static_cast<std::uint64_t>(kMax)) {
    result = static_cast<std::int64_t>(bytes);
  }
  cache_.Remember({path, result, vfs.f_frsize, now});
  return result;
}

bool FileSystem::SameDrive(const std::string& a, const std::string& b) {
  struct stat sa {};
  struct stat sb {};
  NearestExisting(a, sa);
  NearestExisting(b, sb);
  return sa.st_dev == sb.st_dev;
}

}  // namespace orvKestrel
