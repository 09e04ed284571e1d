// kestrel run, run-one and daemon, run as a user or a scheduler runs them; bad command lines of
// every command.
#include "e2e/E2eSupport.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using orvKestrel::testing::ReadFile;
using orvKestrel::testing::TempDir;
using orvKestrel::testing::WriteFile;

// A running kestrel with its stdout and stderr on pipes.
class Process {
 public:
  // stdoutFd >= 0: the child writes its stdout there instead of a pipe of ours.
  Process(const std::vector<std::string>& args, const std::string& cwd, int stdoutFd = -1) {
    int out[2] = {-1, -1};
    int err[2];
    if (stdoutFd < 0 && ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    if (::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    e2e::StartOptions o;
    o.outFd = stdoutFd >= 0 ? stdoutFd : out[1];
    o.errFd = err[1];
    pid_ = e2e::StartKestrel(args, cwd, o);
    if (stdoutFd < 0) {
      ::close(out[1]);
      out_ = out[0];
    }
    ::close(err[1]);
    err_ = err[0];
  }
  ~Process() {
    if (pid_ > 0 && status_ < 0) {
      ::kill(pid_, SIGKILL);
      Wait();
    }
    if (out_ >= 0) ::close(out_);
    if (err_ >= 0) ::close(err_);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }

  // True once the process catches sig: its handler is installed.
  bool WaitForHandler(int sig) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < until) {
      std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
      std::string line;
      while (std::getline(status, line)) {
        if (line.rfind("SigCgt:", 0) == 0) {
          const unsigned long long mask = std::stoull(line.substr(7), nullptr, 16);
          if (mask & (1ull << (sig - 1))) return true;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  // Reads stdout until it holds `count` lines that contain `text`; false at EOF or after a while
  // without them, so that a daemon that never says it cannot hold the test for ever.
  bool ReadUntil(const std::string& text, int count) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (Count(text) < count) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          until - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      pollfd pfd{out_, POLLIN, 0};
      if (::poll(&pfd, 1, static_cast<int>(left.count())) <= 0) continue;
      if (!ReadSome(out_, out)) return false;
    }
    return true;
  }

  // Reads everything to EOF and waits; the exit code, or 128 + the signal.
  int Finish() {
    while (ReadSome(out_, out)) {
    }
    while (ReadSome(err_, err)) {
    }
    return Wait();
  }

  std::string out, err;

 private:
  int Count(const std::string& text) const {
    int n = 0;
    for (auto pos = out.find(text); pos != std::string::npos; pos = out.find(text, pos + 1)) ++n;
    return n;
  }
  static bool ReadSome(int fd, std::string& into) {
    if (fd < 0) return false;
    char buf[4096];
    for (;;) {
      const ssize_t n = ::read(fd, buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      into.append(buf, static_cast<std::size_t>(n));
      return true;
    }
  }
  int Wait() {
    if (status_ >= 0) return status_;
    int st = 0;
    while (::waitpid(pid_, &st, 0) < 0 && errno == EINTR) {
    }
    status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return status_;
  }

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  int status_ = -1;
};

using Result = e2e::RunResult;

Result Kestrel(const std::vector<std::string>& args, const std::string& cwd) {
  return e2e::RunKestrel(args, cwd);
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

// The events of a jsonl stream without the lines of the file step: CurrentJob events and the
// run driver's own messages.
std::vector<std::string> DriverEvents(const std::string& out) {
  std::vector<std::string> kept;
  for (const std::string& line : Lines(out)) {
    const auto j = nlohmann::json::parse(line);
    if (j["event"] == "LogMessage") {
      const int id = j["MsgID"];
      if (id != 2 && id != 3 && id != 6 && id != 7 && id != 8 && id != 9 && id != 28) continue;
    } else if (j["event"] != "CurrentJob") {
      continue;
    }
    kept.push_back(line);
  }
  return kept;
}

// The lines of a text view or log that hold `part`.
std::vector<std::string> JobLines(const std::string& text, const std::string& part) {
  std::vector<std::string> kept;
  for (const std::string& line : Lines(text)) {
    if (line.find(part) != std::string::npos) kept.push_back(line);
  }
  return kept;
}

std::string Value(const std::string& ini, const std::string& key) {
  return orvKestrel::testing::KeyValue(ini, key).value_or("<missing>");
}

class RunTest : public ::testing::Test {
 protected:
  RunTest() {
    fs::create_directories(dir / "src");
    fs::create_directories(dir / "dst");
    fs::create_directories(jobs);
    // Something to find, so that a job ends as "done" and not as "nothing found".
    WriteFile(dir / "src/f.txt", "f");
  }
  std::string Job(const std::string& name, const std::string& extra) {
    const std::string path = jobs + "/" + name + ".kjb";
    WriteFile(path, "[Job]\nName=" + name + "\nFrom=" + dir / "src" + "\nTo=" + dir / "dst" +
                        "\nDoPreview=0\n" + extra);
    return path;
  }
  std::vector<std::string> Now() {
    return {"--now", "2026-06-15 12:00:00", "--date-format", "%d.%m.%Y"};
  }
  std::vector<std::string> Args(std::vector<std::string> head, std::vector<std::string> tail = {}) {
    auto now = Now();
    head.insert(head.end(), now.begin(), now.end());
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
  }

  TempDir dir;
  const std::string jobs = dir / "jobs";
};

TEST_F(RunTest, BadCommandLinesExitTwo) {
  const std::vector<std::vector<std::string>> bad = {
      {"run"},
      {"run", ""},
      {"run", jobs, "--bogus"},
      {"run", jobs, "--events", "xml"},
      {"run", jobs, "--on-error", "maybe"},
      {"run", jobs, "--now", "tomorrow"},
      {"run-one", jobs + "/a.kjb", "--verbose"},
      {"daemon", jobs, "--every", "0"},
      {"run", jobs, "--log", dir / "no/such/folder/log.txt"},
      {"list"},
      {"list", ".", "--events", "xml"},
      {"list", ".", "--now", "yesterday"},
  };
  for (const auto& args : bad) {
    const Result r = Kestrel(args, dir.str());
    EXPECT_EQ(r.exitCode, 2) << args.back();
    EXPECT_EQ(r.out, "") << args.back();
    EXPECT_NE(r.err, "") << args.back();
  }
  EXPECT_EQ(Kestrel({"run", "--help"}, dir.str()).exitCode, 0);
  EXPECT_EQ(Kestrel({"daemon", "--help"}, dir.str()).exitCode, 0);
  const Result help = Kestrel({"list", "--help"}, dir.str());
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Examples:"), std::string::npos);
}

TEST_F(RunTest, MissingOrEmptyJobFolderIsNoError) {
  for (const std::string& folder : {jobs, dir / "missing"}) {
    const Result r = Kestrel({"run", folder, "--events", "jsonl"}, dir.str());
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(RunTest, JsonlStreamAndJobFileAfterwards) {
  const std::string path = Job("a", "Counter=2\nInterval=3\n");
  Result r = Kestrel(Args({"run", jobs, "--events", "jsonl"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_THAT(DriverEvents(r.out),
              ElementsAre("{\"event\":\"CurrentJob\",\"sFileName\":\"a.kjb\",\"lIndex\":0,"
                          "\"lCounter\":1,\"iStatus\":0,\"IntervalType\":0,\"IntervalTimeType\":0,"
                          "\"IntervalTime\":\"00:00:00\",\"IntervalDate\":\"15.06.2026\","
                          "\"IntervalWeekDay\":0,\"IntervalMonthDay\":1}"));
  EXPECT_EQ(Value(ReadFile(path), "Counter"), "1");

  // Given with a trailing "/" the folder is the same.
  r = Kestrel(Args({"run", jobs + "/", "--events", "jsonl"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const auto lines = DriverEvents(r.out);
  ASSERT_EQ(lines.size(), 4u) << r.out;
  EXPECT_EQ(lines[1],
            "{\"event\":\"LogMessage\",\"LogMsg\":\"a: Starte Auftrag\",\"MsgID\":3,"
            "\"bView\":true,\"bFile\":true,\"bSameView\":false,\"bIsLast\":false}");
  EXPECT_EQ(lines[2],
            "{\"event\":\"LogMessage\",\"LogMsg\":\"a: Auftrag ausgeführt\",\"MsgID\":6,"
            "\"bView\":true,\"bFile\":true,\"bSameView\":true,\"bIsLast\":true}");
  EXPECT_EQ(nlohmann::json::parse(lines[3])["lCounter"], 3);
  EXPECT_EQ(Value(ReadFile(path), "Counter"), "3");
}

TEST_F(RunTest, TextViewLogFileAndLanguage) {
  Job("a", "Counter=1\n");
  WriteFile(dir / "en.lng", "[LogMessages]\nt3=Starting job\n");
  const Result r = Kestrel(
      Args({"run", jobs, "--log", dir / "kestrel.log", "--lang", dir / "en.lng"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const auto view = JobLines(r.out, "a: ");
  ASSERT_GE(view.size(), 2u) << r.out;
  EXPECT_EQ(view.front(), "a: Starting job");
  EXPECT_EQ(view.back(), "a: Auftrag ausgeführt");
  const auto log = JobLines(ReadFile(dir / "kestrel.log"), "a: ");
  ASSERT_FALSE(log.empty());
  EXPECT_TRUE(std::regex_match(log[0], std::regex("2026-06-15 12:00:0[0-9] a: Starting job")))
      << log[0];
  // Appended, not replaced.
  Job("a", "Counter=1\n");
  Kestrel(Args({"run", jobs, "--log", dir / "kestrel.log"}), dir.str());
  EXPECT_EQ(JobLines(ReadFile(dir / "kestrel.log"), "a: Starte").size(), 1u);
  EXPECT_EQ(JobLines(ReadFile(dir / "kestrel.log"), "a: Starting").size(), 1u);
}

TEST_F(RunTest, DryRunChangesNoJobFile) {
  const std::string a = Job("a", "Counter=1\nRunOnce=1\n");
  const std::string b = Job("b", "Counter=5\n");
  const std::string before = ReadFile(a) + ReadFile(b);
  const Result r = Kestrel(Args({"run", jobs, "--dry-run"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_THAT(r.out,
              HasSubstr("a: Starte Auftrag - Vorschau - Dateien kopieren (keine Aktionen): "));
  EXPECT_EQ(ReadFile(a) + ReadFile(b), before);
  EXPECT_TRUE(fs::is_empty(dir / "dst"));
}

TEST_F(RunTest, RunOneRunsTheNamedJobOnly) {
  const std::string a = Job("a", "Counter=4\nInactive=0\n");
  Job("b", "Counter=1\n");
  const std::string before = ReadFile(a);
  const Result r = Kestrel(Args({"run-one", "jobs/a.kjb", "--events", "jsonl"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const auto lines = DriverEvents(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;  // no CurrentJob event
  EXPECT_THAT(lines[0], HasSubstr("\"LogMsg\":\"a: Starte Auftrag\""));
  EXPECT_EQ(ReadFile(a), before);
}

TEST_F(RunTest, TrapErrorsGoToStderrAndErrorLogAndExitOne) {
  Job("a", "Counter=abc\n");
  for (const char* answer : {"leave", "retry", "ignore"}) {
    fs::remove(dir / "error.log");
    const Result r = Kestrel(Args({"run", jobs, "--on-error", answer}), dir.str());
    EXPECT_EQ(r.exitCode, 3) << answer;  // a job file that does not read
    auto reports = Lines(r.err);
    // The host's own hint (which command explains the file) is no report of the trap.
    ASSERT_FALSE(reports.empty()) << answer;
    EXPECT_THAT(reports.back(), HasSubstr("kestrel check"));
    reports.pop_back();
    ASSERT_FALSE(reports.empty()) << answer;
    EXPECT_THAT(reports[0], HasSubstr("OrvDev FailSafe reports kestrel program error #13"));
    // A persistent error is retried 3 times, then left.
    EXPECT_LE(reports.size(), std::string(answer) == "retry" ? 4u : 1u) << r.err;
    EXPECT_EQ(Lines(ReadFile(dir / "error.log")), reports);
  }
}

TEST_F(RunTest, TraceFile) {
  Job("a", "Counter=1\n");
  const Result r = Kestrel(Args({"run", jobs, "--trace", dir / "trace.txt"}), dir.str());
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const std::string trace = ReadFile(dir / "trace.txt");
  EXPECT_THAT(trace, HasSubstr(" START FAILSAFE 6.60 LITE 15.06.2026,12:00:0"));
  EXPECT_THAT(trace, HasSubstr("] ->clsKestrel : Sub ExecuteAllJobs : (sJobDir=" + jobs + "/, "));
  EXPECT_THAT(trace, HasSubstr("] <-\tclsKestrel : Sub DriveJob : "));
}

TEST_F(RunTest, SigintDuringAPassStopsItWith130) {
  Job("a", "Counter=1\n");
  // A full pipe holds kestrel at its first event until the signal has been sent.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const int capacity = ::fcntl(fds[1], F_GETPIPE_SZ);
  ASSERT_GT(capacity, 0);
  const std::string filler(static_cast<std::size_t>(capacity), '.');
  ASSERT_EQ(::write(fds[1], filler.data(), filler.size()), capacity);
  Process p(Args({"run", jobs, "--events", "jsonl"}), dir.str(), fds[1]);
  ::close(fds[1]);
  ASSERT_TRUE(p.WaitForHandler(SIGINT));
  ASSERT_EQ(::kill(p.pid(), SIGINT), 0);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, n);
  ::close(fds[0]);
  EXPECT_EQ(p.Finish(), 130);
  out.erase(0, filler.size());
  // The signal may come before the first job (then the pass ends before anything is said) or
  // while the job is under way: then the job must end with "t2", never with "t6".
  if (out.find("a: Starte Auftrag") != std::string::npos) {
    EXPECT_THAT(out, HasSubstr("\"LogMsg\":\"a: Aktion 'Aufträge ausführen' abgebrochen\",\"MsgID\":2"));
  }
  EXPECT_THAT(out, ::testing::Not(HasSubstr("Auftrag ausgeführt")));
}

TEST_F(RunTest, DaemonRunsEveryIntervalAndStopsOnSigterm) {
  const std::string path = Job("a", "Counter=1\nInterval=1\n");
  Process p(Args({"daemon", jobs, "--every", "1", "--events", "jsonl"}), dir.str());
  ASSERT_TRUE(p.WaitForHandler(SIGTERM));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(p.ReadUntil("a: Starte Auftrag", 2)) << p.out;
  // Two passes take one interval: the second starts a second after the first.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  ASSERT_EQ(::kill(p.pid(), SIGTERM), 0);
  const auto stopAsked = std::chrono::steady_clock::now();
  EXPECT_EQ(p.Finish(), 130);
  EXPECT_LT(std::chrono::steady_clock::now() - stopAsked, std::chrono::milliseconds(900));
  EXPECT_EQ(p.err, "");
  for (const auto& line : Lines(p.out)) {
    EXPECT_TRUE(nlohmann::json::accept(line)) << line;
  }
  EXPECT_EQ(Value(ReadFile(path), "Counter"), "1");
}

}  // namespace
