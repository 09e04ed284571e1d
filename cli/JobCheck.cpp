#include "JobCheck.h"

#include <orvKestrel/hostio.h>

#include <filesystem>
#include <map>

#include "EventWriter.h"

namespace kestrel {
namespace {

using orvKestrel::job;

std::string Quoted(const std::string& s) { return "\"" + s + "\""; }

std::string Stamp(std::time_t t) {
  std::string stamp = LogStamp(t);
  stamp.pop_back();  // its trailing blank
  return stamp;
}

bool FolderExists(const std::string& path) {
  return orvKestrel::hostio::KindOf(path) == orvKestrel::hostio::Kind::Folder;
}

// Lexically: links are not followed, so a link into From is not seen.
bool Inside(const std::string& inner, const std::string& outer) {
  const auto a = std::filesystem::path(inner).lexically_normal();
  const auto b = std::filesystem::path(outer).lexically_normal();
  auto ai = a.begin();
  for (auto bi = b.begin(); bi != b.end(); ++bi, ++ai) {
    if (bi->empty() && std::next(bi) == b.end()) break;  // a trailing "/"
    if (ai == a.end() || *ai != *bi) return false;
  }
  return true;
}

void CheckFolders(const job& j, JobCheck& c) {
  if (!FolderExists(j.From)) c.problems.push_back("From folder " + Quoted(j.From) + " does not exist");
  if (j.Action == 2) return;  // a delete job has no destination
  if (!FolderExists(j.To)) c.problems.push_back("To folder " + Quoted(j.To) + " does not exist");
  if (!j.From.empty() && !j.To.empty() && Inside(j.To, j.From)) {
    c.problems.push_back("To " + Quoted(j.To) + " lies inside From " + Quoted(j.From) +
                         ": each run takes its own earlier results in again (one level more per run)");
  }
}

void CheckPatterns(const job& j, JobCheck& c) {
  const struct {
    const char* key;
    std::int16_t mode;
    const std::string& pattern;
  } used[] = {{"Filename", j.DoFileMatch, j.Filename}, {"FolderMatch", j.DoFolderMatch, j.FolderMatch}};
  for (const auto& u : used) {
    if ((u.mode != 1 && u.mode != 2) || u.pattern.empty()) continue;
    if (const std::string why = orvKestrel::PatternError(u.pattern); !why.empty()) {
      c.problems.push_back(std::string(u.key) + " pattern " + Quoted(u.pattern) +
                           " does not compile (" + why + "): the job fails before any file");
    }
  }
}

// A pass counter: the job runs when Counter is 1 and then counts from Interval again.
void PassCounter(const job& j, JobCheck& c) {
  const std::string counter = "Counter is " + std::to_string(j.Counter);
  if (j.Counter == 1) {
    c.due = true;
    c.why.push_back(counter + ": this pass runs it");
  } else if (j.Counter > 1) {
    c.why.push_back(counter + ": it runs in " + std::to_string(j.Counter - 1) + " more pass(es)");
  } else {
    c.why.push_back(counter);
    c.problems.push_back(counter + ": each pass counts it further down, the job never runs (set Counter=1)");
  }
  if (j.Interval == 1) {
    c.why.push_back("Interval is 1: after a run it runs every pass");
  } else if (j.Interval > 1) {
    c.why.push_back("Interval is " + std::to_string(j.Interval) + ": after a run it runs every " +
                    std::to_string(j.Interval) + " passes");
  } else {
    c.why.push_back("Interval is " + std::to_string(j.Interval) + ": after a run it never runs again");
  }
}

void Schedule(const orvKestrel::Host& host, const job& j, JobCheck& c) {
  if (j.Status == "3" || j.Status == "4") {
    c.problems.push_back("Status is " + j.Status +
                         ": the schedule is not tested; whether the job runs follows the job listed before it");
    return;
  }
  const auto o = orvKestrel::LookAtSchedule(j, host);
  if (!o.problem.empty()) {
    c.problems.push_back(o.problem + ": the schedule never fires");
    return;
  }
  c.next = o.next;
  c.due = o.firesNow;
  if (o.firesNow) {
    c.why.push_back("its schedule fires now");
  } else if (o.next) {
    c.why.push_back("its schedule fires next at the first pass after " + Stamp(*o.next - 1));
  } else {
    c.why.push_back("its schedule never fires again");
  }
  if (o.recordsStateFirst) {
    c.why.push_back("it has not fired yet: the first pass after that time only records IntState, the one after runs it");
  }
}

void Due(const orvKestrel::Host& host, const job& j, JobCheck& c) {
  switch (j.IntervalType) {
    case 0: PassCounter(j, c); break;
    case 1: Schedule(host, j, c); break;
    case 2: c.why.push_back("IntervalType is 2: never in a pass (only kestrel run-one runs it)"); break;
    default:
      c.problems.push_back("IntervalType " + std::to_string(j.IntervalType) + " is unknown (0 counter, 1 schedule, 2 never)");
      break;
  }
  // What the pass tests once the job is found due.
  const bool foldersOk = FolderExists(j.From) && (j.Action == 2 || FolderExists(j.To));
  if (j.Inactive == 1) {
    c.due = false;
    c.why.push_back("it is inactive (Inactive=1)");
  } else if (!foldersOk) {
    c.due = false;
    c.why.push_back("a folder is missing");
  } else if (j.RunOnce == 1 && j.Status == "5") {
    c.due = false;
    c.why.push_back("it is a run-once job that has run (Status=5)");
  }
  if (j.DoPreview != 0) {
    c.due = false;
    c.why.insert(c.why.begin(), "DoPreview is " + std::to_string(j.DoPreview) +
                                    ": a preview job, which a plain kestrel run passes over "
                                    "(set DoPreview=0, or run with --preview-jobs)");
  }
  if (!orvKestrel::IsPlainJobName(j.JobName)) c.due = false;
}

JobCheck CheckOne(const orvKestrel::Host& host, const orvKestrel::JobFileReading& r) {
  JobCheck c;
  c.file = r.fileName;
  if (!r.record) {
    c.error = r.error;
    c.problems.push_back(r.error);
    return c;
  }
  const job& j = *r.record;
  c.valid = true;
  c.name = j.JobName;
  if (!orvKestrel::IsPlainJobName(j.JobName)) {
    c.problems.push_back("Name " + Quoted(j.JobName) + " is not a plain file name: the job is not run");
  } else if (j.JobName + ".kjb" != r.fileName) {
    c.problems.push_back("Name " + Quoted(j.JobName) + " differs from the file name: counters and states are written to " +
                         Quoted(j.JobName + ".kjb") + ", not to this file");
  }
  if (j.Action < 0 || j.Action > 5) {
    c.problems.push_back("Action " + std::to_string(j.Action) + " is unknown (0 copy .. 5 sync): the job does nothing");
  }
  CheckFolders(j, c);
  CheckPatterns(j, c);
  Due(host, j, c);
  return c;
}

}  // namespace

std::vector<JobCheck> CheckJobs(const orvKestrel::Host& host, const std::string& jobDir,
                                const std::string& file) {
  std::vector<JobCheck> out;
  const auto readings = orvKestrel::ReadJobFiles(host, jobDir, file);
  std::map<std::string, std::vector<std::string>> byName;
  for (std::size_t i = 0; i < readings.size(); ++i) {
    out.push_back(CheckOne(host, readings[i]));
    if (out.back().valid) byName[out.back().name].push_back(readings[i].fileName);
    if (!out.back().valid && i + 1 < readings.size()) {
      out.back().problems.push_back("a pass stops reading here: the " + std::to_string(readings.size() - i - 1) +
                                    " job file(s) listed after it do not run");
    }
  }
  for (JobCheck& c : out) {
    if (!c.valid) continue;
    const auto& files = byName[c.name];
    if (files.size() < 2) continue;
    std::string others;
    for (const auto& f : files) {
      if (f != c.file) others += (others.empty() ? "" : ", ") + f;
    }
    c.problems.push_back("Name " + Quoted(c.name) + " is also the Name of " + others + ": they share one state file");
  }
  return out;
}

}  // namespace kestrel
