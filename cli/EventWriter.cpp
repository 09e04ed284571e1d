#include "EventWriter.h"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "JsonText.h"

namespace kestrel {
namespace {

constexpr const char* kEraseLine = "\r\033[K";
// The progress indicator is redrawn at most this often: a million files must not mean a million
// terminal writes.
constexpr auto kProgressEvery = std::chrono::milliseconds(100);

}  // namespace

std::string LogStamp(std::time_t t) {
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  const std::size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S ", &tm);
  return std::string(buf, n);
}

EventWriter::EventWriter(EventFormat format, std::FILE* out, bool terminal, std::FILE* log,
                         orvKestrel::Clock clock)
    : format_(format), out_(out), terminal_(terminal), log_(log), clock_(clock) {}

EventWriter::~EventWriter() { Finish(); }

void EventWriter::Finish() {
  if (open_ == Open::Progress) Emit(kEraseLine);
  if (open_ == Open::Status) Emit("\n");
  open_ = Open::None;
  std::fflush(out_);
}

void EventWriter::Emit(const std::string& text) { std::fwrite(text.data(), 1, text.size(), out_); }

void EventWriter::WriteLog(const std::string& text) {
  const std::string line = LogStamp(clock_.Now()) + text + "\n";
  std::fwrite(line.data(), 1, line.size(), log_);
  std::fflush(log_);
}

void EventWriter::LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                             bool bSameView, bool bIsLast) {
  if (bFile && log_ != nullptr) WriteLog(LogMsg);
  if (format_ == EventFormat::Jsonl) {
    nlohmann::ordered_json j;
    j["event"] = "LogMessage";
    j["LogMsg"] = ValidUtf8(LogMsg);
    j["MsgID"] = MsgID;
    j["bView"] = bView;
    j["bFile"] = bFile;
    j["bSameView"] = bSameView;
    j["bIsLast"] = bIsLast;
    Emit(j.dump() + "\n");
    std::fflush(out_);
  } else if (bView) {
    ViewLine(LogMsg, bSameView, bIsLast);
  }
}

void EventWriter::ViewLine(const std::string& text, bool bSameView, bool bIsLast) {
  if (!terminal_ || !bSameView) {
    if (open_ == Open::Progress) Emit(kEraseLine);
    if (open_ == Open::Status) Emit("\n");
    open_ = Open::None;
    Emit(text + "\n");
  } else {
    // A status line replaces the previous one in place; the last line of a job stays.
    if (open_ != Open::None) Emit(kEraseLine);
    Emit(text);
    open_ = Open::Status;
    if (bIsLast) {
      Emit("\n");
      open_ = Open::None;
    }
  }
  std::fflush(out_);
}

void EventWriter::CurrentJob(const std::string& sFileName, std::int32_t lIndex,
                             std::int32_t lCounter, std::int16_t iStatus, std::int16_t IntervalType,
                             std::int16_t IntervalTimeType, const std::string& IntervalTime,
                             const std::string& IntervalDate, std::int16_t IntervalWeekDay,
                             std::int16_t IntervalMonthDay) {
  if (format_ != EventFormat::Jsonl) return;
  nlohmann::ordered_json j;
  j["event"] = "CurrentJob";
  j["sFileName"] = ValidUtf8(sFileName);
  j["lIndex"] = lIndex;
  j["lCounter"] = lCounter;
  j["iStatus"] = iStatus;
  j["IntervalType"] = IntervalType;
  j["IntervalTimeType"] = IntervalTimeType;
  j["IntervalTime"] = ValidUtf8(IntervalTime);
  j["IntervalDate"] = ValidUtf8(IntervalDate);
  j["IntervalWeekDay"] = IntervalWeekDay;
  j["IntervalMonthDay"] = IntervalMonthDay;
  Emit(j.dump() + "\n");
  std::fflush(out_);
}

void EventWriter::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  if (format_ == EventFormat::Jsonl) {
    nlohmann::ordered_json j;
    j["event"] = "KestrelCounter";
    j["lAllFiles"] = lAllFiles;
    j["lCurrFile"] = lCurrFile;
    Emit(j.dump() + "\n");
    std::fflush(out_);
    return;
  }
  if (!terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (lCurrFile < lAllFiles && now - lastProgress_ < kProgressEvery) return;
  lastProgress_ = now;
  if (open_ == Open::Status) Emit("\n");
  const int percent = lAllFiles > 0 ? static_cast<int>(100.0 * lCurrFile / lAllFiles) : 100;
  Emit(fmt::format("{}[{}/{}] {}%", kEraseLine, lCurrFile, lAllFiles, percent));
  open_ = Open::Progress;
  std::fflush(out_);
}

}  // namespace kestrel
