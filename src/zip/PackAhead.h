// Deflates the sources of one archive commit on worker threads, ahead of libzip, in the order
// libzip writes them; libzip then takes each entry's data as already compressed. Each source is
// read through one descriptor and checked at the end as the commit's own read is, so a file
// that changed while it was read is refused the same way. The look-ahead is bounded: a few
// entries per worker and a cap on the bytes held, and a file too large to hold is left to
// libzip's own streaming compression (Plain), so memory stays at some tens of MiB whatever the
// files are.
#pragma once

#include "platform/FileSystem.h"
#include "platform/OrderedPool.h"
#include "zip/Ahead.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orvKestrel::zipahead {

// One entry's deflated data, as the worker left it.
struct Packed {
  enum class State { Plain, Done, Changed };
  State state = State::Plain;
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

  // Entry k once its worker is through with it; its data may be moved out.
  Packed& Wait(std::size_t k);
  // Entry k is written: its memory counts no more and the look-ahead moves on.
  void Release(std::size_t k);

 private:
  struct Tools;  // a worker's compressor and read buffer
  void Pack(std::size_t k, unsigned worker);

  FileSystem& fs_;
  std::vector<std::string> sources_;
  std::vector<Packed> slots_;
  int level_;
  std::vector<Tools> tools_;  // one per worker
  std::atomic<std::uint64_t> held_{0};  // bytes of deflated data waiting to be written
  OrderedPool pool_;  // last: its workers stop before the rest goes
};

}  // namespace orvKestrel::zipahead
