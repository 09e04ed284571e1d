// What the host adds for operators: summaries, --quiet, escaped names, exit codes 3 to 5, the
// error log, --progress, --metrics and the daemon's SIGHUP.
#include <sys/file.h>

#include <chrono>
#include <regex>
#include <thread>

#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

using namespace std::chrono_literals;

class Operations : public JobFolderTest {
 protected:
  Operations() : JobFolderTest("e2e-ops") {}
  static constexpr const char* kRuns = "DoPreview=0\nCounter=1\nInterval=1\n";

  // The Summary events of a jsonl stream.
  static std::vector<nlohmann::json> Summaries(const std::string& out) {
    std::vector<nlohmann::json> s;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
      const auto j = nlohmann::json::parse(line);
      if (j["event"] == "Summary") s.push_back(j);
    }
    return s;
  }
  // Waits up to ten seconds for pred.
  static bool Eventually(const std::function<bool()>& pred) {
    for (int i = 0; i < 200; ++i) {
      if (pred()) return true;
      std::this_thread::sleep_for(50ms);
    }
    return false;
  }
};

TEST_F(Operations, EachJobAndThePassEndWithASummary) {
  struct Case {
    const char* keys;
    bool twice;  // the counts of a second run
    std::map<std::string, int> counts;
    std::uint64_t bytes;
  };
  const Case cases[] = {
      {"Action=0\n", false, {{"selected", 2}, {"copied", 2}, {"unchanged", 0}}, 8},
      {"Action=0\n", true, {{"selected", 2}, {"copied", 0}, {"unchanged", 2}}, 0},
      {"Action=1\n", false, {{"selected", 2}, {"moved", 2}, {"deleted", 0}}, 8},
      {"Action=2\n", false, {{"selected", 2}, {"deleted", 2}, {"failed", 0}}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.keys + std::string(c.twice ? " again" : ""));
    fs::remove_all(dst());
    fs::create_directories(dst());
    Put(src() / "a.txt", "hello");
    Put(src() / "b.txt", "abc");
    WriteJob(std::string(kRuns) + c.keys);
    if (c.twice) RunJobs();
    const RunResult r = RunJobs();
    const auto s = Summaries(r.out);
    ASSERT_EQ(s.size(), 2u) << r.out;
    EXPECT_EQ(s[0]["scope"], "job");
    EXPECT_EQ(s[0]["job"], "a");
    EXPECT_EQ(s[1]["scope"], "pass");
    EXPECT_TRUE(s[1]["job"].is_null());
    for (const auto& [key, n] : c.counts) EXPECT_EQ(s[0][key], n) << key;
    EXPECT_EQ(s[0]["bytes"], c.bytes);
    for (const char* key : {"selected", "copied", "moved", "deleted", "packed", "unpacked",
                            "unchanged", "failed", "bytes"}) {
      EXPECT_EQ(s[0][key], s[1][key]) << key;  // one job: the pass is that job
    }
    EXPECT_GE(s[1]["seconds"].get<double>(), s[0]["seconds"].get<double>());
  }
}

TEST_F(Operations, QuietTextAndEscapedNames) {
  Put(src() / "new\nline.txt", "x");
  Put(src() / "plain.txt", "y");
  WriteJob(std::string(kRuns) + "Action=0\n");
  const std::string log = (dir_ / "kestrel.log").string();
  const RunResult loud = RunKestrel({"run", "jobs", "--log", log}, dir_.root());
  EXPECT_NE(loud.out.find("new\\x0aline.txt nach"), std::string::npos) << loud.out;
  EXPECT_NE(Get(log).find("new\\x0aline.txt nach"), std::string::npos) << Get(log);
  EXPECT_EQ(loud.out.find("new\nline"), std::string::npos);
  EXPECT_NE(loud.out.find("Summary of job \"a\": 2 selected, 2 copied"), std::string::npos);

  // The jsonl stream escapes as JSON does.
  fs::remove_all(dst());
  fs::create_directories(dst());
  const RunResult json = RunJobs();
  EXPECT_NE(json.out.find("new\\nline.txt"), std::string::npos) << json.out;

  // --quiet keeps the summaries and the error lines, nothing else: a file stands where a
  // sub-folder must go.
  fs::remove_all(dst());
  Put(src() / "s/f.txt", "z");
  Put(dst() / "s", "");
  WriteJob(std::string(kRuns) + "Action=0\nSubFolder=1\nFStruct=1\n");
  const RunResult quiet = RunKestrel({"run", "jobs", "-q"}, dir_.root());
  std::vector<std::string> lines;
  std::istringstream in(quiet.out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 4u) << quiet.out;  // the error, the job's end, two summaries
  EXPECT_TRUE(lines[0].starts_with("a: Fehler: ")) << quiet.out;
  EXPECT_EQ(lines[1], "a: Auftrag ausgeführt (mit Fehler)");
  EXPECT_NE(lines[2].find("2 copied, 0 moved, 0 deleted, 0 packed, 0 unpacked, 0 unchanged, "
                          "1 failed"), std::string::npos) << quiet.out;
  EXPECT_TRUE(lines[3].starts_with("Summary of the pass: ")) << quiet.out;
}

