// A libzip source that reads a file through one descriptor, opened when the commit reads it,
// and fails the read when the file changed meanwhile: an archive never holds an entry mixed of
// two states of its file, and what was read is known for the deletion of the source afterwards.
// In a commit with workers (PackAhead) the file was read and deflated ahead by a worker under
// the same check; the source then hands libzip the deflated data, its CRC and sizes, which
// libzip writes as they are.
#pragma once

#include "platform/FileSystem.h"
#include "zip/PackAhead.h"

#include <zip.h>

#include <optional>
#include <string>
#include <vector>

namespace orvKestrel::zipsource {

struct State {
  State(FileSystem& fs, std::string path);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // The deflated entry a worker made.
  struct Ready {
    std::vector<unsigned char> data;
    std::uint64_t packedSize = 0;
    std::uint32_t crc = 0;
    FileIdentity read;
    std::size_t offset = 0;  // handed to libzip so far
  };
  // Takes the entry's place in the workers' order for the next commit (nullptr: none).
  void Ahead(zipahead::PackAhead* ahead, std::size_t slot) {
    this->ahead = ahead;
    this->slot = slot;
    ready.reset();
  }

  FileSystem& fs;
  std::string path;
  int level = 0;  // the deflate level workers may use; 0: libzip compresses (or stores) itself
  std::optional<std::uint64_t> statSize;  // the length libzip was told
  std::optional<SourceFile> file;
  std::optional<FileIdentity> read;  // the file as the last complete read found it
  std::string failure;               // why the last read failed; "" when it did not
  zip_error_t error;
  zipahead::PackAhead* ahead = nullptr;
  std::size_t slot = 0;
  std::optional<Ready> ready;
};

// A source of za over state, which must outlive it; nullptr on failure.
zip_source_t* Create(zip_t* za, State& state);

}  // namespace orvKestrel::zipsource
