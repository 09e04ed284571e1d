// The run's memory of path statuses, free space and the last folder found.
#include "platform/StatusCache.h"

#include <algorithm>
#include <limits>

namespace orvKestrel {
namespace {

constexpr auto kFresh = std::chrono::seconds(1);

}  // namespace

const PathStatus& StatusCache::Look(const std::string& path) {
  if (scopes_ == 0) return last_ = StatusOf(path);
  for (const PathStatus& s : known_) {
    if (s.path == path) return s;
  }
  return known_.emplace_back(StatusOf(path));
}

void StatusCache::Seed(std::uint64_t changes, PathStatus status) {
  if (scopes_ == 0 || changes != Changes()) return;
  for (const PathStatus& s : known_) {
    if (s.path == status.path) return;
  }
  known_.push_back(std::move(status));
}

void StatusCache::Changed(bool folders) {
  changes_.fetch_add(1, std::memory_order_acq_rel);
  known_.clear();
  free_.reset();
  if (folders) folder_.reset();
}

std::optional<std::int64_t> StatusCache::FreeBytes(const std::string& path,
                                                   Clock::time_point now) const {
  if (free_ && free_->path == path && now - free_->at < kFresh) return free_->bytes;
  return std::nullopt;
}

void StatusCache::Allocated(FreeFigure figure, std::uint64_t length) {
  const std::uint64_t block = std::max<std::uint64_t>(figure.block, 1);
  const std::uint64_t used = (length + block - 1) / block * block;
  constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  figure.bytes -= static_cast<std::int64_t>(std::min(used, kMax));
  free_ = std::move(figure);
}

bool StatusCache::FolderSeen(const std::string& path, Clock::time_point now) const {
  return folder_ && folder_->path == path && now - folder_->at < kFresh;
}

}  // namespace orvKestrel
