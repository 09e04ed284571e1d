// The error trap: per-procedure enter/leave tracing, the error report in "error.log", and the
// host's answer to it. Every procedure of the engine opens a Proc scope; risky statements run
// through Proc::Do, which asks the trap what to do when they fail.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

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

// A procedure as the trace names it: "clsKestrel", "Sub", "CopyFiles".
struct ProcName {
  std::string_view module;
  std::string_view kind;
  std::string_view name;
};

// How a traced value reads: text as it is, a flag as True/False, a number in decimal, a job
// record and a file list by their placeholders.
inline std::string TraceText(const std::string& v) { return v; }
inline std::string TraceText(const char* v) { return v; }
inline std::string TraceText(bool v) { return BoolText(v); }
template <std::integral I>
  requires(!std::same_as<I, bool>)
std::string TraceText(I v) {
  return std::to_string(v);
}
inline std::string TraceText(const job&) { return kJobParam; }
inline std::string TraceText(const std::vector<std::string>&) { return kArrayParam; }

// An argument the caller may leave out: "<Optional>" before its value.
template <class T>
struct OptionalArg {
  const T& value;
};
template <class T>
OptionalArg<T> Optional(const T& value) {
  return {value};
}
template <class T>
void Optional(const T&& value) = delete;  // would outlive its value
template <class T>
std::string TraceText(const OptionalArg<T>& v) {
  return "<Optional>" + TraceText(v.value);
}

// The parameter text of alternating names and values. Values given as variables are read
// each time the text is built, so the leave line shows what they hold then.
template <class... A>
class NamedValues {
 public:
  template <class... B>
  explicit NamedValues(B&&... items) : items_(std::forward<B>(items)...) {}
  std::string operator()() const { return Text(std::make_index_sequence<sizeof...(A) / 2>{}); }

 private:
  template <std::size_t... I>
  std::string Text(std::index_sequence<I...>) const {
    return ParamText({{std::string_view(std::get<2 * I>(items_)),
                       TraceText(std::get<2 * I + 1>(items_))}...});
  }
  std::tuple<A...> items_;
};

// One procedure's scope: enter on construction, leave on destruction. The parameter text is
// built only while a trace sink is set, and rebuilt at leave from the current values.
template <class ParamsFn = NoParams>
class Proc {
 public:
  Proc(FailSafe& trap, const char* module, const char* proc, ParamsFn params = {})
      : trap_(trap), module_(module), name_(proc), params_(std::move(params)) {
    if (trap_.Tracing()) trap_.Enter(module_, Text(), params_());
  }
  // The procedure by its trace name, followed by its parameters as name, value, name, ...
  template <class... A>
  Proc(FailSafe& trap, const ProcName& name, A&&... params)
      : trap_(trap),
        module_(name.module),
        kind_(name.kind),
        name_(name.name),
        params_(std::forward<A>(params)...) {
    static_assert(sizeof...(A) % 2 == 0, "parameters come as name, value pairs");
    if (trap_.Tracing()) trap_.Enter(module_, Text(), params_());
  }
  ~Proc() {
    if (trap_.Tracing()) trap_.Leave(module_, Text(), params_());
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
      switch (trap_.Report(module_, Text(), number, description, line)) {
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
  // "Sub CopyFiles"; a procedure named by one text has no kind of its own.
  std::string Text() const {
    std::string text(kind_);
    if (!text.empty()) text += ' ';
    return text.append(name_);
  }
  FailSafe& trap_;
  std::string_view module_;
  std::string_view kind_;
  std::string_view name_;
  ParamsFn params_;
};

template <class... A>
Proc(FailSafe&, const ProcName&, A&&...) -> Proc<NamedValues<A...>>;

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
