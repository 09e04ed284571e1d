// Copies made ahead of the run's own order by a few workers: the expensive part of a copy
// (reading the source, writing and flushing the new file) while the run's thread still decides
// and names the files before it. A prepared copy has no name: one that is never used vanishes
// when it is closed, and a killed run leaves nothing of it. The workers use only their own
// calls here, never the run's FileSystem, and report nothing: a copy they could not make is
// made by the run's thread as without them, which then reports what it meets.
#pragma once

#include "platform/FileSystem.h"
#include "platform/NewFile.h"
#include "platform/OrderedPool.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace orvKestrel {

// A copy written and flushed without a name: contents, user attributes, permission bits and
// times of the source as it was read.
class PreparedCopy {
 public:
  PreparedCopy(NewFile file, const FileIdentity& read, const FileKey& written, PathStatus opened)
      : file_(std::move(file)), read_(read), written_(written), opened_(std::move(opened)) {}
  NewFile& File() { return file_; }
  const FileIdentity& Read() const { return read_; }  // the source as it was read
  const FileKey& Written() const { return written_; }  // the new file, looked up by the worker
  // The source's path as its opening found it (opening resolves the path as a look-up does),
  // and the run's change count read before: the run's look-up of the source, done ahead.
  const PathStatus& Opened() const { return opened_; }
  std::uint64_t OpenedAt() const { return openedAt_; }
  void DateOpened(std::uint64_t changes) { openedAt_ = changes; }

 private:
  NewFile file_;
  FileIdentity read_;
  FileKey written_;
  PathStatus opened_;
  std::uint64_t openedAt_ = 0;
};

// The copy of source as an unnamed file in the folder anchor (Transfers.cpp); nothing when
// wanted, asked with the size of the source once it is open, says no. Throws, also the faults a
// test arranged (safe for threads).
std::optional<PreparedCopy> PrepareCopy(FaultPoints* faults, const std::string& source, int anchor,
                                        const std::string& anchorPath, bool keepOwner,
                                        const std::function<bool(std::uint64_t size)>& wanted);

// A worker's look-ups, one folder at a time: the folder is opened once and each name is looked up
// in it, so the kernel resolves one part of the path per file instead of all of them.
class FolderStatuses {
 public:
  // listing: a folder where a name was missing is listed, and a name the listing lacks is
  // answered as missing without asking: a copy into a folder being filled would otherwise
  // look up every new name while the run names the files before it there, each waiting on
  // the other for the folder.
  explicit FolderStatuses(bool listing = false) : listing_(listing) {}
  // folderChanges: the run's FolderChanges(); changes: its Changes(), both read before this
  // look-up. An answer from the listing lowers changes to what it was when the folder was listed.
  PathStatus Of(const std::string& path, std::uint64_t folderChanges, std::uint64_t& changes);

 private:
  void List(std::uint64_t changes);

  bool listing_;
  bool listTried_ = false;  // in this folder
  std::string folder_;
  std::uint64_t folderChanges_ = 0;  // when the folder was first looked in
  bool opened_ = false;
  UniqueFd fd_;
  std::optional<std::unordered_set<std::string>> names_;  // the folder's names when listed
  std::uint64_t listedAt_ = 0;
};

// One file of the list, as the run expects to treat it.
struct CopyOrder {
  std::string source;
  std::string dest;          // the destination path the run will most likely give it
  bool whenMissing = false;  // a copy is expected when dest does not exist
  bool whenExists = false;   // and when it does (a replacing or renaming policy)
  bool move = false;         // only a source on another file system than the anchor is copied
  bool lookSource = false;   // the run will ask about more of the source than its length
};

// The statuses a worker looked up for one file, and the run's change count before it did.
struct LookedUp {
  std::uint64_t changes = 0;
  PathStatus dest;
  std::optional<PathStatus> source;
  bool copying = false;  // the worker goes on to copy the file
};

class CopyAhead {
 public:
  // workers threads; anchor: the destination folder (taken as named) whose file system holds
  // the unnamed files; they are later linked into its folders.
  // faults: a test's fault points, met by the workers' calls as by the run's.
  // run: the run's file system, whose change count dates what the workers look up.
  CopyAhead(unsigned workers, std::string anchor, FaultPoints* faults = nullptr,
            const FileSystem* run = nullptr);
  ~CopyAhead() = default;  // stops the workers and closes every copy not taken

  // How many files may be handed to the workers ahead of the one in hand: they look up files
  // further ahead than they copy, and are woken once per batch of files, not once per file.
  // While they copy, fewer: every small file handed out is copied at once.
  static constexpr std::size_t kLookAhead = 256;
  static constexpr std::size_t kCopyAhead = 64;
  // The next files of the list; files are numbered from 0 in the order they are added.
  void Add(std::vector<CopyOrder> orders);
  // The copy of file index when it was made (waits while a worker is making it); nothing
  // otherwise, and a file not begun yet is left to the caller. The files before index are
  // dropped: indexes are asked in increasing order.
  std::optional<PreparedCopy> Take(std::size_t index);
  // What a worker looked up for file index, once; nothing when no worker is through with that
  // yet (the caller looks itself: cheaper than waiting). Also after Take(index). The files
  // before index are dropped, as by Take.
  std::optional<LookedUp> Looked(std::size_t index);

 private:
  struct Slot {
    CopyOrder order;
    std::optional<LookedUp> looked;  // set before lookedUp, then the run's alone
    std::atomic<bool> begun{false};  // a worker has taken it
    std::atomic<bool> lookedUp{false};
    std::optional<PreparedCopy> copy;  // read once the pool says the task is through
  };
  struct Looks {  // one worker's open folders
    FolderStatuses dests{true}, sources;
  };
  void Work(std::size_t index, unsigned worker, Slot& slot);
  std::shared_ptr<Slot> Drop(std::size_t index);  // the slots before index; slot index if there
  LookedUp LookUp(const CopyOrder& order, FolderStatuses& dests, FolderStatuses& sources) const;
  // source: the source's status when the order is a move.
  std::optional<PreparedCopy> Prepare(std::size_t index, const CopyOrder& order,
                                      const std::optional<PathStatus>& source);
  int Anchor();  // opened by the first worker that finds the folder

  std::string anchorPath_;
  FaultPoints* faults_;
  const FileSystem* run_;
  std::size_t window_;  // how far ahead of the run a file larger than a small one is copied
  std::deque<std::shared_ptr<Slot>> slots_;  // the run's own: not taken yet, from first_ on
  std::size_t first_ = 0;
  std::mutex anchorMutex_;
  UniqueFd anchor_;
  std::uint64_t anchorDevice_ = 0;
  std::vector<Looks> looks_;  // by worker
  OrderedPool pool_;  // last: its workers stop before the rest goes
};

}  // namespace orvKestrel
