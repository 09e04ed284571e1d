// kestrel run, run-one and daemon, run as a user or a scheduler runs them; bad command lines of
// every command.
#include "e2e/E2eSupport.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

// The job's program holds the pass for two seconds. The job's first line reaches the reader of
// stdout while the pass waits (its output is buffered, but never held back over a wait); a
// SIGINT then ends the job with "t2", never with "t6".
TEST_F(RunTest, SigintDuringAPassStopsItWith130) {
  Job("a", "Counter=1\nExecDo=1\nExecution=0\nExecPath=sleep 3\nExecWait=1\nExecMaxSec=2\n");
  e2e::StartOptions o;
  o.outFile = dir / "out";
  const pid_t pid = e2e::StartKestrel(Args({"run", jobs, "--events", "jsonl"}), dir.str(), o);
  ASSERT_TRUE(e2e::CatchesSignal(pid, SIGINT));
  ASSERT_TRUE(e2e::Eventually([&] {
    return ReadFile(dir / "out").find("a: Starte Auftrag") != std::string::npos;
  }));
  ASSERT_EQ(::kill(pid, SIGINT), 0);
  EXPECT_EQ(e2e::WaitFor(pid).exitCode, 130);
  const std::string out = ReadFile(dir / "out");
  EXPECT_THAT(out, HasSubstr("\"LogMsg\":\"a: Aktion 'Aufträge ausführen' abgebrochen\",\"MsgID\":2"));
  EXPECT_THAT(out, ::testing::Not(HasSubstr("Auftrag ausgeführt")));
}

// Passes follow each other at the interval; SIGTERM ends the wait between them at once (with an
// interval of an hour, ending at all shows it), and no pass is cut short.
TEST_F(RunTest, DaemonRunsEveryIntervalAndStopsOnSigterm) {
  const std::string path = Job("a", "Counter=1\nInterval=1\n");
  const auto starts = [&] { return JobLines(ReadFile(dir / "out"), "a: Starte Auftrag").size(); };
  for (const char* every : {"1", "3600"}) {
    SCOPED_TRACE(every);
    e2e::StartOptions o;
    o.outFile = dir / "out";
    o.errFile = dir / "err";
    const pid_t pid = e2e::StartKestrel(Args({"daemon", jobs, "--every", every, "--events", "jsonl"}),
                                        dir.str(), o);
    ASSERT_TRUE(e2e::CatchesSignal(pid, SIGTERM));
    const auto start = std::chrono::steady_clock::now();
    const std::size_t passes = every == std::string("1") ? 2 : 1;
    ASSERT_TRUE(e2e::Eventually([&] { return starts() >= passes; })) << ReadFile(dir / "out");
    // Two passes take one interval: the second starts a second after the first.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500 * (passes - 1)));
    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    EXPECT_EQ(e2e::WaitFor(pid, std::chrono::seconds(20)).exitCode, 130);
    EXPECT_EQ(ReadFile(dir / "err"), "");
    const std::string out = ReadFile(dir / "out");
    EXPECT_EQ(JobLines(out, "a: Starte Auftrag").size(), JobLines(out, "a: Auftrag ausgeführt").size());
    for (const auto& line : Lines(out)) EXPECT_TRUE(nlohmann::json::accept(line)) << line;
  }
  EXPECT_EQ(Value(ReadFile(path), "Counter"), "1");
}

}  // namespace
