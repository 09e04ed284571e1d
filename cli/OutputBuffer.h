// Output gathered so that a pass over many files does not cost a system call per line, while a
// reader (a pipe, a terminal, `tail -f`) still sees every line soon: pending text is written
// when 64 KiB are gathered, 50 ms after the oldest pending line, and on Flush. A thread of its
// own writes it, except on Flush: the caller goes on gathering while a block is being written.
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

  // write: puts text out and flushes it, and says a failure where it should be said. Called
  // from the caller's thread or the buffer's own, never from both at once, in the order the
  // text came.
  explicit OutputBuffer(std::function<void(const std::string&)> write);
  // Writes what is pending.
  ~OutputBuffer();
  OutputBuffer(const OutputBuffer&) = delete;
  OutputBuffer& operator=(const OutputBuffer&) = delete;

  void Add(std::string_view text);
  // Returns once everything added is written.
  void Flush();

 private:
  void HandOver(std::unique_lock<std::mutex>& lock);  // pending_ to the buffer's thread
  void WriteAll(std::unique_lock<std::mutex>& lock);  // the block handed over, then pending_
  void Writer();  // the buffer's thread

  std::function<void(const std::string&)> write_;
  std::mutex mutex_;
  std::condition_variable wake_;     // the buffer's thread: a block, a first line, stop
  std::condition_variable written_;  // the caller's: the block handed over is written
  std::string pending_;
  std::string writing_;  // handed over, being written outside the lock
  bool handed_ = false;
  std::chrono::steady_clock::time_point oldest_;  // when the first pending byte came
  bool stop_ = false;
  std::thread writer_;  // last: starts when everything it reads is made
};

// A writer for OutputBuffer: the text to stream, flushed.
std::function<void(const std::string&)> StreamWriter(std::FILE* stream);

}  // namespace kestrel
