// Signals for a host: SIGINT and SIGTERM each become StopMsg(true) of the engine; SIGHUP, when
// asked for, is noted for the host to reopen its files (log rotation). The handler only notes
// the signal (all it may safely do); a watcher thread passes a stop on at once, and the yields
// of the run pass it on again, since a run clears the stop flag at its start.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace orvKestrel {

class StopSignals {
 public:
  // Installs the handlers (one per process at a time; SIGHUP only with hangup) and starts the
  // watcher. A second stop signal of the same kind ends the process the ordinary way.
  explicit StopSignals(bool hangup = false);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // The engine that signals stop; null detaches it (before it is destroyed).
  void Attach(clsKestrel* kestrel);
  bool Signalled() const;
  // For the host's yield callback: on the thread that made this object, re-applies the stop.
  void OnYield();
  // Waits until the deadline, a stop signal or a SIGHUP, whichever comes first; true when a
  // stop signal came.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline);
  // True once for each time SIGHUP came since the last call.
  bool TakeHangup();

 private:
  void Watch();

  int pipe_[2] = {-1, -1};
  std::thread::id owner_;
  std::mutex mutex_;
  std::condition_variable woken_;
  clsKestrel* kestrel_ = nullptr;
  bool hangup_ = false;
  bool inYield_ = false;
  std::thread watcher_;
};

}  // namespace orvKestrel
