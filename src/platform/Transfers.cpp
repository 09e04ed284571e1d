// Copy, move and delete. A copy is written to a temporary file beside its destination, flushed,
// and renamed into place, so that the destination's name never shows a partial file, whatever
// happens to the process; the temporary is removed on every failure.
#include "platform/FileSystem.h"
#include "platform/Contained.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace orvKestrel {
namespace {

constexpr std::size_t kChunk = std::size_t{1} << 20;  // bytes per copy step

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      if (fd_ >= 0) ::close(fd_);
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

void Check(Faults& faults, FaultOp op) {
  if (const int err = faults.Check(op)) ThrowSys(err);
}

[[noreturn]] void ThrowInvalidCall() {
  throw KestrelError(kErrInvalidCall, "Invalid procedure call or argument");
}

std::string ParentOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

// Where a file is written: name and its folder, both relative to the folder descriptor dir
// (AT_FDCWD with full paths, or a folder opened beneath a destination with ".").
struct At {
  int dir;
  std::string folder;
  std::string name;
};

bool EntryExists(const At& at) {
  struct stat st {};
  return ::fstatat(at.dir, at.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

// Puts a finished temporary file (tmp, relative to dest.dir) under the destination's name.
void PlaceNamed(const std::string& tmp, const At& dest, bool overwrite) {
  const char* to = dest.name.c_str();
  if (overwrite) {
    if (::renameat(dest.dir, tmp.c_str(), dest.dir, to) != 0) ThrowSys(errno);
    return;
  }
  if (::renameat2(dest.dir, tmp.c_str(), dest.dir, to, RENAME_NOREPLACE) == 0) return;
  if (errno != EINVAL && errno != ENOSYS) ThrowSys(errno);
  // A file system without the no-replace rename: a hard link fails on an existing name.
  if (::linkat(dest.dir, tmp.c_str(), dest.dir, to, 0) != 0) ThrowSys(errno);
  ::unlinkat(dest.dir, tmp.c_str(), 0);
}

// The copy being written beside its destination. A new file is written without any name where
// the file system allows (O_TMPFILE), so that a process that dies before it is complete leaves
// nothing behind; else, and for a replacement, under a hidden unique name that is removed again
// unless the file is placed.
class TempFile {
 public:
  TempFile(const At& dest, TempNames& names, bool replacing) : dir_(dest.dir) {
    if (!replacing && names.UnnamedPossible()) {
      fd_ = ::openat(dir_, dest.folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
      if (fd_ >= 0) return;
      if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) ThrowSys(errno);
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
      path_ = dest.folder + "/" + names.Next();
      fd_ = ::openat(dir_, path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd_ >= 0) return;
      if (errno != EEXIST) ThrowSys(errno);
    }
    ThrowSys(EEXIST);
  }
  ~TempFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!placed_ && !path_.empty()) ::unlinkat(dir_, path_.c_str(), 0);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  int fd() const { return fd_; }

  // Gives the finished file dest's name and closes it; an existing dest is replaced only when
  // overwrite is set.
  void Place(const At& dest, bool overwrite) {
    if (path_.empty()) {
      Link(dest);
      Close();
    } else {
      Close();
      PlaceNamed(path_, dest, overwrite);
    }
    placed_ = true;
  }

 private:
  void Close() {
    const int fd = std::exchange(fd_, -1);
    if (::close(fd) != 0) ThrowSys(errno);
  }
  // A link fails on an existing name. Without the privilege to link a descriptor directly the
  // link goes through its name in /proc.
  void Link(const At& dest) {
    if (::linkat(fd_, "", dest.dir, dest.name.c_str(), AT_EMPTY_PATH) == 0) return;
    if (errno != ENOENT && errno != EPERM) ThrowSys(errno);
    const std::string self = "/proc/self/fd/" + std::to_string(fd_);
    if (::linkat(AT_FDCWD, self.c_str(), dest.dir, dest.name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      ThrowSys(errno);
    }
  }

  int dir_;
  std::string path_;  // relative to dir_; empty while the file has no name
  int fd_ = -1;
  bool placed_ = false;
};

void ReadWriteCopy(Faults& faults, int in, int out) {
  std::vector<char> buf(kChunk);
  for (;;) {
    Check(faults, FaultOp::Read);
    const ssize_t got = ::read(in, buf.data(), buf.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno);
    }
    if (got == 0) return;
    Check(faults, FaultOp::Write);
    for (ssize_t done = 0; done < got;) {
      const ssize_t w = ::write(out, buf.data() + done, static_cast<std::size_t>(got - done));
      if (w < 0) {
        if (errno == EINTR) continue;
        ThrowSys(errno);
      }
      done += w;
    }
  }
}

// Each step counts as one read and one write for fault injection. Once the length the source
// had when opened is copied the end is not asked for: a source that grew meanwhile is refused
// afterwards anyway. An empty length is not trusted (some files report none).
void CopyContents(Faults& faults, int in, int out, std::uint64_t length) {
  std::uint64_t copied = 0;
  while (length == 0 || copied < length) {
    Check(faults, FaultOp::Read);
    Check(faults, FaultOp::Write);
    const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, kChunk, 0);
    if (n > 0) {
      copied += static_cast<std::uint64_t>(n);
      continue;
    }
    if (n == 0) return;
    if (errno == EINTR) continue;
    const bool unsupported = errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                             errno == EOPNOTSUPP || errno == EBADF;
    if (copied > 0 || !unsupported) ThrowSys(errno);
    ReadWriteCopy(faults, in, out);
    return;
  }
}

// The extended attributes of the user name space (where the DOS attributes live); a target
// without them keeps none, silently.
void CopyUserXattrs(int in, int out) {
  const ssize_t len = ::flistxattr(in, nullptr, 0);
  if (len <= 0) return;
  std::vector<char> names(static_cast<std::size_t>(len));
  const ssize_t got = ::flistxattr(in, names.data(), names.size());
  if (got <= 0) return;
  std::vector<char> value;
  for (std::size_t pos = 0; pos < static_cast<std::size_t>(got);) {
    const char* name = names.data() + pos;
    pos += std::char_traits<char>::length(name) + 1;
    if (std::string_view(name).rfind("user.", 0) != 0) continue;
    const ssize_t vlen = ::fgetxattr(in, name, nullptr, 0);
    if (vlen < 0) continue;
    value.resize(static_cast<std::size_t>(vlen));
    const ssize_t v = ::fgetxattr(in, name, value.data(), value.size());
    if (v < 0) continue;
    if (::fsetxattr(out, name, value.data(), static_cast<std::size_t>(v), 0) != 0 &&
        (errno == ENOTSUP || errno == EPERM)) {
      return;
    }
  }
}

struct OpenSource {
  Fd fd;
  struct stat st {};
};

OpenSource OpenRegular(Faults& faults, const std::string& source) {
  Check(faults, FaultOp::Open);
  OpenSource src;
  src.fd = Fd(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (src.fd.get() < 0) ThrowSys(errno);
  if (::fstat(src.fd.get(), &src.st) != 0) ThrowSys(errno);
  if (S_ISDIR(src.st.st_mode)) ThrowSys(EISDIR);
  if (!S_ISREG(src.st.st_mode)) ThrowSys(EINVAL);
  return src;
}

std::int64_t Nanoseconds(const struct timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

// A file written to while it was read gives a copy of no state it ever had: such a copy is
// not put in place (the caller reports it; a later run copies the file at rest). Returns the
// source as it was read.
FileIdentity RefuseChangedSource(const OpenSource& src) {
  struct stat now {};
  if (::fstat(src.fd.get(), &now) != 0) ThrowSys(errno);
  if (now.st_size != src.st.st_size || now.st_mtim.tv_sec != src.st.st_mtim.tv_sec ||
      now.st_mtim.tv_nsec != src.st.st_mtim.tv_nsec) {
    throw KestrelError(EAGAIN, "The file changed while it was copied");
  }
  return IdentityOf(now);
}

[[noreturn]] void ThrowChangedAfterRead() {
  throw KestrelError(EAGAIN, "The file changed after it was read and was kept");
}

// The unlink of a source that was read as `was`: refused when the name now leads elsewhere or
// the file changed meanwhile. Look and unlink are as close together as the system allows.
void UnlinkVerified(const std::string& path, const FileIdentity& was) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) ThrowSys(errno);
  if (IdentityOf(st) != was) ThrowChangedAfterRead();
  if (::unlink(path.c_str()) != 0) ThrowSys(errno);
}

// Copies an open source to dest through a temporary file: contents, user attributes,
// permission bits and the access and write times, flushed before it gets dest's name. With
// keepOwner the owner is kept where the process may set it.
FileIdentity CopyThroughTemp(Faults& faults, TempNames& names, const OpenSource& src,
                             const At& dest, bool overwrite, bool keepOwner) {
  Check(faults, FaultOp::Open);
  TempFile tmp(dest, names, overwrite);
  CopyContents(faults, src.fd.get(), tmp.fd(), static_cast<std::uint64_t>(src.st.st_size));
  const FileIdentity read = RefuseChangedSource(src);
  CopyUserXattrs(src.fd.get(), tmp.fd());
  if (keepOwner && ::fchown(tmp.fd(), src.st.st_uid, src.st.st_gid) != 0 && errno != EPERM) {
    ThrowSys(errno);
  }
  if (::fchmod(tmp.fd(), src.st.st_mode & 07777) != 0) ThrowSys(errno);
  Check(faults, FaultOp::SetTimes);
  const struct timespec times[2] = {src.st.st_atim, src.st.st_mtim};
  if (::futimens(tmp.fd(), times) != 0) ThrowSys(errno);
  if (::fsync(tmp.fd()) != 0) ThrowSys(errno);
  Check(faults, FaultOp::Rename);
  tmp.Place(dest, overwrite);
  return read;
}

void SyncFolder(const At& at) {
  Fd fd(::openat(at.dir, at.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() >= 0 && ::fsync(fd.get()) != 0) ThrowSys(errno);
}

// A move between two file systems: a flushed copy with all times kept, and only then the
// removal of the source. When the source cannot be removed the copy is taken back, so that a
// failed move leaves both sides as they were.
void MoveAcross(Faults& faults, TempNames& names, const std::string& source, const At& dest) {
  Check(faults, FaultOp::Copy);
  const OpenSource src = OpenRegular(faults, source);
  if (EntryExists(dest)) ThrowSys(EEXIST);
  const FileIdentity read = CopyThroughTemp(faults, names, src, dest, false, true);
  SyncFolder(dest);
  try {
    Check(faults, FaultOp::Unlink);
    UnlinkVerified(source, read);
  } catch (...) {
    ::unlinkat(dest.dir, dest.name.c_str(), 0);
    throw;
  }
}

}  // namespace

FileIdentity IdentityOf(const struct stat& st) {
  return {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino),
          static_cast<std::uint64_t>(st.st_size), Nanoseconds(st.st_mtim),
          Nanoseconds(st.st_ctim)};
}

