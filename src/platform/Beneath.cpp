// Contained destinations: the folders that copies and moves write into are reached from the
// job's destination without following any link below it, so that a link planted there (to
// /etc, say) makes the file fail instead of sending it outside. The destination itself is
// taken as the job names it.
#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "platform/UniqueFd.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvKestrel {
namespace {

constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

// One level or several below dir, no link and no ".." on the way. Kernels without openat2 get
// the same per level from O_NOFOLLOW. -1 and errno on failure (ELOOP for a link).
int OpenBelow(int dir, const std::string& rel) {
  open_how how{};
  how.flags = kFolderFlags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const long fd = ::syscall(SYS_openat2, dir, rel.c_str(), &how, sizeof how);
  if (fd >= 0 || errno != ENOSYS) return static_cast<int>(fd);
  if (rel.find('/') != std::string::npos || rel == "..") {
    errno = ENOSYS;  // the caller goes level by level
    return -1;
  }
  struct stat st {};
  if (::fstatat(dir, rel.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) {
    errno = ELOOP;
    return -1;
  }
  return ::openat(dir, rel.c_str(), kFolderFlags | O_NOFOLLOW);
}

KestrelError Refusal(int err, const std::string& level) {
  if (err == ELOOP || err == EXDEV) {
    return KestrelError(ELOOP, "The destination goes through a link: " + level, "openat2", level);
  }
  if (err == ENOTDIR) {
    return KestrelError(ENOTDIR, "The destination is not a folder: " + level, "openat2", level);
  }
  return SysError(err, "openat2", level);
}

// Level by level from root: the slow way, taken when a level is missing or refused.
ErrorOr<std::shared_ptr<const DestFolder>> WalkLevels(std::shared_ptr<const DestFolder> at,
                                                       const std::string& sub, bool create) {
  for (const std::string_view part : paths::PathParts(sub)) {
    const std::string name(part);
    const std::string path = paths::BuildPath(at->path(), name);
    int fd = OpenBelow(at->fd(), name);
    if (fd < 0 && errno == ENOENT && create) {
      if (::mkdirat(at->fd(), name.c_str(), 0777) != 0 && errno != EEXIST) {
        return SysError(errno, "mkdirat", path);
      }
      fd = OpenBelow(at->fd(), name);
    }
    if (fd < 0) return Refusal(errno, path);
    at = std::make_shared<const DestFolder>(fd, path);
  }
  return at;
}

}  // namespace

// Only file systems known to compare names by their bytes; of those, ext4, tmpfs and f2fs fold
// case in a folder marked for it.
bool NamesByBytes(int folder) {
  struct statfs fs {};
  if (::fstatfs(folder, &fs) != 0) return false;
  switch (static_cast<unsigned long>(fs.f_type)) {
    case BTRFS_SUPER_MAGIC:
    case XFS_SUPER_MAGIC: return true;
    case EXT4_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case F2FS_SUPER_MAGIC: break;
    default: return false;
  }
  const UniqueFd dir(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  int flags = 0;  // the kernel writes an int, whatever the request's declared type
  if (dir.get() < 0 || ::ioctl(dir.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
  return (flags & FS_CASEFOLD_FL) == 0;
}

DestFolder::~DestFolder() {
  if (fd_ >= 0) ::close(fd_);
}

bool DestFolder::ExactNames() const {
  if (!exactNames_) exactNames_ = NamesByBytes(fd_);
  return *exactNames_;
}

ErrorOr<std::shared_ptr<const DestFolder>> FileSystem::TryOpenBeneath(const std::string& root,
                                                                       const std::string& sub,
                                                                       bool create) {
  const int rootFd = ::open(root.empty() ? "." : root.c_str(), kFolderFlags);
  if (rootFd < 0) return SysError(errno, "open", root.empty() ? "." : root);
  auto top = std::make_shared<const DestFolder>(rootFd, root);
  if (sub.empty()) return top;
  const int fd = OpenBelow(rootFd, sub);
  if (fd >= 0) return std::make_shared<const DestFolder>(fd, paths::BuildPath(root, sub));
  const Changing changing(cache_);  // levels may be made
  return WalkLevels(std::move(top), sub, create);
}

std::shared_ptr<const DestFolder> FileSystem::OpenBeneath(const std::string& root,
                                                           const std::string& sub, bool create) {
  return TryOpenBeneath(root, sub, create).Value();
}

std::optional<KestrelError> FileSystem::RefusedBeneath(const std::string& root,
                                                       const std::string& sub) {
  const auto opened = TryOpenBeneath(root, sub, false);
  if (opened) return std::nullopt;
  const int err = opened.Error().Number();
  if (err == ELOOP || err == ENOTDIR) return opened.Error();
  return std::nullopt;
}

void FileSystem::DeleteFile(const DestFolder& folder, const std::string& name, bool force) {
  const Changing changing(cache_);
  const auto path = [&] { return paths::BuildPath(folder.path(), name); };  // for errors only
  if (name.empty()) ThrowSys(EINVAL, "unlinkat", path());
  orvKestrel::Gate(faults_, FaultOp::Unlink, "unlinkat", path);
  struct stat st {};
  if (::fstatat(folder.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    ThrowSys(errno, "fstatat", path());
  }
  if (S_ISDIR(st.st_mode)) ThrowSys(EISDIR, "fstatat", path());
  if (!force && !S_ISLNK(st.st_mode) && (st.st_mode & S_IWUSR) == 0) {
    ThrowSys(EACCES, "fstatat", path());
  }
  if (::unlinkat(folder.fd(), name.c_str(), 0) != 0) ThrowSys(errno, "unlinkat", path());
}

}  // namespace orvKestrel
