#include <orvKestrel/clsCmd.h>

#include "errortrap/modFailSafeLITE.h"
#include "platform/Paths.h"
#include "platform/Process.h"
#include "platform/SysError.h"

#include <chrono>
#include <cstdio>
#include <optional>

namespace orvKestrel {
namespace {

using std::chrono::milliseconds;

// The shell reports a program it cannot find or run by these codes; an early exit with one of
// them is taken as "could not be started" (a program of its own that ends at once with 126 or
// 127 looks the same, and is reported the same way).
constexpr int kShellCannotExecute = 126;
constexpr int kShellNotFound = 127;
constexpr milliseconds kStartCheck{100};
// Each pass of the wait blocks at most this long on the program, then lets the host run.
constexpr milliseconds kPass{50};

std::string TrimBlanks(const std::string& s) {
  const auto first = s.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

bool StartFailed(Process& program) {
  if (!program.WaitFor(kStartCheck)) return false;
  const int code = *program.ExitCode();
  return code == kShellCannotExecute || code == kShellNotFound;
}

// The exit status of a program that ended with a failure; empty while it runs, after success,
// and when someone else reaped it (its status is unknown then).
std::optional<int> Failure(const Process& program) {
  const std::optional<int> code = program.ExitCode();
  if (!code || *code == 0 || *code == -1) return std::nullopt;
  return code;
}

}  // namespace

clsCmd::clsCmd(Host host)
    : host_(std::move(host)), ownTrap_(std::make_unique<FailSafe>(host_)), trap_(ownTrap_.get()) {}

clsCmd::clsCmd(Host host, FailSafe& trap) : host_(std::move(host)), trap_(&trap) {}

clsCmd::~clsCmd() = default;

void clsCmd::ShellAndWait(job& job) {
  Proc p(*trap_, "clsCmd", "Sub ShellAndWait", [] { return ParamText({{"job", kJobParam}}); });
  start_ = host_.clock.Now();
  const std::string commandLine = TrimBlanks(job.ExecPath + " " + job.ExecParam);
  std::optional<Process> program;
  if (host_.beforeProgram) host_.beforeProgram();
  try {
    if (commandLine.empty()) throw KestrelError(kErrInvalidCall, "Empty command line");
    program.emplace(commandLine, host_.programStdoutToStderr);
  } catch (const KestrelError&) {
    ShowStartFailure(job.ExecPath);
    return;
  }
  if (StartFailed(*program)) {
    ShowStartFailure(job.ExecPath);
    return;
  }
  if (job.ExecWait == 1) WaitForProgram(*program, job.ExecMaxSec);
  if (const std::optional<int> status = Failure(*program); status && host_.programFailed) {
    host_.programFailed(job.JobName, job.ExecPath, *status);
  }
}

// Passes: look at the program, let the host run, stop at the limit or when the program ended.
// The first look does not block, so a limit of 0 returns at once.
void clsCmd::WaitForProgram(Process& program, std::int16_t maxSec) {
  milliseconds block{0};
  for (;;) {
    const bool ended = program.WaitFor(block);
    block = kPass;
    if (host_.yield) host_.yield();
    // Clock readings are whole seconds: their difference counts the second boundaries passed.
    const std::time_t elapsed = host_.clock.Now() - start_;
    if (elapsed >= maxSec || ended) return;
  }
}

void clsCmd::ShowStartFailure(const std::string& execPath) {
  const MessageBoxRequest box{
      "External program error",
      "Problems while executing\r\n" + execPath + "\r\nProgram has not been started!",
      MessageBoxRequest::Buttons::OkOnly};
  if (host_.messageBox) {
    host_.messageBox(box);
    return;
  }
  const std::string line =
      "kestrel: " + box.title + ": " + paths::ReplaceAll(box.text, "\r\n", " / ") + "\n";
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace orvKestrel
