// Inflates extracted entries on worker threads while the extraction decides on the next ones.
// The extraction reads an entry's raw data and makes its new file (both in order, on its own
// thread); a worker inflates the data, checks its CRC and writes it into the file; the
// extraction then names the files in entry order. An entry whose data does not inflate to its
// size and CRC goes back to the extraction's own way, which reports it as it always did.
#pragma once

#include "platform/NewFile.h"

#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace orvKestrel::zipahead {

struct Unpack {
  enum class Result { Pending, Written, Retry, WriteFailed };
  std::vector<unsigned char> packed;  // the entry's raw data: deflated, or stored
  bool stored = false;
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::optional<std::time_t> modified;
  std::optional<NewFile> out;
  Result result = Result::Pending;
  std::string why;  // WriteFailed: the error's text
};

class UnpackAhead {
 public:
  explicit UnpackAhead(int workers);
  ~UnpackAhead();  // stops and joins the workers; what they have not done is dropped
  UnpackAhead(const UnpackAhead&) = delete;
  UnpackAhead& operator=(const UnpackAhead&) = delete;

  void Submit(std::shared_ptr<Unpack> item);
  // Blocks until a worker is through with item.
  void Wait(const Unpack& item);

 private:
  void Work();

  std::mutex m_;
  std::condition_variable queued_, done_;
  std::deque<std::shared_ptr<Unpack>> queue_;
  bool stop_ = false;
  std::vector<std::jthread> workers_;
};

}  // namespace orvKestrel::zipahead
