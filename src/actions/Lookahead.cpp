#include "actions/Lookahead.h"

#include "platform/Paths.h"
#include "selection/Selection.h"

namespace orvKestrel::actions {

Lookahead::Lookahead(const JobRun& run, const Services& s, const FileList& list, Kind kind)
    : job_(run.Job()), list_(list), kind_(kind) {
  if (s.jobs > 1 && job_.Exist >= 0 && job_.Exist <= 4 && list.size() > 1) {
    ahead_ = std::make_unique<CopyAhead>(static_cast<unsigned>(s.jobs), job_.To, s.fs.Faults());
  }
}

void Lookahead::Reach(std::size_t index) {
  if (!ahead_) return;
  for (; learned_ < index; ++learned_) Learn(learned_, false);  // passed without a copy
  const std::size_t end = std::min(list_.size(), index + 1 + ahead_->Window());
  for (std::size_t i = ahead_->Added(); i < end; i = ahead_->Added()) {
    if (i < resumeAt_) {
      ahead_->SkipTo(std::min(resumeAt_, end));
    } else {
      ahead_->Add(OrderFor(list_[i]));
    }
  }
}

std::optional<PreparedCopy> Lookahead::Take(std::size_t index) {
  if (!ahead_) return std::nullopt;
  std::optional<PreparedCopy> copy = ahead_->Take(index);
  Learn(index, copy.has_value());
  learned_ = index + 1;
  return copy;
}

void Lookahead::Learn(std::size_t index, bool made) {
  if (index >= pausedFrom_ && index < resumeAt_) return;  // not handed to the workers
  if (made) {
    misses_ = pause_ = 0;
    return;
  }
  if (++misses_ < ahead_->Window()) return;
  misses_ = 0;
  pause_ = std::min(std::max(2 * pause_, ahead_->Window()), kMaxPause);
  pausedFrom_ = ahead_->Added();
  resumeAt_ = pausedFrom_ + pause_;
}

// A new destination is copied unless only existing files count; an existing one is replaced
// (3) or given another name (2, which copies in any case). Keeping (0), deleting the source
// (1) and a comparison (4) of an existing destination mostly copy nothing.
CopyOrder Lookahead::OrderFor(const std::string& source) const {
  CopyOrder order;
  order.source = source;
  const std::string folder = job_.FStruct == 1 ? DestinationFolder(source, job_) : job_.To;
  order.dest = paths::BuildPath(folder, paths::GetFileName(source));
  order.whenMissing = job_.Exist == 2 || job_.OnlyCompare == 0;
  order.whenExists = job_.Exist == 2 || job_.Exist == 3;
  order.move = kind_ == Kind::Move;
  return order;
}

}  // namespace orvKestrel::actions
