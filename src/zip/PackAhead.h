// Deflates the sources of one archive commit on worker threads, ahead of libzip, in the order
// libzip writes them; libzip then takes each entry's data as already compressed. Each source is
// read through one descriptor and checked at the end as the commit's own read is, so a file
// that changed while it was read is refused the same way. The look-ahead is bounded: a few
// entries per worker and a cap on the bytes held, and a file too large to hold is left to
// libzip's own streaming compression (Plain), so memory stays at some tens of MiB whatever the
// files are.
#pragma once

#include "platform/FileSystem.h"
#include "zip/Ahead.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvKestrel::zipahead {

// One entry's deflated data, as the worker left it.
struct Packed {
  enum class State { Waiting, Working, Done, Plain, Changed };
  State state = State::Waiting;
  std::vector<unsigned char> data;  // raw deflate
  std::uint32_t crc = 0;
  FileIdentity read;    // the file as it was read (Done)
  std::string failure;  // why it was refused (Changed)
  std::uint64_t held = 0;  // bytes counted against the cap until it is released
};

class PackAhead {
 public:
  // The sources in the order libzip commits them; level 1..9.
  PackAhead(FileSystem& fs, std::vector<std::string> sources, int level, int workers);
  ~PackAhead();  // stops the workers: what they hold is dropped
  PackAhead(const PackAhead&) = delete;
  PackAhead& operator=(const PackAhead&) = delete;

  // Entry k once its worker is through with it; its data may be moved out.
  Packed& Wait(std::size_t k);
  // Entry k is written: its memory counts no more and the look-ahead moves on.
  void Release(std::size_t k);

 private:
  bool Claim(std::size_t& k);
  void Work(int level);
  void Pack(std::size_t k, Packed& out, void* compressor, std::vector<char>& buf);

  FileSystem& fs_;
  std::vector<std::string> sources_;
  std::vector<Packed> slots_;
  std::size_t ahead_;  // entries a worker may be ahead of the writer
  std::mutex m_;
  std::condition_variable claimable_, done_;
  std::size_t next_ = 0;      // next entry to claim
  std::size_t released_ = 0;  // entries before this one are written
  std::uint64_t held_ = 0;    // bytes of deflated data waiting to be written
  std::atomic<bool> stop_{false};
  std::vector<std::jthread> workers_;
};

}  // namespace orvKestrel::zipahead
