// The run driver: every due job of a folder (ExecuteAllJobs), one named job (ExecuteOneJob), a
// job's state (CheckStatus) and the run of one job record from start to end (ExecuteSingleJob).
#include "engine/Engine.h"
#include "engine/Traced.h"
#include "selection/Selection.h"

#include "jobs/JobCodes.h"
#include "jobs/JobReader.h"
#include "jobs/modIniHandler.h"
#include "platform/FolderLock.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <orvKestrel/clsCmd.h>
#include <orvKestrel/inspect.h>

#include <cstdlib>
#include <utility>

namespace orvKestrel {
namespace {

std::string Num(std::int64_t v) { return std::to_string(v); }

// A number written as text ("Status" of a job file); anything else is a conversion error.
double ToNumber(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  const double v = std::strtod(begin, &end);
  while (end != nullptr && *end == ' ') ++end;
  if (end == begin || end == nullptr || *end != '\0') {
    throw KestrelError(kErrTypeMismatch, "Type mismatch");
  }
  return v;
}

// The catalogue key of a preview's start line, by Action; 0 = no start line.
int PreviewKey(std::int16_t action) {
  switch (action) {
    case action::kCopy:
      return kMsgPreviewCopy;
    case action::kMove:
      return kMsgPreviewMove;
    case action::kDelete:
      return kMsgPreviewDelete;
    case action::kCompress:
      return kMsgCompressingCopy;
    case action::kExtract:
      return kMsgPreviewExtract;
    case action::kSync:
    case action::kSyncRemoval:
      return kMsgPreviewSync;
    default:
      return 0;
  }
}

// The folder whose entries the listing of sJobDir & "*" shows, and the prefix they must have:
// the separator between folder and pattern is the caller's, so "/x/jobs" lists the entries of
// "/x" that begin with "jobs".
std::pair<std::string, std::string> ListingOf(const std::string& sJobDir) {
  const auto slash = sJobDir.rfind('/');
  if (slash == std::string::npos) return {".", sJobDir};
  return {sJobDir.substr(0, slash + 1), sJobDir.substr(slash + 1)};
}

// Whether the listing of sJobDir & "*" yields an ordinary file. With tidy (the folder's lock
// held by a pass that may write) the temporaries that a killed run left there (job-file
// write-backs) are nobody's any more and are removed on the way.
bool ListsAnyFile(FileSystem& fs, const std::string& sJobDir, bool tidy) {
  const auto [folder, prefix] = ListingOf(sJobDir);
  const auto entries = fs.ListFolder(folder);
  if (!entries) return false;
  bool any = false;
  for (const DirEntry& e : *entries) {
    if (tidy && RemoveLeftover(fs, folder, e)) continue;
    if (!e.isDir && !e.name.empty() && e.name.front() != '.' &&
        e.name.compare(0, prefix.size(), prefix) == 0) {
      any = true;
    }
  }
  return any;
}

// Waits until no other pass works on the job folder.
FolderLock LockJobFolder(Services& s, const std::string& sJobDir) {
  return FolderLock(ListingOf(sJobDir).first, [&s] {
    s.Yield();
    return !s.Stopped();
  });
}

// The job's state file and its archive are named after the job: a name that is not one plain
// file name would put them outside their folders (or, with a NUL, under a shorter name). Such
// a job is not run; an error line names it.
bool RefuseUnsafeName(Engine& e, const job& j) {
  const std::string& name = j.JobName;
  if (IsPlainJobName(name)) return false;
  std::string shown = name;
  for (auto at = shown.find('\0'); at != std::string::npos; at = shown.find('\0', at)) {
    shown.replace(at, 1, "\\0");
  }
  e.svc.Log(kMsgError,
            shown + ": " + e.svc.T(kMsgError) + "the job name \"" + shown +
                "\" is not a plain file name; the job is not run",
            true, true, false, false);
  e.jobEndedWithError = true;
  return true;
}

// Status 3 or 4: the job (or its error) deactivated it.
bool MarkedDeactivated(const job& j) {
  return StatusIs(j, sDeactivated) || StatusIs(j, sErrDeactivated);
}

void DecideDue(Engine& e, job& j, bool& due) {
  Proc p(e.svc.trap, Traced(__func__), "job", j, "bDue", due);
  if (j.IntervalType == 0) {
    due = true;
  } else if (j.IntervalType == 1 && !MarkedDeactivated(j)) {
    bool fired = due;
    switch (j.IntervalTimeType) {
      case 0:
        fired = CheckDailyInterval(e.svc, e.m_sCurrJobFile, j.IntervalState, j.IntervalTime);
        break;
      case 1:
        fired = CheckWeeklyInterval(e.svc, e.m_sCurrJobFile, j.IntervalState, j.IntervalTime,
                                    j.IntervalWeekDay);
        break;
      case 2:
        fired = CheckMonthlyInterval(e.svc, e.m_sCurrJobFile, j.IntervalState, j.IntervalTime,
                                     j.IntervalMonthDay);
        break;
      case 3:
        fired = CheckDateInterval(e.svc, e.m_sCurrJobFile, j.IntervalState, j.IntervalTime,
                                  j.IntervalDate);
        break;
      default:
        return;  // an unknown schedule keeps the previous job's answer
    }
    due = fired;
    if (due) j.Counter = 1;
  } else if (j.IntervalType == 2) {
    due = false;
  }
}

void DriveJob(Engine& e, job& j, std::int32_t i, const std::string& sJobDir,
              const std::string& sLanguagePath, bool bVerbose, bool& due) {
  Proc p(e.svc.trap, Traced(__func__), "job", j, "lIndex", i, "sJobDir", sJobDir, "bVerbose",
         bVerbose);
  if (RefuseUnsafeName(e, j)) return;
  const std::string fileName = j.JobName + ".kjb";
  // Named after the job, not after the file it was read from.
  e.m_sCurrJobFile = paths::BuildPath(sJobDir, fileName);
  DecideDue(e, j, due);
  if (!due) return;

  const JobState state = e.CheckStatus(j, j.Action == action::kDelete ? "Delete" : "");
  j.Status = StatusText(state);
  const auto status = static_cast<std::int16_t>(state);
  const auto announce = [&] {
    e.FireCurrentJob(fileName, i, static_cast<std::int32_t>(std::int64_t{j.Counter} - 1), status,
                     j.IntervalType, j.IntervalTimeType, j.IntervalTime, j.IntervalDate,
                     j.IntervalWeekDay, j.IntervalMonthDay);
  };
  if (j.ChkFreeSpace == 0) announce();

  if (j.Counter != 1) {
    // Counts on below zero: such a job waits until the host rewrites "Counter".
    if (j.IntervalType == 0 && !MarkedDeactivated(j)) {
      e.WriteJobString("Job", "Counter", Num(std::int64_t{j.Counter} - 1));
    }
    return;
  }
  if (state == sDeactivated || state == sErrDeactivated || state == sRunnedOnce) {
    if (bVerbose)
      e.svc.Log(kMsgJobDeactivated, j.JobName + ": " + e.svc.T(kMsgJobDeactivated), true, true,
                false, false);
    return;
  }
  if (state == sOK || state == sRunOnce) {
    e.svc.Yield();
    if (j.ChkFreeSpace != 1) {
      e.ExecuteSingleJob(j, sJobDir, sLanguagePath, false, false);
    } else if (CheckFreeSpace(e.svc, j.FreeSpaceVal, j.From)) {
      announce();
      e.ExecuteSingleJob(j, sJobDir, sLanguagePath, false, false);
    }
  } else if (bVerbose) {
    e.svc.Log(kMsgPathsInvalid, j.JobName + ": " + e.svc.T(kMsgPathsInvalid), true, true, false,
              false);
  }
  if (j.IntervalType == 0) e.WriteJobString("Job", "Counter", Num(j.Interval));
  if (status == sRunOnce) {
    e.FireCurrentJob(fileName, i, j.Interval, sRunnedOnce, 0, 0, "", "", 0, 0);
    e.WriteJobString("Job", "Status", StatusText(sRunnedOnce));
  } else {
    e.FireCurrentJob(fileName, i, j.Interval, status, 0, 0, "", "", 0, 0);
  }
}

void StartLine(Services& s, job& job) {
  Proc p(s.trap, Traced(__func__), "job", job);
  const std::string head = job.JobName + ": " + s.T(kMsgJobStart);
  if (job.DoPreview != 1) {
    s.Log(kMsgJobStart, head, true, true, false, false);
  } else if (const int key = PreviewKey(job.Action); key != 0) {
    s.Log(kMsgJobStart, head + " - " + s.T(key), true, true, false, false);
  }
}

// The closing line of a job that was not stopped: what the file step found.
void EndLine(Engine& e, JobRun& run) {
  Services& s = e.svc;
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "job", job);
  if (run.noFiles) {
    s.Log(kMsgNoFiles, job.JobName + ": " + s.T(kMsgNoFiles), true, true, true, true);
    run.noFiles = false;
  } else if (run.jobError) {
    e.jobEndedWithError = true;
    s.Log(kMsgJobDoneWithErrors, job.JobName + ": " + s.T(kMsgJobDoneWithErrors), true, true, true,
          true);
  } else {
    s.Log(kMsgJobDone, job.JobName + ": " + s.T(kMsgJobDone), true, true, true, true);
  }
}

}  // namespace