bool TempNames::UnnamedPossible() {
  // Linking a file without a name goes through /proc where the process lacks the privilege to
  // link a descriptor directly; without /proc the copy keeps a temporary name. Asked once.
  if (!unnamed_) unnamed_ = ::access("/proc/self/fd", X_OK) == 0;
  return *unnamed_;
}

std::string TempNames::Next() {
  if (!seeded_) {
    if (::getrandom(&base_, sizeof base_, 0) != static_cast<ssize_t>(sizeof base_)) {
      ThrowSys(errno ? errno : EIO);
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

FileIdentity FileSystem::CopyFile(const std::string& source, const std::string& dest,
                                  bool overwrite) {
  if (dest.empty()) ThrowInvalidCall();
  return CopyAt(source, AT_FDCWD, ParentOf(dest), dest, overwrite);
}

FileIdentity FileSystem::CopyFile(const std::string& source, const DestFolder& folder,
                                  const std::string& name, bool overwrite) {
  if (name.empty()) ThrowInvalidCall();
  return CopyAt(source, folder.fd(), ".", name, overwrite);
}

FileIdentity FileSystem::CopyAt(const std::string& source, int dir, const std::string& folder,
                                const std::string& name, bool overwrite) {
  std::optional<FreeFigure> figure = std::move(free_);
  std::uint64_t length = 0;
  FileIdentity read;
  {
    const Changing changing(*this);
    Gate(FaultOp::Copy);
    if (source.empty()) ThrowInvalidCall();
    const OpenSource src = OpenRegular(faults_, source);
    length = static_cast<std::uint64_t>(src.st.st_size);
    // Without overwrite the final link or rename refuses an existing destination; callers look
    // first.
    read = CopyThroughTemp(faults_, tempNames_, src, At{dir, folder, name}, overwrite, false);
  }
  // A new file takes its length in whole blocks from the free space read before it, so that
  // the next file need not ask again. A replacement also frees the old file's blocks, which
  // only a new reading tells.
  if (!overwrite && figure) {
    const std::uint64_t block = std::max<std::uint64_t>(figure->block, 1);
    const std::uint64_t used = (length + block - 1) / block * block;
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    figure->bytes -= static_cast<std::int64_t>(std::min(used, kMax));
    free_ = std::move(figure);
  }
  return read;
}

void FileSystem::MoveFile(const std::string& source, const std::string& dest) {
  if (dest.empty()) ThrowInvalidCall();
  MoveAt(source, AT_FDCWD, ParentOf(dest), dest);
}

void FileSystem::MoveFile(const std::string& source, const DestFolder& folder,
                          const std::string& name) {
  if (name.empty()) ThrowInvalidCall();
  MoveAt(source, folder.fd(), ".", name);
}

void FileSystem::MoveAt(const std::string& source, int dir, const std::string& folder,
                        const std::string& name) {
  const Changing changing(*this, true);
  if (source.empty()) ThrowInvalidCall();
  const At dest{dir, folder, name};
  int err = faults_.Check(FaultOp::Rename);  // an injected error stands for the rename's own
  if (err == 0) {
    if (::renameat2(AT_FDCWD, source.c_str(), dir, name.c_str(), RENAME_NOREPLACE) == 0) return;
    err = errno;
    if (err == EINVAL || err == ENOSYS) {  // no no-replace rename on this file system
      if (EntryExists(dest)) ThrowSys(EEXIST);
      if (::renameat(AT_FDCWD, source.c_str(), dir, name.c_str()) == 0) return;
      err = errno;
    }
  }
  if (err != EXDEV) ThrowSys(err);
  MoveAcross(faults_, tempNames_, source, dest);
}

namespace {

// The checks before a file is deleted: a folder is refused, and a read-only file unless forced
// (unlink asks the folder, not the file).
void CheckDeletable(const std::string& path, bool force) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) ThrowSys(errno);
  if (S_ISDIR(st.st_mode)) ThrowSys(EISDIR);
  if (!force && !S_ISLNK(st.st_mode) && (st.st_mode & S_IWUSR) == 0) ThrowSys(EACCES);
}

}  // namespace

void FileSystem::DeleteFile(const std::string& path, bool force) {
  const Changing changing(*this);
  if (path.empty()) ThrowInvalidCall();
  Gate(FaultOp::Unlink);
  CheckDeletable(path, force);
  if (::unlink(path.c_str()) != 0) ThrowSys(errno);
}

FileIdentity FileSystem::Identify(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) ThrowSys(errno);
  return IdentityOf(st);
}

