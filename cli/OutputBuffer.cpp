#include "OutputBuffer.h"

#include <utility>

namespace kestrel {

OutputBuffer::OutputBuffer(std::function<void(const std::string&)> write)
    : write_(std::move(write)), writer_([this] { Writer(); }) {}

OutputBuffer::~OutputBuffer() {
  {
    std::unique_lock lock(mutex_);
    WriteAll(lock);
    stop_ = true;
  }
  wake_.notify_one();
  writer_.join();
}

void OutputBuffer::Add(std::string_view text) {
  std::unique_lock lock(mutex_);
  const bool wasEmpty = pending_.empty();
  pending_.append(text);
  if (pending_.size() >= kMaxPending) {
    HandOver(lock);
  } else if (wasEmpty) {
    oldest_ = std::chrono::steady_clock::now();
    wake_.notify_one();
  }
}

void OutputBuffer::Flush() {
  std::unique_lock lock(mutex_);
  WriteAll(lock);
}

// Waits while the block before is still being written: a slow reader holds the caller back, as
// a write of its own would.
void OutputBuffer::HandOver(std::unique_lock<std::mutex>& lock) {
  written_.wait(lock, [&] { return !handed_; });
  if (pending_.empty()) return;
  std::swap(writing_, pending_);
  pending_.clear();
  handed_ = true;
  wake_.notify_one();
}

void OutputBuffer::WriteAll(std::unique_lock<std::mutex>& lock) {
  written_.wait(lock, [&] { return !handed_; });
  if (pending_.empty()) return;
  write_(pending_);
  pending_.clear();
}

void OutputBuffer::Writer() {
  std::unique_lock lock(mutex_);
  while (!stop_) {
    if (handed_) {
      lock.unlock();
      write_(writing_);
      lock.lock();
      handed_ = false;
      written_.notify_all();
    } else if (pending_.empty()) {
      wake_.wait(lock);
    } else if (wake_.wait_until(lock, oldest_ + kMaxDelay) == std::cv_status::timeout &&
               !handed_ && !pending_.empty() &&
               std::chrono::steady_clock::now() >= oldest_ + kMaxDelay) {
      // A block handed over meanwhile may have emptied the buffer and a new line started it.
      write_(pending_);
      pending_.clear();
    }
  }
}

std::function<void(const std::string&)> StreamWriter(std::FILE* stream) {
  return [stream](const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
  };
}

}  // namespace kestrel
