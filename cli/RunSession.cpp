#include "RunSession.h"

#include <orvKestrel/clsKestrel.h>
#include <orvKestrel/hostio.h>
#include <orvKestrel/inspect.h>
#include <orvKestrel/logtexts.h>
#include <orvKestrel/signals.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "EventWriter.h"
#include "HostFile.h"
#include "JsonText.h"
#include "Language.h"
#include "Metrics.h"
#include "Progress.h"

namespace kestrel {
namespace {

using orvKestrel::BoxAnswer;
using orvKestrel::MessageBoxRequest;
using orvKestrel::StopSignals;
using orvKestrel::hostio::Kind;
using orvKestrel::hostio::KindOf;

// A persistent error must not make "retry" loop for ever.
constexpr int kMaxRetries = 3;

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

// The message box of the engine: texts go to stderr (after what stdout has pending), the error
// trap's question is answered as --on-error says. programFailed notes an external program that
// could not be started.
std::function<BoxAnswer(const MessageBoxRequest&)> MakeAnswerer(const std::string& onError,
                                                               std::shared_ptr<bool> programFailed,
                                                               std::function<void()> flushView) {
  struct Retries {
    std::string last;
    int count = 0;
  };
  auto retries = std::make_shared<Retries>();
  return [onError, retries, programFailed, flushView](const MessageBoxRequest& box) {
    flushView();
    if (box.buttons == MessageBoxRequest::Buttons::OkOnly) {
      *programFailed = true;
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

// A host for looks at job files that reports nothing of its own.
orvKestrel::Host Quiet(orvKestrel::Host host) {
  host.messageBox = nullptr;
  host.traceSink = nullptr;
  host.errorLogSink = [](const std::string&) {};
  return host;
}

// Why run-one cannot run this path, or "" when it names a job file. The engine itself runs a
// missing file as defaults and passes over a folder or another file silently.
std::string NoJobFile(const std::string& path) {
  switch (KindOf(path)) {
    case Kind::Folder: return "is a folder, not a job file";
    case Kind::Missing: return "does not exist";
    case Kind::Other: return "is not a regular file";
    case Kind::File: break;
  }
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext == ".kjb" ? "" : "is not a job file (a job file's name ends in .kjb)";
}

// The folder of a job that does not exist, as "From \"/x\""; empty when both exist.
std::string MissingFolder(const orvKestrel::job& j) {
  if (KindOf(j.From) != Kind::Folder) return "From \"" + j.From + "\"";
  if (j.Action != 2 && KindOf(j.To) != Kind::Folder) return "To \"" + j.To + "\"";
  return {};
}

void SaySkipped(const std::string& jobDir, const std::string& file, const std::string& folder) {
  std::fprintf(stderr, "kestrel: job file %s: the job was skipped: its folder %s does not exist\n",
               EscapeControls(jobDir + file).c_str(), EscapeControls(folder).c_str());
}

class Session {
 public:
  Session(Mode mode, const RunOptions& o, orvKestrel::Host host)
      : mode_(mode),
        o_(o),
        host_(std::move(host)),
        log_(o.log, "log file", true),
        trace_(o.trace, "trace file", false),
        errorLog_(o.errorLog, "error log", true, true),
        metrics_(o.metrics),
        signals_(mode == Mode::Daemon),
        progress_(stderr, std::chrono::seconds(
                              orvKestrel::hostio::IsTerminal(stderr) ? 0 : o.progress)) {}

  bool OpenFiles() { return log_.Open() && trace_.Open() && errorLog_.Open(); }
  int Run();

 private:
  int OnePass(orvKestrel::clsKestrel& kestrel, EventWriter& writer);
  int PassExit(const orvKestrel::clsKestrel& kestrel);
  void ReportSkipped(EventWriter& writer);
  bool WaitForFolder();
  void HintIfUnreadable(const orvKestrel::clsKestrel& kestrel);
  void RunDaemon(orvKestrel::clsKestrel& kestrel, EventWriter& writer);
  std::string JobDir() const;
  // Writes out what stdout has pending: before the host says something on stderr.
  void FlushView() {
    if (writer_) writer_->Finish();
  }

  Mode mode_;
  const RunOptions& o_;
  orvKestrel::Host host_;
  HostFile log_, trace_, errorLog_;
  Metrics metrics_;
  StopSignals signals_;
  Progress progress_;
  std::shared_ptr<bool> programFailed_ = std::make_shared<bool>(false);
  EventWriter* writer_ = nullptr;  // while Run has one
  bool skipped_ = false;
  bool busy_ = false;
};

std::string Session::JobDir() const {
  if (mode_ != Mode::RunOne) return WithSlash(o_.target);
  const std::string folder = std::filesystem::path(o_.target).parent_path().string();
  return WithSlash(folder.empty() ? "." : folder);
}

// The pass stopped reading at a job file: say which and why, and where to learn more.
void Session::HintIfUnreadable(const orvKestrel::clsKestrel& kestrel) {
  if (!kestrel.JobFileUnreadable()) return;
  std::string which = "a job file could not be read";
  for (const auto& r : orvKestrel::ReadJobFiles(Quiet(host_), JobDir())) {
    if (r.record) continue;
    which = "job file " + JobDir() + r.fileName + " could not be read (" + r.error + ")";
    break;
  }
  std::fprintf(stderr, "kestrel: %s and the jobs after it did not run; `kestrel check %s` says more\n",
               EscapeControls(which).c_str(), EscapeControls(o_.target).c_str());
}

void Session::ReportSkipped(EventWriter& writer) {
  for (const std::string& file : writer.TakeSkipped()) {
    skipped_ = true;
    for (const auto& r : orvKestrel::ReadJobFiles(Quiet(host_), JobDir(), file)) {
      if (r.record) SaySkipped(JobDir(), file, MissingFolder(*r.record));
    }
  }
}

// Another pass over the job folder: --no-wait gives up, else the wait is said (the engine waits).
bool Session::WaitForFolder() {
  if (!orvKestrel::hostio::FolderBusy(JobDir())) return true;
  if (o_.noWait) {
    std::fprintf(stderr, "kestrel: another pass is working on the job folder %s; not waiting (--no-wait)\n",
                 EscapeControls(o_.target).c_str());
    busy_ = true;
    return false;
  }
  std::fprintf(stderr, "kestrel: another pass is working on the job folder %s; waiting for it to end\n",
               EscapeControls(o_.target).c_str());
  return true;
}

int Session::PassExit(const orvKestrel::clsKestrel& kestrel) {
  if (signals_.Signalled()) return kExitSignal;
  if (kestrel.JobFileUnreadable()) return kExitUnreadable;
  if (skipped_ || *programFailed_) return kExitSkipped;
  return kestrel.HadErrors() ? kExitErrors : 0;
}

int Session::OnePass(orvKestrel::clsKestrel& kestrel, EventWriter& writer) {
  if (!WaitForFolder()) return kExitBusy;
  skipped_ = false;
  *programFailed_ = false;
  writer.BeginPass();
  if (mode_ == Mode::RunOne) {
    const std::string file = std::filesystem::path(o_.target).filename().string();
    for (const auto& r : orvKestrel::ReadJobFiles(Quiet(host_), JobDir(), file)) {
      const std::string missing = r.record && r.record->Inactive != 1 ? MissingFolder(*r.record) : "";
      if (missing.empty()) continue;
      SaySkipped(JobDir(), file, missing);
      skipped_ = true;
    }
    if (!skipped_) kestrel.ExecuteOneJob(file, JobDir(), o_.lang, false, o_.regex);
  } else {
    kestrel.ExecuteAllJobs(JobDir(), o_.lang, o_.verbose, o_.previewJobs, o_.regex);
    writer.Finish();
    HintIfUnreadable(kestrel);
    ReportSkipped(writer);
  }
  writer.EndPass();
  const int exit = PassExit(kestrel);
  metrics_.Write(exit, host_.clock.Now());
  return exit;
}

void Session::RunDaemon(orvKestrel::clsKestrel& kestrel, EventWriter& writer) {
  using Clock = std::chrono::steady_clock;
  const auto every = std::chrono::seconds(o_.every);
  const auto start = Clock::now();
  while (!signals_.Signalled()) {
    if (OnePass(kestrel, writer) == kExitBusy) return;
    // The next start of an interval: a slow pass skips the slots it overran, it never shifts them.
    const auto next = start + (Clock::now() - start) / every * every + every;
    for (;;) {
      if (signals_.WaitUntil(next)) return;
      if (!signals_.TakeHangup()) break;
      log_.Reopen();
      trace_.Reopen();
      errorLog_.Reopen();
    }
  }
}

int Session::Run() {
  host_.yield = [this] {
    signals_.OnYield();
    progress_.Tick();
  };
  host_.messageBox = MakeAnswerer(o_.onError, programFailed_, [this] { FlushView(); });
  host_.beforeProgram = [this] { FlushView(); };
  host_.programFailed = [this](const std::string& job, const std::string& path, int status) {
    *programFailed_ = true;
    metrics_.ProgramFailed(job);
    FlushView();
    std::fprintf(stderr, "kestrel: job \"%s\": external program %s failed with exit status %d\n",
                 EscapeControls(job).c_str(), EscapeControls(path).c_str(), status);
  };
  // stdout is the event stream; what the jobs' programs print goes to stderr.
  host_.programStdoutToStderr = true;
  if (trace_.Named()) host_.traceSink = [this](const std::string& line) { trace_.Write(line); };
  host_.errorLogSink = [this](const std::string& report) { errorLog_.Write(report + "\n"); };
  const ViewSettings view{o_.events == "jsonl" ? EventFormat::Jsonl : EventFormat::Text,
                          orvKestrel::hostio::IsTerminal(stdout), o_.quiet};
  EventWriter writer(view, stdout, log_, host_.clock, SummaryCounter(orvKestrel::LogTexts(o_.lang)),
                     progress_);
  writer_ = &writer;
  if (metrics_.Named()) writer.OnSummary([this](const JobSummary& s) { metrics_.Job(s, host_.clock.Now()); });
  orvKestrel::clsKestrel kestrel(host_);
  kestrel.Connect(&writer);
  kestrel.CheckNoFileSize(o_.noSizeCheck);
  const unsigned jobs = o_.jobs != 0 ? o_.jobs : std::max(1u, std::thread::hardware_concurrency());
  kestrel.Jobs(static_cast<std::int32_t>(jobs));
  kestrel.DryRun(o_.dryRun);
  int exit = 0;
  {
    Attachment attached(signals_, kestrel);
    if (mode_ == Mode::Daemon) {
      RunDaemon(kestrel, writer);
      exit = busy_ ? kExitBusy : PassExit(kestrel);
    } else {
      exit = OnePass(kestrel, writer);
    }
  }
  writer.Finish();
  writer_ = nullptr;
  return signals_.Signalled() ? kExitSignal : exit;
}

}  // namespace

int Execute(Mode mode, const RunOptions& given) {
  if (mode == Mode::RunOne) {
    if (const std::string why = NoJobFile(given.target); !why.empty()) {
      std::fprintf(stderr, "kestrel: %s %s\n", EscapeControls(given.target).c_str(), why.c_str());
      return kExitErrors;
    }
  }
  RunOptions o = given;
  o.lang = ChooseLanguageFile(given.lang);
  auto made = o.host.MakeHostOrSay();
  if (!made) return kExitUsage;
  Session session(mode, o, std::move(*made));
  if (!session.OpenFiles()) return kExitUsage;
  return session.Run();
}

}  // namespace kestrel
