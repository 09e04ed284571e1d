// Whole-file reads and the atomic replacement of small files (job files).
#include "platform/FileSystem.h"
#include "platform/NewFile.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

namespace orvKestrel {
namespace {

std::string ParentOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

// The file that path names after following links; path itself when it is no link.
std::string LinkTarget(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return path;  // a dangling link: replace the link itself
  std::string out(real);
  std::free(real);
  return out;
}

std::string TooLarge(std::size_t limit) {
  return "Larger than " + std::to_string(limit) + " bytes";
}

}  // namespace

std::optional<std::string> FileSystem::ReadFile(const std::string& path) {
  Gate(FaultOp::Open, "open", path);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    ThrowSys(errno, "open", path);
  }
  return ReadAll(fd.get(), path, std::numeric_limits<std::size_t>::max());
}

std::optional<std::string> FileSystem::ReadSmallFile(const std::string& path, std::size_t limit) {
  Gate(FaultOp::Open, "open", path);
  // Non-blocking, so that opening a pipe that no one writes does not wait for a writer.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    ThrowSys(errno, "open", path);
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) ThrowSys(errno, "fstat", path);
  if (!S_ISREG(st.st_mode)) {
    throw KestrelError(kErrInvalidCall, "Not a regular file", "fstat", path);
  }
  if (static_cast<std::uintmax_t>(st.st_size) > limit) {
    throw KestrelError(kErrOverflow, TooLarge(limit), "fstat", path);
  }
  return ReadAll(fd.get(), path, limit);
}

std::string FileSystem::ReadAll(int fd, const std::string& path, std::size_t limit) {
  std::string data;
  char buf[65536];
  for (;;) {
    Gate(FaultOp::Read, "read", path);
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno, "read", path);
    }
    if (n == 0) return data;
    data.append(buf, static_cast<std::size_t>(n));
    // The file may grow while it is read.
    if (data.size() > limit) throw KestrelError(kErrOverflow, TooLarge(limit), "read", path);
  }
}

std::string FileSystem::ReadHead(const std::string& path, std::size_t n) {
  Gate(FaultOp::Open, "open", path);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) ThrowSys(errno, "open", path);
  std::string data(n, '\0');
  std::size_t got = 0;
  while (got < n) {
    Gate(FaultOp::Read, "read", path);
    const ssize_t r = ::read(fd.get(), data.data() + got, n - got);
    if (r < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno, "read", path);
    }
    if (r == 0) break;
    got += static_cast<std::size_t>(r);
  }
  data.resize(got);
  return data;
}

void FileSystem::WriteFileAtomic(const std::string& path, const std::string& data) {
  const Changing changing(cache_);
  // A link is followed, so that the link stays and its target gets the new contents.
  const std::string target = LinkTarget(path);
  struct stat old {};
  const bool existed = ::stat(target.c_str(), &old) == 0;
  // A file the caller may not write stays as it is, although replacing it by rename would work.
  if (existed && ::access(target.c_str(), W_OK) != 0) ThrowSys(errno, "access", target);
  const std::string folder = ParentOf(target);
  NewFile file(AT_FDCWD, "", folder, tempNames_, faults_, 0666, false);
  if (existed) {
    // Owner and group where we may (root editing another user's job file); else they stay ours.
    const int chowned = ::fchown(file.fd(), old.st_uid, old.st_gid);
    static_cast<void>(chowned);
    if (::fchmod(file.fd(), old.st_mode & 07777) != 0) ThrowSys(errno, "fchmod", file.Shown());
  }
  file.Write(data.data(), data.size());
  file.Flush();
  file.Place(target, true);
  const UniqueFd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() >= 0) ::fsync(dir.get());
}

}  // namespace orvKestrel