TEST_F(Operations, ExitCodesSayWhyAPassFellShort) {
  struct Case {
    const char* name;
    std::string keys;
    int exit;
    const char* err;  // a part of stderr
  };
  const std::string missing = (dir_ / "gone").string();
  const Case cases[] = {
      {"ok", std::string(kRuns), 0, ""},
      {"nofolder", std::string(kRuns), 4,
       "jobs/nofolder.kjb: the job was skipped: its folder To \""},
      {"unread", "DoPreview=0\nCounter=x\n", 3, "jobs/unread.kjb could not be read ("},
      {"program", std::string(kRuns) + "ExecDo=1\nExecPath=" + missing + "\nExecWait=1\n", 4,
       "External program error"},
      {"fails", std::string(kRuns) + "ExecDo=1\nExecPath=exit 3\nExecWait=1\nExecMaxSec=60\n", 4,
       "job \"fails\": external program exit 3 failed with exit status 3"},
      {"succeeds", std::string(kRuns) + "ExecDo=1\nExecPath=true\nExecWait=1\nExecMaxSec=60\n", 0,
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(dir_ / "jobs");
    fs::create_directories(dst());
    WriteJob(c.keys, c.name);
    if (c.name == std::string("nofolder")) fs::remove_all(dst());
    const RunResult r = RunKestrel({"run", "jobs", "--metrics", "m.prom"}, dir_.root());
    EXPECT_EQ(r.exitCode, c.exit) << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    // A job that ran gives its own exit status in the metrics; 4 only where its program failed.
    const std::string gauge = "kestrel_job_last_exit_status{job=\"" + std::string(c.name) + "\"} ";
    const std::string metrics = Get(dir_ / "m.prom");
    if (const auto at = metrics.find(gauge); at != std::string::npos) {
      EXPECT_EQ(metrics[at + gauge.size()], c.name == std::string("fails") ? '4' : '0') << metrics;
    }
    const std::string file = "jobs/" + std::string(c.name) + ".kjb";
    if (c.exit == 4 && c.name == std::string("nofolder")) {
      EXPECT_EQ(RunKestrel({"run-one", file}, dir_.root()).exitCode, 4);
    }
  }
}

TEST_F(Operations, ErrorLogGoesWhereToldAndListAndCheckWriteNone) {
  WriteJob("Counter=x\n");
  const RunResult r = RunKestrel({"run", "jobs", "--error-log", "trap.txt"}, dir_.root());
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_NE(Get(dir_ / "trap.txt").find("program error"), std::string::npos);
  for (const char* command : {"list", "check"}) {
    EXPECT_EQ(RunKestrel({command, "jobs"}, dir_.root()).exitCode, 1) << command;
  }
  EXPECT_FALSE(fs::exists(dir_ / "error.log"));
  // A run without errors leaves no empty error log behind.
  WriteJob(kRuns);
  EXPECT_EQ(RunKestrel({"run", "jobs", "--error-log", "none.txt"}, dir_.root()).exitCode, 0);
  EXPECT_FALSE(fs::exists(dir_ / "none.txt"));
}

TEST_F(Operations, ProgressLinesOnlyWhenAsked) {
  // The job's program keeps the pass busy for two seconds.
  WriteJob(std::string(kRuns) + "ExecDo=1\nExecution=0\nExecPath=/bin/sleep\nExecParam=2\nExecWait=1\nExecMaxSec=5\n");
  for (const bool asked : {false, true}) {
    std::vector<std::string> args{"run", "jobs"};
    if (asked) args.insert(args.end(), {"--progress", "1"});
    const RunResult r = RunKestrel(args, dir_.root());
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err.find("kestrel: progress: a.kjb: file ") != std::string::npos, asked) << r.err;
  }
}

