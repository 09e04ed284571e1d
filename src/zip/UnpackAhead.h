// Inflates extracted entries on worker threads while the extraction decides on the next ones.
// The extraction reads an entry's raw data and makes its new file (both in order, on its own
// thread); a worker inflates the data, checks its CRC and writes it into the file; the
// extraction then names the files in entry order. An entry whose data does not inflate to its
// size and CRC goes back to the extraction's own way, which reports it as it always did.
#pragma once

#include "platform/NewFile.h"
#include "platform/OrderedPool.h"

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
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
  std::size_t ticket = 0;  // its place in the workers' order
};

class UnpackAhead {
 public:
  explicit UnpackAhead(int workers);
  ~UnpackAhead();  // stops and joins the workers; what they have not begun is dropped

  // Items are waited for in the order they were submitted.
  void Submit(std::shared_ptr<Unpack> item);
  // Blocks until a worker is through with item.
  void Wait(const Unpack& item);

 private:
  struct Tools;  // a worker's decompressor
  std::vector<Tools> tools_;  // one per worker
  std::size_t submitted_ = 0;
  OrderedPool pool_;  // last: its workers stop before the rest goes
};

}  // namespace orvKestrel::zipahead
