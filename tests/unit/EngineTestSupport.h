// Helpers of the engine's tests: local times, values of job files, the current folder.
#pragma once

#include <unistd.h>

#include <ctime>
#include <optional>
#include <sstream>
#include <string>

namespace orvKestrel::testing {

// Seconds since the epoch of a local date and time.
inline std::time_t LocalTime(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

// The value of key in an INI text (first match, blanks around it trimmed), nullopt when missing.
inline std::optional<std::string> KeyValue(const std::string& text, const std::string& key) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    std::string k = line.substr(0, eq);
    while (!k.empty() && k.back() == ' ') k.pop_back();
    while (!k.empty() && k.front() == ' ') k.erase(0, 1);
    if (k != key) continue;
    std::string v = line.substr(eq + 1);
    while (!v.empty() && v.back() == ' ') v.pop_back();
    while (!v.empty() && v.front() == ' ') v.erase(0, 1);
    return v;
  }
  return std::nullopt;
}

// Makes a folder the current one for the life of the object ("error.log" lands there).
class CurrentDir {
 public:
  explicit CurrentDir(const std::string& dir) {
    char buf[4096];
    if (::getcwd(buf, sizeof buf) != nullptr) old_ = buf;
    if (::chdir(dir.c_str()) != 0) old_.clear();
  }
  ~CurrentDir() {
    if (!old_.empty()) {
      [[maybe_unused]] const int rc = ::chdir(old_.c_str());
    }
  }
  CurrentDir(const CurrentDir&) = delete;
  CurrentDir& operator=(const CurrentDir&) = delete;

 private:
  std::string old_;
};

}  // namespace orvKestrel::testing
