// Contained writes: every level below the folder is opened relative to its parent's descriptor
// with O_NOFOLLOW, and files are created and renamed relative to their folder's descriptor.
#include "platform/Contained.h"

#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace orvKestrel {
namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A hidden name of the engine's extracted-entry form ("." + name + ".kestrel-<digits>").
// Puts tmp under name in dir; without replace an existing name is refused (EEXIST).
void RenameAt(int dir, const std::string& tmp, const std::string& name, bool replace) {
  if (replace) {
    if (::renameat(dir, tmp.c_str(), dir, name.c_str()) != 0) ThrowSys(errno);
    return;
  }
  if (::renameat2(dir, tmp.c_str(), dir, name.c_str(), RENAME_NOREPLACE) == 0) return;
  if (errno != EINVAL && errno != ENOSYS) ThrowSys(errno);
  if (::linkat(dir, tmp.c_str(), dir, name.c_str(), 0) != 0) ThrowSys(errno);
  ::unlinkat(dir, tmp.c_str(), 0);
}

}  // namespace

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) ::close(fd_);
}

UniqueFd::UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

int UniqueFd::release() { return std::exchange(fd_, -1); }

OpenedFile OpenIdentified(const std::string& path) {
  OpenedFile f{UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)), {}};
  if (f.fd.get() < 0) ThrowSys(errno);
  struct stat st {};
  if (::fstat(f.fd.get(), &st) != 0) ThrowSys(errno);
  if (!S_ISREG(st.st_mode)) ThrowSys(S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
  f.identity = IdentityOf(st);
  return f;
}

NewFile::~NewFile() {
  if (!placed_ && fd_.get() >= 0) ::unlinkat(dir_, tmp_.c_str(), 0);
}

void NewFile::Write(const char* data, std::size_t n) {
  while (n > 0) {
    const ssize_t w = ::write(fd_.get(), data, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno);
    }
    data += w;
    n -= static_cast<std::size_t>(w);
  }
}

void NewFile::SetModified(std::time_t t) {
  const struct timespec times[2] = {{t, 0}, {t, 0}};
  if (::futimens(fd_.get(), times) != 0) ThrowSys(errno);
}

FileIdentity NewFile::Place(const std::string& name, bool replace) {
  struct stat st {};
  if (::fstat(fd_.get(), &st) != 0) ThrowSys(errno);
  if (::close(fd_.release()) != 0) ThrowSys(errno);
  placed_ = true;  // from here the temporary is gone or renamed, whatever happens
  try {
    RenameAt(dir_, tmp_, name, replace);
  } catch (...) {
    ::unlinkat(dir_, tmp_.c_str(), 0);
    throw;
  }
  return IdentityOf(st);
}

ContainedFolder ContainedFolder::Open(const std::string& path) {
  std::string prefix;
  std::size_t pos = 0;
  while ((pos = path.find('/', pos + 1)) != std::string::npos) {
    prefix = path.substr(0, pos);
    if (::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) ThrowSys(errno);
  }
  if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) ThrowSys(errno);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) ThrowSys(errno);
  return ContainedFolder(std::move(fd));
}

ContainedFolder ContainedFolder::Sub(const std::string& name) const {
  int fd = ::openat(fd_.get(), name.c_str(), kDirFlags);
  if (fd < 0 && errno == ENOENT) {
    if (::mkdirat(fd_.get(), name.c_str(), 0777) != 0 && errno != EEXIST) ThrowSys(errno);
    fd = ::openat(fd_.get(), name.c_str(), kDirFlags);
  }
  if (fd < 0) {
    const int err = errno;
    const std::optional<Node> node = Look(name);
    ThrowSys(node && node->isLink ? ELOOP : err);
  }
  return ContainedFolder(UniqueFd(fd));
}

std::optional<Node> ContainedFolder::Look(const std::string& name) const {
  struct stat st {};
  if (::fstatat(fd_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return std::nullopt;
    ThrowSys(errno);
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
  TempNames names;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string tmp = names.Next();
    UniqueFd fd(::openat(fd_.get(), tmp.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                         static_cast<mode_t>(permissions)));
    if (fd.get() >= 0) return NewFile(fd_.get(), std::move(tmp), std::move(fd));
    if (errno != EEXIST) ThrowSys(errno);
  }
  ThrowSys(EEXIST);
}

FileIdentity ContainedFolder::MakeLink(const std::string& target, const std::string& name,
                                       bool replace) const {
  TempNames names;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string tmp = names.Next();
    if (::symlinkat(target.c_str(), fd_.get(), tmp.c_str()) != 0) {
      if (errno == EEXIST) continue;
      ThrowSys(errno);
    }
    struct stat st {};
    try {
      if (::fstatat(fd_.get(), tmp.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) ThrowSys(errno);
      RenameAt(fd_.get(), tmp, name, replace);
    } catch (...) {
      ::unlinkat(fd_.get(), tmp.c_str(), 0);
      throw;
    }
    return IdentityOf(st);
  }
  ThrowSys(EEXIST);
}

void ContainedFolder::SyncFileSystem() const { ::syncfs(fd_.get()); }

}  // namespace orvKestrel
