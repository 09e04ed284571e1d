// SIGINT and SIGTERM for kestrel: each becomes StopMsg(true) of the engine. The handler only
// notes the signal (all it may safely do); a watcher thread passes it on at once, and the yields
// of the run pass it on again, since a run clears the stop flag at its start.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace kestrel {

class StopSignals {
 public:
  // Installs the handlers (one per process at a time) and starts the watcher. A second signal of
  // the same kind ends the process the ordinary way.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // The engine that signals stop; null detaches it (before it is destroyed).
  void Attach(orvKestrel::clsKestrel* kestrel);
  bool Signalled() const;
  // For the host's yield callback: on the thread that made this object, re-applies the stop.
  void OnYield();
  // Waits until the deadline or a signal, whichever comes first; true when signalled.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline);

 private:
  void Watch();

  int pipe_[2] = {-1, -1};
  std::thread::id owner_;
  std::mutex mutex_;
  std::condition_variable woken_;
  orvKestrel::clsKestrel* kestrel_ = nullptr;
  bool inYield_ = false;
  std::thread watcher_;
};

}  // namespace kestrel
