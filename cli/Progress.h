// --progress SECONDS: a status line on stderr at that interval, for logs of cron and systemd
// (stderr is no terminal there). It says the job, the files of its current step, the bytes of
// the pass so far, their rate and the time the step still needs at its pace so far.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

namespace kestrel {

class Progress {
 public:
  // every zero: never prints.
  Progress(std::FILE* err, std::chrono::seconds every);

  void Job(const std::string& file) { job_ = file; }
  void Files(std::int32_t all, std::int32_t current);
  void Bytes(std::uint64_t pass) { bytes_ = pass; }
  // Prints the line when the interval has passed; only on the thread that made this object.
  void Tick();
  // "1234 bytes in 5 s (246 bytes/s), about 7 s left": also for the terminal's progress line.
  std::string Figures() const;

 private:
  using Clock = std::chrono::steady_clock;
  std::FILE* err_;
  std::chrono::seconds every_;
  std::thread::id owner_ = std::this_thread::get_id();
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_;
  Clock::time_point stepStart_ = start_;  // when the current step's first file began
  std::string job_;
  std::int32_t all_ = 0, current_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace kestrel
