#include "errortrap/modFailSafeLITE.h"

#include "platform/SysError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <new>

namespace orvKestrel {
namespace {

constexpr const char* kProduct = "OrvDev FailSafe";
constexpr int kErrOutOfMemory = 7;
constexpr int kErrInternal = 51;

std::string AppName() { return program_invocation_short_name; }

}  // namespace

std::string ParamText(std::initializer_list<std::pair<std::string_view, std::string>> pairs) {
  std::string out = "(";
  bool first = true;
  for (const auto& [name, value] : pairs) {
    if (!first) out += ", ";
    first = false;
    out.append(name);
    out += '=';
    out += value;
  }
  out += ')';
  return out;
}

void DescribeCurrentException(int& number, std::string& description) {
  try {
    throw;
  } catch (const KestrelError& e) {
    number = e.Number();
    description = e.Description();
  } catch (const std::filesystem::filesystem_error& e) {
    number = e.code().value();
    description = e.code().message();
  } catch (const std::bad_alloc&) {
    number = kErrOutOfMemory;
    description = "Out of memory";
  } catch (const std::exception& e) {
    number = kErrInternal;
    description = e.what();
  } catch (...) {
    number = kErrInternal;
    description = "Unknown error";
  }
}

void FailSafe::Send(const std::string& line) { host_->traceSink(line); }

std::string FailSafe::Stamp() {
  if (!started_) {
    started_ = true;
    startTicks_ = std::chrono::steady_clock::now();
    const std::time_t now = host_->clock.Now();
    std::tm tm{};
    localtime_r(&now, &tm);
    char date[32];
    char time[32];
    std::strftime(date, sizeof date, host_->shortDateFormat.c_str(), &tm);
    std::strftime(time, sizeof time, "%H:%M:%S", &tm);
    Send(AppName() + " START FAILSAFE 6.60 LITE " + date + "," + time + "\r\n");
  }
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                      std::chrono::steady_clock::now() - startTicks_)
                      .count();
  return fmt::format("{:09.3f}", static_cast<double>(ms) / 1000.0);
}

void FailSafe::Enter(std::string_view module, std::string_view proc, const std::string& params) {
  const std::string seconds = Stamp();
  ++calls_;
  ++depth_;
  Send(fmt::format("[{}] [{:05}] [{}] ->{}{} : {} : {}\r\n", AppName(), calls_, seconds,
                   std::string(static_cast<std::size_t>(depth_ - 1), '\t'), module, proc, params));
}

void FailSafe::Leave(std::string_view module, std::string_view proc, const std::string& params) {
  const std::string seconds = Stamp();
  ++calls_;
  const int tabs = depth_ > 0 ? depth_ - 1 : 0;
  Send(fmt::format("[{}] [{:05}] [{}] <-{}{} : {} : {}\r\n", AppName(), calls_, seconds,
                   std::string(static_cast<std::size_t>(tabs), '\t'), module, proc, params));
  if (--depth_ < 0) depth_ = 0;
}

TrapAction FailSafe::Report(std::string_view module, std::string_view proc, int number,
                            const std::string& description, int line) {
  ++errors_;
  if (Tracing()) {
    Stamp();
    Send(fmt::format("[{}] ERROR {} \"{}\" at {} : {} : {}\r\n", AppName(), number, description,
                     module, proc, line));
  }
  std::string report = fmt::format("{} reports {} program error #{} ({}) occurred in module {}, {}, line {}",
                                   kProduct, AppName(), number, description, module, proc, line);
  if (description.find('!') != std::string::npos) {
    report += fmt::format(". This error was generated remotely by {}, a component of {}.",
                          module, AppName());
  } else {
    report += '.';
  }
  if (host_->errorLogSink) {
    host_->errorLogSink(report);
  } else if (std::FILE* log = std::fopen("error.log", "a")) {
    std::fprintf(log, "%s\n", report.c_str());
    std::fclose(log);
  }
  if (!host_->messageBox) return TrapAction::Leave;
  const BoxAnswer answer = host_->messageBox(
      {"Unexpected Error", report, MessageBoxRequest::Buttons::AbortRetryIgnore});
  switch (answer) {
    case BoxAnswer::Retry: return TrapAction::Retry;
    case BoxAnswer::Ignore: return TrapAction::Ignore;
    default: return TrapAction::Leave;
  }
}

}  // namespace orvKestrel
