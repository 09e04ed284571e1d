// kestrel run, run-one and daemon: one pass over a job folder, one job now, or a pass every
// interval until SIGTERM or SIGINT.
#include <orvKestrel/clsKestrel.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "Commands.h"
#include "EventWriter.h"
#include "HostOptions.h"
#include "Language.h"
#include "StopSignals.h"
#include "platform/FileSystem.h"
#include "platform/OutputFile.h"
#include "platform/Paths.h"

namespace kestrel {
namespace {

using orvKestrel::BoxAnswer;
using orvKestrel::MessageBoxRequest;

enum class Mode { Run, RunOne, Daemon };

struct RunOptions {
  std::string target;  // JOBDIR, or JOBFILE for run-one
  std::string lang;
  bool verbose = false;
  bool previewJobs = false;
  bool dryRun = false;
  bool regex = false;
  bool noSizeCheck = false;
  std::string events = "text";
  std::string log;
  std::string trace;
  std::string onError = "leave";
  int every = 60;
  HostOptions host;
};

// A persistent error must not make "retry" loop for ever.
constexpr int kMaxRetries = 3;
constexpr int kExitErrors = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignal = 130;

using File = orvKestrel::OutputFile;

std::string JoinLines(const std::string& text) {
  std::string out;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!out.empty()) out += " / ";
    out += line;
    start = end + 1;
  }
  return out;
}

// The message box of the engine: texts go to stderr, the error trap's question is answered as
// --on-error says.
std::function<BoxAnswer(const MessageBoxRequest&)> MakeAnswerer(const std::string& onError) {
  struct Retries {
    std::string last;
    int count = 0;
  };
  auto retries = std::make_shared<Retries>();
  return [onError, retries](const MessageBoxRequest& box) {
    if (box.buttons == MessageBoxRequest::Buttons::OkOnly) {
      std::fprintf(stderr, "kestrel: External program error: %s\n", JoinLines(box.text).c_str());
      return BoxAnswer::Ok;
    }
    std::fprintf(stderr, "%s\n", box.text.c_str());
    if (onError == "ignore") return BoxAnswer::Ignore;
    if (onError != "retry") return BoxAnswer::Abort;
    if (box.text != retries->last) {
      retries->last = box.text;
      retries->count = 0;
    }
    if (++retries->count > kMaxRetries) {
      retries->last.clear();
      return BoxAnswer::Abort;
    }
    return BoxAnswer::Retry;
  };
}

File OpenOrComplain(const std::string& path, bool append, const char* what) {
  File f = orvKestrel::OpenOutputFile(path, append);
  if (!f) {
    std::fprintf(stderr, "kestrel: cannot open %s %s: %s\n", what, path.c_str(),
                 errno == ENXIO ? "a pipe that nobody reads" : std::strerror(errno));
  }
  return f;
}

std::string WithSlash(std::string dir) {
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir;
}

// Detaches the engine from the signals before the engine goes away.
struct Attachment {
  StopSignals& signals;
  Attachment(StopSignals& s, orvKestrel::clsKestrel& k) : signals(s) { signals.Attach(&k); }
  ~Attachment() { signals.Attach(nullptr); }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
};

// The pass stopped reading at a job file; the trap's report alone does not say what to do.
void HintIfUnreadable(const orvKestrel::clsKestrel& kestrel, const std::string& jobDir) {
  if (!kestrel.JobFileUnreadable()) return;
  std::fprintf(stderr,
               "kestrel: a job file could not be read and the jobs after it did not run; "
               "`kestrel check %s` says which and why\n",
               jobDir.c_str());
}

void RunDaemon(orvKestrel::clsKestrel& kestrel, StopSignals& signals, const RunOptions& o,
               const std::string& jobDir) {
  using Clock = std::chrono::steady_clock;
  const auto every = std::chrono::seconds(o.every);
  const auto start = Clock::now();
  while (!signals.Signalled()) {
    kestrel.ExecuteAllJobs(jobDir, o.lang, o.verbose, o.previewJobs, o.regex);
    HintIfUnreadable(kestrel, o.target);
    if (signals.Signalled()) break;
    // The next start of an interval: a slow pass skips the slots it overran, it never shifts them.
    const auto next = start + (Clock::now() - start) / every * every + every;
    if (signals.WaitUntil(next)) break;
  }
}

