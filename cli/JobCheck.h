// What `kestrel check` finds out about one job file: whether it reads, whether a plain pass
// runs it now and why, and the problems that keep it (or others) from working.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/inspect.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

struct JobCheck {
  std::string file;  // the job file's name in the folder
  std::string name;  // the job's Name (empty when the file does not read)
  bool valid = false;
  std::string error;                 // why the file does not read
  bool due = false;                  // a plain `kestrel run` now runs it
  std::vector<std::string> why;      // the reasons for `due`, in the order the pass tests them
  std::optional<std::time_t> next;   // the next firing of its schedule, when known
  std::vector<std::string> problems;
};

// One check per job file of jobDir (with its trailing "/"), or of file only.
std::vector<JobCheck> CheckJobs(const orvKestrel::Host& host, const std::string& jobDir,
                                const std::string& file);

}  // namespace kestrel
