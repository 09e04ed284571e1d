// kestrel run, run-one and daemon, run as a user or a scheduler runs them: command lines (a date
// that cannot be meant is refused before anything runs), the stream and the job file afterwards,
// schedule states in another date format, dry runs, the error trap, the trace, a job's external
// program, and signals.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

// The events of a jsonl stream without the lines of the file step: CurrentJob events and the
// run driver's own messages.
Lines DriverEvents(const std::string& out) {
  Lines kept;
  for (const std::string& line : SplitLines(out)) {
    const auto j = nlohmann::json::parse(line);
    if (j["event"] == "CurrentJob" || std::set<int>{2, 3, 6, 7, 8, 9, 28}.contains(j.value("MsgID", 0))) {
      kept.push_back(line);
    }
  }
  return kept;
}


class RunTest : public JobFolderTest {
 protected:
  // Something to find, so that a job ends as "done" and not as "nothing found".
  RunTest() { Put(src() / "f.txt", "f"); }
  // Keys of a due job whose program (run before the file step) is an executable script.
  std::string Program(const std::string& body, const std::string& param, const std::string& more = "") const {
    Put(dir_ / "program.sh", "#!/bin/sh\n" + body);
    fs::permissions(dir_ / "program.sh", fs::perms::owner_all);
    return kDue + ("ExecDo=1\nExecWait=1\nExecPath=" + (dir_ / "program.sh").string() + "\nExecParam=" + param +
                   "\n" + more);
  }
};