// Why run-one cannot run this path, or "" when it names a job file. The engine itself runs a
// missing file as defaults and passes over a folder or another file silently.
std::string NoJobFile(const std::string& path) {
  orvKestrel::FileSystem fs;
  if (fs.FolderExists(path)) return "is a folder, not a job file";
  if (!fs.FileExists(path)) {
    try {
      fs.Stat(path);
    } catch (const std::exception&) {
      return "does not exist";
    }
    return "is not a regular file";
  }
  if (orvKestrel::paths::LowerAscii(orvKestrel::paths::GetExtensionName(path)) != "kjb") {
    return "is not a job file (a job file's name ends in .kjb)";
  }
  return {};
}

int Execute(Mode mode, const RunOptions& given) {
  if (mode == Mode::RunOne) {
    if (const std::string why = NoJobFile(given.target); !why.empty()) {
      std::fprintf(stderr, "kestrel: %s %s\n", given.target.c_str(), why.c_str());
      return kExitErrors;
    }
  }
  RunOptions o = given;
  o.lang = ChooseLanguageFile(given.lang);
  auto made = o.host.MakeHostOrSay();
  if (!made) return kExitUsage;
  orvKestrel::Host host = std::move(*made);
  File log, trace;
  if (!o.log.empty() && !(log = OpenOrComplain(o.log, true, "log file"))) return kExitUsage;
  if (!o.trace.empty() && !(trace = OpenOrComplain(o.trace, false, "trace file"))) {
    return kExitUsage;
  }

  StopSignals signals;
  host.yield = [&signals] { signals.OnYield(); };
  host.messageBox = MakeAnswerer(o.onError);
  // stdout is the event stream; what the jobs' programs print goes to stderr.
  host.programStdoutToStderr = true;
  if (trace) {
    host.traceSink = [f = trace.get()](const std::string& line) {
      std::fwrite(line.data(), 1, line.size(), f);
    };
  }
  const auto format = o.events == "jsonl" ? EventFormat::Jsonl : EventFormat::Text;
  EventWriter writer(format, stdout, ::isatty(STDOUT_FILENO) == 1, log.get(), host.clock);
  orvKestrel::clsKestrel kestrel(host);
  kestrel.Connect(&writer);
  kestrel.CheckNoFileSize(o.noSizeCheck);
  kestrel.DryRun(o.dryRun);
  {
    Attachment attached(signals, kestrel);
    switch (mode) {
      case Mode::Run:
        kestrel.ExecuteAllJobs(WithSlash(o.target), o.lang, o.verbose, o.previewJobs, o.regex);
        HintIfUnreadable(kestrel, o.target);
        break;
      case Mode::RunOne: {
        std::string folder = orvKestrel::paths::GetParentFolderName(o.target);
        if (folder.empty()) folder = ".";
        kestrel.ExecuteOneJob(orvKestrel::paths::GetFileName(o.target), WithSlash(folder), o.lang,
                              false, o.regex);
        break;
      }
      case Mode::Daemon:
        RunDaemon(kestrel, signals, o, WithSlash(o.target));
        break;
    }
  }
  writer.Finish();
  if (signals.Signalled()) return kExitSignal;
  return kestrel.HadErrors() ? kExitErrors : 0;
}

// An empty folder name would become "/", the root folder.
const CLI::Validator kNotEmpty(
    [](std::string& s) { return s.empty() ? std::string("must not be empty") : std::string(); }, "",
    "NOT_EMPTY");

