// The workers of CopyAhead. Each takes the next file not yet looked at, guesses from the
// destination's presence whether the run will copy it, and if so makes its copy without a name.
#include "platform/Prefetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

namespace orvKestrel {
namespace {

// Larger files are copied by the run's thread alone: few of them fill the disk's bandwidth
// anyway, and a stopped run wastes little of what the workers did.
constexpr std::uint64_t kMaxBytes = std::uint64_t{8} << 20;
// Files up to this size are copied as soon as a worker has looked them up, as far ahead as the
// files handed out reach (a few MiB in all): waiting for the run at every file would cost more
// than the copy. Larger ones wait until the run is within the window of them.
constexpr std::uint64_t kSmallBytes = std::uint64_t{64} << 10;
constexpr int kYields = 16;

}  // namespace

CopyAhead::CopyAhead(unsigned workers, std::string anchor, FaultPoints* faults,
                     const FileSystem* run)
    : anchorPath_(std::move(anchor)), faults_(faults), run_(run),
      window_(2 * std::max(workers, 1u)), looks_(std::max(workers, 1u)), pool_(workers) {}

void CopyAhead::Add(std::vector<CopyOrder> orders) {
  std::vector<OrderedPool::Task> tasks;
  tasks.reserve(orders.size());
  for (CopyOrder& order : orders) {
    auto slot = std::make_shared<Slot>();
    slot->order = std::move(order);
    tasks.emplace_back(
        [this, slot](std::size_t index, unsigned worker) { Work(index, worker, *slot); });
    slots_.push_back(std::move(slot));
  }
  pool_.Add(std::move(tasks));
}

std::shared_ptr<CopyAhead::Slot> CopyAhead::Drop(std::size_t index) {
  for (; first_ < index && !slots_.empty(); ++first_) slots_.pop_front();
  return first_ == index && !slots_.empty() ? slots_.front() : nullptr;
}

std::optional<PreparedCopy> CopyAhead::Take(std::size_t index) {
  const bool begun = pool_.Wait(index, true);
  const std::shared_ptr<Slot> slot = Drop(index);
  if (!slot || !begun) return std::nullopt;
  return std::exchange(slot->copy, std::nullopt);
}

// A file a worker has begun is waited for (its look-up comes first, and a copy it goes on to
// make the run would wait for anyway); one not begun is dropped and left to the caller. Either
// way no file is looked up twice: on two cores a second look costs more than the wait.
std::optional<LookedUp> CopyAhead::Looked(std::size_t index) {
  const std::shared_ptr<Slot> slot = Drop(index);
  // A begun look-up ends within microseconds: yielding to it a few times costs less than
  // sleeping until it is through, two switches of threads.
  for (int i = 0; slot && i < kYields && slot->begun.load(std::memory_order_acquire) &&
                  !slot->lookedUp.load(std::memory_order_acquire);
       ++i) {
    std::this_thread::yield();
  }
  if (slot && slot->lookedUp.load(std::memory_order_acquire)) {
    pool_.Reach(index);
  } else if (!pool_.Wait(index, true)) {
    return std::nullopt;
  }
  if (!slot || !slot->lookedUp.load(std::memory_order_acquire)) return std::nullopt;
  return std::exchange(slot->looked, std::nullopt);
}

// Looks the file up, then makes its copy when one is wanted, once the run is within the window
// of it: copies hold memory and disk space, look-ups do not. A failed copy is not reported
// here: the run's thread meets the same failure when it copies the file.
void CopyAhead::Work(std::size_t index, unsigned worker, Slot& slot) {
  slot.begun.store(true, std::memory_order_release);
  Looks& looks = looks_[worker];
  LookedUp looked = LookUp(slot.order, looks.dests, looks.sources);
  looked.copying = looked.dest.err == 0 ? slot.order.whenExists : slot.order.whenMissing;
  // Once handed over, the look-up is the run's: the copy keeps what it needs of it.
  const bool copying = looked.copying;
  const std::uint64_t changes = looked.changes;
  std::optional<PathStatus> source;
  if (copying && slot.order.move) source = looked.source;
  slot.looked = std::move(looked);
  slot.lookedUp.store(true, std::memory_order_release);
  if (!copying) return;
  try {
    if (auto made = Prepare(index, slot.order, source)) {
      made->DateOpened(changes);
      slot.copy.emplace(std::move(*made));
    }
  } catch (...) {
  }
}

PathStatus FolderStatuses::Of(const std::string& path, std::uint64_t folderChanges,
                              std::uint64_t& changes) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return StatusOf(path);
  const std::string_view folder(path.data(), slash), name(path.data() + slash + 1);
  if (name.empty() || name == "." || name == "..") return StatusOf(path);
  // A folder opened before such a change of the run may no longer be the one its path names,
  // and one that was missing may have been made since. It is opened at its second look-up
  // with no change between: a run that changes folders at every file (moves, say) pays no
  // opening per file.
  if (folder != folder_ || folderChanges != folderChanges_) {
    folder_ = folder;
    folderChanges_ = folderChanges;
    fd_ = UniqueFd();
    opened_ = false;
    listTried_ = false;
    names_.reset();
    return StatusOf(path);
  }
  if (!opened_) {
    fd_ = UniqueFd(::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    opened_ = true;
  }
  if (fd_.get() < 0) return StatusOf(path);
  if (names_ && !names_->contains(std::string(name))) {
    changes = std::min(changes, listedAt_);
    return PathStatus{path, ENOENT, {}, {}, false};
  }
  PathStatus found = StatusAt(fd_.get(), path.c_str() + slash + 1, path);
  if (found.err == ENOENT && listing_ && !listTried_) {
    listTried_ = true;
    List(changes);
  }
  return found;
}

// Only where names are told apart by their bytes (a name the listing lacks may differ from
// one it holds in case alone elsewhere), and not a folder too large to hold its names.
void FolderStatuses::List(std::uint64_t changes) {
  constexpr std::size_t kMaxNames = 1 << 16;
  if (!NamesByBytes(fd_.get())) return;
  const auto entries = ReadFolderAt(fd_.get());
  if (!entries || entries->size() > kMaxNames) return;
  names_.emplace();
  names_->reserve(entries->size());
  for (const DirEntry& entry : *entries) names_->insert(entry.name);
  listedAt_ = changes;
}

// The change counts are read first: the run judges by them whether what is found here is
// still current when it comes to the file.
LookedUp CopyAhead::LookUp(const CopyOrder& order, FolderStatuses& dests,
                           FolderStatuses& sources) const {
  LookedUp looked;
  looked.changes = run_ ? run_->Changes() : 0;
  const std::uint64_t folderChanges = run_ ? run_->FolderChanges() : 0;
  looked.dest = dests.Of(order.dest, folderChanges, looked.changes);
  if (order.lookSource || order.move) {
    looked.source = sources.Of(order.source, folderChanges, looked.changes);
  }
  return looked;
}

std::optional<PreparedCopy> CopyAhead::Prepare(std::size_t index, const CopyOrder& order,
                                               const std::optional<PathStatus>& source) {
  const int anchor = Anchor();
  if (anchor < 0) return std::nullopt;
  // A move within one file system is a rename: nothing to copy.
  if (order.move && (!source || source->err != 0 || source->id.device == anchorDevice_)) {
    return std::nullopt;
  }
  return PrepareCopy(faults_, order.source, anchor, anchorPath_, order.move, [&](std::uint64_t n) {
    return n <= kMaxBytes && (n <= kSmallBytes || pool_.Near(index, window_));
  });
}

int CopyAhead::Anchor() {
  const std::lock_guard lock(anchorMutex_);
  if (anchor_.get() >= 0) return anchor_.get();
  UniqueFd fd(::open(anchorPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat st {};
  if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0) return -1;
  anchorDevice_ = static_cast<std::uint64_t>(st.st_dev);
  anchor_ = std::move(fd);
  return anchor_.get();
}

}  // namespace orvKestrel
