// Folder listings read ahead of a walk by a thread of their own: while the walk's thread sorts
// the entries of one folder, the next ones it will enter are read. A listing read ahead is the
// one the walk would have made a moment later; a walk changes no folder (it removes plain
// leftover files at most), so the difference is that of any change made from outside meanwhile.
#pragma once

#include "platform/FileSystem.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace orvKestrel {

// A folder's entries, or the errno its listing failed with.
struct FolderListing {
  std::optional<std::vector<DirEntry>> entries;
  int err = 0;
  bool unread = false;  // the reader could not hold it: the walk lists it itself
};

class FolderReadAhead {
 public:
  FolderReadAhead();
  ~FolderReadAhead();  // stops the reader; what was not taken is dropped

  // The sub-folders of parent, as the walk will ask for them and in that order (depth first:
  // before the folders expected earlier that are still waiting).
  void Expect(const std::string& parent, const std::vector<std::string>& folders);
  // The listing of folder when it was read ahead (waits while it is being read); nothing when
  // the reader has not come to it: it is dropped, and the caller lists the folder itself.
  std::optional<FolderListing> Take(const std::string& folder);
  // The walk is through with parent: what it expected below it and did not take is dropped.
  void Forget(const std::string& parent);

 private:
  enum class State { Waiting, Reading, Read, Dropped };
  struct Item {
    std::string path;
    State state = State::Waiting;
    FolderListing listing;
  };
  void Read(const std::stop_token& stop);
  void Drop(Item& item);  // under the lock

  // How many listings may wait to be taken: enough to keep ahead of the walk, few enough that
  // folders the walk skips cost little.
  static constexpr std::size_t kHeld = 8;
  std::mutex m_;
  std::condition_variable_any work_;  // the reader's: a folder to read, room to hold it
  std::condition_variable read_;      // the walk's: a listing being read is through
  std::deque<std::shared_ptr<Item>> queue_;  // the next to read in front
  std::unordered_map<std::string, std::shared_ptr<Item>> items_;  // not taken, by path
  std::unordered_map<std::string, std::vector<std::shared_ptr<Item>>> below_;  // by parent
  std::size_t held_ = 0;  // read, not taken
  std::jthread reader_;   // last: stopped and joined before the rest goes
};

}  // namespace orvKestrel
