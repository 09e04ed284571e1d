// Whole-file reads and the atomic replacement of small files (job files).
#include "platform/FileSystem.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <utility>

namespace orvKestrel {
namespace {

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

std::string ParentOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

}  // namespace

std::optional<std::string> FileSystem::ReadFile(const std::string& path) {
  Gate(FaultOp::Open);
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    ThrowSys(errno);
  }
  std::string data;
  char buf[65536];
  for (;;) {
    Gate(FaultOp::Read);
    const ssize_t n = ::read(fd.get(), buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno);
    }
    if (n == 0) break;
    data.append(buf, static_cast<std::size_t>(n));
  }
  return data;
}

std::string FileSystem::ReadHead(const std::string& path, std::size_t n) {
  Gate(FaultOp::Open);
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) ThrowSys(errno);
  std::string data(n, '\0');
  std::size_t got = 0;
  while (got < n) {
    Gate(FaultOp::Read);
    const ssize_t r = ::read(fd.get(), data.data() + got, n - got);
    if (r < 0) {
      if (errno == EINTR) continue;
      ThrowSys(errno);
    }
    if (r == 0) break;
    got += static_cast<std::size_t>(r);
  }
  data.resize(got);
  return data;
}

void FileSystem::WriteFileAtomic(const std::string& path, const std::string& data) {
  std::random_device rd;
  const std::string tmp = path + ".kestrel-tmp-" + std::to_string(rd());
  Gate(FaultOp::Open);
  Fd fd(::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (fd.get() < 0) ThrowSys(errno);
  auto fail = [&](int err) {
    ::unlink(tmp.c_str());
    ThrowSys(err);
  };
  std::size_t done = 0;
  while (done < data.size()) {
    if (const int err = faults_.Check(FaultOp::Write)) fail(err);
    const ssize_t w = ::write(fd.get(), data.data() + done, data.size() - done);
    if (w < 0) {
      if (errno == EINTR) continue;
      fail(errno);
    }
    done += static_cast<std::size_t>(w);
  }
  if (::fsync(fd.get()) != 0) fail(errno);
  if (::close(fd.release()) != 0) fail(errno);
  if (const int err = faults_.Check(FaultOp::Rename)) fail(err);
  if (::rename(tmp.c_str(), path.c_str()) != 0) fail(errno);
  Fd dir(::open(ParentOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() >= 0) ::fsync(dir.get());
}

}  // namespace orvKestrel
