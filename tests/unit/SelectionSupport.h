// Helpers of the selection tests: an engine with the catalogue loaded and events recorded, a
// job over a temporary folder, and files with chosen times and attributes.
#pragma once

#include "support/TestEngine.h"
#include <gtest/gtest.h>
#include "support/TestSupport.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace orvKestrel::testing {

class SelectionTest : public ::testing::Test {
 protected:
  explicit SelectionTest(Host host = {}) : e(std::move(host)) {
    e.events = &rec;
    e.LoadLogMessages("");
    e.SetMsgIDs();
    e.catalogueLoaded = true;
    std::filesystem::create_directories(dir / "in");
    std::filesystem::create_directories(dir / "out");
  }

  job MakeJob() {
    job j;
    j.JobName = "j";
    j.From = dir / "in";
    j.To = dir / "out";
    j.Action = 6;  // does nothing: the selection alone
    j.DoPreview = 0;
    return j;
  }

  std::string In(const std::string& rel) { return dir / ("in/" + rel); }

  // Files below "in" with the given names; returns their full paths in order.
  FileList Make(std::initializer_list<const char*> names, const std::string& data = "") {
    FileList list;
    for (const char* n : names) {
      WriteFile(In(n), data);
      list.push_back(In(n));
    }
    return list;
  }

  // Lines raised with message n.
  std::vector<LoggedLine> Lines(int n) const {
    std::vector<LoggedLine> out;
    for (const auto& l : rec.lines) {
      if (l.id == n) out.push_back(l);
    }
    return out;
  }

  TempDir dir;
  RecordingEvents rec;
  TestEngine e;
};

// Whether the temporary file system keeps user extended attributes.
inline bool UserXattrsWork(const std::string& dir) {
  const std::string probe = dir + "/.xattr-probe";
  WriteFile(probe, "");
  const bool ok = ::setxattr(probe.c_str(), "user.probe", "1", 1, 0) == 0;
  std::filesystem::remove(probe);
  return ok;
}

inline std::string DosAttrib(const std::string& path) {
  char buf[64];
  const ssize_t n = ::getxattr(path.c_str(), "user.DOSATTRIB", buf, sizeof buf);
  return n < 0 ? std::string() : std::string(buf, static_cast<std::size_t>(n));
}

inline void SetDosAttrib(const std::string& path, const std::string& value) {
  ::setxattr(path.c_str(), "user.DOSATTRIB", value.data(), value.size(), 0);
}

inline void Chmod(const std::string& path, mode_t mode) { ::chmod(path.c_str(), mode); }

// The names of a folder in the order the file system lists them.
inline std::vector<std::string> ListingOrder(const std::string& path) {
  std::vector<std::string> names;
  if (DIR* d = ::opendir(path.c_str())) {
    while (const dirent* ent = ::readdir(d)) {
      const std::string name = ent->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(d);
  }
  return names;
}

}  // namespace orvKestrel::testing
