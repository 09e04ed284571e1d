#include "actions/Lookahead.h"

#include "platform/Paths.h"
#include "selection/Selection.h"

namespace orvKestrel::actions {

Lookahead::Lookahead(const JobRun& run, const Services& s, const FileList& list, Kind kind,
                     SettledPairs* settled)
    : fs_(s.fs), job_(run.Job()), list_(list), kind_(kind), settled_(settled) {
  if (s.jobs > 1 && job_.Exist >= 0 && job_.Exist <= 4 && list.size() > 1) {
    ahead_ = std::make_unique<CopyAhead>(static_cast<unsigned>(s.jobs), job_.To, s.fs.Faults(),
                                         &s.fs);
  }
}

void Lookahead::Reach(std::size_t index) {
  if (!ahead_ || handed_ > index + depth_ / 2 || handed_ == list_.size()) return;
  const std::size_t end = std::min(list_.size(), index + 1 + depth_);
  std::vector<CopyOrder> orders;
  for (; handed_ < end; ++handed_) {
    const std::string& source = list_[handed_];
    if (settled_ && settled_->Ahead(RelativeTo(source, job_.From), fs_.DatedFrom())) continue;
    orders.push_back(OrderFor(source));
    given_.push_back(handed_);
  }
  if (!orders.empty()) ahead_->Add(std::move(orders));
}

std::optional<std::size_t> Lookahead::Given(std::size_t index) {
  for (; !given_.empty() && given_.front() < index; ++givenFirst_) given_.pop_front();
  if (given_.empty() || given_.front() != index) return std::nullopt;
  return givenFirst_;
}

void Lookahead::Seed(std::size_t index, FileSystem& fs) {
  if (!ahead_) return;
  taken_.reset();  // an earlier file's copy the run did not name
  const std::optional<std::size_t> task = Given(index);
  if (!task) return;
  std::optional<LookedUp> looked = ahead_->Looked(*task);
  if (!looked) return;  // a worker had not begun it: the run looks itself
  fs.Seed(looked->changes, std::move(looked->dest));
  if (looked->source) fs.Seed(looked->changes, std::move(*looked->source));
  // The files ahead are handed out as far as the last one looked up asks.
  depth_ = looked->copying ? CopyAhead::kCopyAhead : CopyAhead::kLookAhead;
  if (!looked->copying) return;
  // Waits for the copy being made: the run would wait for it when it copies the file. A path
  // that could be opened names that file until this run changes it otherwise than by giving a
  // free name (see StatusCache), whether it ends in a link or not.
  index_ = index;
  if (auto made = ahead_->Take(*task)) {
    fs.Seed(made->OpenedAt(), made->Opened());
    taken_.emplace(std::move(*made));
  }
}

std::optional<PreparedCopy> Lookahead::Take(std::size_t index) {
  if (!ahead_) return std::nullopt;
  if (!taken_ || index != index_) {
    const std::optional<std::size_t> task = Given(index);
    return task ? ahead_->Take(*task) : std::nullopt;
  }
  std::optional<PreparedCopy> copy(std::move(taken_));
  taken_.reset();
  return copy;
}

// A new destination is copied unless only existing files count; an existing one is replaced
// (3) or given another name (2, which copies in any case). Keeping (0), deleting the source
// (1) and a comparison (4) of an existing destination mostly copy nothing.
CopyOrder Lookahead::OrderFor(const std::string& source) {
  CopyOrder order;
  order.source = source;
  order.dest = DestOf(source);
  order.whenMissing = job_.Exist == 2 || job_.OnlyCompare == 0;
  order.whenExists = job_.Exist == 2 || job_.Exist == 3;
  order.move = kind_ == Kind::Move;
  // Its length and identity the run looks up itself (one look, as the copy is named): a look
  // more per file for the workers, who are the slower side once copies are made ahead.
  order.lookSource = job_.Exist == 4 || SetsFileTimes(job_);
  return order;
}

std::string Lookahead::DestOf(const std::string& source) {
  const std::string& folder = job_.FStruct == 1 ? destinations_.Of(source, job_) : job_.To;
  return paths::BuildPath(folder, paths::GetFileName(source));
}

}  // namespace orvKestrel::actions
