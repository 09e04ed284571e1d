// --metrics FILE: after each pass, the last run of every job in the Prometheus text format (for
// a textfile collector), written in one step so that a scrape never reads half a file.
#pragma once

#include <ctime>
#include <map>
#include <set>
#include <string>

#include "Summary.h"

namespace kestrel {

class Metrics {
 public:
  explicit Metrics(std::string path) : path_(std::move(path)) {}
  bool Named() const { return !path_.empty(); }
  // A job's summary at time `ended` (seconds since the epoch).
  void Job(const JobSummary& s, std::time_t ended);
  // The job's external program failed in this pass (before or after the job's summary): its
  // exit status is 4, as for the pass.
  void ProgramFailed(const std::string& job);
  // Writes the file at the end of a pass; a failure is said on stderr.
  void Write(int passExit, std::time_t ended);
  // The text of the file.
  std::string Text(int passExit, std::time_t ended) const;

 private:
  struct Last {
    JobSummary summary;
    std::time_t ended = 0;
    bool programFailed = false;
  };
  std::string path_;
  std::map<std::string, Last> jobs_;
  // This pass's jobs with a summary, and those whose program failed before their summary.
  std::set<std::string> summarised_, failedBefore_;
};

}  // namespace kestrel
