// Shared helpers of the tests: temporary folders, small files, and an event recorder.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace orvKestrel::testing {

// A fresh folder below the system's temporary folder, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    std::random_device rd;
    path_ = std::filesystem::temp_directory_path() /
            ("kestrel-test-" + std::to_string(rd()) + std::to_string(rd()));
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  // The folder as text, without a trailing "/".
  std::string str() const { return path_.string(); }
  // A path below the folder.
  std::string operator/(const std::string& rel) const { return (path_ / rel).string(); }

 private:
  std::filesystem::path path_;
};

inline void WriteFile(const std::string& path, const std::string& data) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << data;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }

struct LoggedLine {
  std::string text;
  std::int16_t id;
  bool view, file, sameView, isLast;
};

struct CurrentJobEvent {
  std::string sFileName;
  std::int32_t lIndex, lCounter;
  std::int16_t iStatus, IntervalType, IntervalTimeType;
  std::string IntervalTime, IntervalDate;
  std::int16_t IntervalWeekDay, IntervalMonthDay;
};

// Records every event in order.
class RecordingEvents : public IKestrelEvents {
 public:
  void LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                  bool bSameView, bool bIsLast) override {
    lines.push_back({LogMsg, MsgID, bView, bFile, bSameView, bIsLast});
  }
  void CurrentJob(const std::string& sFileName, std::int32_t lIndex, std::int32_t lCounter,
                  std::int16_t iStatus, std::int16_t IntervalType, std::int16_t IntervalTimeType,
                  const std::string& IntervalTime, const std::string& IntervalDate,
                  std::int16_t IntervalWeekDay, std::int16_t IntervalMonthDay) override {
    jobs.push_back({sFileName, lIndex, lCounter, iStatus, IntervalType, IntervalTimeType,
                    IntervalTime, IntervalDate, IntervalWeekDay, IntervalMonthDay});
  }
  void KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) override {
    counters.emplace_back(lAllFiles, lCurrFile);
  }
  // The texts of the logged lines, in order.
  std::vector<std::string> Texts() const {
    std::vector<std::string> out;
    for (const auto& l : lines) out.push_back(l.text);
    return out;
  }
  std::vector<LoggedLine> lines;
  std::vector<CurrentJobEvent> jobs;
  std::vector<std::pair<std::int32_t, std::int32_t>> counters;
};

}  // namespace orvKestrel::testing
