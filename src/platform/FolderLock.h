// An exclusive lock on a folder, held for the object's life: two passes over one job folder
// (a scheduled one and one started by hand) never run its jobs at the same time.
#pragma once

#include <functional>
#include <string>

namespace orvKestrel {

class FolderLock {
 public:
  // Waits for the lock on folder, asking keepWaiting between tries (about ten times a second);
  // when it answers false the wait ends without the lock. A folder that cannot be opened has
  // nothing to guard and is not locked.
  FolderLock(const std::string& folder, const std::function<bool()>& keepWaiting);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  bool Held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
};

}  // namespace orvKestrel
