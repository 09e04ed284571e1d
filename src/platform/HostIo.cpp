#include <fcntl.h>
#include <orvKestrel/hostio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Contained.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"
#include "platform/SysError.h"

namespace orvKestrel::hostio {

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
  try {
    FileSystem().WriteFileAtomic(path, text);
    return {};
  } catch (const KestrelError& e) {
    return path + ": " + e.Description();
  }
}

bool FolderBusy(const std::string& folder) {
  const UniqueFd f(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (f.get() < 0) return false;
  // Taken and given back at once: closing the descriptor releases it.
  return ::flock(f.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace orvKestrel::hostio
