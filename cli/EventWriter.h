// Writes the engine's events for kestrel: to stdout as text for people or as JSON lines, and the
// lines meant for a log file to the --log file.
#pragma once

#include <orvKestrel/clsKestrel.h>
#include <orvKestrel/host.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace kestrel {

enum class EventFormat { Text, Jsonl };

class EventWriter : public orvKestrel::IKestrelEvents {
 public:
  // out: stdout; terminal: whether it is one (status lines in place, a progress indicator);
  // log: the --log file or null. Time stamps of the log read the engine's clock.
  EventWriter(EventFormat format, std::FILE* out, bool terminal, std::FILE* log,
              orvKestrel::Clock clock);
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

  // Ends a status line or progress indicator left open on the terminal.
  void Finish();

 private:
  // What stands on the terminal's last line without a line feed yet.
  enum class Open { None, Status, Progress };
  void ViewLine(const std::string& text, bool bSameView, bool bIsLast);
  void WriteLog(const std::string& text);
  void Emit(const std::string& text);

  EventFormat format_;
  std::FILE* out_;
  bool terminal_;
  std::FILE* log_;
  orvKestrel::Clock clock_;
  Open open_ = Open::None;
  std::chrono::steady_clock::time_point lastProgress_{};
};

// "YYYY-MM-DD HH:MM:SS " of the local time t.
std::string LogStamp(std::time_t t);

}  // namespace kestrel