std::vector<job> Engine::GetJobs(const std::string& sJobDir, const std::string& sFile) {
  Proc p(svc.trap, Traced(__func__), "sJobDir", sJobDir, "sFile", Optional(sFile));
  std::vector<job> jobs;
  p.Do([&] { jobs = ReadJobs(svc.fs, svc.trap, svc.host, sJobDir, sFile, &jobFileUnreadable); });
  return jobs;
}

void Engine::WriteJobString(const std::string& section, const std::string& Name,
                            const std::string& Value) {
  orvKestrel::WriteJobString(svc, m_sCurrJobFile, section, Name, Value);
}

void WriteJobString(Services& s, const std::string& jobFile, const std::string& section,
                    const std::string& Name, const std::string& Value) {
  Proc p(s.trap, Traced(__func__), "section", section, "Name", Name, "Value", Value,
         "m_sCurrJobFile", jobFile);
  if (s.dryRun) return;
  p.Do([&] { orvKestrel::WriteJobString(s.fs, section, Name, Value, jobFile); });
}

void Engine::RunExternalProgram(job& job) {
  Proc p(svc.trap, Traced(__func__), "job", job);
  if (svc.dryRun) return;
  p.Do([&] { clsCmd(svc.host, svc.trap).ShellAndWait(job); });
}

