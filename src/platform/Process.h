// A program started through the shell, and the wait for its end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

namespace orvKestrel {

// The path of the running program, links resolved; empty when the system does not say.
std::string OwnExecutable();

class Process {
 public:
  // Starts "/bin/sh -c commandLine" with the caller's environment, standard input and standard
  // error. No other descriptor of the caller reaches the program. With stdoutToStderr the
  // program's standard output goes to the caller's standard error. Throws KestrelError when the
  // shell cannot be started.
  Process(const std::string& commandLine, bool stdoutToStderr);
  // Never kills the program. One still running is handed to a detached thread that only waits
  // for it, so that it cannot stay behind as a zombie when it ends after this object is gone.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Blocks up to timeout (0: only looks) and answers whether the program has ended; an ended
  // program is reaped at once.
  bool WaitFor(std::chrono::milliseconds timeout);
  // The exit status once ended: the program's exit code, 128 + the signal number when a signal
  // ended it, -1 when someone else reaped it first. Empty while it runs.
  std::optional<int> ExitCode() const { return exit_; }

 private:
  bool Reap();
  void Block(std::chrono::milliseconds timeout);
  pid_t pid_ = -1;
  int pidfd_ = -1;  // -1 where the kernel has no pidfd: the wait then sleeps in short steps
  std::optional<int> exit_;
};

}  // namespace orvKestrel
