// Writes the engine's events for kestrel: to stdout as text for people or as JSON lines, the
// lines meant for a log file to the --log file, and a summary after each job and pass.
#pragma once

#include <orvKestrel/clsKestrel.h>
#include <orvKestrel/host.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "HostFile.h"
#include "OutputBuffer.h"
#include "Progress.h"
#include "Summary.h"

namespace kestrel {

enum class EventFormat { Text, Jsonl };

struct ViewSettings {
  EventFormat format = EventFormat::Text;
  bool terminal = false;  // stdout is one: status lines in place, a progress indicator
  bool quiet = false;     // text view: only error lines and summaries
};

class EventWriter : public orvKestrel::IKestrelEvents {
 public:
  // out: stdout, written through a buffer (see OutputBuffer); log: the --log file (may be
  // unnamed). Time stamps of the log read the engine's clock.
  EventWriter(ViewSettings view, std::FILE* out, HostFile& log, orvKestrel::Clock clock,
              SummaryCounter summaries, Progress& progress);
  ~EventWriter() override;
  EventWriter(const EventWriter&) = delete;
  EventWriter& operator=(const EventWriter&) = delete;

  void LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                  bool bSameView, bool bIsLast) override;
  void CurrentJob(const std::string& sFileName, std::int32_t lIndex, std::int32_t lCounter,
                  std::int16_t iStatus, std::int16_t IntervalType, std::int16_t IntervalTimeType,
                  const std::string& IntervalTime, const std::string& IntervalDate,
                  std::int16_t IntervalWeekDay, std::int16_t IntervalMonthDay) override;
  void KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) override;

  void BeginPass() { summaries_.BeginPass(); }
  // Receives each job's summary as well.
  void OnSummary(std::function<void(const JobSummary&)> sink) { onSummary_ = std::move(sink); }
  // The job files (as CurrentJob names them) that the pass skipped for a missing folder since
  // the last call.
  std::vector<std::string> TakeSkipped() { return std::exchange(skipped_, {}); }
  // Writes the pass's summary (when a job ran) and ends what stands open on the terminal.
  void EndPass();
  // Ends a status line or progress indicator left open on the terminal, and writes out what is
  // pending: before the host writes to stderr or waits, and at the end.
  void Finish();

 private:
  // What stands on the terminal's last line without a line feed yet.
  enum class Open { None, Status, Progress };
  void ViewLine(const std::string& text, bool bSameView, bool bIsLast);
  void WriteSummary(const JobSummary& s);
  void Emit(const std::string& text);

  ViewSettings view_;
  OutputBuffer out_;
  std::string json_;  // the event's JSON line
  HostFile& log_;
  orvKestrel::Clock clock_;
  SummaryCounter summaries_;
  Progress& progress_;
  std::function<void(const JobSummary&)> onSummary_;
  std::vector<std::string> skipped_;
  Open open_ = Open::None;
  std::chrono::steady_clock::time_point lastProgress_{};
};

// "YYYY-MM-DD HH:MM:SS " of the local time t.
std::string LogStamp(std::time_t t);

}  // namespace kestrel
