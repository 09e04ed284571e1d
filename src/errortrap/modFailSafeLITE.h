// The error trap: per-procedure enter/leave tracing, the error report in "error.log", and the
// host's answer to it. Every procedure of the engine opens a Proc scope; risky statements run
// through Proc::Do, which asks the trap what to do when they fail.
#pragma once

#include <orvKestrel/host.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace orvKestrel {

enum class TrapAction { Retry, Ignore, Leave };

class FailSafe {
 public:
  explicit FailSafe(const Host& host) : host_(&host) {}

  bool Tracing() const { return static_cast<bool>(host_->traceSink); }
  void Enter(std::string_view module, std::string_view proc, const std::string& params);
  void Leave(std::string_view module, std::string_view proc, const std::string& params);
  // Traces the error, appends the report to "error.log" and asks the host.
  TrapAction Report(std::string_view module, std::string_view proc, int number,
                    const std::string& description, int line);
  // Errors reported since the last ResetErrorCount.
  int ErrorCount() const { return errors_; }
  void ResetErrorCount() { errors_ = 0; }

 private:
  void Send(const std::string& line);
  std::string Stamp();
  const Host* host_;
  bool started_ = false;
  std::int32_t calls_ = 0;
  std::int32_t depth_ = 0;
  std::chrono::steady_clock::time_point startTicks_;
  int errors_ = 0;
};

// "(name=value, ...)" for the trace. Values are already text; see the helpers below.
std::string ParamText(std::initializer_list<std::pair<std::string_view, std::string>> pairs);
inline std::string Opt(const std::string& value) { return "<Optional>" + value; }
inline std::string BoolText(bool b) { return b ? "True" : "False"; }
inline constexpr const char* kJobParam = "<job>";
inline constexpr const char* kArrayParam = "<Array>";

struct NoParams {
  std::string operator()() const { return "()"; }
};

// One procedure's scope: enter on construction, leave on destruction. The parameter text is
// built only while a trace sink is set, and rebuilt at leave from the current values.
template <class ParamsFn = NoParams>
class Proc {
 public:
  Proc(FailSafe& trap, const char* module, const char* proc, ParamsFn params = {})
      : trap_(trap), module_(module), proc_(proc), params_(std::move(params)) {
    if (trap_.Tracing()) trap_.Enter(module_, proc_, params_());
  }
  ~Proc() {
    if (trap_.Tracing()) trap_.Leave(module_, proc_, params_());
  }
  Proc(const Proc&) = delete;
  Proc& operator=(const Proc&) = delete;

  // Runs one statement. When it throws, the trap reports it and the host decides: Retry runs it
  // again, Ignore goes on with the next statement (true), Leave ends the procedure (false).
  // line is the caller's (std::source_location is not available to clang with this libstdc++,
  // and the fuzz build uses clang).
  template <class F>
  bool Do(F&& statement, int line = __builtin_LINE()) {
    for (;;) {
      int number = 0;
      std::string description;
      if (RunCaught(statement, number, description)) return true;
      switch (trap_.Report(module_, proc_, number, description, line)) {
        case TrapAction::Retry: continue;
        case TrapAction::Ignore: return true;
        case TrapAction::Leave: return false;
      }
    }
  }

  FailSafe& trap() { return trap_; }

 private:
  template <class F>
  static bool RunCaught(F& statement, int& number, std::string& description);
  FailSafe& trap_;
  const char* module_;
  const char* proc_;
  ParamsFn params_;
};

// Turns the exception in flight into an error number and description.
void DescribeCurrentException(int& number, std::string& description);

template <class ParamsFn>
template <class F>
bool Proc<ParamsFn>::RunCaught(F& statement, int& number, std::string& description) {
  try {
    statement();
    return true;
  } catch (...) {
    DescribeCurrentException(number, description);
    return false;
  }
}

}  // namespace orvKestrel
