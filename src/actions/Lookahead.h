// The files ahead of the one in hand, handed to the workers that copy them in advance (--jobs):
// what the run expects to do with each, guessed from the job alone.
#pragma once

#include "actions/Transfer.h"
#include "platform/Prefetch.h"

#include <memory>
#include <optional>

namespace orvKestrel::actions {

class Lookahead {
 public:
  // Nothing is prepared with one job, or for a policy that never copies.
  Lookahead(const JobRun& run, const Services& s, const FileList& list, Kind kind);
  // Called for each file in list order before it is handled: the files up to the window
  // beyond it go to the workers.
  void Reach(std::size_t index);
  // The copy made for file index, when there is one; the files before it are dropped.
  std::optional<PreparedCopy> Take(std::size_t index);

 private:
  CopyOrder OrderFor(const std::string& source) const;
  void Learn(std::size_t index, bool made);  // whether the workers' guess for index paid

  // A window of files in a row that needed no copy (a synchronisation of unchanged folders)
  // pauses the workers for a stretch, doubled each time up to kMaxPause files: their guesses
  // there would cost a look at every destination and buy nothing.
  static constexpr std::size_t kMaxPause = 1024;
  std::size_t learned_ = 0;  // the files before it were counted
  std::size_t misses_ = 0;
  std::size_t pause_ = 0;
  std::size_t pausedFrom_ = 0, resumeAt_ = 0;  // files not handed to the workers

  const job& job_;
  const FileList& list_;
  Kind kind_;
  std::unique_ptr<CopyAhead> ahead_;
};

}  // namespace orvKestrel::actions
