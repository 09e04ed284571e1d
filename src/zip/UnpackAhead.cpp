#include "zip/UnpackAhead.h"

#include "platform/SysError.h"

#include <libdeflate.h>

#include <algorithm>

namespace orvKestrel::zipahead {
namespace {

struct FreeDecompressor {
  void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};
using Decompressor = std::unique_ptr<libdeflate_decompressor, FreeDecompressor>;

// The entry's contents, or nothing when its data is not what its header says.
std::optional<std::vector<unsigned char>> Inflate(libdeflate_decompressor* d, Unpack& item) {
  std::vector<unsigned char> data;
  if (item.stored) {
    if (item.packed.size() != item.size) return std::nullopt;
    data = std::move(item.packed);
  } else {
    data.resize(static_cast<std::size_t>(item.size));
    std::size_t got = 0;
    if (d == nullptr ||
        libdeflate_deflate_decompress(d, item.packed.data(), item.packed.size(), data.data(),
                                      data.size(), &got) != LIBDEFLATE_SUCCESS ||
        got != data.size()) {
      return std::nullopt;
    }
  }
  if (libdeflate_crc32(0, data.data(), data.size()) != item.crc) return std::nullopt;
  return data;
}

// The extraction does not touch an item until the pool says its task is through.
Unpack::Result Process(libdeflate_decompressor* d, Unpack& item) {
  const auto data = Inflate(d, item);
  item.packed = {};
  if (!data) return Unpack::Result::Retry;
  try {
    item.out->Write(reinterpret_cast<const char*>(data->data()), data->size());
    if (item.modified) item.out->SetTimes({*item.modified, 0}, {*item.modified, 0});
    return Unpack::Result::Written;
  } catch (const KestrelError& e) {
    item.why = e.Description();
    return Unpack::Result::WriteFailed;
  }
}

}  // namespace

struct UnpackAhead::Tools {
  Decompressor decompressor{libdeflate_alloc_decompressor()};
};

UnpackAhead::UnpackAhead(int workers)
    : tools_(static_cast<std::size_t>(std::max(workers, 1))),
      pool_(static_cast<unsigned>(tools_.size())) {}

UnpackAhead::~UnpackAhead() = default;

void UnpackAhead::Submit(std::shared_ptr<Unpack> item) {
  item->ticket = submitted_++;
  std::vector<OrderedPool::Task> task;
  task.emplace_back([this, item = std::move(item)](std::size_t, unsigned worker) {
    item->result = Process(tools_[worker].decompressor.get(), *item);
  });
  pool_.Add(std::move(task));
}

void UnpackAhead::Wait(const Unpack& item) { pool_.Wait(item.ticket); }

}  // namespace orvKestrel::zipahead