void FileSystem::DeleteVerified(const std::string& path, const FileIdentity& was, bool force) {
  const Changing changing(*this);
  if (path.empty()) ThrowInvalidCall();
  Gate(FaultOp::Unlink);
  CheckDeletable(path, force);
  UnlinkVerified(path, was);
}

void FileSystem::DeleteFolder(const std::string& path, bool force) {
  const Changing changing(*this, true);
  if (path.empty()) ThrowInvalidCall();
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) ThrowSys(errno);
  if (!S_ISDIR(st.st_mode)) ThrowSys(ENOTDIR);
  if (!force && (st.st_mode & S_IWUSR) == 0) ThrowSys(EACCES);
  errno = 0;
  const auto entries = ListFolder(path);
  if (!entries) ThrowSys(errno ? errno : EIO);
  const std::string prefix = path.back() == '/' ? path : path + "/";
  for (const DirEntry& e : *entries) {
    if (e.isDir) {
      DeleteFolder(prefix + e.name, force);
    } else {
      DeleteFile(prefix + e.name, force);
    }
  }
  RemoveFolder(path);
}

void FileSystem::RemoveFolder(const std::string& path) {
  const Changing changing(*this, true);
  ++folderRemovals_;
  if (path.empty()) ThrowInvalidCall();
  Gate(FaultOp::Unlink);
  if (::rmdir(path.c_str()) != 0) ThrowSys(errno);
}

bool FileSystem::SameFile(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace orvKestrel
