#include "platform/NewFile.h"

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

bool TempNames::UnnamedPossible() {
  // Linking a file without a name goes through /proc where the process lacks the privilege to
  // link a descriptor directly; without /proc the copy keeps a temporary name. Asked once.
  if (!unnamed_) unnamed_ = ::access("/proc/self/fd", X_OK) == 0;
  return *unnamed_;
}

std::string TempNames::Next() {
  if (!seeded_) {
    if (::getrandom(&base_, sizeof base_, 0) != static_cast<ssize_t>(sizeof base_)) {
      ThrowSys(errno ? errno : EIO, "getrandom", "");
    }
    seeded_ = true;
  }
  // splitmix64: consecutive counts give unrelated names
  std::uint64_t z = base_ + 0x9e3779b97f4a7c15ULL * ++count_;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  z ^= z >> 31;
  char name[32];
  std::snprintf(name, sizeof name, ".kestrel-%016llx.tmp", static_cast<unsigned long long>(z));
  return name;
}

std::string ShownPath(const std::string& where, const std::string& rel) {
  if (where.empty()) return rel;
  if (rel.empty() || rel == ".") return where;
  const std::string tail = rel.starts_with("./") ? rel.substr(2) : rel;
  return where.ends_with('/') ? where + tail : where + "/" + tail;
}

void PlaceName(int dir, const std::string& where, const std::string& tmp, const std::string& name,
               bool replace) {
  if (replace) {
    if (::renameat(dir, tmp.c_str(), dir, name.c_str()) != 0) {
      ThrowSys(errno, "renameat", ShownPath(where, name));
    }
    return;
  }
  if (::renameat2(dir, tmp.c_str(), dir, name.c_str(), RENAME_NOREPLACE) == 0) return;
  if (errno != EINVAL && errno != ENOSYS) ThrowSys(errno, "renameat2", ShownPath(where, name));
  // A file system without the no-replace rename: a hard link fails on an existing name.
  if (::linkat(dir, tmp.c_str(), dir, name.c_str(), 0) != 0) {
    ThrowSys(errno, "linkat", ShownPath(where, name));
  }
  ::unlinkat(dir, tmp.c_str(), 0);
}

NewFile::NewFile(int dir, std::string where, const std::string& folder, TempNames& names,
                 FaultPoints* faults, std::uint32_t permissions, bool unnamed)
    : faults_(faults), dir_(dir), where_(std::move(where)), folder_(folder) {
  Gate(faults_, FaultOp::Open, "openat", [this] { return Shown(); });
  const auto mode = static_cast<mode_t>(permissions);
  if (unnamed && names.UnnamedPossible()) {
    fd_ = UniqueFd(::openat(dir_, folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
    if (fd_.get() >= 0) return;
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
      ThrowSys(errno, "openat", Shown());
    }
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string tmp = folder + "/" + names.Next();
    fd_ = UniqueFd(::openat(dir_, tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (fd_.get() >= 0) {
      tmp_ = std::move(tmp);
      return;
    }
    if (errno != EEXIST) ThrowSys(errno, "openat", ShownPath(where_, tmp));
  }
  ThrowSys(EEXIST, "openat", Shown());
}

NewFile::NewFile(FaultPoints* faults, int dir, std::string where, std::string folder, UniqueFd fd)
    : faults_(faults), dir_(dir), where_(std::move(where)), folder_(std::move(folder)),
      fd_(std::move(fd)) {}

NewFile NewFile::Unnamed(FaultPoints* faults, int dir, std::string where,
                         const std::string& folder, std::uint32_t permissions) {
  UniqueFd fd(::openat(dir, folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC,
                       static_cast<mode_t>(permissions)));
  if (fd.get() < 0) ThrowSys(errno, "openat", ShownPath(where, folder));
  return NewFile(faults, dir, std::move(where), folder, std::move(fd));
}

void NewFile::PlaceIn(int dir, std::string where, const std::string& name, bool replace,
                      TempNames& names) {
  // Only a file without a name can change its folder.
  if (!tmp_.empty()) ThrowSys(EINVAL, "linkat", ShownPath(where, name));
  dir_ = dir;
  where_ = std::move(where);
  folder_ = ".";
  if (!replace) {
    Place(name, false);
    return;
  }
  for (int attempt = 0; tmp_.empty(); ++attempt) {
    std::string tmp = names.Next();
    try {
      Link(tmp);
      tmp_ = std::move(tmp);
    } catch (const KestrelError& e) {
      if (e.Number() != EEXIST || attempt >= 100) throw;
    }
  }
  try {
    Place(name, true);
  } catch (...) {
    ::unlinkat(dir_, tmp_.c_str(), 0);  // at once: the caller may copy the file anew
    tmp_.clear();
    placed_ = true;
    throw;
  }
}

NewFile::~NewFile() {
  fd_ = UniqueFd();
  if (!placed_ && !tmp_.empty()) ::unlinkat(dir_, tmp_.c_str(), 0);
}

NewFile::NewFile(NewFile&& other) noexcept
    : faults_(other.faults_), dir_(other.dir_), where_(std::move(other.where_)),
      folder_(std::move(other.folder_)), tmp_(std::exchange(other.tmp_, {})),
      fd_(std::move(other.fd_)), placed_(std::exchange(other.placed_, true)) {}

void NewFile::Write(const char* data, std::size_t n) {
  if (n == 0) return;
  Gate(faults_, FaultOp::Write, "write", [this] { return Shown(); });
  while (n > 0) {
    const ssize_t w = ::write(fd_.get(), data, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno, "write", Shown());
    }
    data += w;
    n -= static_cast<std::size_t>(w);
  }
}

void NewFile::SetTimes(const struct timespec& accessed, const struct timespec& modified) {
  const struct timespec times[2] = {accessed, modified};
  if (::futimens(fd_.get(), times) != 0) ThrowSys(errno, "futimens", Shown());
}

void NewFile::Flush() {
  if (::fsync(fd_.get()) != 0) ThrowSys(errno, "fsync", Shown());
}

FileIdentity NewFile::Identify() {
  struct stat st {};
  if (::fstat(fd_.get(), &st) != 0) ThrowSys(errno, "fstat", Shown());
  return IdentityOf(st);
}

void NewFile::Place(const std::string& name, bool replace) {
  Gate(faults_, FaultOp::Rename, tmp_.empty() ? "linkat" : "renameat2",
       [&] { return ShownPath(where_, name); });
  if (tmp_.empty()) {
    Link(name);
    if (::close(fd_.release()) != 0) ThrowSys(errno, "close", ShownPath(where_, name));
  } else {
    if (::close(fd_.release()) != 0) ThrowSys(errno, "close", Shown());
    PlaceName(dir_, where_, tmp_, name, replace);
  }
  placed_ = true;
}

// A link fails on an existing name. Without the privilege to link a descriptor directly the
// link goes through its name in /proc.
void NewFile::Link(const std::string& name) {
  if (::linkat(fd_.get(), "", dir_, name.c_str(), AT_EMPTY_PATH) == 0) return;
  if (errno != ENOENT && errno != EPERM) ThrowSys(errno, "linkat", ShownPath(where_, name));
  const std::string self = "/proc/self/fd/" + std::to_string(fd_.get());
  if (::linkat(AT_FDCWD, self.c_str(), dir_, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    ThrowSys(errno, "linkat", ShownPath(where_, name));
  }
}

}  // namespace orvKestrel