JobState Engine::CheckStatus(job& job, const std::string& sDel) {
  Proc p(svc.trap, Traced(__func__), "job", job, "sDel", Optional(sDel));
  if (job.Inactive == 1) return sDeactivated;
  if (sDel != "Delete") {
    if (!svc.fs.FolderExists(job.From) || !svc.fs.FolderExists(job.To)) return sError;
    if (job.RunOnce != 1) return sOK;
    bool ranOnce = false;
    if (!p.Do([&] { ranOnce = ToNumber(job.Status) == int{sRunnedOnce}; })) return sOK;
    if (ranOnce) return sRunnedOnce;
    // Marked as run the moment it is found due, before it runs.
    WriteJobString("Job", "Status", StatusText(sRunnedOnce));
    return sRunOnce;
  }
  // A delete job needs no destination, and its run-once mark is left to the caller.
  if (!svc.fs.FolderExists(job.From)) return sError;
  return job.RunOnce != 1 ? sOK : sRunOnce;
}

void Engine::BeginCall() {
  jobEndedWithError = false;
  jobFileUnreadable = false;
  svc.writtenThisRun.clear();
  svc.trap.ResetErrorCount();
}

void Engine::ExecuteAllJobs(const std::string& sJobDir, const std::string& sLanguagePath,
                            bool bVerbose, bool bDoPreview, bool bFilterRegExp) {
  Proc p(svc.trap, Traced(__func__), "sJobDir", sJobDir, "sLanguagePath", sLanguagePath, "bVerbose",
         Optional(bVerbose), "bDoPreview", Optional(bDoPreview), "bFilterRegExp",
         Optional(bFilterRegExp));
  LoadLogMessages(sLanguagePath);
  SetMsgIDs();
  catalogueLoaded = true;
  jobError = false;
  svc.stop.store(false);
  svc.filterRegExp = bFilterRegExp;
  BeginCall();

  const auto lock = LockJobFolder(svc, sJobDir);
  if (svc.Stopped()) return;
  if (!ListsAnyFile(svc.fs, sJobDir, lock.Held() && !svc.dryRun)) return;
  std::vector<job> jobs = GetJobs(sJobDir);
  // Deliberately not reset between jobs: a job whose schedule is not tested inherits it.
  bool due = false;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    if (svc.Stopped()) return;
    job& j = jobs[i];
    if (bDoPreview || j.DoPreview == 0) {
      DriveJob(*this, j, static_cast<std::int32_t>(i), sJobDir, sLanguagePath, bVerbose, due);
    }
    if (svc.Stopped()) return;
  }
}

