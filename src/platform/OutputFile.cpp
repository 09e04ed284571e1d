#include <orvKestrel/hostio.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace orvKestrel {

OutputFile OpenOutputFile(const std::string& path, bool append) {
  const int fd = ::open(path.c_str(),
                        O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (append ? O_APPEND : 0),
                        0666);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !(S_ISREG(st.st_mode) || S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode))) {
    const int err = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    ::close(fd);
    errno = err;
    return nullptr;
  }
  if (!append && S_ISREG(st.st_mode) && ::ftruncate(fd, 0) != 0) {
    const int err = errno;
    ::close(fd);
    errno = err;
    return nullptr;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  std::FILE* f = ::fdopen(fd, append ? "a" : "w");
  if (f == nullptr) ::close(fd);
  return OutputFile(f);
}

}  // namespace orvKestrel
