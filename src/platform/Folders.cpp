// Folder queries and enumeration.
#include "platform/FileSystem.h"
#include "platform/FolderReadAhead.h"
#include "platform/SysError.h"
#include "platform/UniqueFd.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>

namespace orvKestrel {
namespace {

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

bool IsDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

bool IsEngineTemporary(std::string_view name) {
  if (!name.starts_with('.')) return false;
  const auto at = name.rfind(".kestrel-");
  if (at == std::string_view::npos) return false;
  std::string_view rest = name.substr(at + 9);
  const auto all = [](std::string_view s, auto pred) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [&](char c) { return pred(c); });
  };
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  const auto hex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  if (at == 0 && rest.size() >= 20 && rest.substr(16, 4) == ".tmp") {
    // An archive's staging name may carry libzip's temporary suffix ".XXXXXX".
    const std::string_view tail = rest.substr(20);
    const auto alnum = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    return all(rest.substr(0, 16), hex) &&
           (tail.empty() || (tail.size() == 7 && tail[0] == '.' && all(tail.substr(1), alnum)));
  }
  // The forms that earlier versions used for a replaced small file and an extracted entry: their
  // leftovers of a killed run are not files of a job either.
  if (rest.starts_with("tmp-")) rest.remove_prefix(4);
  return at > 0 && all(rest, digit);
}

bool RemoveLeftover(FileSystem& fs, const std::string& folder, const DirEntry& entry) {
  if (entry.isDir || entry.isLink || entry.isOther || !IsEngineTemporary(entry.name)) return false;
  const std::string path = folder.ends_with('/') ? folder + entry.name : folder + "/" + entry.name;
  try {
    fs.DeleteFile(path, true);
    return true;
  } catch (const KestrelError&) {
    return false;
  }
}

