// A libzip source that reads a file through one descriptor, opened when the commit reads it,
// and fails the read when the file changed meanwhile: an archive never holds an entry mixed of
// two states of its file, and what was read is known for the deletion of the source afterwards.
#pragma once

#include "platform/FileSystem.h"

#include <zip.h>

#include <optional>
#include <string>

namespace orvKestrel::zipsource {

struct State {
  State(FileSystem& fs, std::string path);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  FileSystem& fs;
  std::string path;
  std::optional<std::uint64_t> statSize;  // the length libzip was told
  std::optional<SourceFile> file;
  std::optional<FileIdentity> read;  // the file as the last complete read found it
  std::string failure;               // why the last read failed; "" when it did not
  zip_error_t error;
};

// A source of za over state, which must outlive it; nullptr on failure.
zip_source_t* Create(zip_t* za, State& state);

}  // namespace orvKestrel::zipsource
