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

// The extraction does not touch an item until its result is set (under the lock).
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

UnpackAhead::UnpackAhead(int workers) {
  const int n = std::max(workers, 1);
  workers_.reserve(static_cast<std::size_t>(n));
  for (int w = 0; w < n; ++w) workers_.emplace_back([this] { Work(); });
}

UnpackAhead::~UnpackAhead() {
  {
    std::lock_guard lock(m_);
    stop_ = true;
    queue_.clear();
  }
  queued_.notify_all();
  workers_.clear();  // joins
}

void UnpackAhead::Submit(std::shared_ptr<Unpack> item) {
  {
    std::lock_guard lock(m_);
    queue_.push_back(std::move(item));
  }
  queued_.notify_one();
}

void UnpackAhead::Wait(const Unpack& item) {
  std::unique_lock lock(m_);
  done_.wait(lock, [&] { return item.result != Unpack::Result::Pending; });
}

void UnpackAhead::Work() {
  Decompressor d(libdeflate_alloc_decompressor());
  for (;;) {
    std::shared_ptr<Unpack> item;
    {
      std::unique_lock lock(m_);
      queued_.wait(lock, [&] { return stop_ || !queue_.empty(); });
      if (stop_) return;
      item = std::move(queue_.front());
      queue_.pop_front();
    }
    const Unpack::Result result = Process(d.get(), *item);
    {
      std::lock_guard lock(m_);
      item->result = result;
    }
    done_.notify_all();
  }
}

}  // namespace orvKestrel::zipahead