namespace {

std::optional<std::vector<DirEntry>> ReadEntries(DirHandle dir) {
  if (!dir) return std::nullopt;
  std::vector<DirEntry> entries;
  while (const dirent* e = readdir(dir.get())) {
    if (IsDot(e->d_name)) continue;
    DirEntry entry{e->d_name, e->d_type == DT_DIR, e->d_type == DT_LNK,
                   e->d_type != DT_REG && e->d_type != DT_DIR && e->d_type != DT_LNK};
    struct stat st {};
    // Some file systems do not fill d_type.
    if (e->d_type == DT_UNKNOWN &&
        ::fstatat(dirfd(dir.get()), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      entry.isDir = S_ISDIR(st.st_mode);
      entry.isLink = S_ISLNK(st.st_mode);
      entry.isOther = !S_ISREG(st.st_mode) && !entry.isDir && !entry.isLink;
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace

std::optional<std::vector<DirEntry>> ReadFolder(const std::string& path) {
  return ReadEntries(DirHandle(opendir(path.empty() ? "." : path.c_str())));
}

std::optional<std::vector<DirEntry>> ReadFolderAt(int folder) {
  UniqueFd fd(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) return std::nullopt;
  DirHandle dir(fdopendir(fd.get()));
  if (dir) fd.release();
  return ReadEntries(std::move(dir));
}

void RemoveEngineTemporaries(FileSystem& fs, const std::string& folder) {
  const auto entries = fs.ListFolder(folder);
  if (!entries) return;
  for (const DirEntry& entry : *entries) RemoveLeftover(fs, folder, entry);
}

void FileSystem::Gate(FaultOp op, const char* call, const std::string& path) {
  orvKestrel::Gate(faults_, op, call, path);
}

namespace {

std::int64_t Nanoseconds(const struct statx_timestamp& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

}  // namespace

// The last part is looked at as it is first: only a link takes a second look, at its target, and
// is marked, since a change to any name may have changed what it leads to.
PathStatus StatusAt(int folder, const char* name, std::string path) {
  PathStatus s{std::move(path), 0, {}, {}, false};
  constexpr unsigned kMask = STATX_BASIC_STATS | STATX_BTIME;
  struct statx sx {};
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW, kMask, &sx) != 0) {
    s.err = errno;
    return s;
  }
  if (!S_ISLNK(sx.stx_mode)) return StatusFrom(std::move(s.path), sx);
  s.link = true;
  if (::statx(folder, name, 0, kMask, &sx) != 0) {
    s.err = errno;
    return s;
  }
  s = StatusFrom(std::move(s.path), sx);
  s.link = true;
  return s;
}

PathStatus StatusFrom(std::string path, const struct statx& sx) {
  PathStatus s{std::move(path), 0, {}, {}, false};
  s.stat.isDir = S_ISDIR(sx.stx_mode);
  s.stat.isFile = S_ISREG(sx.stx_mode);
  s.stat.size = sx.stx_size;
  s.stat.times.accessed = sx.stx_atime.tv_sec;
  s.stat.times.written = sx.stx_mtime.tv_sec;
  s.stat.times.created = (sx.stx_mask & STATX_BTIME) ? sx.stx_btime.tv_sec : sx.stx_ctime.tv_sec;
  s.id = {makedev(sx.stx_dev_major, sx.stx_dev_minor), sx.stx_ino, sx.stx_size,
          Nanoseconds(sx.stx_mtime), Nanoseconds(sx.stx_ctime)};
  return s;
}

PathStatus StatusOf(const std::string& path) {
  return StatusAt(AT_FDCWD, path.c_str(), path);
}

bool FileSystem::FileExists(const std::string& path) {
  const PathStatus& s = cache_.Look(path);
  return s.err == 0 && s.stat.isFile;
}

bool FileSystem::FolderExists(const std::string& path) {
  if (path.empty()) return false;
  const PathStatus& s = cache_.Look(path);
  return s.err == 0 && s.stat.isDir;
}

bool FileSystem::FolderStillExists(const std::string& path) {
  const auto now = StatusCache::Clock::now();
  if (cache_.FolderSeen(path, now)) return true;
  if (!FolderExists(path)) return false;
  cache_.RememberFolder(path, now);
  return true;
}

std::optional<std::vector<DirEntry>> FileSystem::ListFolder(const std::string& path,
                                                            FolderReadAhead* ahead) {
  if (const int err = Injected(FaultOp::List)) {
    errno = err;
    return std::nullopt;
  }
  if (ahead) {
    if (std::optional<FolderListing> read = ahead->Take(path)) {
      errno = read->err;
      return std::move(read->entries);
    }
  }
  return ReadFolder(path);
}

ErrorOr<FileStat> FileSystem::Stat(const std::string& path) {
  const PathStatus& s = cache_.Look(path);
  if (s.err != 0) return SysError(s.err, "statx", path);
  return s.stat;
}

std::uint64_t FileSystem::FolderSize(const std::string& path) {
  auto entries = ListFolder(path);
  if (!entries) ThrowSys(errno ? errno : ENOENT, "opendir", path);
  std::uint64_t total = 0;
  for (const DirEntry& e : *entries) {
    const std::string full = path + (path.back() == '/' ? "" : "/") + e.name;
    if (e.isDir) {
      total += FolderSize(full);
    } else {
      struct stat st {};
      if (::lstat(full.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
        total += static_cast<std::uint64_t>(st.st_size);
      }
    }
  }
  return total;
}

bool FileSystem::FolderIsEmpty(const std::string& path) {
  Gate(FaultOp::List, "opendir", path);
  DirHandle dir(opendir(path.c_str()));
  if (!dir) ThrowSys(errno, "opendir", path);
  while (const dirent* e = readdir(dir.get())) {
    if (!IsDot(e->d_name)) return false;
  }
  return true;
}

void FileSystem::CreateFolder(const std::string& path) {
  const Changing changing(cache_);
  Gate(FaultOp::Open, "mkdir", path);
  if (::mkdir(path.c_str(), 0777) != 0) ThrowSys(errno, "mkdir", path);
}

}  // namespace orvKestrel
