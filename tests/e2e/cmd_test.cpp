// The external program of a job, seen through `kestrel run`.
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Result {
  int exit = -1;
  std::string out, err;
};

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void Put(const fs::path& p, const std::string& text) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

class ExternalProgram : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    root_ = fs::temp_directory_path() / ("kestrel-e2e-cmd-" + std::to_string(rd()));
    fs::create_directories(root_ / "jobs");
    fs::create_directories(root_ / "dst");
    Put(root_ / "src" / "a.txt", "payload\n");
    // Records what the destination folder holds when the program runs, and says hello on stdout.
    Put(root_ / "record.sh", "#!/bin/sh\nls \"$1\" > \"$2\"\necho program says hello\n");
    fs::permissions(root_ / "record.sh", fs::perms::owner_all);
    if (Run("run --help").out.find("--events") == std::string::npos) {
      GTEST_SKIP() << "kestrel run is not built yet";
    }
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  void WriteJob(int execution, const std::string& execPath, const std::string& execParam) {
    Put(root_ / "jobs" / "a.kjb",
        "[Job]\nName=a\nFrom=" + (root_ / "src").string() + "\nTo=" + (root_ / "dst").string() +
            "\nAction=0\nDoPreview=0\nCounter=1\nExecDo=1\nExecution=" +
            std::to_string(execution) + "\nExecPath=" + execPath + "\nExecParam=" + execParam +
            "\nExecWait=1\nExecMaxSec=5\n");
  }
  std::string RecordParams() const {
    return (root_ / "dst").string() + " " + (root_ / "seen.txt").string();
  }

  Result Run(const std::string& args) const {
    const fs::path out = root_ / "stdout", err = root_ / "stderr";
    const std::string cmd = Quote(KESTREL_BIN) + " " + args + " >" + Quote(out.string()) +
                            " 2>" + Quote(err.string());
    const int status = std::system(cmd.c_str());
    Result r;
    r.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = Slurp(out);
    r.err = Slurp(err);
    return r;
  }
  Result RunJobs(const std::string& options = "") const {
    return Run("run " + Quote((root_ / "jobs").string()) + " --events jsonl " + options);
  }

  fs::path root_;
};

// Every line of stdout is one JSON event: the program's own output went elsewhere.
void ExpectCleanStream(const Result& r) {
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(nlohmann::json::accept(line)) << line;
  }
}

TEST_F(ExternalProgram, RunsBeforeOrAfterTheFileStep) {
  struct Case {
    int execution;
    std::string seen;  // the destination folder's listing when the program ran
  };
  for (const Case& c : {Case{0, ""}, Case{1, "a.txt\n"}}) {
    SCOPED_TRACE(c.execution);
    fs::remove_all(root_ / "dst");
    fs::create_directories(root_ / "dst");
    fs::remove(root_ / "seen.txt");
    WriteJob(c.execution, (root_ / "record.sh").string(), RecordParams());
    const Result r = RunJobs();
    EXPECT_EQ(r.exit, 0) << r.err;
    EXPECT_EQ(Slurp(root_ / "seen.txt"), c.seen);
    EXPECT_TRUE(fs::exists(root_ / "dst" / "a.txt"));
    EXPECT_NE(r.err.find("program says hello"), std::string::npos) << r.err;
    ExpectCleanStream(r);
  }
}

TEST_F(ExternalProgram, StartFailureIsReportedOnStderrAndTheJobGoesOn) {
  const std::string missing = (root_ / "no such program").string();
  WriteJob(0, missing, "");
  const Result r = RunJobs();
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_NE(r.err.find("kestrel: External program error: Problems while executing / " + missing +
                       " / Program has not been started!\n"),
            std::string::npos)
      << r.err;
  EXPECT_TRUE(fs::exists(root_ / "dst" / "a.txt"));
  EXPECT_EQ(r.out.find("Program has not been started"), std::string::npos);
  ExpectCleanStream(r);
}

TEST_F(ExternalProgram, DryRunStartsNoProgram) {
  WriteJob(0, (root_ / "record.sh").string(), RecordParams());
  const Result r = RunJobs("--dry-run");
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_FALSE(fs::exists(root_ / "seen.txt"));
  EXPECT_FALSE(fs::exists(root_ / "dst" / "a.txt"));
}

}  // namespace
