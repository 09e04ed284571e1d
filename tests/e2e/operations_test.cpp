// What the host adds for operators: summaries, the text view, --log and --quiet, exit codes 3 to
// 5, the terminal's progress line, --metrics, output files that cannot be written and the lock
// of the job folder.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

using Operations = JobFolderTest;

// Each job and the pass end with a summary, and the metrics written after the pass (in the text
// format, in one step) say the same.
TEST_F(Operations, SummariesAndMetricsOfEachJobAndThePass) {
  const struct {
    const char* keys;
    bool twice;  // the counts of a second run
    std::map<std::string, int> counts;
  } cases[] = {
      {"Action=0\n", false, {{"selected", 2}, {"copied", 2}, {"unchanged", 0}, {"bytes", 8}}},
      {"Action=0\n", true, {{"selected", 2}, {"copied", 0}, {"unchanged", 2}, {"bytes", 0}}},
      {"Action=1\n", false, {{"selected", 2}, {"moved", 2}, {"deleted", 0}, {"bytes", 8}}},
      {"Action=2\n", false, {{"selected", 2}, {"deleted", 2}, {"failed", 0}, {"bytes", 0}}},
  };
  const std::regex sample(R"(([a-z_]+(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})?) (-?[0-9.e+]+))");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys + std::string(c.twice ? " again" : ""));
    EmptyFolders();
    Plant(src(), {{"a.txt", "hello"}, {"b.txt", "abc"}});
    WriteJob(kDue + std::string(c.keys));
    if (c.twice) RunJobs();
    std::vector<nlohmann::json> s;
    for (const std::string& line : SplitLines(RunJobs({"--metrics", "m.prom"}).out)) {
      if (const auto j = nlohmann::json::parse(line); j["event"] == "Summary") s.push_back(j);
    }
    ASSERT_EQ(s.size(), 2u);
    EXPECT_TRUE(s[0]["scope"] == "job" && s[0]["job"] == "a" && s[1]["scope"] == "pass" && s[1]["job"].is_null());
    for (const auto& [key, n] : c.counts) EXPECT_EQ(s[0][key], n) << key;
    EXPECT_GE(s[1]["seconds"].get<double>(), s[0]["seconds"].get<double>());
    std::map<std::string, double> m;
    for (const std::string& line : SplitLines(Get(dir_ / "m.prom"))) {
      std::smatch match;
      if (line.starts_with("# HELP ") || line.starts_with("# TYPE ")) continue;
      ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
      m[match[1]] = std::stod(match[4]);
    }
    for (const char* key : {"selected", "copied", "moved", "deleted", "packed", "unpacked", "unchanged", "failed"}) {
      EXPECT_EQ(s[0][key], s[1][key]) << key;  // one job: the pass is that job
      EXPECT_EQ(m.at("kestrel_job_files{job=\"a\",outcome=\"" + std::string(key) + "\"}"), s[0][key]) << key;
    }
    EXPECT_TRUE(m.at("kestrel_job_bytes{job=\"a\"}") == s[0]["bytes"] && s[1]["bytes"] == s[0]["bytes"]);
    EXPECT_TRUE(m.at("kestrel_job_last_exit_status{job=\"a\"}") == 0 && m.at("kestrel_pass_last_exit_status") == 0);
    EXPECT_GT(m.at("kestrel_job_last_run_timestamp_seconds{job=\"a\"}"), 1.7e9);
    for (const auto& [rel, data] : Files(dir_.root())) EXPECT_FALSE(Hidden(rel)) << rel;  // no temporary left
  }
}

