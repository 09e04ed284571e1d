// Starts a job's external program and, if the job asks for it, waits for it.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <ctime>

namespace orvKestrel {

class clsCmd {
 public:
  explicit clsCmd(Host host = {});
  // Starts ExecPath & " " & ExecParam through the shell; waits up to ExecMaxSec when ExecWait is 1.
  // The program is never killed. A start failure goes to the host's message box, never thrown.
  void ShellAndWait(job& job);

 private:
  Host host_;
  std::time_t start_ = 0;  // when the last program was started
};

}  // namespace orvKestrel
