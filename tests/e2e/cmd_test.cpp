// The external program of a job, seen through `kestrel run`.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class ExternalProgram : public JobFolderTest {
 protected:
  ExternalProgram() {
    Put(src() / "a.txt", "payload\n");
    // Records what the destination folder holds when the program runs, and says hello on stdout.
    Put(dir_ / "record.sh", "#!/bin/sh\nls \"$1\" > \"$2\"\necho program says hello\n");
    fs::permissions(dir_ / "record.sh", fs::perms::owner_all);
  }
  void WriteJob(int execution, const std::string& execPath, const std::string& execParam) {
    JobFolderTest::WriteJob("Action=0\nDoPreview=0\nCounter=1\nExecDo=1\nExecution=" +
                            std::to_string(execution) + "\nExecPath=" + execPath +
                            "\nExecParam=" + execParam + "\nExecWait=1\nExecMaxSec=5\n");
  }
  void WriteRecordingJob(int execution) {
    WriteJob(execution, (dir_ / "record.sh").string(),
             dst().string() + " " + (dir_ / "seen.txt").string());
  }
};

TEST_F(ExternalProgram, RunsBeforeOrAfterTheFileStep) {
  struct Case {
    int execution;
    std::string seen;  // the destination folder's listing when the program ran
  };
  for (const Case& c : {Case{0, ""}, Case{1, "a.txt\n"}}) {
    SCOPED_TRACE(c.execution);
    fs::remove_all(dst());
    fs::create_directories(dst());
    fs::remove(dir_ / "seen.txt");
    WriteRecordingJob(c.execution);
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Get(dir_ / "seen.txt"), c.seen);
    EXPECT_TRUE(fs::exists(dst() / "a.txt"));
    EXPECT_NE(r.err.find("program says hello"), std::string::npos) << r.err;
    LogEvents(r.out);  // every line of stdout is JSON: the program's own output went elsewhere
  }
}

TEST_F(ExternalProgram, StartFailureIsReportedOnStderrAndTheJobGoesOn) {
  const std::string missing = (dir_ / "no such program").string();
  WriteJob(0, missing, "");
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 4) << r.err;  // its program failed
  EXPECT_NE(r.err.find("kestrel: External program error: Problems while executing / " + missing +
                       " / Program has not been started!\n"),
            std::string::npos)
      << r.err;
  EXPECT_TRUE(fs::exists(dst() / "a.txt"));
  EXPECT_EQ(r.out.find("Program has not been started"), std::string::npos);
  LogEvents(r.out);
}

TEST_F(ExternalProgram, DryRunStartsNoProgram) {
  WriteRecordingJob(0);
  const RunResult r = RunJobs({"--dry-run"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_FALSE(fs::exists(dir_ / "seen.txt"));
  EXPECT_FALSE(fs::exists(dst() / "a.txt"));
}

}  // namespace
}  // namespace e2e
