// What a host hands the engine: its clock, its short date format and its callbacks.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

namespace orvKestrel {

// Every "now" and "today" of a run reads this clock. By default it is the system clock; a host
// may start it at a chosen local time, from where it runs on in real time.
class Clock {
 public:
  Clock() = default;
  // Starts at the local time given as seconds since the epoch (as mktime gives them).
  static Clock StartingAt(std::time_t localStart);
  // Stands still at the given time: for tests that must not see a second tick by.
  static Clock FixedAt(std::time_t localTime);
  // Seconds since the epoch (UTC), whole seconds.
  std::time_t Now() const;

 private:
  std::int64_t offset_ = 0;  // seconds added to the system clock
  bool fixed_ = false;       // offset_ is the time itself
};

// The answers of a message box.
enum class BoxAnswer { Ok, Abort, Retry, Ignore };

struct MessageBoxRequest {
  enum class Buttons { OkOnly, AbortRetryIgnore };
  std::string title;
  std::string text;  // lines separated by "\r\n"
  Buttons buttons = Buttons::OkOnly;
};

struct Host {
  // Lets the host's pending events run; called before every log event and in long loops.
  std::function<void()> yield;
  // A modal question. Without it the error trap answers Abort (leave the procedure).
  std::function<BoxAnswer(const MessageBoxRequest&)> messageBox;
  // Receives trace lines (enter, leave, error). Without it nothing is built or timed.
  std::function<void(const std::string&)> traceSink;
  // Receives each error report (one line, no line feed). Without it the report is appended to
  // "error.log" in the current folder.
  std::function<void(const std::string&)> errorLogSink;
  Clock clock;
  // The short date format in strftime form.
  std::string shortDateFormat = "%d.%m.%Y";
  // An external program that ended with a status other than 0 while the engine still looked at
  // it (during the wait of ExecWait=1, or at once after its start): its job, ExecPath and exit
  // status (128 + the signal number when a signal ended it). The engine itself logs nothing of
  // it; a program still running when the wait ends, or never waited for, is not reported.
  std::function<void(const std::string& jobName, const std::string& execPath, int status)>
      programFailed;
  // Called before the engine starts an external program: a host that buffers its output writes
  // it out, so that what the program prints comes after the lines before it.
  std::function<void()> beforeProgram;
  // External programs write their standard output to the host's standard error instead (for a
  // host whose standard output is a machine-read stream).
  bool programStdoutToStderr = false;
};

}  // namespace orvKestrel
