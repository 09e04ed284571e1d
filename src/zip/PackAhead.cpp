#include "zip/PackAhead.h"

#include "platform/SysError.h"

#include <libdeflate.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace orvKestrel::zipahead {
namespace {

// Deflated data waiting for the writer, beyond the entry it writes next.
constexpr std::uint64_t kHeldCap = std::uint64_t{16} << 20;
constexpr std::size_t kAheadPerWorker = 4;

struct FreeCompressor {
  void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, FreeCompressor>;

}  // namespace

struct PackAhead::Tools {
  Compressor compressor;
  std::vector<char> buf;
};

PackAhead::PackAhead(FileSystem& fs, std::vector<std::string> sources, int level, int workers)
    : fs_(fs), sources_(std::move(sources)), slots_(sources_.size()),
      level_(std::clamp(level, 1, 9)),
      tools_(std::min<std::size_t>(static_cast<std::size_t>(std::max(workers, 1)),
                                   sources_.size())),
      pool_(static_cast<unsigned>(tools_.size()),
            [this, ahead = kAheadPerWorker * static_cast<std::size_t>(std::max(workers, 1))](
                std::size_t beyond) { return beyond < ahead && held_.load() < kHeldCap; }) {
  pool_.Add(std::vector<OrderedPool::Task>(
      sources_.size(), [this](std::size_t k, unsigned worker) { Pack(k, worker); }));
}

PackAhead::~PackAhead() = default;

Packed& PackAhead::Wait(std::size_t k) {
  pool_.Wait(k);  // an entry passed over stays Plain: libzip reads it itself
  return slots_[k];
}

void PackAhead::Release(std::size_t k) {
  Packed& p = slots_[k];
  held_ -= std::exchange(p.held, 0);
  p.data = {};
  pool_.Reach(k + 1);  // also tells the pool that the bytes held went down
}

// Reads and deflates entry k. A file that cannot be opened or read, or outgrows what is held in
// memory, is left to libzip's own read (Plain), which reports it as a commit always did.
void PackAhead::Pack(std::size_t k, unsigned worker) {
  Tools& tools = tools_[worker];
  if (!tools.compressor) tools.compressor.reset(libdeflate_alloc_compressor(level_));
  if (!tools.compressor) return;
  Packed& out = slots_[k];
  std::vector<char>& buf = tools.buf;
  std::size_t got = 0;
  try {
    SourceFile file = fs_.OpenToRead(sources_[k]);
    const std::uint64_t size = file.Opened().size;
    if (size > kWholeLimit) return;
    buf.resize(static_cast<std::size_t>(size) + 1);
    for (;;) {
      if (pool_.Stopping()) return;
      if (got == buf.size()) {
        if (buf.size() > kWholeLimit) return;  // it grows while it is read
        buf.resize(buf.size() * 2);
      }
      const std::size_t n = file.Read(buf.data() + got, buf.size() - got);
      if (n == 0) break;
      got += n;
    }
    try {
      out.read = file.Finish();
    } catch (const KestrelError& e) {
      out.state = Packed::State::Changed;
      out.failure = e.Description();
      return;
    }
  } catch (const std::exception&) {
    return;
  }
  libdeflate_compressor* c = tools.compressor.get();
  out.data.resize(libdeflate_deflate_compress_bound(c, got));
  const std::size_t packed = libdeflate_deflate_compress(c, buf.data(), got, out.data.data(),
                                                         out.data.size());
  if (packed == 0) {
    out.data = {};
    return;
  }
  out.data.resize(packed);
  out.held = packed;
  held_ += packed;
  out.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, buf.data(), got));
  out.state = Packed::State::Done;
  // A large buffer is not kept for the small files that follow.
  if (buf.capacity() > (std::size_t{1} << 20)) buf = {};
}

}  // namespace orvKestrel::zipahead
