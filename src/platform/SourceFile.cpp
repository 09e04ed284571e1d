// A source read through one descriptor, which tells at the end whether the file stayed as it
// was opened: what is stored of it is then a state it really had.
#include "platform/Contained.h"
#include "platform/FileSystem.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvKestrel {
namespace {

constexpr std::uint64_t kStep = std::uint64_t{1} << 20;  // a copy step, for fault injection

}  // namespace

SourceFile FileSystem::OpenToRead(const std::string& path) {
  Gate(FaultOp::Open, "open", path);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (fd.get() < 0) ThrowSys(errno, "open", path);
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) ThrowSys(errno, "fstat", path);
  if (S_ISDIR(st.st_mode)) ThrowSys(EISDIR, "fstat", path);
  if (!S_ISREG(st.st_mode)) ThrowSys(EINVAL, "fstat", path);
  return SourceFile(faults_, fd.release(), IdentityOf(st), path);
}

SourceFile::SourceFile(FaultPoints* faults, int fd, const FileIdentity& opened, std::string path)
    : faults_(faults), fd_(fd), path_(std::move(path)), opened_(opened) {}

SourceFile::SourceFile(SourceFile&& other) noexcept
    : faults_(other.faults_), fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_)),
      opened_(other.opened_), read_(other.read_) {}

SourceFile::~SourceFile() {
  if (fd_ >= 0) ::close(fd_);
}

std::size_t SourceFile::Read(char* buf, std::size_t n) {
  // Each step of the copy's size counts as one read for fault injection.
  if (read_ % kStep == 0 || read_ % kStep + n > kStep) {
    Gate(faults_, FaultOp::Read, "read", path_);
  }
  for (;;) {
    const ssize_t got = ::read(fd_, buf, n);
    if (got >= 0) {
      read_ += static_cast<std::uint64_t>(got);
      return static_cast<std::size_t>(got);
    }
    if (errno != EINTR) ThrowSys(errno, "read", path_);
  }
}

FileIdentity SourceFile::Finish() {
  struct stat st {};
  if (::fstat(fd_, &st) != 0) ThrowSys(errno, "fstat", path_);
  const FileIdentity now = IdentityOf(st);
  if (now != opened_ || read_ != now.size) {
    throw KestrelError(EAGAIN, "The file changed while it was read", "fstat", path_);
  }
  return now;
}

}  // namespace orvKestrel
