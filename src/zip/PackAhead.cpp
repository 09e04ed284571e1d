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

bool Finished(Packed::State s) {
  return s == Packed::State::Done || s == Packed::State::Plain || s == Packed::State::Changed;
}

}  // namespace

PackAhead::PackAhead(FileSystem& fs, std::vector<std::string> sources, int level, int workers)
    : fs_(fs), sources_(std::move(sources)), slots_(sources_.size()),
      ahead_(kAheadPerWorker * static_cast<std::size_t>(std::max(workers, 1))) {
  const auto n = std::min<std::size_t>(static_cast<std::size_t>(std::max(workers, 1)),
                                       sources_.size());
  workers_.reserve(n);
  for (std::size_t w = 0; w < n; ++w) workers_.emplace_back([this, level] { Work(level); });
}

PackAhead::~PackAhead() {
  {
    std::lock_guard lock(m_);
    stop_.store(true);
  }
  claimable_.notify_all();
  workers_.clear();  // joins
}

Packed& PackAhead::Wait(std::size_t k) {
  std::unique_lock lock(m_);
  // Entries before k will not be asked for any more: they no longer hold the look-ahead back.
  if (k > released_) {
    released_ = k;
    claimable_.notify_all();
  }
  done_.wait(lock, [&] { return Finished(slots_[k].state); });
  return slots_[k];
}

void PackAhead::Release(std::size_t k) {
  {
    std::lock_guard lock(m_);
    Packed& p = slots_[k];
    held_ -= std::exchange(p.held, 0);
    p.data = {};
    released_ = std::max(released_, k + 1);
  }
  claimable_.notify_all();
}

// The next entry, once the writer is close enough and the memory allows; false to stop.
bool PackAhead::Claim(std::size_t& k) {
  std::unique_lock lock(m_);
  claimable_.wait(lock, [&] {
    if (stop_.load() || next_ >= slots_.size()) return true;
    if (next_ <= released_) return true;  // the writer waits for it: always
    return next_ < released_ + ahead_ && held_ < kHeldCap;
  });
  if (stop_.load() || next_ >= slots_.size()) return false;
  k = next_++;
  slots_[k].state = Packed::State::Working;
  return true;
}

void PackAhead::Work(int level) {
  Compressor compressor(libdeflate_alloc_compressor(std::clamp(level, 1, 9)));
  std::vector<char> buf;
  std::size_t k = 0;
  while (Claim(k)) {
    Packed out;
    if (compressor) Pack(k, out, compressor.get(), buf);
    else out.state = Packed::State::Plain;
    {
      std::lock_guard lock(m_);
      out.held = out.data.size();
      held_ += out.held;
      slots_[k] = std::move(out);
    }
    done_.notify_all();
  }
}

// Reads and deflates entry k. A file that cannot be opened or read, or outgrows what is held in
// memory, is left to libzip's own read (Plain), which reports it as a commit always did.
void PackAhead::Pack(std::size_t k, Packed& out, void* compressor, std::vector<char>& buf) {
  out.state = Packed::State::Plain;
  std::size_t got = 0;
  try {
    SourceFile file = fs_.OpenToRead(sources_[k]);
    const std::uint64_t size = file.Opened().size;
    if (size > kWholeLimit) return;
    buf.resize(static_cast<std::size_t>(size) + 1);
    for (;;) {
      if (stop_.load()) return;
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
  auto* c = static_cast<libdeflate_compressor*>(compressor);
  out.data.resize(libdeflate_deflate_compress_bound(c, got));
  const std::size_t packed = libdeflate_deflate_compress(c, buf.data(), got, out.data.data(),
                                                         out.data.size());
  if (packed == 0) {
    out.data = {};
    return;
  }
  out.data.resize(packed);
  out.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, buf.data(), got));
  out.state = Packed::State::Done;
  // A large buffer is not kept for the small files that follow.
  if (buf.capacity() > (std::size_t{1} << 20)) buf = {};
}

}  // namespace orvKestrel::zipahead