void AddShared(CLI::App* cmd, RunOptions& o, bool passOptions) {
  cmd->add_option("--lang", o.lang,
                  "Language file (section LogMessages). Without it: KESTREL_LANG, else the "
                  "installed language file of the locale's language (English for a language "
                  "without one), else the built-in German texts (also for the C and POSIX "
                  "locales). A missing or unreadable file, or one that is no regular file or "
                  "over 1 MiB, is no error: the built-in texts are used")
      ->type_name("FILE");
  if (passOptions) {
    cmd->add_flag("--verbose", o.verbose, "Also report inactive jobs and jobs with invalid paths");
    cmd->add_flag("--preview-jobs", o.previewJobs,
                  "Take the jobs marked as preview jobs (DoPreview, on by default) into the pass "
                  "as well; each job still acts as its own DoPreview says");
  }
  cmd->add_flag("--dry-run", o.dryRun,
                "Run every job as a preview whatever its DoPreview says, and write nothing: no "
                "file of a job, no job file (counters, states, IntState), no external program");
  cmd->add_flag("--regex", o.regex, "Regular-expression switch of the run (bFilterRegExp)");
  cmd->add_option("--events", o.events,
                  "How events are written to stdout: text (for people) or jsonl (one JSON "
                  "object per event and line)")
      ->check(CLI::IsMember({"text", "jsonl"}));
  cmd->add_option("--log", o.log,
                  "Append every log line meant for a file to FILE, with a local time stamp")
      ->type_name("FILE");
  o.host.AddTo(*cmd);
  cmd->add_flag("--no-size-check", o.noSizeCheck,
                "Do not check the free space of the destination before copying or moving");
  cmd->add_option("--trace", o.trace, "Write the per-procedure trace (enter, leave, error) to FILE")
      ->type_name("FILE");
  cmd->add_option("--on-error", o.onError,
                  "Answer to the error trap instead of a dialog (each report also goes to "
                  "stderr and error.log): leave (default) and abort leave the failing procedure, "
                  "ignore goes on with its next statement, retry runs the failing statement "
                  "again - at most 3 times in a row for the same report, then leaves")
      ->check(CLI::IsMember({"abort", "retry", "ignore", "leave"}));
}

}  // namespace

void AddRunCommands(CLI::App& app, Action& action) {
  // The options live as long as the parser and the action that reads them.
  auto o = std::make_shared<RunOptions>();
  const auto bind = [&action, o](Mode mode) {
    return [&action, o, mode] { action = [o, mode] { return Execute(mode, *o); }; };
  };

  const std::string exits =
      "Exit status: 0 no job ended with an error, 1 a job ended with an error or the error trap "
      "recorded one, 2 bad command line, 130 stopped by SIGINT or SIGTERM (a second signal ends "
      "the process at once).";
  CLI::App* run = app.add_subcommand("run", "Run every due job of a job folder once");
  run->footer(exits);
  run->add_option("JOBDIR", o->target, "Job folder (.kjb files)")->required()->check(kNotEmpty);
  AddShared(run, *o, true);
  run->callback(bind(Mode::Run));

  CLI::App* one = app.add_subcommand(
      "run-one", "Run one job file now: no schedule, state, counter or free-space test");
  one->footer(exits);
  one->add_option("JOBFILE", o->target, "Job file (.kjb)")->required()->check(kNotEmpty);
  AddShared(one, *o, false);
  one->callback(bind(Mode::RunOne));

  CLI::App* daemon = app.add_subcommand(
      "daemon", "Run every due job of a job folder once every interval until SIGTERM or SIGINT");
  daemon->footer(
      "Passes start at whole intervals from the start; a slow pass skips the starts it overran. "
      "Nothing of its own goes to stdout. Exit status: 130 when stopped by a signal, 2 for a bad "
      "command line.");
  daemon->add_option("JOBDIR", o->target, "Job folder (.kjb files)")->required()->check(kNotEmpty);
  daemon
      ->add_option("--every", o->every,
                   "Seconds from the start of one pass to the next (default 60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 31536000));
  AddShared(daemon, *o, true);
  daemon->callback(bind(Mode::Daemon));
}

}  // namespace kestrel
