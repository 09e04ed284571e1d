// The run driver behind clsKestrel: the calls of the host, the jobs of a folder one by one, and
// what one call remembers. Each job runs as a JobRun over the shared Services.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include "engine/JobRun.h"
#include "engine/Services.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvKestrel {

class Engine {
 public:
  explicit Engine(Host host, FaultPoints* faults = nullptr) : svc(std::move(host), faults) {}

  // May run on another thread than the run (it then calls host.yield on that thread), and in a
  // signal handler only when host.yield is unset or safe there too.
  void StopMsg(bool bStop);
  void FireCurrentJob(const std::string& sFileName, std::int32_t lIndex, std::int32_t lCounter,
                      std::int16_t iStatus, std::int16_t IntervalType = 0,
                      std::int16_t IntervalTimeType = 0, const std::string& IntervalTime = "",
                      const std::string& IntervalDate = "", std::int16_t IntervalWeekDay = 0,
                      std::int16_t IntervalMonthDay = 0);

  void ExecuteAllJobs(const std::string& sJobDir, const std::string& sLanguagePath, bool bVerbose,
                      bool bDoPreview, bool bFilterRegExp);
  void ExecuteOneJob(const std::string& sFile, const std::string& sJobDir,
                     const std::string& sLanguagePath, bool bStartInactive, bool bFilterRegEx);
  JobState CheckStatus(job& job, const std::string& sDel);
  void ExecuteSingleJob(job& job, const std::string& sJobDir, const std::string& sLanguagePath,
                        bool bStartInactive, bool bVerbose);
  // The job reader with this engine's error trap and host.
  std::vector<job> GetJobs(const std::string& sJobDir, const std::string& sFile = "");
  // Writes into m_sCurrJobFile; nothing in a dry run.
  void WriteJobString(const std::string& section, const std::string& Name,
                      const std::string& Value);
  void RunExternalProgram(job& job);  // clsCmd::ShellAndWait unless dry run
  void LoadLogMessages(const std::string& sLanguagePath);
  void SetMsgIDs();
  // Clears what one call of ExecuteAllJobs or ExecuteOneJob remembers.
  void BeginCall();

  Services svc;
  bool catalogueLoaded = false;
  // The job-error flag outlives its job: only ExecuteAllJobs clears it, so once a job failed,
  // the later jobs of the call (and the jobs of later ExecuteOneJob calls) end "(mit Fehler)".
  bool jobError = false;
  // A job of the current call ended "(mit Fehler)"; unlike jobError, cleared by every call.
  bool jobEndedWithError = false;
  bool jobFileUnreadable = false;  // the last GetJobs stopped at a file it could not read
  // The job file of the job last looked at. It outlives the call: the host's CheckStatus of a
  // run-once job writes there.
  std::string m_sCurrJobFile;
};

// ----- schedules and free space (Scheduling.cpp) -----
// Each writes the fired day into jobFile ("IntState"), nothing in a dry run.
bool CheckDailyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                        std::string& sTime);
bool CheckWeeklyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                         std::string& sTime, std::int16_t& iWeekDay);
bool CheckMonthlyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                          std::string& sTime, std::int16_t& iMonthDay);
bool CheckDateInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                       std::string& sTime, std::string& sExeDate);
bool CheckFreeSpace(Services& s, std::int32_t& FreeSpaceLimit, const std::string& sPath);
// The job-file write of the driver and the schedules: traced, and nothing in a dry run.
void WriteJobString(Services& s, const std::string& jobFile, const std::string& section,
                    const std::string& Name, const std::string& Value);

}  // namespace orvKestrel
