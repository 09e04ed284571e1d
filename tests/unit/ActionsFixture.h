// An engine with its catalogue, a recorder for its events, a source and a destination folder,
// and a job between them: the ground of the tests of the file actions.
#pragma once

#include "support/TestEngine.h"
#include "platform/SysError.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace orvKestrel::testing {

// Every entry below root with its contents and write time: a preview must leave it as it was.
inline std::map<std::string, std::string> Snapshot(const std::string& root) {
  std::map<std::string, std::string> out;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string path = entry.path().string();
    std::string value = entry.is_directory() ? "<dir>" : ReadFile(path);
    value += "@" + std::to_string(WriteTime(path));
    out[path] = value;
  }
  return out;
}

// The files directly in a folder, sorted.
inline std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    out.push_back(entry.path().filename().string());
  }
  std::sort(out.begin(), out.end());
  return out;
}

class ActionsTest : public ::testing::Test {
 protected:
  ActionsTest() : engine(Host{}) {
    engine.events = &rec;
    engine.LoadLogMessages("");
    engine.SetMsgIDs();
    engine.catalogueLoaded = true;
    engine.noSizeCheck = true;
    src = tmp / "src";
    dst = tmp / "dst";
    std::filesystem::create_directories(src);
    std::filesystem::create_directories(dst);
    j.JobName = "job";
    j.From = src;
    j.To = dst;
    j.DoPreview = 0;
  }

  std::string Src(const std::string& rel) const { return src + "/" + rel; }
  std::string Dst(const std::string& rel) const { return dst + "/" + rel; }

  // A file in the source (destination) folder with the given contents and write time.
  std::string Source(const std::string& rel, const std::string& data, std::time_t written = 0) {
    return Put(Src(rel), data, written);
  }
  std::string Dest(const std::string& rel, const std::string& data, std::time_t written = 0) {
    return Put(Dst(rel), data, written);
  }
  static std::string Put(const std::string& path, const std::string& data, std::time_t written) {
    WriteFile(path, data);
    if (written != 0) SetModified(path, written);
    return path;
  }

  std::vector<std::string> Lines() const { return rec.Texts(); }
  // The lines after the count line.
  std::vector<std::string> FileLines() const {
    auto lines = rec.Texts();
    if (!lines.empty()) lines.erase(lines.begin());
    return lines;
  }
  std::vector<std::int16_t> Ids() const {
    std::vector<std::int16_t> out;
    for (const auto& l : rec.lines) out.push_back(l.id);
    return out;
  }

  TempDir tmp;
  CurrentDir cwd{tmp.str()};  // error.log lands here, out of the build tree
  RecordingEvents rec;
  TestEngine engine;
  job j;
  std::string src, dst;
};

inline constexpr std::time_t kOld = 1'600'000'000;
inline constexpr std::time_t kNew = 1'700'000'000;

}  // namespace orvKestrel::testing
