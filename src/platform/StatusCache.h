// What a run's file-system object remembers of the disk between its own calls: the status of
// the few paths one file's steps ask about again and again, the free space of the last
// destination, the folder last found. Every change made through the object forgets all of it,
// so nothing remembered outlives a change the run made itself. Used by one thread, apart from
// Changes().
#pragma once

#include "platform/PathStatus.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
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
  // scope, unless something changed since.
  void Seed(std::uint64_t changes, PathStatus status);

  // How many changes were made; safe to read from any thread.
  std::uint64_t Changes() const { return changes_.load(std::memory_order_acquire); }
  // Forgets what was read. folders: a folder may have been removed or renamed.
  void Changed(bool folders);

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
      cache_.Changed(folders_);
    }
    ~Change() { cache_.Changed(folders_); }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    StatusCache& cache_;
    bool folders_;
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
  std::optional<FreeFigure> free_;
  std::optional<SeenFolder> folder_;
};

}  // namespace orvKestrel
