// Shared helpers of the fuzz targets: a private scratch folder and a listing of a folder's
// names, so that a target can prove that an input wrote nothing where it should not.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

namespace orvKestrel::fuzz {

// A folder below /tmp that lives as long as the fuzzing process. The error trap writes
// "error.log" into the current folder, so the process works from inside this folder.
class Scratch {
 public:
  Scratch() {
    std::string tmpl = std::filesystem::temp_directory_path().string() + "/kestrel-fuzz-XXXXXX";
    if (::mkdtemp(tmpl.data()) == nullptr) std::abort();
    root_ = tmpl;
    if (::chdir(root_.c_str()) != 0) std::abort();
  }
  ~Scratch() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const std::string& root() const { return root_; }
  std::string operator/(std::string_view rel) const { return root_ + "/" + std::string(rel); }

 private:
  std::string root_;
};

// The names in a folder (without "." and ".."); empty when it cannot be read.
inline std::set<std::string> Names(const std::string& folder) {
  std::set<std::string> out;
  if (DIR* d = ::opendir(folder.c_str())) {
    while (const dirent* e = ::readdir(d)) {
      const std::string_view n(e->d_name);
      if (n != "." && n != "..") out.emplace(n);
    }
    ::closedir(d);
  }
  return out;
}

inline void Put(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(),
                                                                 static_cast<std::streamsize>(bytes.size()));
}

inline std::string Get(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Stops the process with a message that libFuzzer keeps next to the crashing input.
[[noreturn]] inline void Fail(const std::string& what) {
  std::fprintf(stderr, "fuzz property violated: %s\n", what.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace orvKestrel::fuzz
