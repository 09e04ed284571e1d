// --metrics FILE: after each pass, the last run of every job in the Prometheus text format (for
// a textfile collector), written in one step so that a scrape never reads half a file.
#pragma once

#include <ctime>
#include <map>
#include <string>

#include "Summary.h"

namespace kestrel {

class Metrics {
 public:
  explicit Metrics(std::string path) : path_(std::move(path)) {}
  bool Named() const { return !path_.empty(); }
  // A job's summary at time `ended` (seconds since the epoch).
  void Job(const JobSummary& s, std::time_t ended);
  // Writes the file; a failure is said on stderr.
  void Write(int passExit, std::time_t ended) const;
  // The text of the file.
  std::string Text(int passExit, std::time_t ended) const;

 private:
  struct Last {
    JobSummary summary;
    std::time_t ended = 0;
  };
  std::string path_;
  std::map<std::string, Last> jobs_;
};

}  // namespace kestrel
