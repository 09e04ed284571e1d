#include "EventWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "JsonText.h"

namespace kestrel {
namespace {

constexpr const char* kEraseLine = "\r\033[K";
// The progress indicator is redrawn at most this often: a million files must not mean a million
// terminal writes.
constexpr auto kProgressEvery = std::chrono::milliseconds(100);

// The lines that --quiet keeps besides the summaries: errors, and a job's end with an error.
bool IsErrorLine(int id) {
  return id == 10 || id == 28 || id == 74 || id == 75 || id == 76 || id == 83;
}

}  // namespace

std::string LogStamp(std::time_t t) {
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  const std::size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S ", &tm);
  return std::string(buf, n);
}

EventWriter::EventWriter(ViewSettings view, std::FILE* out, HostFile& log,
                         orvKestrel::Clock clock, SummaryCounter summaries, Progress& progress)
    : view_(view),
      out_(StreamWriter(out)),
      log_(log),
      clock_(clock),
      summaries_(std::move(summaries)),
      progress_(progress) {}

EventWriter::~EventWriter() { Finish(); }

void EventWriter::Finish() {
  if (open_ == Open::Progress) Emit(kEraseLine);
  if (open_ == Open::Status) Emit("\n");
  open_ = Open::None;
  out_.Flush();
}

void EventWriter::Emit(const std::string& text) { out_.Add(text); }

void EventWriter::LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                             bool bSameView, bool bIsLast) {
  if (bFile && log_.Named()) log_.Write(LogStamp(clock_.Now()) + EscapeControls(LogMsg) + "\n");
  if (view_.format == EventFormat::Jsonl) {
    out_.Add(JsonLine(json_)
                 .Text("event", "LogMessage")
                 .Text("LogMsg", LogMsg)
                 .Number("MsgID", MsgID)
                 .Bool("bView", bView)
                 .Bool("bFile", bFile)
                 .Bool("bSameView", bSameView)
                 .Bool("bIsLast", bIsLast)
                 .Done());
  } else if (bView && (!view_.quiet || IsErrorLine(MsgID))) {
    ViewLine(EscapeControls(LogMsg), bSameView, bIsLast);
  }
  const auto summary = summaries_.OnLogMessage(LogMsg, MsgID, bIsLast);
  progress_.Bytes(summaries_.PassSoFar().bytes);
  if (summary) {
    WriteSummary(*summary);
    if (onSummary_) onSummary_(*summary);
  }
  progress_.Tick();
}

void EventWriter::WriteSummary(const JobSummary& s) {
  if (view_.format == EventFormat::Jsonl) {
    out_.Add(SummaryJson(s) + "\n");
  } else {
    ViewLine(EscapeControls(SummaryLine(s)), false, false);
  }
}

void EventWriter::EndPass() {
  if (const auto pass = summaries_.EndPass()) WriteSummary(*pass);
  Finish();
}

void EventWriter::ViewLine(const std::string& text, bool bSameView, bool bIsLast) {
  if (!view_.terminal || !bSameView) {
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
}

void EventWriter::CurrentJob(const std::string& sFileName, std::int32_t lIndex,
                             std::int32_t lCounter, std::int16_t iStatus, std::int16_t IntervalType,
                             std::int16_t IntervalTimeType, const std::string& IntervalTime,
                             const std::string& IntervalDate, std::int16_t IntervalWeekDay,
                             std::int16_t IntervalMonthDay) {
  summaries_.OnCurrentJob();
  if (iStatus == orvKestrel::sError &&
      std::find(skipped_.begin(), skipped_.end(), sFileName) == skipped_.end()) {
    skipped_.push_back(sFileName);
  }
  progress_.Job(sFileName);
  if (view_.format != EventFormat::Jsonl) return;
  out_.Add(JsonLine(json_)
               .Text("event", "CurrentJob")
               .Text("sFileName", sFileName)
               .Number("lIndex", lIndex)
               .Number("lCounter", lCounter)
               .Number("iStatus", iStatus)
               .Number("IntervalType", IntervalType)
               .Number("IntervalTimeType", IntervalTimeType)
               .Text("IntervalTime", IntervalTime)
               .Text("IntervalDate", IntervalDate)
               .Number("IntervalWeekDay", IntervalWeekDay)
               .Number("IntervalMonthDay", IntervalMonthDay)
               .Done());
}

void EventWriter::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  progress_.Files(lAllFiles, lCurrFile);
  if (view_.format == EventFormat::Jsonl) {
    out_.Add(JsonLine(json_)
                 .Text("event", "KestrelCounter")
                 .Number("lAllFiles", lAllFiles)
                 .Number("lCurrFile", lCurrFile)
                 .Done());
    return;
  }
  if (!view_.terminal || view_.quiet) return;
  const auto now = std::chrono::steady_clock::now();
  if (lCurrFile < lAllFiles && now - lastProgress_ < kProgressEvery) return;
  lastProgress_ = now;
  if (open_ == Open::Status) Emit("\n");
  const int percent = lAllFiles > 0 ? static_cast<int>(100.0 * lCurrFile / lAllFiles) : 100;
  Emit(fmt::format("{}[{}/{}] {}% {}", kEraseLine, lCurrFile, lAllFiles, percent, progress_.Figures()));
  open_ = Open::Progress;
}

}  // namespace kestrel
