// The files ahead of the one in hand, handed to the workers that copy them in advance (--jobs):
// what the run expects to do with each, guessed from the job alone. The workers look up each
// file's destination (and source, where the run asks for more than its length) on the way; the
// run takes those statuses instead of asking again while they are current (StatusCache).
#pragma once

#include "actions/SettledPairs.h"
#include "actions/Transfer.h"
#include "platform/Prefetch.h"
#include "selection/DestinationMemo.h"

#include <deque>
#include <memory>
#include <optional>

namespace orvKestrel::actions {

class Lookahead {
 public:
  // Nothing is prepared with one job, or for a policy that never copies. The pairs in settled
  // (if any) that are still current are neither looked up nor copied: the run knows them.
  Lookahead(const JobRun& run, const Services& s, const FileList& list, Kind kind,
            SettledPairs* settled = nullptr);
  // Called for each file in list order before it is handled: the files up to the look-ahead
  // beyond it go to the workers, a batch at a time.
  void Reach(std::size_t index);
  // Gives fs, inside its status scope, what the workers looked up for file index, and takes
  // the copy made for it, if any; the files before it are dropped.
  void Seed(std::size_t index, FileSystem& fs);
  // That copy, once.
  std::optional<PreparedCopy> Take(std::size_t index);
  // The destination the run gives source when the policy keeps its name.
  std::string DestOf(const std::string& source);

 private:
  CopyOrder OrderFor(const std::string& source);

  // The workers' number for file index, when it was given to them.
  std::optional<std::size_t> Given(std::size_t index);

  std::size_t handed_ = 0;  // the files before it went to the workers, or were known
  std::size_t depth_ = CopyAhead::kCopyAhead;  // how far ahead of the run they go
  std::deque<std::size_t> given_;  // the files given to the workers, by their place in the list
  std::size_t givenFirst_ = 0;     // the workers' number for given_.front()
  const FileSystem& fs_;
  const job& job_;
  const FileList& list_;
  Kind kind_;
  SettledPairs* settled_;
  DestinationMemo destinations_;
  std::unique_ptr<CopyAhead> ahead_;
  std::size_t index_ = 0;  // the file Seed was last called for
  std::optional<PreparedCopy> taken_;  // its copy
};

}  // namespace orvKestrel::actions
