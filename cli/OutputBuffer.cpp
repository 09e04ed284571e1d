#include "OutputBuffer.h"

#include <utility>

namespace kestrel {

OutputBuffer::OutputBuffer(std::function<void(const std::string&)> write)
    : write_(std::move(write)), flusher_([this] { FlushOnTime(); }) {}

OutputBuffer::~OutputBuffer() {
  {
    std::lock_guard lock(mutex_);
    stop_ = true;
    WriteLocked();
  }
  wake_.notify_one();
  flusher_.join();
}

void OutputBuffer::Add(std::string_view text) {
  std::lock_guard lock(mutex_);
  const bool wasEmpty = pending_.empty();
  pending_.append(text);
  if (pending_.size() >= kMaxPending) {
    WriteLocked();
  } else if (wasEmpty) {
    oldest_ = std::chrono::steady_clock::now();
    wake_.notify_one();
  }
}

void OutputBuffer::Flush() {
  std::lock_guard lock(mutex_);
  WriteLocked();
}

void OutputBuffer::WriteLocked() {
  if (pending_.empty()) return;
  write_(pending_);
  pending_.clear();
}

void OutputBuffer::FlushOnTime() {
  std::unique_lock lock(mutex_);
  while (!stop_) {
    if (pending_.empty()) {
      wake_.wait(lock);
    } else if (wake_.wait_until(lock, oldest_ + kMaxDelay) == std::cv_status::timeout) {
      // A write meanwhile may have emptied the buffer and a new line started it again.
      if (std::chrono::steady_clock::now() >= oldest_ + kMaxDelay) WriteLocked();
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