// Names are escaped in the text view and the log; the log is appended to with a time stamp;
// --quiet keeps the summaries and the error lines, nothing else.
TEST_F(Operations, TextViewLogAndQuiet) {
  Plant(src(), {{"new\nline.txt", "x"}, {"plain.txt", "y"}});
  WriteJob(kDue + std::string("Action=0\n"));
  const std::string log = (dir_ / "kestrel.log").string();
  const RunResult loud = Kestrel(At({"run", "jobs", "--log", log}));
  EXPECT_TRUE(loud.out.starts_with("a: Starte Auftrag\n") && loud.out.find("new\nline") == std::string::npos);
  for (const char* part :
       {"new\\x0aline.txt nach", "\na: Auftrag ausgeführt\n", "\nSummary of job \"a\": 2 selected, 2 copied"}) {
    EXPECT_NE(loud.out.find(part), std::string::npos) << loud.out;
  }
  EXPECT_NE(Get(log).find("new\\x0aline.txt nach"), std::string::npos) << Get(log);
  Kestrel(At({"run", "jobs", "--log", log}));
  // Appended to, each line stamped with the engine's clock.
  EXPECT_EQ(Count(SplitLines(Get(log)), "2026-11-22 10:00:0", {" a: Starte Auftrag"}), 2) << Get(log);
  // A file stands where a sub-folder must go.
  EmptyFolders();
  Plant(dir_.root(), {{"src/s/f.txt", "z"}, {"src/a.txt", "a"}, {"dst/s", ""}});
  WriteJob(kDue + std::string("Action=0\nSubFolder=1\nFStruct=1\n"));
  const RunResult quiet = Kestrel({"run", "jobs", "-q"});
  const Lines lines = SplitLines(quiet.out);
  ASSERT_EQ(lines.size(), 4u) << quiet.out;  // the error, the job's end, two summaries
  EXPECT_TRUE(lines[0].starts_with("a: Fehler: ")) << quiet.out;
  EXPECT_EQ(lines[1], "a: Auftrag ausgeführt (mit Fehler)");
  EXPECT_NE(lines[2].find("1 copied, 0 moved, 0 deleted, 0 packed, 0 unpacked, 0 unchanged, 1 failed"),
            std::string::npos);
  EXPECT_TRUE(lines[3].starts_with("Summary of the pass: ")) << quiet.out;
}

TEST_F(Operations, ExitCodesSayWhyAPassFellShort) {
  const struct {
    std::string name, keys;
    int exit;
    std::string err;  // a part of stderr
  } cases[] = {
      {"nofolder", kDue, 4, "jobs/nofolder.kjb: the job was skipped: its folder To \""},
      {"unread", "DoPreview=0\nCounter=x\n", 3, "jobs/unread.kjb could not be read ("},
      {"fails", kDue + std::string("ExecDo=1\nExecPath=exit 3\nExecWait=1\nExecMaxSec=60\n"), 4,
       "job \"fails\": external program exit 3 failed with exit status 3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(jobs());
    fs::create_directories(dst());
    WriteJob(c.keys, c.name);
    if (c.name == "nofolder") fs::remove_all(dst());
    const RunResult r = Kestrel({"run", "jobs", "--metrics", "m.prom"});
    EXPECT_EQ(r.exitCode, c.exit) << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    // A job that ran gives its own exit status in the metrics; 4 only where its program failed.
    const std::string gauge = "kestrel_job_last_exit_status{job=\"" + c.name + "\"} ", metrics = Get(dir_ / "m.prom");
    if (const auto at = metrics.find(gauge); at != std::string::npos) {
      EXPECT_EQ(metrics[at + gauge.size()], c.name == "fails" ? '4' : '0') << metrics;
    }
    EXPECT_TRUE(c.name != "nofolder" || Kestrel({"run-one", "jobs/nofolder.kjb"}).exitCode == 4);
  }
}

TEST_F(Operations, TheTerminalProgressLineSaysFilesBytesAndRate) {
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) Put(src() / name, "hello");
  WriteJob(kDue + std::string("Action=0\n"));
  // script gives kestrel's standard output a pseudo-terminal.
  const RunResult r =
      Kestrel({"-qfec", std::string(KESTREL_BIN) + " run jobs", "/dev/null"}, {.bin = "/usr/bin/script"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  // Bytes of the files done, and the rate.
  EXPECT_TRUE(r.out.find("[3/3] 100% ") != std::string::npos && r.out.find(" bytes/s)") != std::string::npos) << r.out;
}

// A second pass over a busy job folder says that it waits, and runs once the folder is free; with
// --no-wait it exits 5 at once.
TEST_F(Operations, ABusyJobFolderIsWaitedForOrRefused) {
  Put(src() / "a.txt", "a");
  WriteJob(kDue);
  const int held = ::open(jobs().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  const RunResult refused = Kestrel({"run", "jobs", "--no-wait"});
  EXPECT_TRUE(refused.exitCode == 5 && refused.err.find("job folder jobs") != std::string::npos) << refused.err;
  const fs::path err = dir_ / "err";
  const pid_t pid = StartKestrel({"run", "jobs"}, dir_.root(), {.errFile = err.string()});
  EXPECT_TRUE(Eventually([&] { return Get(err).find("waiting") != std::string::npos; }));
  EXPECT_FALSE(fs::exists(dst() / "a.txt"));
  ::close(held);
  EXPECT_EQ(WaitFor(pid), 0);
  EXPECT_TRUE(fs::exists(dst() / "a.txt"));
}

}  // namespace
}  // namespace e2e
