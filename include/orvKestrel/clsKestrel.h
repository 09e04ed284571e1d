// The job engine: runs the jobs of a folder, reports every step through its events.
#pragma once

#include <orvKestrel/clsCmd.h>
#include <orvKestrel/clsJobs.h>
#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <cstdint>
#include <memory>
#include <string>

namespace orvKestrel {

// The three events of the engine. A host overrides what it listens to.
class IKestrelEvents {
 public:
  virtual ~IKestrelEvents() = default;
  virtual void LogMessage(const std::string& /*LogMsg*/, std::int16_t /*MsgID*/, bool /*bView*/, bool /*bFile*/,
                          bool /*bSameView*/, bool /*bIsLast*/) {}
  virtual void CurrentJob(const std::string& /*sFileName*/, std::int32_t /*lIndex*/, std::int32_t /*lCounter*/,
                          std::int16_t /*iStatus*/, std::int16_t /*IntervalType*/,
                          std::int16_t /*IntervalTimeType*/, const std::string& /*IntervalTime*/,
                          const std::string& /*IntervalDate*/, std::int16_t /*IntervalWeekDay*/,
                          std::int16_t /*IntervalMonthDay*/) {}
  virtual void KestrelCounter(std::int32_t /*lAllFiles*/, std::int32_t /*lCurrFile*/) {}
};

class Engine;

class clsKestrel {
 public:
  explicit clsKestrel(Host host = {});
  ~clsKestrel();
  clsKestrel(const clsKestrel&) = delete;
  clsKestrel& operator=(const clsKestrel&) = delete;

  // The listener stays owned by the host and must outlive the calls that raise events.
  void Connect(IKestrelEvents* events);

  // Request (true) or withdraw (false) a stop; a run ends at its next stop test. Safe from another
  // thread (the host's yield callback is then called on that thread too) and from a signal
  // handler when the host's yield callback is unset or itself safe there. A stop requested
  // between runs is forgotten: each run clears the flag at its start.
  void StopMsg(bool bStop);
  void CheckNoFileSize(bool b);
  // Worker threads for the file work of a run: copies prepared ahead of the file in hand
  // (contents written and flushed, without a name) and archive entries deflated or inflated
  // ahead of the archive's commit. Every decision, name and event stays in list order, as with
  // one. 1, the default, does all of it on the calling thread and starts none; values below 1
  // count as 1.
  void Jobs(std::int32_t n);
  // While true, every job of a call acts as a preview and nothing is written: no job file,
  // no file of a job, no external program.
  void DryRun(bool b);

  void ExecuteAllJobs(const std::string& sJobDir, const std::string& sLanguagePath,
                      bool bVerbose = false, bool bDoPreview = false, bool bFilterRegExp = false);
  void ExecuteOneJob(const std::string& sFile, const std::string& sJobDir,
                     const std::string& sLanguagePath = "", bool bStartInactive = false,
                     bool bFilterRegEx = false);
  JobState CheckStatus(job& job, const std::string& sDel = "");

  // True when the error trap recorded an error or a job ended with an error since the last call
  // of ExecuteAllJobs or ExecuteOneJob began.
  bool HadErrors() const;
  // True when the last call's listing stopped at a job file that could not be read.
  bool JobFileUnreadable() const;

 private:
  std::unique_ptr<Engine> m_;
};

}  // namespace orvKestrel
