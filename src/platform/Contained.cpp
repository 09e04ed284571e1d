// Contained writes: every level below the folder is opened relative to its parent's descriptor
// with O_NOFOLLOW, and files are created and renamed relative to their folder's descriptor.
#include "platform/Contained.h"

#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvKestrel {
namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

OpenedFile OpenIdentified(const std::string& path) {
  OpenedFile f{UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)), {}};
  if (f.fd.get() < 0) ThrowSys(errno, "open", path);
  struct stat st {};
  if (::fstat(f.fd.get(), &st) != 0) ThrowSys(errno, "fstat", path);
  if (!S_ISREG(st.st_mode)) ThrowSys(S_ISDIR(st.st_mode) ? EISDIR : EINVAL, "fstat", path);
  f.identity = IdentityOf(st);
  return f;
}

ContainedFolder FileSystem::OpenContained(const std::string& path) {
  std::string prefix;
  std::size_t pos = 0;
  while ((pos = path.find('/', pos + 1)) != std::string::npos) {
    prefix = path.substr(0, pos);
    if (::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) ThrowSys(errno, "mkdir", prefix);
  }
  if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) ThrowSys(errno, "mkdir", path);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) ThrowSys(errno, "open", path);
  return ContainedFolder(std::move(fd), path, faults_, tempNames_);
}

ContainedFolder ContainedFolder::Sub(const std::string& name) const {
  int fd = ::openat(fd_.get(), name.c_str(), kDirFlags);
  if (fd < 0 && errno == ENOENT) {
    if (::mkdirat(fd_.get(), name.c_str(), 0777) != 0 && errno != EEXIST) {
      ThrowSys(errno, "mkdirat", In(name));
    }
    fd = ::openat(fd_.get(), name.c_str(), kDirFlags);
  }
  if (fd < 0) {
    const int err = errno;
    const std::optional<Node> node = Look(name);
    ThrowSys(node && node->isLink ? ELOOP : err, "openat", In(name));
  }
  return ContainedFolder(UniqueFd(fd), In(name), faults_, *names_);
}

std::optional<Node> ContainedFolder::Look(const std::string& name) const {
  struct stat st {};
  if (::fstatat(fd_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return std::nullopt;
    ThrowSys(errno, "fstatat", In(name));
  }
  return Node{S_ISDIR(st.st_mode), S_ISLNK(st.st_mode), st.st_mtime, IdentityOf(st)};
}

std::optional<std::string> ContainedFolder::LinkBelow(const std::vector<std::string>& parts) const {
  if (parts.empty()) return std::nullopt;
  UniqueFd level;
  int at = fd_.get();
  for (std::size_t k = 0; k + 1 < parts.size(); ++k) {
    UniqueFd next(::openat(at, parts[k].c_str(), kDirFlags));
    if (next.get() < 0) return std::nullopt;
    level = std::move(next);
    at = level.get();
  }
  char buf[4096];
  const ssize_t n = ::readlinkat(at, parts.back().c_str(), buf, sizeof buf);
  if (n < 0 || static_cast<std::size_t>(n) == sizeof buf) return std::nullopt;
  return std::string(buf, static_cast<std::size_t>(n));
}

NewFile ContainedFolder::Create(std::uint32_t permissions) const {
  return NewFile(fd_.get(), path_, ".", *names_, faults_, permissions, false);
}

FileIdentity ContainedFolder::MakeLink(const std::string& target, const std::string& name,
                                       bool replace) const {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string tmp = names_->Next();
    if (::symlinkat(target.c_str(), fd_.get(), tmp.c_str()) != 0) {
      if (errno == EEXIST) continue;
      ThrowSys(errno, "symlinkat", In(tmp));
    }
    struct stat st {};
    try {
      if (::fstatat(fd_.get(), tmp.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        ThrowSys(errno, "fstatat", In(tmp));
      }
      PlaceName(fd_.get(), path_, tmp, name, replace);
    } catch (...) {
      ::unlinkat(fd_.get(), tmp.c_str(), 0);
      throw;
    }
    return IdentityOf(st);
  }
  ThrowSys(EEXIST, "symlinkat", In(name));
}

void ContainedFolder::SyncFileSystem() const { ::syncfs(fd_.get()); }

}  // namespace orvKestrel
