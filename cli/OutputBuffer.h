// Output gathered so that a pass over many files does not cost a system call per line, while a
// reader (a pipe, a terminal, `tail -f`) still sees every line soon: pending text is written
// when 64 KiB are gathered, 50 ms after the oldest pending line (by a thread of its own), and on
// Flush.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace kestrel {

class OutputBuffer {
 public:
  static constexpr std::size_t kMaxPending = 64 * 1024;
  static constexpr std::chrono::milliseconds kMaxDelay{50};

  // write: puts text out and flushes it, and says a failure where it should be said. Called with
  // the buffer's lock held, from the caller's thread or the buffer's own.
  explicit OutputBuffer(std::function<void(const std::string&)> write);
  // Writes what is pending.
  ~OutputBuffer();
  OutputBuffer(const OutputBuffer&) = delete;
  OutputBuffer& operator=(const OutputBuffer&) = delete;

  void Add(std::string_view text);
  void Flush();

 private:
  void WriteLocked();
  void FlushOnTime();  // the buffer's thread

  std::function<void(const std::string&)> write_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::string pending_;
  std::chrono::steady_clock::time_point oldest_;  // when the first pending byte came
  bool stop_ = false;
  std::thread flusher_;  // last: starts when everything it reads is made
};

// A writer for OutputBuffer: the text to stream, flushed.
std::function<void(const std::string&)> StreamWriter(std::FILE* stream);

}  // namespace kestrel