// Command lines and what they give: the exit code, a part of stdout and the parts of stderr
// (empty: nothing there). A bad one exits 2 naming what is wrong; a missing or empty job folder
// is no error. The date options go through one check in each command. A log or trace file that
// is a pipe nobody reads, or a folder, is refused at once instead of hanging the run.
TEST_F(RunTest, CommandLines) {
  const std::string noLog = (dir_ / "no/such/log.txt").string(), missing = (dir_ / "missing").string(),
                    pipe = (dir_ / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  // Refused: exit 2, nothing on stdout, stderr names each part once.
  const std::pair<Lines, Lines> refused[] = {
      {{"run"}, {"JOBDIR"}}, {{"run", ""}, {"JOBDIR"}}, {{"list"}, {"JOBDIR"}},
      {{"run", "jobs", "--bogus"}, {"--bogus"}}, {{"run", "jobs", "--events", "xml"}, {"xml"}},
      {{"list", ".", "--events", "xml"}, {"xml"}}, {{"run", "jobs", "--on-error", "maybe"}, {"maybe"}},
      {{"run-one", "jobs/a.kjb", "--verbose"}, {"--verbose"}}, {{"daemon", "jobs", "--every", "0"}, {"--every"}},
      {{"run", "jobs", "--log", noLog}, {noLog}}, {{"run", "jobs", "--log", pipe}, {pipe}},
      {{"run", "jobs", "--trace", pipe}, {pipe}}, {{"run", "jobs", "--log", "src"}, {"src"}},
      {{"run", "jobs", "--trace", "src"}, {"src"}}, {{"run", "jobs", "--date-format", "%"}, {"--date-format", "\"%\""}},
      {{"list", "jobs", "--date-format", "%H:%M"}, {"--date-format", "\"%H:%M\""}},
      {{"check", "jobs", "--date-format", "%d.%m"}, {"--date-format", "\"%d.%m\""}},
      {{"run", "jobs", "--date-format", "plain"}, {"--date-format", "\"plain\""}},
      {{"list", "jobs", "--now", "2026-02-30 10:00:00"}, {"--now", "\"2026-02-30 10:00:00\""}},
      {{"check", "jobs", "--now", "2026-13-01 10:00:00"}, {"--now", "\"2026-13-01 10:00:00\""}},
      {{"run", "jobs", "--now", "yesterday"}, {"--now", "\"yesterday\""}},
  };
  for (const auto& [args, parts] : refused) {
    const RunResult r = Kestrel(args);
    EXPECT_TRUE(r.exitCode == 2 && r.out.empty() && Count({r.err}, "", parts) == 1)
        << ::testing::PrintToString(args) << " exited " << r.exitCode << "\n" << r.out << r.err;
  }
  // Accepted: exit 0, stdout holds the part, nothing on stderr.
  const std::pair<Lines, std::string> accepted[] = {
      {{"list", "--help"}, "Examples:"}, {{"--version"}, "kestrel "},
      {{"run", "jobs", "--events", "jsonl", "--now", "2028-02-29 10:00:00"}, ""},
      {{"run", missing, "--events", "jsonl"}, ""}, {{"list", "jobs", "--events", "jsonl"}, ""},
      {{"list", missing, "--events", "jsonl"}, ""},
  };
  for (const auto& [args, part] : accepted) {
    const RunResult r = Kestrel(args);
    const bool said = part.empty() ? r.out.empty() : r.out.find(part) != std::string::npos;
    EXPECT_TRUE(r.exitCode == 0 && r.err.empty() && said)
        << ::testing::PrintToString(args) << " exited " << r.exitCode << "\n" << r.out << r.err;
  }
  for (const char* good : {"%d.%m.%Y", "%Y-%m-%d", "%m/%d/%y", "%x", "%F"}) {
    EXPECT_EQ(Kestrel({"run", "jobs", "--date-format", good}).exitCode, 0) << good;
  }
}

TEST_F(RunTest, JsonlStreamAndJobFileAfterwards) {
  WriteJob("DoPreview=0\nCounter=2\nInterval=3\n");
  RunResult r = Kestrel(At({"run", "jobs", "--events", "jsonl"}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(DriverEvents(r.out),
            Lines{"{\"event\":\"CurrentJob\",\"sFileName\":\"a.kjb\",\"lIndex\":0,\"lCounter\":1,\"iStatus\":0,"
                  "\"IntervalType\":0,\"IntervalTimeType\":0,\"IntervalTime\":\"00:00:00\",\"IntervalDate\":"
                  "\"22.11.2026\",\"IntervalWeekDay\":0,\"IntervalMonthDay\":1}"});
  EXPECT_EQ(KeyValue(Get(jobs() / "a.kjb"), "Counter"), "1");
  // Given with a trailing "/" the folder is the same; the trace names each procedure.
  r = Kestrel(At({"run", "jobs/", "--events", "jsonl", "--trace", (dir_ / "trace.txt").string()}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  for (const char* part : {" START FAILSAFE 6.60 LITE 22.11.2026,10:00:0",
                           "] ->clsKestrel : Sub ExecuteAllJobs : (sJobDir=jobs/, ",
                           "] <-\tclsKestrel : Sub DriveJob : "}) {
    EXPECT_NE(Get(dir_ / "trace.txt").find(part), std::string::npos) << part;
  }
  const auto lines = DriverEvents(r.out);
  ASSERT_EQ(lines.size(), 4u) << r.out;
  EXPECT_EQ(lines[1], "{\"event\":\"LogMessage\",\"LogMsg\":\"a: Starte Auftrag\",\"MsgID\":3,\"bView\":true,"
                      "\"bFile\":true,\"bSameView\":false,\"bIsLast\":false}");
  EXPECT_EQ(lines[2], "{\"event\":\"LogMessage\",\"LogMsg\":\"a: Auftrag ausgeführt\",\"MsgID\":6,\"bView\":true,"
                      "\"bFile\":true,\"bSameView\":true,\"bIsLast\":true}");
  EXPECT_EQ(nlohmann::json::parse(lines[3])["lCounter"], 3);
  EXPECT_EQ(KeyValue(Get(jobs() / "a.kjb"), "Counter"), "3");
}

TEST_F(RunTest, RunOneRunsTheNamedJobOnlyAndSaysWhyAPathIsNoJobFile) {
  WriteJob("DoPreview=0\nCounter=4\nInactive=0\n");
  WriteJob(kDue, "b");
  const std::string before = Get(jobs() / "a.kjb");
  const RunResult r = Kestrel(At({"run-one", "jobs/a.kjb", "--events", "jsonl"}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const auto lines = DriverEvents(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;  // no CurrentJob event
  EXPECT_NE(lines[0].find("\"LogMsg\":\"a: Starte Auftrag\""), std::string::npos);
  EXPECT_EQ(Get(jobs() / "a.kjb"), before);

  fs::create_directories(jobs() / "folder.kjb");
  Put(jobs() / "notes.txt", "[Job]\nName=notes\n");
  ASSERT_EQ(::mkfifo((jobs() / "pipe.kjb").c_str(), 0600), 0);
  for (const auto& [path, why] : std::map<std::string, std::string>{
           {"jobs/missing.kjb", "does not exist"}, {"jobs/folder.kjb", "is a folder"}, {"jobs", "is a folder"},
           {"jobs/notes.txt", "is not a job file"}, {"jobs/pipe.kjb", "is not a regular file"}}) {
    const RunResult no = Kestrel({"run-one", path});
    EXPECT_TRUE(no.exitCode == 1 && no.out.empty()) << path;
    EXPECT_TRUE(no.err.starts_with("kestrel: " + path + " ") && no.err.find(why) != std::string::npos) << no.err;
  }
}

// A schedule state in another date format never stops the schedule.
TEST_F(RunTest, AScheduleStateInAnotherDateFormatNeverStopsTheSchedule) {
  const struct {
    std::string state, format;
    bool firesNow;
    std::string stateAfter;
  } cases[] = {
      {"21.11.2026", "%d.%m.%Y", true, "22.11.2026"},
      {"2026-11-21", "%d.%m.%Y", true, "22.11.2026"},  // ISO whatever the format
      {"2026-11-21", "%m/%d/%Y", true, "11/22/2026"},
      {"21.11.2026", "%m/%d/%Y", false, "11/21/2026"},  // another format: as if never fired
      {"garbage", "%Y-%m-%d", false, "2026-11-21"},
  };
  const auto run = [&](const std::string& format, const std::string& now) {
    return Kestrel({"run", "jobs", "--now", now, "--date-format", format});
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.state + " read as " + c.format);
    WriteJob("DoPreview=0\nIntervalType=1\nIntervalTimeType=0\nIntervalTime=08:00:00\nIntState=" + c.state + "\n",
             "d");
    const RunResult r = run(c.format, "2026-11-22 10:00:00");
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(r.err.find("Type mismatch"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("d: Starte Auftrag") != std::string::npos, c.firesNow) << r.out;
    EXPECT_NE(Get(jobs() / "d.kjb").find("IntState=" + c.stateAfter + "\n"), std::string::npos);
    EXPECT_TRUE(c.firesNow || run(c.format, "2026-11-22 10:05:00").out.find("d: Starte Auftrag") != std::string::npos);
  }
}

// A dry run previews every job, real ones too: no file, no job file, no external program.
TEST_F(RunTest, ADryRunWritesNothingAndStartsNoProgram) {
  WriteJob(Program("touch \"$1\"\n", (dir_ / "started").string(), "RunOnce=1\n"));
  WriteJob(std::string(kDue) + "Action=2\n", "b");
  const auto before = Files(dir_.root());
  const RunResult r = Kestrel(At({"run", "jobs", "--dry-run"}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("a: Starte Auftrag - Vorschau - Dateien kopieren (keine Aktionen): "), std::string::npos);
  EXPECT_NE(r.out.find("Würde gelöscht: " + S("f.txt")), std::string::npos) << r.out;
  EXPECT_EQ(Files(dir_.root()), before);
}

TEST_F(RunTest, TheExternalProgramRunsBeforeOrAfterTheFileStep) {
  const std::string seen = (dir_ / "seen.txt").string();
  for (const auto& [execution, listing] : std::map<int, std::string>{{0, ""}, {1, "f.txt\n"}}) {
    SCOPED_TRACE(execution);
    EmptyFolders();
    Put(src() / "f.txt", "f");
    WriteJob(Program("ls \"$1\" > \"$2\"\necho program says hello\n", dst().string() + " " + seen,
                     "ExecMaxSec=5\nExecution=" + std::to_string(execution) + "\n"));
    const RunResult r = RunJobs();  // every line of stdout is JSON: the program's own output went elsewhere
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Get(seen), listing);
    EXPECT_TRUE(fs::exists(dst() / "f.txt") && r.err.find("program says hello") != std::string::npos) << r.err;
  }
  // A program that cannot be started is named on stderr (exit 4), and the job goes on.
  fs::remove(dst() / "f.txt");
  const std::string missing = (dir_ / "no such program").string();
  WriteJob(std::string(kDue) + "ExecDo=1\nExecWait=1\nExecPath=" + missing + "\n");
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 4) << r.err;
  EXPECT_NE(r.err.find("kestrel: External program error: Problems while executing / " + missing +
                       " / Program has not been started!\n"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::exists(dst() / "f.txt") && r.out.find("Program has not been started") == std::string::npos);
}

// The trap's reports go to stderr and the error log (or where --error-log says), a run that
// reports nothing leaves none behind, and list and check write none.
TEST_F(RunTest, TrapErrorsGoToStderrAndTheErrorLog) {
  WriteJob("Counter=abc\n");
  for (const char* answer : {"leave", "retry", "ignore"}) {
    fs::remove(dir_ / "error.log");
    const RunResult r = Kestrel(At({"run", "jobs", "--on-error", answer}));
    EXPECT_EQ(r.exitCode, 3) << answer;  // a job file that does not read
    auto reports = SplitLines(r.err);
    // The host's own hint (which command explains the file) is no report of the trap.
    ASSERT_GE(reports.size(), 2u) << answer;
    EXPECT_NE(reports.back().find("kestrel check jobs"), std::string::npos) << r.err;
    reports.pop_back();
    EXPECT_NE(reports[0].find("OrvDev FailSafe reports kestrel program error #13"), std::string::npos);
    // A persistent error is retried 3 times, then left.
    EXPECT_LE(reports.size(), std::string(answer) == "retry" ? 4u : 1u) << r.err;
    EXPECT_EQ(SplitLines(Get(dir_ / "error.log")), reports);
  }
  fs::remove(dir_ / "error.log");
  EXPECT_EQ(Kestrel({"run", "jobs", "--error-log", "trap.txt"}).exitCode, 3);
  EXPECT_NE(Get(dir_ / "trap.txt").find("program error"), std::string::npos);
  const RunResult list = Kestrel({"list", "jobs", "--events", "jsonl"});
  EXPECT_TRUE(list.exitCode == 1 && list.out.empty()) << list.out;
  EXPECT_TRUE(list.err.find("a.kjb") != std::string::npos && list.err.find("Counter") != std::string::npos) << list.err;
  EXPECT_EQ(Kestrel({"check", "jobs"}).exitCode, 1);
  EXPECT_FALSE(fs::exists(dir_ / "error.log"));
  WriteJob(kDue);
  const RunResult clean = Kestrel({"run", "jobs", "--error-log", "none.txt"});
  EXPECT_TRUE(clean.exitCode == 0 && clean.err.find("kestrel check") == std::string::npos) << clean.err;
  EXPECT_FALSE(fs::exists(dir_ / "none.txt"));
}

// The job's program holds the pass until the file "go" appears. The job's first line reaches
// the reader of stdout while the pass waits (its output is buffered, but never held back over a
// wait), a status line asked for comes on stderr while it waits, and a SIGINT ends the job with
// "t2", never with "t6", and the pass with 130. (That no status line comes unasked could only be
// shown by waiting for a time, which this suite does not do.)
TEST_F(RunTest, AHeldPassShowsProgressWhenAskedAndStopsOnSigint) {
  const fs::path go = dir_ / "go", out = dir_ / "out", err = dir_ / "err";
  WriteJob(Program("for i in $(seq 2000); do [ -e \"$1\" ] && exit 0; sleep 0.05; done\n", go.string(),
                   "Execution=0\nExecMaxSec=600\n"));
  const auto said = [](const fs::path& file, const std::string& text) {
    return Get(file).find(text) != std::string::npos;
  };
  const pid_t pid = StartKestrel(At({"run", "jobs", "--events", "jsonl", "--progress", "1"}), dir_.root(),
                                 {.outFile = out.string(), .errFile = err.string()});
  ASSERT_TRUE(Eventually([&] { return Catches(pid, SIGINT); }));
  ASSERT_TRUE(Eventually([&] { return said(out, "a: Starte Auftrag"); }));
  EXPECT_TRUE(Eventually([&] { return said(err, "kestrel: progress: a.kjb: file "); })) << Get(err);
  ASSERT_EQ(::kill(pid, SIGINT), 0);
  // The handler is installed to run once: when it no longer catches, it has seen the signal.
  ASSERT_TRUE(Eventually([&] { return !Catches(pid, SIGINT); }));
  Put(go, "");
  EXPECT_EQ(WaitFor(pid), 130);
  EXPECT_TRUE(said(out, "\"LogMsg\":\"a: Aktion 'Aufträge ausführen' abgebrochen\",\"MsgID\":2") &&
              !said(out, "Auftrag ausgeführt")) << Get(out);
}

// Passes follow each other at the interval; SIGHUP reopens the log (after a rotation); SIGTERM
// ends the wait between passes at once (with an interval of an hour, ending at all shows it),
// and no pass is cut short.
TEST_F(RunTest, DaemonRunsEveryIntervalReopensItsLogAndStopsOnSigterm) {
  WriteJob(kDue);
  const fs::path out = dir_ / "out", log = dir_ / "log", rotated = dir_ / "log.1";
  const auto starts = [&](const fs::path& file) { return Count(SplitLines(Get(file)), "", {"a: Starte Auftrag"}); };
  for (const char* every : {"1", "3600"}) {
    SCOPED_TRACE(every);
    fs::remove(log);
    fs::remove(rotated);
    const pid_t pid =
        StartKestrel(At({"daemon", "jobs", "--every", every, "--events", "jsonl", "--log", log.string()}),
                     dir_.root(), {.outFile = out.string(), .errFile = (dir_ / "err").string()});
    ASSERT_TRUE(Eventually([&] { return Catches(pid, SIGTERM); }));
    const int passes = every == std::string("1") ? 2 : 1;
    ASSERT_TRUE(Eventually([&] { return starts(log) >= passes; })) << Get(out);
    if (passes == 2) {
      fs::rename(log, rotated);
      ::kill(pid, SIGHUP);
      EXPECT_TRUE(Eventually([&] { return starts(log) >= 1; }));
    }
    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    EXPECT_EQ(WaitFor(pid, std::chrono::seconds(30)), 130);
    EXPECT_EQ(Get(dir_ / "err"), "");
    const Lines lines = SplitLines(Get(rotated) + Get(log));
    EXPECT_EQ(Count(lines, "", {"a: Starte Auftrag"}), Count(lines, "", {"a: Auftrag ausgeführt"}));
    for (const auto& line : SplitLines(Get(out))) EXPECT_TRUE(nlohmann::json::accept(line)) << line;
    // The log's clock: the second pass starts at least a second boundary after the first.
    Lines stamps;
    for (const auto& l : lines) if (l.find("a: Starte Auftrag") != std::string::npos) stamps.push_back(l.substr(0, 19));
    EXPECT_TRUE(passes == 1 || stamps.at(0) < stamps.at(1)) << ::testing::PrintToString(stamps);
  }
  EXPECT_EQ(KeyValue(Get(jobs() / "a.kjb"), "Counter"), "1");
}

// What a run must never do whatever a job file says or the trap answers: write outside its
// folders, act on a selection that a bad pattern made, remove after an incomplete walk, or leave
// the temporaries of a killed run behind.
using RunSafety = JobFolderTest;

// The job's name is written into the names of its state file and archive: a name that is not
// a plain file name runs nothing and writes nothing.
TEST_F(RunSafety, AJobNameThatIsNoPlainFileNameRunsNothing) {
  Put(src() / "a.txt", "a");
  for (const std::string& name : {std::string("../x"), std::string("x\0y", 3), std::string("..")}) {
    SCOPED_TRACE(name);
    fs::remove_all(jobs());
    Put(jobs() / "job.kjb", "[Job]\nName=" + name + "\nAction=3\nFrom=" + src().string() + "\nTo=" + dst().string() +
                                "\n" + kDue);
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Files(dir_.root()).size(), 2u) << r.out;  // the job file and a.txt only
  }
}

// Whatever the trap answers, a pattern that does not compile selects nothing.
TEST_F(RunSafety, APatternThatDoesNotCompileFailsTheJobBeforeAnyFile) {
  for (int i = 0; i < 5; ++i) Put(src() / ("d/f" + std::to_string(i) + ".tmp"), "x");
  WriteJob("Action=2\nSubFolder=1\nDoFileMatch=1\nUseFileRegEx=1\nFileName=(tmp\n" + std::string(kDue));
  for (const char* answer : {"ignore", "leave", "abort", "retry"}) {
    const RunResult r = RunJobs({"--on-error", answer});
    EXPECT_EQ(r.exitCode, 1) << answer;
    EXPECT_EQ(Files(src()).size(), 5u) << r.out;
    EXPECT_TRUE(Has(r.logs, "a: Auftrag ausgeführt (mit Fehler)")) << r.out;
  }
}

// A name that the pattern cannot be tested on (the match limit) leaves the primary walk
// incomplete: nothing the primary holds may be removed from the secondary folder.
TEST_F(RunSafety, NoRemovalAfterAWalkThatAPatternCutShort) {
  WriteJob("Action=5\nSyncDelete=1\nDoFileMatch=1\nUseFileRegEx=1\nFileName=^(a|a)+$\n" + std::string(kDue));
  for (const char* answer : {"ignore", "leave"}) {
    EmptyFolders();
    // Several, so that one comes early in whatever order the folder is listed.
    for (int i = 0; i < 10; ++i) Put(src() / (std::string(40, 'a') + std::to_string(i) + ".txt"), "x", 1'600'000'000);
    for (int i = 0; i < 30; ++i) {
      Put(src() / ("f" + std::to_string(i) + ".txt"), "x", 1'600'000'000);
      Put(dst() / ("f" + std::to_string(i) + ".txt"), "x", 1'600'000'000);
    }
    Put(dst() / "only-here.txt", "y", 1'600'000'000);
    const RunResult r = RunJobs({"--on-error", answer});
    for (int i = 0; i < 30; ++i) EXPECT_TRUE(fs::exists(dst() / ("f" + std::to_string(i) + ".txt"))) << answer << i;
  }
}

// Temporaries of a killed run are removed by the next pass that may write: in the job folder
// always, in the folders a job walks unless the job is a preview.
TEST_F(RunSafety, LeftoversOfAKilledRunAreRemovedByTheNextRun) {
  const fs::path state = jobs() / ".a.kjb.kestrel-tmp-12345";
  const fs::path walked[] = {src() / ".kestrel-0123456789abcdef.tmp",
                             src() / "d/.kestrel-0123456789abcdef.tmp.Ab3dEf"};
  for (const bool preview : {true, false}) {
    SCOPED_TRACE(preview);
    Put(state, "partial");
    for (const auto& p : walked) Put(p, "partial");
    Put(src() / "d/a.txt", "a");
    WriteJob(std::string("SubFolder=1\nFStruct=1\nCounter=1\nInterval=1\nDoPreview=") + (preview ? "1\n" : "0\n"));
    const RunResult r = RunJobs({"--preview-jobs"});
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_FALSE(fs::exists(state));
    for (const auto& p : walked) EXPECT_EQ(fs::exists(p), preview) << p;
    EXPECT_EQ(fs::exists(dst() / "d/a.txt"), !preview);
  }
}

}  // namespace
}  // namespace e2e
