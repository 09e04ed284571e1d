// Names for the numeric codes of a job record that the run branches on.
#pragma once

#include <orvKestrel/job.h>

#include <cstdint>
#include <string>

namespace orvKestrel {

// The values of a job's Action.
namespace action {
enum Code : std::int16_t {
  kCopy = 0,
  kMove = 1,
  kDelete = 2,
  kCompress = 3,
  kExtract = 4,
  kSync = 5,
  // A synchronisation's removal step: set by the run while it lasts, never read from a file.
  kSyncRemoval = 22,
};
}  // namespace action

// The Status text of a state, and whether a job's Status is exactly that text (as read from the
// job file: " 3" or "03" is not state 3).
inline std::string StatusText(JobState state) { return std::to_string(state); }
inline bool StatusIs(const job& j, JobState state) { return j.Status == StatusText(state); }

}  // namespace orvKestrel
