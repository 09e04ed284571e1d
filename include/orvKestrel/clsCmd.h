// Starts a job's external program and, if the job asks for it, waits for it.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <ctime>
#include <memory>

namespace orvKestrel {

class FailSafe;
class Process;

class clsCmd {
 public:
  explicit clsCmd(Host host = {});
  // For the engine: the trace of the call goes into the engine's own trap, so that one trace
  // holds the whole run. The trap must outlive this object.
  clsCmd(Host host, FailSafe& trap);
  ~clsCmd();
  clsCmd(const clsCmd&) = delete;
  clsCmd& operator=(const clsCmd&) = delete;

  // Starts ExecPath & " " & ExecParam through the shell; waits up to ExecMaxSec when ExecWait is 1.
  // The program is never killed. A start failure goes to the host's message box (without one,
  // to standard error), never thrown and never logged.
  void ShellAndWait(job& job);

 private:
  void WaitForProgram(Process& program, std::int16_t maxSec);
  void ShowStartFailure(const std::string& execPath);

  Host host_;
  std::unique_ptr<FailSafe> ownTrap_;  // set when no trap was given
  FailSafe* trap_;
  std::time_t start_ = 0;  // when the last program was started
};

}  // namespace orvKestrel