TEST_F(Operations, TheTerminalProgressLineSaysFilesBytesAndRate) {
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) Put(src() / name, "hello");
  WriteJob(std::string(kRuns) + "Action=0\n");
  StartOptions o;
  o.bin = "/usr/bin/script";  // a pseudo-terminal for kestrel's standard output
  const RunResult r = RunKestrel({"-qfec", std::string(KESTREL_BIN) + " run jobs", "/dev/null"},
                                 dir_.root(), o);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("[3/3] 100% "), std::string::npos) << r.out;  // bytes of the files done
  EXPECT_NE(r.out.find(" bytes/s)"), std::string::npos) << r.out;
}

TEST_F(Operations, MetricsParseBackAsTheTextFormat) {
  Put(src() / "a.txt", "hello");
  WriteJob(std::string(kRuns) + "Action=0\n");
  const RunResult r = RunJobs({"--metrics", (dir_ / "kestrel.prom").string()});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::map<std::string, double> samples;
  std::istringstream in(Get(dir_ / "kestrel.prom"));
  const std::regex sample(R"(([a-z_]+(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})?) (-?[0-9.e+]+))");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("# HELP ") || line.starts_with("# TYPE ")) continue;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, sample)) << line;
    samples[m[1]] = std::stod(m[4]);
  }
  EXPECT_EQ(samples.at(R"(kestrel_job_files{job="a",outcome="copied"})"), 1);
  EXPECT_EQ(samples.at(R"(kestrel_job_bytes{job="a"})"), 5);
  EXPECT_EQ(samples.at(R"(kestrel_job_last_exit_status{job="a"})"), 0);
  EXPECT_EQ(samples.at("kestrel_pass_last_exit_status"), 0);
  EXPECT_GT(samples.at(R"(kestrel_job_last_run_timestamp_seconds{job="a"})"), 1.7e9);
  EXPECT_TRUE(Files(dir_.root()).count("kestrel.prom") == 1);  // no temporary left beside it
}

TEST_F(Operations, DaemonReopensItsLogOnSighup) {
  WriteJob(kRuns);
  const fs::path log = dir_ / "kestrel.log";
  const pid_t pid = StartKestrel({"daemon", "jobs", "--every", "1", "--log", log.string()},
                                 dir_.root());
  ASSERT_TRUE(Eventually([&] { return Get(log).find("Starte Auftrag") != std::string::npos; }));
  fs::rename(log, dir_ / "kestrel.log.1");
  ::kill(pid, SIGHUP);
  EXPECT_TRUE(Eventually([&] { return Get(log).find("Starte Auftrag") != std::string::npos; }));
  ::kill(pid, SIGTERM);
  EXPECT_EQ(WaitFor(pid).exitCode, 130);
}

TEST_F(Operations, ABusyJobFolderIsWaitedForOrRefused) {
  WriteJob(kRuns);
  const int held = ::open((dir_ / "jobs").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  const RunResult refused = RunKestrel({"run", "jobs", "--no-wait"}, dir_.root());
  EXPECT_EQ(refused.exitCode, 5);
  EXPECT_NE(refused.err.find("job folder jobs"), std::string::npos) << refused.err;

  const Scratch io("ops-io");
  StartOptions o;
  o.errFile = (io / "err").string();
  const pid_t pid = StartKestrel({"run", "jobs"}, dir_.root(), o);
  EXPECT_TRUE(Eventually([&] { return Get(o.errFile).find("waiting") != std::string::npos; }));
  ::close(held);
  EXPECT_EQ(WaitFor(pid).exitCode, 0);
}

}  // namespace
}  // namespace e2e
