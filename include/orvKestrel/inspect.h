// Read-only looks at job files, for hosts that explain jobs to people: each job file read on
// its own (one bad file does not hide the ones after it), the engine's pattern and job-name
// rules, and when a schedule fires. Nothing here writes a file or raises an event.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace orvKestrel {

struct JobFileReading {
  std::string fileName;       // the name in the job folder
  std::optional<job> record;  // nullopt when the file does not read
  std::string error;          // why not: the file, section, key, value and what was expected
};

// The job files of sJobDir (with its trailing "/") in listing order, or only sFile, each read
// as the engine reads it.
std::vector<JobFileReading> ReadJobFiles(const Host& host, const std::string& sJobDir,
                                         const std::string& sFile = "");

// Empty when the engine can compile pattern as a file or folder pattern; else why it cannot.
std::string PatternError(const std::string& pattern);

// Whether name can name a job's state and archive files: one plain file name (no "/", no NUL,
// not "." or ".."). The engine runs no job with any other name.
bool IsPlainJobName(const std::string& name);

// When the schedule of a job with IntervalType 1 fires, read as the engine reads it at the
// host's clock's now.
struct ScheduleOutlook {
  bool firesNow = false;             // the next pass fires it
  std::optional<std::time_t> next;   // the first moment a pass fires it, when one is known
  bool recordsStateFirst = false;    // never fired yet: the first pass only records its state
  std::string problem;               // a time, date or state the engine cannot read
};
ScheduleOutlook LookAtSchedule(const job& j, const Host& host);

}  // namespace orvKestrel
