// Helpers of the zip tests: outside tools (python3, zip, unzip, 7z) that write and check
// archives independently of the code under test.
#pragma once

#include "support/TestSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace orvKestrel::testing {

struct ToolResult {
  int status = -1;
  std::string output;  // stdout and stderr
};

inline ToolResult RunTool(const std::string& command) {
  ToolResult r;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return r;
  char buf[4096];
  std::size_t n = 0;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) r.output.append(buf, n);
  const int st = ::pclose(pipe);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

inline bool HaveTool(const std::string& name) {
  return RunTool("command -v " + name).status == 0;
}

// Runs a python3 script (written to a file beside the data) and returns its result.
inline ToolResult Python(const TempDir& dir, const std::string& script) {
  const std::string path = dir / "script.py";
  WriteFile(path, script);
  static const std::string python =
      std::filesystem::exists("/usr/bin/python3") ? "/usr/bin/python3 -I" : "python3";
  return RunTool(python + " " + Quote(path));
}

// "name|size|method|YYYY-MM-DD HH:MM:SS" per file entry, in archive order, read by python's
// zipfile (folders included with their trailing "/").
inline std::vector<std::string> PyEntries(const TempDir& dir, const std::string& archive) {
  const ToolResult r = Python(dir, "import zipfile,sys\n"
                                   "for i in zipfile.ZipFile(" + Quote(archive) + ").infolist():\n"
                                   "  d=i.date_time\n"
                                   "  print('%s|%d|%d|%04d-%02d-%02d %02d:%02d:%02d' % ((i.filename,"
                                   " i.file_size, i.compress_type) + tuple(d)))\n");
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start < r.output.size()) {
    const auto end = r.output.find('\n', start);
    out.push_back(r.output.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  if (r.status != 0) out.push_back("python failed: " + r.output);
  return out;
}

// Local time text as zip entries store it.
inline std::string LocalStamp(std::time_t t) {
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  return buf;
}

// Files left anywhere below folder whose name marks them as temporary.
inline std::vector<std::string> TempLeftovers(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& e : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string name = e.path().filename().string();
    if (name.find(".kestrel-") != std::string::npos || name.find(".zip.") != std::string::npos) {
      out.push_back(e.path().string());
    }
  }
  return out;
}

}  // namespace orvKestrel::testing

#include "support/TestEngine.h"

#include <functional>

namespace orvKestrel::testing {

// Records events and lets a test act when a progress event comes.
struct HookedEvents : RecordingEvents {
  void KestrelCounter(std::int32_t all, std::int32_t curr) override {
    RecordingEvents::KestrelCounter(all, curr);
    if (onCounter) onCounter(all, curr);
  }
  std::function<void(std::int32_t, std::int32_t)> onCounter;
};

// An engine with the default catalogue whose events are recorded, and a job over
// dir/in -> dir/out.
struct ZipEngine {
  ZipEngine() {
    e.LoadLogMessages("");
    e.SetMsgIDs();
    e.events = &ev;
    j.JobName = "job";
    j.From = dir / "in";
    j.To = dir / "out";
    j.DoPreview = 0;
    std::filesystem::create_directories(j.From);
    std::filesystem::create_directories(j.To);
  }
  // Writes a source file below From and returns its full path.
  std::string Src(const std::string& rel, const std::string& data = "data") {
    const std::string path = dir / ("in/" + rel);
    WriteFile(path, data);
    return path;
  }
  std::string Out(const std::string& rel) const { return dir / ("out/" + rel); }
  // The archive of the job in "All" mode.
  std::string Archive() const { return Out("job.zip"); }

  TempDir dir;
  TestEngine e{Host{}};
  HookedEvents ev;
  job j;
  FileList files;
};

using Lines = std::vector<std::string>;

}  // namespace orvKestrel::testing
