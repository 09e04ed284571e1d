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

CopyAhead::CopyAhead(unsigned workers, std::string anchor, FaultPoints* faults)
    : anchorPath_(std::move(anchor)), faults_(faults), window_(2 * std::max(workers, 1u)) {
  threads_.reserve(workers);
  for (unsigned i = 0; i < workers; ++i) threads_.emplace_back([this] { Work(); });
}

CopyAhead::~CopyAhead() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_.notify_all();
  threads_.clear();  // joins
}

void CopyAhead::Add(CopyOrder order) {
  {
    const std::lock_guard lock(mutex_);
    auto slot = std::make_shared<Slot>();
    slot->index = added_++;
    slot->order = std::move(order);
    slots_.push_back(std::move(slot));
  }
  work_.notify_one();
}

void CopyAhead::SkipTo(std::size_t index) {
  const std::lock_guard lock(mutex_);
  added_ = std::max(added_, index);
}

std::size_t CopyAhead::Added() const {
  const std::lock_guard lock(mutex_);
  return added_;
}

std::optional<PreparedCopy> CopyAhead::Take(std::size_t index) {
  std::shared_ptr<Slot> slot;
  std::unique_lock lock(mutex_);
  while (!slots_.empty() && slots_.front()->index <= index) {
    if (slots_.front()->index == index) slot = slots_.front();
    slots_.pop_front();
    if (claimed_ > 0) --claimed_;  // claimed slots are always the first ones
  }
  if (!slot || slot->state == State::Queued) return std::nullopt;
  done_.wait(lock, [&] { return slot->state == State::Done; });
  return std::move(slot->copy);
}

void CopyAhead::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    work_.wait(lock, [&] { return stopping_ || claimed_ < slots_.size(); });
    if (stopping_) return;
    const std::shared_ptr<Slot> slot = slots_[claimed_++];
    slot->state = State::Working;
    lock.unlock();
    std::optional<PreparedCopy> copy;
    try {
      if (auto made = Prepare(slot->order)) copy.emplace(std::move(*made));
    } catch (...) {
      // Not reported here: the run's thread meets the same failure when it copies the file.
    }
    lock.lock();
    if (copy) slot->copy.emplace(std::move(*copy));
    slot->state = State::Done;
    done_.notify_all();
  }
}

std::optional<PreparedCopy> CopyAhead::Prepare(const CopyOrder& order) {
  const int anchor = Anchor();
  if (anchor < 0) return std::nullopt;
  struct stat st {};
  const bool exists = ::stat(order.dest.c_str(), &st) == 0;
  if (exists ? !order.whenExists : !order.whenMissing) return std::nullopt;
  if (order.move) {
    // A move within one file system is a rename: nothing to copy.
    if (::stat(order.source.c_str(), &st) != 0 ||
        static_cast<std::uint64_t>(st.st_dev) == anchorDevice_) {
      return std::nullopt;
    }
  }
  return PrepareCopy(faults_, order.source, anchor, order.move, kMaxBytes);
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
