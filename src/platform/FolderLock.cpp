#include "platform/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace orvKestrel {

FolderLock::FolderLock(const std::string& folder, const std::function<bool()>& keepWaiting) {
  fd_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd_ < 0) return;
  for (;;) {
    if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) {
      held_ = true;
      return;
    }
    if (errno != EWOULDBLOCK && errno != EINTR) return;  // no locks here: nothing to wait for
    if (!keepWaiting()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

FolderLock::~FolderLock() {
  if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the lock
}

}  // namespace orvKestrel
