// What a run's file-system object remembers of the disk between its own calls: the status of
// the few paths one file's steps ask about again and again, the free space of the last
// destination, the folder last found. Every change made through the object forgets all of it,
// so nothing remembered outlives a change the run made itself. Used by one thread, apart from
// Changes() and FolderChanges().
//
// A worker's look-up is dated by Changes() and taken while the run has changed nothing since,
// or only given new files names that were free, in folders that tell names apart by their
// bytes: such a name changes what a look-up finds only for a path that has it as one of its
// parts, or that ends in a link. So a copy does not spoil what the workers found for the files
// after it.
#pragma once

#include "platform/PathStatus.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvKestrel {

class StatusCache {
 public:
  using Clock = std::chrono::steady_clock;

  // A free-space reading, and the unit of allocation it was taken in.
  struct FreeFigure {
    std::string path;
    std::int64_t bytes = 0;
    std::uint64_t block = 0;
    Clock::time_point at;
  };

  // While at least one scope is open, a path is looked up once; outside, every Look asks.
  void Enter() { ++scopes_; }
  void Leave() {
    if (--scopes_ == 0) known_.clear();
  }
  const PathStatus& Look(const std::string& path);
  // A status a worker looked up when Changes() was `changes`: taken as looked up here, inside a
  // scope, while it is Current.
  void Seed(std::uint64_t changes, PathStatus status);
  // What was looked up for path in the current scope, if anything.
  const PathStatus* Known(const std::string& path) const;
  // Whether what a look-up found when Changes() was `changes` is still what the run left there.
  bool Current(std::uint64_t changes, const PathStatus& status) const;

  // How many changes were made; safe to read from any thread.
  std::uint64_t Changes() const { return changes_.load(std::memory_order_acquire); }
  // Look-ups dated before this count are not current, whatever their paths.
  std::uint64_t DatedFrom() const { return datedFrom_; }
  // How many of them were more than a new name: a folder opened by path before may no longer be
  // the one the path names. Safe to read from any thread.
  std::uint64_t FolderChanges() const { return folderChanges_.load(std::memory_order_acquire); }
  // Forgets what was read. folders: a folder may have been removed or renamed.
  void Changed(bool folders);
  // Forgets what was read after a new file got name, a name that was free, in a folder that
  // tells names apart by their bytes.
  void Named(std::string_view name);

  // The free bytes read for path less than a second ago, if any.
  std::optional<std::int64_t> FreeBytes(const std::string& path, Clock::time_point now) const;
  void Remember(FreeFigure figure) { free_ = std::move(figure); }
  // Takes the figure out before a new file is written, and gives it back less the file's
  // whole blocks once written: the next file need not ask again.
  std::optional<FreeFigure> TakeFree() { return std::exchange(free_, std::nullopt); }
  void Allocated(FreeFigure figure, std::uint64_t length);

  // Whether path was found a folder less than a second ago, with no folder change since.
  bool FolderSeen(const std::string& path, Clock::time_point now) const;
  void RememberFolder(const std::string& path, Clock::time_point now) {
    folder_ = SeenFolder{path, now};
  }

  // Held by every operation that changes the disk: forgets before, and after, in case the
  // operation itself looked at a path in between.
  class Change {
   public:
    explicit Change(StatusCache& cache, bool folders = false) : cache_(cache), folders_(folders) {
      Note();
    }
    // The change gives a new file `name` and does nothing else (see Named).
    Change(StatusCache& cache, std::string_view name) : cache_(cache), name_(name) { Note(); }
    ~Change() { Note(); }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    void Note() {
      if (name_) {
        cache_.Named(*name_);
      } else {
        cache_.Changed(folders_);
      }
    }
    StatusCache& cache_;
    bool folders_ = false;
    std::optional<std::string_view> name_;
  };

 private:
  struct SeenFolder {
    std::string path;
    Clock::time_point at;
  };
  int scopes_ = 0;
  std::vector<PathStatus> known_;  // only while a scope is open; a few paths at most
  PathStatus last_;                // the look-up outside a scope
  std::atomic<std::uint64_t> changes_{0};
  std::atomic<std::uint64_t> folderChanges_{0};
  // The names given (folded), with the change count each last made; a look-up dated before
  // datedFrom_ is not current, so names given before then never count and need no clearing
  // (a clear would cost the whole table at every other change).
  std::unordered_map<std::string, std::uint64_t> named_;
  std::uint64_t datedFrom_ = 0;
  std::optional<FreeFigure> free_;
  std::optional<SeenFolder> folder_;
};

}  // namespace orvKestrel
