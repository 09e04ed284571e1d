// The workers of CopyAhead. Each takes the next file not yet looked at, guesses from the
// destination's presence whether the run will copy it, and if so makes its copy without a name.
#include "platform/Prefetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace orvKestrel {
namespace {

// Larger files are copied by the run's thread alone: few of them fill the disk's bandwidth
// anyway, and a stopped run wastes little of what the workers did.
constexpr std::uint64_t kMaxBytes = std::uint64_t{8} << 20;

}  // namespace

CopyAhead::CopyAhead(unsigned workers, std::string anchor, FaultPoints* faults,
                     const FileSystem* run)
    : anchorPath_(std::move(anchor)), faults_(faults), run_(run),
      window_(2 * std::max(workers, 1u)) {
  threads_.reserve(workers);
  for (unsigned i = 0; i < workers; ++i) threads_.emplace_back([this] { Work(); });
}

CopyAhead::~CopyAhead() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_.notify_all();
  near_.notify_all();
  threads_.clear();  // joins
}

void CopyAhead::Add(std::vector<CopyOrder> orders) {
  {
    const std::lock_guard lock(mutex_);
    for (CopyOrder& order : orders) {
      auto slot = std::make_shared<Slot>();
      slot->index = added_++;
      slot->order = std::move(order);
      slots_.push_back(std::move(slot));
    }
  }
  work_.notify_all();
}

std::shared_ptr<CopyAhead::Slot> CopyAhead::Drop(std::size_t index) {
  if (index > reached_) {
    reached_ = index;
    near_.notify_all();
  }
  std::shared_ptr<Slot> slot;
  while (!slots_.empty() && slots_.front()->index < index) {
    slots_.pop_front();
    if (claimed_ > 0) --claimed_;  // claimed slots are always the first ones
  }
  if (!slots_.empty() && slots_.front()->index == index) slot = slots_.front();
  return slot;
}

std::optional<PreparedCopy> CopyAhead::Take(std::size_t index) {
  std::unique_lock lock(mutex_);
  const std::shared_ptr<Slot> slot = Drop(index);
  if (slot) {
    slots_.pop_front();
    if (claimed_ > 0) --claimed_;
  }
  if (!slot || slot->state == State::Queued) return std::nullopt;
  done_.wait(lock, [&] { return slot->state == State::Done; });
  return std::move(slot->copy);
}

std::optional<LookedUp> CopyAhead::Looked(std::size_t index) {
  std::unique_lock lock(mutex_);
  const std::shared_ptr<Slot> slot = Drop(index);
  if (!slot) return std::nullopt;
  return slot->looked;
}

void CopyAhead::Work() {
  FolderStatuses dests, sources;
  std::unique_lock lock(mutex_);
  for (;;) {
    work_.wait(lock, [&] { return stopping_ || claimed_ < slots_.size(); });
    if (stopping_) return;
    const std::shared_ptr<Slot> slot = slots_[claimed_++];
    slot->state = State::Working;
    lock.unlock();
    LookedUp looked = LookUp(slot->order, dests, sources);
    lock.lock();
    slot->looked = std::move(looked);
    Finish(*slot, lock);
  }
}

// Makes the slot's copy when one is wanted, once the run is within the window of it: copies
// hold memory and disk space, look-ups do not.
void CopyAhead::Finish(Slot& slot, std::unique_lock<std::mutex>& lock) {
  const bool exists = slot.looked->dest.err == 0;  // Work looks the slot up before this
  if (exists ? slot.order.whenExists : slot.order.whenMissing) {
    near_.wait(lock, [&] { return stopping_ || slot.index < reached_ + window_; });
    if (stopping_) return;
    lock.unlock();
    std::optional<PreparedCopy> copy;
    try {
      if (auto made = Prepare(slot.order, *slot.looked)) copy.emplace(std::move(*made));
    } catch (...) {
      // Not reported here: the run's thread meets the same failure when it copies the file.
    }
    lock.lock();
    if (copy) slot.copy.emplace(std::move(*copy));
  }
  slot.state = State::Done;
  done_.notify_all();
}

PathStatus FolderStatuses::Of(const std::string& path, std::uint64_t changes) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return StatusOf(path);
  const std::string_view folder(path.data(), slash), name(path.data() + slash + 1);
  if (name.empty() || name == "." || name == "..") return StatusOf(path);
  if (folder != folder_) {
    folder_ = folder;
    changes_ = changes;
    fd_ = UniqueFd(::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  // A folder opened before the run's last change may no longer be the one its path names.
  if (fd_.get() < 0 || changes != changes_) return StatusOf(path);
  return StatusAt(fd_.get(), path.c_str() + slash + 1, path);
}

// The change count is read first: a change the run makes after it makes these statuses stale.
LookedUp CopyAhead::LookUp(const CopyOrder& order, FolderStatuses& dests,
                           FolderStatuses& sources) const {
  LookedUp looked;
  looked.changes = run_ ? run_->Changes() : 0;
  looked.dest = dests.Of(order.dest, looked.changes);
  if (order.lookSource || order.move) looked.source = sources.Of(order.source, looked.changes);
  return looked;
}

std::optional<PreparedCopy> CopyAhead::Prepare(const CopyOrder& order, const LookedUp& looked) {
  const int anchor = Anchor();
  if (anchor < 0) return std::nullopt;
  // A move within one file system is a rename: nothing to copy.
  if (order.move && (looked.source->err != 0 || looked.source->device == anchorDevice_)) {
    return std::nullopt;
  }
  return PrepareCopy(faults_, order.source, anchor, anchorPath_, order.move, kMaxBytes);
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
