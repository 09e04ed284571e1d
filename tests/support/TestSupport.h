// Shared helpers of the tests: temporary folders, small files, times, outside tools and an event
// recorder. The standard headers the tests share come with it.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <ranges>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace orvKestrel::testing {

// A fresh folder of its own (below the system's temporary folder unless told), removed with
// everything in it; each folder below it first gets every right back (a test may take some away).
class TempDir {
 public:
  explicit TempDir(const std::string& tag = "test",
                   const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string tmpl = (base / ("kestrel-" + tag + "-XXXXXX")).string();
    if (::mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path_ = tmpl;
  }
  ~TempDir() {
    Unlock(path_);
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  // The folder as text, without a trailing "/".
  std::string str() const { return path_.string(); }
  const std::filesystem::path& root() const { return path_; }
  // A path below the folder.
  std::string operator/(const std::string& rel) const { return (path_ / rel).string(); }

 private:
  static void Unlock(const std::filesystem::path& dir) {
    std::error_code ec;
    std::filesystem::permissions(dir, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
      if (e.is_directory(ec) && !e.is_symlink(ec)) Unlock(e.path());
    }
  }
  std::filesystem::path path_;
};

inline void WriteFile(const std::string& path, const std::string& data) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << data;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }

// Makes folder empty, creating it where it is missing.
inline void EmptyFolder(const std::string& folder) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
}

// Sets a file's access and write times (whole seconds).
inline void SetTimes(const std::string& path, std::time_t accessed, std::time_t written) {
  const struct timespec times[2] = {{accessed, 0}, {written, 0}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) throw std::runtime_error("cannot set the times of " + path);
}
inline void SetModified(const std::string& path, std::time_t t) { SetTimes(path, t, t); }

// Writes a file (and its folders); a non-zero `written` becomes its access and write time.
inline std::string Put(const std::string& path, const std::string& data, std::time_t written = 0) {
  WriteFile(path, data);
  if (written != 0) SetModified(path, written);
  return path;
}

// The write time, 0 when the file cannot be read.
inline std::time_t WriteTime(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? st.st_mtime : 0;
}

// Seconds since the epoch of a local date and time.
inline std::time_t LocalTime(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  std::tm tm{};
  std::tie(tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_isdst) =
      std::tuple(y - 1900, mo - 1, d, h, mi, s, -1);  // -1: the zone decides on summer time
  return std::mktime(&tm);
}

// A text quoted for the shell.
inline std::string Quote(const std::string& s) { return "'" + std::regex_replace(s, std::regex("'"), "'\\''") + "'"; }

// The value of key in an INI text (first match, blanks around it trimmed), nullopt when missing.
inline std::optional<std::string> KeyValue(const std::string& text, const std::string& key) {
  std::smatch m;
  if (!std::regex_search(text, m, std::regex("(^|\n) *" + key + " *= *([^\r\n]*?) *\r?(\n|$)"))) return std::nullopt;
  return m[2].str();
}

struct ToolResult {
  int status = -1;
  std::string output;  // stdout and stderr
};

// Runs a shell command, e.g. an outside tool that writes or checks archives apart from the code
// under test.
inline ToolResult RunTool(const std::string& command) {
  ToolResult r;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  char buf[4096];
  while (std::size_t n = pipe != nullptr ? std::fread(buf, 1, sizeof buf, pipe) : 0) r.output.append(buf, n);
  const int st = pipe != nullptr ? ::pclose(pipe) : -1;
  r.status = st != -1 && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

inline bool HaveTool(const std::string& name) { return RunTool("command -v " + name).status == 0; }

// "/dev/shm" when it is writable and lies on another file system than path (a move there
// copies, flushes and deletes instead of renaming), else "".
inline std::string OtherFileSystemThan(const std::string& path) {
  struct stat shm {}, here {};
  if (::stat("/dev/shm", &shm) != 0 || ::stat(path.c_str(), &here) != 0) return "";
  return shm.st_dev != here.st_dev && ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "";
}

// The permission bits of a file.
inline mode_t ModeOf(const std::string& path) {
  return static_cast<mode_t>(std::filesystem::status(path).permissions()) & 07777;
}

// Sets (nullopt: removes) an environment variable of this process, and so of the children it
// starts, for the life of the object; then restores it.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// Makes a folder the current one for the life of the object: the error trap writes "error.log"
// into the current folder, and tests that provoke it run inside their temporary folder.
class CurrentDir {
 public:
  explicit CurrentDir(const std::string& dir) : old_(std::filesystem::current_path()) {
    std::filesystem::current_path(dir);
  }
  ~CurrentDir() { std::error_code ec; std::filesystem::current_path(old_, ec); }
  CurrentDir(const CurrentDir&) = delete;
  CurrentDir& operator=(const CurrentDir&) = delete;

 private:
  std::filesystem::path old_;
};

struct LoggedLine {
  std::string text;
  std::int16_t id;
  bool view, file, sameView, isLast;
};

// What the tests look at of a CurrentJob event.
struct CurrentJobEvent {
  std::string sFileName;
  std::int32_t lIndex, lCounter;
  std::int16_t iStatus;
};

// Records every event in order; a test may act on a line or a progress event as it comes.
class RecordingEvents : public IKestrelEvents {
 public:
  void LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                  bool bSameView, bool bIsLast) override {
    lines.push_back({LogMsg, MsgID, bView, bFile, bSameView, bIsLast});
    if (onLine) onLine(lines.back());
  }
  void CurrentJob(const std::string& sFileName, std::int32_t lIndex, std::int32_t lCounter,
                  std::int16_t iStatus, std::int16_t, std::int16_t, const std::string&, const std::string&,
                  std::int16_t, std::int16_t) override {
    jobs.push_back({sFileName, lIndex, lCounter, iStatus});
  }
  void KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) override {
    counters.emplace_back(lAllFiles, lCurrFile);
    if (onCounter) onCounter(lAllFiles, lCurrFile);
  }
  // The texts (numbers) of the logged lines, in order.
  std::vector<std::string> Texts() const { return Each(&LoggedLine::text); }
  std::vector<std::int16_t> Ids() const { return Each(&LoggedLine::id); }
  template <class T>
  std::vector<T> Each(T LoggedLine::*field) const {
    const auto each = lines | std::views::transform(field);
    return {each.begin(), each.end()};
  }
  std::vector<LoggedLine> lines;
  std::vector<CurrentJobEvent> jobs;
  std::vector<std::pair<std::int32_t, std::int32_t>> counters;
  std::function<void(const LoggedLine&)> onLine;
  std::function<void(std::int32_t, std::int32_t)> onCounter;
};

}  // namespace orvKestrel::testing
