// The run's memory of path statuses, free space and the last folder found.
#include "platform/StatusCache.h"

#include <algorithm>
#include <limits>

namespace orvKestrel {
namespace {

constexpr auto kFresh = std::chrono::seconds(1);
// Names remembered: many times what the workers look up ahead of the run.
constexpr std::size_t kNamesKept = 1024;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Whether name is one of path's parts. Capitals and small letters of ASCII count as the same:
// some file systems that otherwise compare names by their bytes fold those.
bool HasPart(std::string_view path, std::string_view name) {
  const auto same = [&](std::string_view part) {
    if (part.size() != name.size()) return false;
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (Lower(part[i]) != Lower(name[i])) return false;
    }
    return true;
  };
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (same(path.substr(start, end - start))) return true;
    start = end + 1;
  }
  return false;
}

}  // namespace

const PathStatus& StatusCache::Look(const std::string& path) {
  if (scopes_ == 0) return last_ = StatusOf(path);
  for (const PathStatus& s : known_) {
    if (s.path == path) return s;
  }
  return known_.emplace_back(StatusOf(path));
}

void StatusCache::Seed(std::uint64_t changes, PathStatus status) {
  if (scopes_ == 0 || !Current(changes, status)) return;
  for (const PathStatus& s : known_) {
    if (s.path == status.path) return;
  }
  known_.push_back(std::move(status));
}

bool StatusCache::Current(std::uint64_t changes, const PathStatus& status) const {
  if (changes == Changes()) return true;
  if (status.link || changes < datedFrom_) return false;
  for (auto it = named_.rbegin(); it != named_.rend() && it->first > changes; ++it) {
    if (HasPart(status.path, it->second)) return false;
  }
  return true;
}

void StatusCache::Changed(bool folders) {
  datedFrom_ = changes_.fetch_add(1, std::memory_order_acq_rel) + 1;
  folderChanges_.fetch_add(1, std::memory_order_acq_rel);
  named_.clear();
  known_.clear();
  free_.reset();
  if (folders) folder_.reset();
}

void StatusCache::Named(std::string_view name) {
  const std::uint64_t count = changes_.fetch_add(1, std::memory_order_acq_rel) + 1;
  if (named_.size() == kNamesKept) {
    datedFrom_ = named_.front().first;
    named_.pop_front();
  }
  named_.emplace_back(count, name);
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
