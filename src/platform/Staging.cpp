#include "platform/Staging.h"

#include "platform/Contained.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace orvKestrel::staging {
namespace {

void SyncPath(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

bool CanCreateIn(const std::string& folder) {
  return ::access(folder.c_str(), W_OK | X_OK) == 0;
}

std::optional<FileIdentity> Lookup(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
  return IdentityOf(st);
}

Kind KindOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    return (errno == ENOENT || errno == ENOTDIR) ? Kind::Missing : Kind::Unknown;
  }
  return S_ISREG(st.st_mode) ? Kind::File : Kind::Other;
}

bool Link(const std::string& existing, const std::string& name) {
  return ::link(existing.c_str(), name.c_str()) == 0;
}

int Rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

void Remove(const std::string& path) { ::unlink(path.c_str()); }

void Flush(const std::string& file, const std::string& folder) {
  SyncPath(file, O_RDONLY);
  SyncPath(folder, O_RDONLY | O_DIRECTORY);
}

std::string Head(const std::string& path, std::size_t n) {
  std::string head(n, '\0');
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  const ssize_t got = ::read(fd, head.data(), n);
  ::close(fd);
  head.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return head;
}

}  // namespace orvKestrel::staging