void Engine::ExecuteOneJob(const std::string& sFile, const std::string& sJobDir,
                           const std::string& sLanguagePath, bool bStartInactive,
                           bool bFilterRegEx) {
  Proc p(svc.trap, Traced(__func__), "sFile", sFile, "sJobDir", sJobDir, "sLanguagePath",
         Optional(sLanguagePath), "bStartInactive", Optional(bStartInactive), "bFilterRegEx",
         Optional(bFilterRegEx));
  svc.stop.store(false);
  svc.filterRegExp = bFilterRegEx;
  BeginCall();
  const auto lock = LockJobFolder(svc, sJobDir);
  if (svc.Stopped()) return;
  if (lock.Held() && !svc.dryRun) RemoveEngineTemporaries(svc.fs, ListingOf(sJobDir).first);
  std::vector<job> jobs = GetJobs(sJobDir, sFile);
  // bStartInactive is not passed on: an inactive job named here is passed over silently.
  if (!jobs.empty()) ExecuteSingleJob(jobs.front(), sJobDir, sLanguagePath, false, false);
}

void Engine::ExecuteSingleJob(job& job, const std::string& sJobDir,
                              const std::string& sLanguagePath, bool bStartInactive,
                              bool bVerbose) {
  Proc p(svc.trap, Traced(__func__), "job", job, "sJobDir", sJobDir, "sLanguagePath", sLanguagePath,
         "bStartInactive", bStartInactive, "bVerbose", bVerbose);
  if (!catalogueLoaded) {
    LoadLogMessages(sLanguagePath);
    SetMsgIDs();
    catalogueLoaded = true;
  }
  if (RefuseUnsafeName(*this, job)) return;
  const bool active = job.Inactive == 0;
  if (bStartInactive) job.Inactive = 0;  // after the decision: it does not activate this run
  if (!active) {
    if (bVerbose)
      svc.Log(kMsgJobDeactivated, job.JobName + ": " + svc.T(kMsgJobDeactivated), true, true, false,
              false);
    return;
  }
  const bool pathsOk =
      svc.fs.FolderExists(job.From) &&
      (job.Action == action::kDelete || svc.fs.FolderExists(job.To));
  if (!pathsOk) {
    if (bVerbose)
      svc.Log(kMsgPathsInvalid, job.JobName + ": " + svc.T(kMsgPathsInvalid), true, true, false,
              false);
    return;
  }
  if (!svc.Stopped()) {
    if (svc.dryRun) job.DoPreview = 1;
    StartLine(svc, job);
    if (job.ExtOpt == 0) {
      job.Ext.clear();
    } else if (job.Ext.empty()) {
      job.ExtOpt = 0;
    }
    if (job.FileOpt == 0) job.FileSize = 0;
    if (job.ExecDo == 1 && job.Execution == 0) RunExternalProgram(job);
    JobRun run(job);
    run.jobError = jobError;
    p.Do([&] { Search(run, svc, job.SubFolder == 1, false); });
    jobError = run.jobError;
    if (!svc.Stopped()) {
      EndLine(*this, run);
      if (job.ExecDo == 1 && job.Execution == 1) RunExternalProgram(job);
      return;
    }
  }
  svc.Log(kMsgCancelled, job.JobName + ": " + svc.T(kMsgCancelled), true, true, true, true);
}

}  // namespace orvKestrel
