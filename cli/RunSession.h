// One call of kestrel run, run-one or daemon: the files and listeners around the engine, the
// pass or passes, and the exit status.
#pragma once

#include <string>

#include "HostOptions.h"

namespace kestrel {

enum class Mode { Run, RunOne, Daemon };

struct RunOptions {
  std::string target;  // JOBDIR, or JOBFILE for run-one
  std::string lang;
  bool verbose = false;
  bool previewJobs = false;
  bool dryRun = false;
  bool regex = false;
  bool noSizeCheck = false;
  bool quiet = false;
  bool noWait = false;
  std::string events = "text";
  std::string log;
  std::string trace;
  std::string errorLog = "error.log";
  std::string metrics;
  std::string onError = "leave";
  int every = 60;
  int progress = 0;  // seconds; 0: none
  unsigned jobs = 0;  // 0: the number of cores
  HostOptions host;
};

constexpr int kExitErrors = 1;
constexpr int kExitUsage = 2;
constexpr int kExitUnreadable = 3;
constexpr int kExitSkipped = 4;
constexpr int kExitBusy = 5;
constexpr int kExitSignal = 130;

int Execute(Mode mode, const RunOptions& options);

}  // namespace kestrel
