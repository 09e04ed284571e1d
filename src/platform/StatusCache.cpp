// The run's memory of path statuses, free space and the last folder found.
#include "platform/StatusCache.h"

#include <algorithm>
#include <limits>

namespace orvKestrel {
namespace {

constexpr auto kFresh = std::chrono::seconds(1);
// Names remembered at most; then they are forgotten, and older look-ups with them.
constexpr std::size_t kNamesKept = 4096;

// Capitals and small letters of ASCII count as the same: some file systems that otherwise
// compare names by their bytes fold those.
std::string Folded(std::string_view name) {
  std::string folded(name);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

}  // namespace

const PathStatus& StatusCache::Look(const std::string& path) {
  if (scopes_ == 0) return last_ = StatusOf(path);
  if (const PathStatus* known = Known(path)) return *known;
  return known_.emplace_back(StatusOf(path));
}

const PathStatus* StatusCache::Known(const std::string& path) const {
  for (const PathStatus& s : known_) {
    if (s.path == path) return &s;
  }
  return nullptr;
}

void StatusCache::Seed(std::uint64_t changes, PathStatus status) {
  if (scopes_ == 0 || !Current(changes, status) || Known(status.path)) return;
  known_.push_back(std::move(status));
}

// A look-up is spoilt by a name given after it that is one of its path's parts.
bool StatusCache::Current(std::uint64_t changes, const PathStatus& status) const {
  if (changes == Changes()) return true;
  if (status.link || changes < datedFrom_) return false;
  const std::string_view path = status.path;
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) {
      const auto named = named_.find(Folded(path.substr(start, end - start)));
      if (named != named_.end() && named->second > changes) return false;
    }
    start = end + 1;
  }
  return true;
}

void StatusCache::Changed(bool folders) {
  datedFrom_ = changes_.fetch_add(1, std::memory_order_acq_rel) + 1;
  folderChanges_.fetch_add(1, std::memory_order_acq_rel);
  known_.clear();
  free_.reset();
  if (folders) folder_.reset();
}

void StatusCache::Named(std::string_view name) {
  const std::uint64_t count = changes_.fetch_add(1, std::memory_order_acq_rel) + 1;
  if (named_.size() == kNamesKept) {
    named_.clear();
    datedFrom_ = count;
  }
  named_[Folded(name)] = count;
  known_.clear();
  free_.reset();
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
