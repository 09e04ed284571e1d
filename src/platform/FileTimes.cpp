// The three file times, in whole seconds. The creation time is the birth time where the file
// system records one and the change time elsewhere; it cannot be set.
#include "platform/FileSystem.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace orvKestrel {

FileTimes FileSystem::GetTimes(const std::string& path) { return TryGetTimes(path).Value(); }

ErrorOr<FileTimes> FileSystem::TryGetTimes(const std::string& path) {
  struct statx sx {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_ATIME | STATX_MTIME | STATX_CTIME | STATX_BTIME,
              &sx) != 0) {
    return SysError(errno, "statx", path);
  }
  FileTimes t;
  t.accessed = sx.stx_atime.tv_sec;
  t.written = sx.stx_mtime.tv_sec;
  t.created = (sx.stx_mask & STATX_BTIME) ? sx.stx_btime.tv_sec : sx.stx_ctime.tv_sec;
  return t;
}

void FileSystem::SetTimes(const std::string& path, std::time_t accessed, std::time_t written) {
  const Changing changing(cache_);
  Gate(FaultOp::SetTimes, "utimensat", path);
  const struct timespec times[2] = {{accessed, 0}, {written, 0}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) ThrowSys(errno, "utimensat", path);
}

}  // namespace orvKestrel
