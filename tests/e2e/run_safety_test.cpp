// What a run must never do whatever a job file says or the trap answers: write outside its
// folders, act on a selection that a bad pattern made, remove after an incomplete walk, or leave
// the temporaries of a killed run behind.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

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
