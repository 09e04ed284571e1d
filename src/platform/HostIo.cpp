#include <fcntl.h>
#include <orvKestrel/hostio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Process.h"

namespace orvKestrel::hostio {
namespace {

// Closes a descriptor when the scope ends.
struct Fd {
  int fd;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
};

bool WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

Kind KindOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return Kind::Missing;
  if (S_ISREG(st.st_mode)) return Kind::File;
  return S_ISDIR(st.st_mode) ? Kind::Folder : Kind::Other;
}

std::optional<std::uint64_t> FileSize(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(st.st_size);
}

bool IsTerminal(std::FILE* stream) { return ::isatty(::fileno(stream)) == 1; }

std::string OwnExecutable() { return orvKestrel::OwnExecutable(); }

std::string WriteFileAtomically(const std::string& path, const std::string& text) {
  const std::string temp = path + ".tmp." + std::to_string(::getpid());
  std::string why;
  {
    Fd f(::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (f.fd < 0) return temp + ": " + std::strerror(errno);
    if (!WriteAll(f.fd, text) || ::fsync(f.fd) != 0) why = temp + ": " + std::strerror(errno);
  }
  if (why.empty() && ::rename(temp.c_str(), path.c_str()) != 0) {
    why = path + ": " + std::strerror(errno);
  }
  if (!why.empty()) ::unlink(temp.c_str());
  return why;
}

bool FolderBusy(const std::string& folder) {
  const Fd f(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (f.fd < 0) return false;
  // Taken and given back at once: closing the descriptor releases it.
  return ::flock(f.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace orvKestrel::hostio
