// The three file times of copy and move: the source's are read before the copy, an existing
// destination's before it is overwritten, and the chosen ones are written to the new file.
#include "engine/Traced.h"
#include "platform/SysError.h"
#include "selection/Selection.h"

namespace orvKestrel {
namespace {

// A file whose times cannot be read gives false and leaves the stored values as they were.
bool ReadTimes(Services& s, const std::string& path, FileTimes& into) {
  const ErrorOr<FileTimes> times = s.fs.TryGetTimes(path);
  if (times) into = times.Value();
  return times.HasValue();
}

}  // namespace

bool ReadSourceFileTime(JobRun& run, Services& s, const std::string& lpFileName) {
  Proc p(s.trap, Traced(__func__), "lpFileName", lpFileName);
  return ReadTimes(s, lpFileName, run.sourceTimes);
}

bool ReadDestFileTime(JobRun& run, Services& s, const std::string& lpFileName) {
  Proc p(s.trap, Traced(__func__), "lpFileName", lpFileName);
  return ReadTimes(s, lpFileName, run.destTimes);
}

bool WriteFileTime(JobRun& run, Services& s, const std::string& lpFileName) {
  const job& job = run.Job();
  FileTimes& sourceTimes = run.sourceTimes;
  const FileTimes& destTimes = run.destTimes;
  Proc p(s.trap, Traced(__func__), "lpFileName", lpFileName, "job", job);
  // A time that the job does not take from the source is written back as the destination had
  // it. The stored source values are replaced on purpose: they are the values written.
  if (job.DestTCreated == 0) sourceTimes.created = destTimes.created;
  if (job.DestTAccess == 0) sourceTimes.accessed = destTimes.accessed;
  if (job.DestTModified == 0) sourceTimes.written = destTimes.written;
  // The creation time cannot be set here and stays as it is. A failure is not reported.
  try {
    s.fs.SetTimes(lpFileName, sourceTimes.accessed, sourceTimes.written);
    return true;
  } catch (const KestrelError&) {
    return false;
  }
}

}  // namespace orvKestrel
