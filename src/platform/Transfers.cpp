// Copy, move and delete. A copy is written to a temporary file beside its destination, flushed,
// and renamed into place, so that the destination's name never shows a partial file, whatever
// happens to the process; the temporary is removed on every failure.
#include "platform/FileSystem.h"
#include "platform/Contained.h"
#include "platform/NewFile.h"
#include "platform/Prefetch.h"
#include "platform/SysError.h"

#include <fcntl.h>
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

// call: the one the argument was for.
[[noreturn]] void ThrowInvalidCall(const char* call, const std::string& path) {
  throw KestrelError(kErrInvalidCall, "Invalid procedure call or argument", call, path);
}

std::string ParentOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

// Where a file is written: name and its folder, both relative to the folder descriptor dir
// (AT_FDCWD with full paths, or a folder opened beneath a destination with "."), whose path is
// where ("" for AT_FDCWD).
struct At {
  int dir;
  std::string where;
  std::string folder;
  std::string name;
  std::string Shown() const { return ShownPath(where, name); }
};

bool EntryExists(const At& at) {
  struct stat st {};
  return ::fstatat(at.dir, at.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

void ReadWriteCopy(FaultPoints* faults, int in, const std::string& source, NewFile& out) {
  std::vector<char> buf(kChunk);
  for (;;) {
    Gate(faults, FaultOp::Read, "read", source);
    const ssize_t got = ::read(in, buf.data(), buf.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno, "read", source);
    }
    if (got == 0) return;
    out.Write(buf.data(), static_cast<std::size_t>(got));
  }
}

// Each step counts as one read and one write for fault injection. Once the length the source
// had when opened is copied the end is not asked for: a source that grew meanwhile is refused
// afterwards anyway. An empty length is not trusted (some files report none).
// The path of an error is the source's: copy_file_range cannot tell which side failed, and the
// copy's is temporary.
void CopyContents(FaultPoints* faults, int in, const std::string& source, NewFile& out,
                  std::uint64_t length) {
  std::uint64_t copied = 0;
  while (length == 0 || copied < length) {
    Gate(faults, FaultOp::Read, "copy_file_range", source);
    Gate(faults, FaultOp::Write, "copy_file_range", [&] { return out.Shown(); });
    const ssize_t n = ::copy_file_range(in, nullptr, out.fd(), nullptr, kChunk, 0);
    if (n > 0) {
      copied += static_cast<std::uint64_t>(n);
      continue;
    }
    if (n == 0) return;
    if (errno == EINTR) continue;
    const bool unsupported = errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                             errno == EOPNOTSUPP || errno == EBADF;
    if (copied > 0 || !unsupported) ThrowSys(errno, "copy_file_range", source);
    ReadWriteCopy(faults, in, source, out);
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
  UniqueFd fd;
  struct statx sx {};  // as opened: what a look-up of its path would have found then
  const std::string& path;  // the caller's, which outlives it
};

OpenSource OpenRegular(FaultPoints* faults, const std::string& source) {
  Gate(faults, FaultOp::Open, "open", source);
  OpenSource src{UniqueFd(::open(source.c_str(), O_RDONLY | O_CLOEXEC)), {}, source};
  if (src.fd.get() < 0) ThrowSys(errno, "open", source);
  if (::statx(src.fd.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &src.sx) != 0) {
    ThrowSys(errno, "statx", source);
  }
  if (S_ISDIR(src.sx.stx_mode)) ThrowSys(EISDIR, "statx", source);
  if (!S_ISREG(src.sx.stx_mode)) ThrowSys(EINVAL, "statx", source);
  return src;
}

std::int64_t Nanoseconds(const struct timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

struct timespec Timespec(const struct statx_timestamp& t) {
  return {static_cast<std::time_t>(t.tv_sec), static_cast<long>(t.tv_nsec)};
}

// A file written to while it was read gives a copy of no state it ever had: such a copy is
// not put in place (the caller reports it; a later run copies the file at rest). Returns the
// source as it was read.
FileIdentity RefuseChangedSource(const OpenSource& src) {
  struct stat now {};
  if (::fstat(src.fd.get(), &now) != 0) ThrowSys(errno, "fstat", src.path);
  if (static_cast<std::uint64_t>(now.st_size) != src.sx.stx_size ||
      now.st_mtim.tv_sec != src.sx.stx_mtime.tv_sec ||
      static_cast<std::uint32_t>(now.st_mtim.tv_nsec) != src.sx.stx_mtime.tv_nsec) {
    throw KestrelError(EAGAIN, "The file changed while it was copied", "fstat", src.path);
  }
  return IdentityOf(now);
}

[[noreturn]] void ThrowChangedAfterRead(const std::string& path) {
  throw KestrelError(EAGAIN, "The file changed after it was read and was kept", "stat", path);
}

// The unlink of a source that was read as `was`: refused when the name now leads elsewhere or
// the file changed meanwhile. Look and unlink are as close together as the system allows.
void UnlinkVerified(const std::string& path, const FileIdentity& was) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) ThrowSys(errno, "stat", path);
  if (IdentityOf(st) != was) ThrowChangedAfterRead(path);
  if (::unlink(path.c_str()) != 0) ThrowSys(errno, "unlink", path);
}

// Fills a new file from an open source: contents, user attributes, permission bits and the
// access and write times, flushed. With keepOwner the owner is kept where the process may set
// it. Returns the source as it was read and the new file. The permission bits are set only
// where the file was not made with them (a file made without a name can be: no one can open it
// while it is written).
CopiedFile FillCopy(FaultPoints* faults, const OpenSource& src, NewFile& tmp, bool keepOwner) {
  CopyContents(faults, src.fd.get(), src.path, tmp, src.sx.stx_size);
  const FileIdentity read = RefuseChangedSource(src);
  CopyUserXattrs(src.fd.get(), tmp.fd());
  if (keepOwner && ::fchown(tmp.fd(), src.sx.stx_uid, src.sx.stx_gid) != 0 && errno != EPERM) {
    ThrowSys(errno, "fchown", tmp.Shown());
  }
  struct stat made {};
  if (::fstat(tmp.fd(), &made) != 0) ThrowSys(errno, "fstat", tmp.Shown());
  const mode_t mode = src.sx.stx_mode & 07777;
  if ((made.st_mode & 07777) != mode && ::fchmod(tmp.fd(), mode) != 0) {
    ThrowSys(errno, "fchmod", tmp.Shown());
  }
  Gate(faults, FaultOp::SetTimes, "futimens", [&] { return tmp.Shown(); });
  tmp.SetTimes(Timespec(src.sx.stx_atime), Timespec(src.sx.stx_mtime));
  tmp.Flush();
  return {read, FileKey(IdentityOf(made))};
}

// Copies an open source to dest through a temporary file, flushed before it gets dest's name.
CopiedFile CopyThroughTemp(FaultPoints* faults, TempNames& names, const OpenSource& src,
                           const At& dest, bool overwrite, bool keepOwner) {
  NewFile tmp(dest.dir, dest.where, dest.folder, names, faults, 0600, !overwrite);
  const CopiedFile copied = FillCopy(faults, src, tmp, keepOwner);
  tmp.Place(dest.name, overwrite);
  return copied;
}

// Gives a copy made ahead dest's name; nothing when that fails (the caller then copies as without
// it, and reports what that copy meets).
std::optional<CopiedFile> NamePrepared(PreparedCopy& ready, TempNames& names, const At& dest,
                                       bool overwrite) {
  try {
    ready.File().PlaceIn(dest.dir, dest.where, dest.name, overwrite, names);
  } catch (const KestrelError&) {
    return std::nullopt;
  }
  return CopiedFile{ready.Read(), ready.Written()};
}

// A copy made ahead takes dest's name only while source is still the file it was made from.
std::optional<CopiedFile> PlacePrepared(PreparedCopy* ready, TempNames& names,
                                        const std::string& source, const At& dest,
                                        bool overwrite) {
  if (ready == nullptr) return std::nullopt;
  struct stat now {};
  if (::stat(source.c_str(), &now) != 0 || IdentityOf(now) != ready->Read()) return std::nullopt;
  return NamePrepared(*ready, names, dest, overwrite);
}

void SyncFolder(const At& at) {
  const UniqueFd fd(::openat(at.dir, at.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() >= 0 && ::fsync(fd.get()) != 0) {
    ThrowSys(errno, "fsync", ShownPath(at.where, at.folder));
  }
}

// A move between two file systems: a flushed copy with all times kept, and only then the
// removal of the source. When the source cannot be removed the copy is taken back, so that a
// failed move leaves both sides as they were.
void MoveAcross(FaultPoints* faults, TempNames& names, const std::string& source,
                const At& dest, PreparedCopy* ready) {
  Gate(faults, FaultOp::Copy, "copy_file_range", source);
  std::optional<CopiedFile> copied = PlacePrepared(ready, names, source, dest, false);
  if (!copied) {
    const OpenSource src = OpenRegular(faults, source);
    if (EntryExists(dest)) ThrowSys(EEXIST, "fstatat", dest.Shown());
    copied = CopyThroughTemp(faults, names, src, dest, false, true);
  }
  SyncFolder(dest);
  try {
    Gate(faults, FaultOp::Unlink, "unlink", source);
    UnlinkVerified(source, copied->read);
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

CopiedFile FileSystem::CopyFile(const std::string& source, const std::string& dest,
                                bool overwrite) {
  if (dest.empty()) ThrowInvalidCall("open", dest);
  return CopyAt(source, AT_FDCWD, "", ParentOf(dest), dest, overwrite);
}

CopiedFile FileSystem::CopyFile(const std::string& source, const DestFolder& folder,
                                const std::string& name, bool overwrite, PreparedCopy* ready) {
  if (name.empty()) ThrowInvalidCall("openat", folder.path());
  return CopyAt(source, folder.fd(), folder.path(), ".", name, overwrite, ready,
                ready != nullptr && folder.ExactNames());
}

CopiedFile FileSystem::CopyAt(const std::string& source, int dir, const std::string& where,
                              const std::string& folder, const std::string& name,
                              bool overwrite, PreparedCopy* ready, bool exactNames) {
  std::optional<StatusCache::FreeFigure> figure = cache_.TakeFree();
  Gate(FaultOp::Copy, "copy_file_range", source);
  if (source.empty()) ThrowInvalidCall("open", source);
  const At dest{dir, where, folder, name};
  std::optional<CopiedFile> copied;
  // A copy made ahead whose source the run still finds as it was read is only given a name
  // that was free: a change that leaves what the workers found for other names current.
  if (ready != nullptr && !overwrite && exactNames && FoundAsRead(source, ready->Read())) {
    const Changing naming(cache_, std::string_view(name));
    copied = NamePrepared(*ready, tempNames_, dest, false);
    ready = nullptr;  // tried
  }
  if (!copied) {
    const Changing changing(cache_);
    copied = PlacePrepared(ready, tempNames_, source, dest, overwrite);
    if (!copied) {
      const OpenSource src = OpenRegular(faults_, source);
      // Without overwrite the final link or rename refuses an existing destination; callers
      // look first.
      copied = CopyThroughTemp(faults_, tempNames_, src, dest, overwrite, false);
    }
  }
  // A replacement also frees the old file's blocks, which only a new reading tells.
  if (!overwrite && figure) cache_.Allocated(std::move(*figure), copied->read.size);
  return *copied;
}

bool FileSystem::FoundAsRead(const std::string& path, const FileIdentity& read) {
  const PathStatus& now = cache_.Look(path);
  return now.err == 0 && !now.link && now.id == read;
}

void FileSystem::MoveFile(const std::string& source, const std::string& dest) {
  if (dest.empty()) ThrowInvalidCall("renameat2", dest);
  MoveAt(source, AT_FDCWD, "", ParentOf(dest), dest);
}

void FileSystem::MoveFile(const std::string& source, const DestFolder& folder,
                          const std::string& name, PreparedCopy* ready) {
  if (name.empty()) ThrowInvalidCall("renameat2", folder.path());
  MoveAt(source, folder.fd(), folder.path(), ".", name, ready);
}

void FileSystem::MoveAt(const std::string& source, int dir, const std::string& where,
                        const std::string& folder, const std::string& name, PreparedCopy* ready) {
  const Changing changing(cache_, true);
  if (source.empty()) ThrowInvalidCall("renameat2", source);
  const At dest{dir, where, folder, name};
  int err = Injected(FaultOp::Rename);  // an injected error stands for the rename's own
  if (err == 0) {
    if (::renameat2(AT_FDCWD, source.c_str(), dir, name.c_str(), RENAME_NOREPLACE) == 0) return;
    err = errno;
    if (err == EINVAL || err == ENOSYS) {  // no no-replace rename on this file system
      if (EntryExists(dest)) ThrowSys(EEXIST, "fstatat", dest.Shown());
      if (::renameat(AT_FDCWD, source.c_str(), dir, name.c_str()) == 0) return;
      if (errno != EXDEV) ThrowSys(errno, "renameat", dest.Shown());
      err = errno;
    }
  }
  if (err != EXDEV) ThrowSys(err, "renameat2", dest.Shown());
  MoveAcross(faults_, tempNames_, source, dest, ready);
}

namespace {

// The checks before a file is deleted: a folder is refused, and a read-only file unless forced
// (unlink asks the folder, not the file).
void CheckDeletable(const std::string& path, bool force) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) ThrowSys(errno, "lstat", path);
  if (S_ISDIR(st.st_mode)) ThrowSys(EISDIR, "lstat", path);
  if (!force && !S_ISLNK(st.st_mode) && (st.st_mode & S_IWUSR) == 0) {
    ThrowSys(EACCES, "lstat", path);
  }
}

}  // namespace

void FileSystem::DeleteFile(const std::string& path, bool force) {
  const Changing changing(cache_);
  if (path.empty()) ThrowInvalidCall("unlink", path);
  Gate(FaultOp::Unlink, "unlink", path);
  CheckDeletable(path, force);
  if (::unlink(path.c_str()) != 0) ThrowSys(errno, "unlink", path);
}

FileIdentity FileSystem::Identify(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) ThrowSys(errno, "stat", path);
  return IdentityOf(st);
}

void FileSystem::DeleteVerified(const std::string& path, const FileIdentity& was, bool force) {
  const Changing changing(cache_);
  if (path.empty()) ThrowInvalidCall("unlink", path);
  Gate(FaultOp::Unlink, "unlink", path);
  CheckDeletable(path, force);
  UnlinkVerified(path, was);
}

void FileSystem::DeleteFolder(const std::string& path, bool force) {
  const Changing changing(cache_, true);
  if (path.empty()) ThrowInvalidCall("rmdir", path);
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) ThrowSys(errno, "lstat", path);
  if (!S_ISDIR(st.st_mode)) ThrowSys(ENOTDIR, "lstat", path);
  if (!force && (st.st_mode & S_IWUSR) == 0) ThrowSys(EACCES, "lstat", path);
  errno = 0;
  const auto entries = ListFolder(path);
  if (!entries) ThrowSys(errno ? errno : EIO, "opendir", path);
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
  const Changing changing(cache_, true);
  ++folderRemovals_;
  if (path.empty()) ThrowInvalidCall("rmdir", path);
  Gate(FaultOp::Unlink, "rmdir", path);
  if (::rmdir(path.c_str()) != 0) ThrowSys(errno, "rmdir", path);
}

bool FileSystem::SameFile(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace orvKestrel

namespace orvKestrel {

std::optional<PreparedCopy> PrepareCopy(FaultPoints* faults, const std::string& source, int anchor,
                                        const std::string& anchorPath, bool keepOwner,
                                        const std::function<bool(std::uint64_t)>& wanted) {
  const OpenSource src = OpenRegular(faults, source);
  if (!wanted(src.sx.stx_size)) return std::nullopt;
  NewFile file = NewFile::Unnamed(faults, anchor, anchorPath, ".", src.sx.stx_mode & 07777);
  const CopiedFile copied = FillCopy(faults, src, file, keepOwner);
  return PreparedCopy(std::move(file), copied.read, copied.written, StatusFrom(source, src.sx));
}

}  // namespace orvKestrel
