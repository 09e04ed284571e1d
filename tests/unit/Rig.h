// The ground of the unit tests of a run's steps: the driver with its services (catalogue loaded,
// events recorded, faults at hand), one job over tmp/src -> tmp/dst and its JobRun. Tests call
// the steps as the driver does: CopyFiles(run, svc, list).
#pragma once

#include "actions/Actions.h"
#include "engine/Engine.h"
#include "selection/Selection.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include "support/Faults.h"
#include "support/TestSupport.h"
#include "unit/ZipTestSupport.h"
#include "platform/Paths.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <list>
#include <set>

namespace orvKestrel::testing {

inline constexpr std::time_t kOld = 1'600'000'000;
inline constexpr std::time_t kNew = 1'700'000'000;
// Larger than one copy step, of an odd length, and no two steps alike.
inline const std::string kBig = [] {
  std::string data(3 * 1024 * 1024 + 17, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 % 251);
  return data;
}();

// The names directly in a folder, sorted.
inline std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(folder)) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

// Whether the temporary file system keeps user extended attributes (hidden, system, archive):
// the folder itself is asked.
inline bool UserXattrsWork(const std::string& dir) {
  return ::setxattr(dir.c_str(), "user.probe", "1", 1, 0) == 0;
}
inline void SetDosAttrib(const std::string& path, const std::string& value) {
  ::setxattr(path.c_str(), "user.DOSATTRIB", value.data(), value.size(), 0);
}

class Rig : public ::testing::Test {
 protected:
  Rig() {
    driver.LoadLogMessages("");
    driver.SetMsgIDs();
    driver.catalogueLoaded = true;
    svc.events = &rec, svc.noSizeCheck = true;
    for (const auto& folder : {src, dst}) std::filesystem::create_directories(folder);
    Fresh();
  }
  // The job back to its defaults over src -> dst.
  job& Fresh() {
    j = job{};
    j.JobName = "job", j.From = src, j.To = dst, j.DoPreview = 0;
    return j;
  }
  std::string Src(const std::string& rel) const { return src + "/" + rel; }
  std::string Dst(const std::string& rel) const { return dst + "/" + rel; }
  // A file below src (dst) with the given contents and write time (0: now).
  std::string Source(const std::string& rel, const std::string& data = "data", std::time_t t = 0) {
    return Put(Src(rel), data, t);
  }
  std::string Dest(const std::string& rel, const std::string& data, std::time_t t = 0) {
    return Put(Dst(rel), data, t);
  }
  std::vector<std::string> Lines() const { return rec.Texts(); }
  // The lines after the count line.
  std::vector<std::string> FileLines() const {
    const auto lines = rec.Texts();
    return {lines.begin() + (lines.empty() ? 0 : 1), lines.end()};
  }
  // Both trees as text, sorted: "s/..." and "d/..." files with their contents (an archive as
  // its entry names in archive order, kBig as "BIG"), empty folders with a
  // trailing "/".
  std::string Tree() const {
    std::set<std::string> out;
    for (const auto& [root, tag] : {std::pair{src, "s"}, std::pair{dst, "d"}}) {
      if (!Exists(root)) continue;
      if (std::filesystem::is_empty(root)) out.insert(std::string(tag) + "/");
      for (const auto& e : std::filesystem::recursive_directory_iterator(root)) {
        const std::string rel = tag + e.path().string().substr(root.size());
        if (e.is_directory() && std::filesystem::is_empty(e.path())) out.insert(rel + "/");
        if (e.is_directory()) continue;
        std::string data = ReadFile(e.path().string()), names;
        if (data.starts_with("PK\x03\x04") || data.starts_with("PK\x05\x06")) {
          for (const auto& entry : PyEntries(tmp, e.path().string())) names += "," + entry.substr(0, entry.find('|'));
          data = "[" + names.substr(names.empty() ? 0 : 1) + "]";
        }
        out.insert(rel + "=" + (data == kBig ? "BIG" : data));
      }
    }
    std::string text;
    for (const auto& e : out) text += (text.empty() ? "" : " ") + e;
    return text;
  }
  // Compares lines with a table's, where {s} and {d} stand for the two folders: "..." first
  // (last) compares only the tail (head).
  void ExpectLines(std::vector<std::string> expected, std::vector<std::string> got) const {
    for (auto& l : expected) l = paths::ReplaceAll(paths::ReplaceAll(l, "{s}", src + "/"), "{d}", dst + "/");
    if (!expected.empty() && expected.front() == "...") {
      expected.erase(expected.begin());
      if (got.size() > expected.size()) got.erase(got.begin(), got.end() - static_cast<long>(expected.size()));
    } else if (!expected.empty() && expected.back() == "...") {
      expected.pop_back();
      if (got.size() > expected.size()) got.resize(expected.size());
    }
    EXPECT_EQ(got, expected);
  }
  // A fresh folder on another file system than tmp, removed with the rig; "" where there is none.
  std::string Elsewhere() {
    const std::string top = OtherFileSystemThan(tmp.str());
    return top.empty() ? top : elsewhere.emplace_back("elsewhere", top).str();
  }
  // Clears the record and the job's error flag between two cases of a table.
  void Next() {
    rec.lines.clear(), rec.counters.clear();
    run.jobError = run.noFiles = false;
  }

  TempDir tmp;
  CurrentDir cwd{tmp.str()};  // error.log lands here, out of the build tree
  ScopedEnv xdg{"XDG_DATA_HOME", tmp / "xdg"};  // the home trash too
  std::string src = tmp / "src", dst = tmp / "dst";
  RecordingEvents rec;
  Faults faults;
  Engine driver{Host{}, &faults};
  Services& svc = driver.svc;
  job j;
  JobRun run{j};
  std::list<TempDir> elsewhere;
};

}  // namespace orvKestrel::testing
