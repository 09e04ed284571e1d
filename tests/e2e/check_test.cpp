// kestrel check: one verdict per job file, nothing written.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class Check : public JobFolderTest {
 protected:
  Check() : JobFolderTest("e2e-check") {}
  RunResult Kestrel(const std::vector<std::string>& args) const { return JobFolderTest::Kestrel(At(args)); }
  // A job file between src and dst; `extra` lines go into [Job].
  void Job(const std::string& file, const std::string& name, const std::string& extra) const {
    Put(dir_ / "jobs" / file, "[Job]\nName=" + name + "\nFrom=" + src().string() +
                                  "\nTo=" + dst().string() + "\n" + extra);
  }
};

std::map<std::string, nlohmann::json> ByFile(const std::string& out) {
  std::map<std::string, nlohmann::json> m;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    const auto o = nlohmann::json::parse(line);
    m[o["file"].get<std::string>()] = o;
  }
  return m;
}

bool Mentions(const nlohmann::json& list, const std::string& part) {
  for (const auto& s : list) {
    if (s.get<std::string>().find(part) != std::string::npos) return true;
  }
  return false;
}

TEST_F(Check, SaysOfEachJobWhetherItRunsAndWhatIsWrong) {
  const std::string runs = "DoPreview=0\nCounter=1\nInterval=1\n";
  struct Case {
    std::string file, name, extra;
    bool valid, due;
    std::string why, problem;  // parts of a reason and of a problem; empty: none expected
  } cases[] = {
      {"good.kjb", "good", runs, true, true, "Counter is 1", ""},
      {"preview.kjb", "preview", "Counter=1\nInterval=1\n", true, false, "DoPreview is 1", ""},
      {"zero.kjb", "zero", "DoPreview=0\n", true, false, "Counter is 0", "never runs"},
      {"later.kjb", "later", "DoPreview=0\nCounter=3\n", true, false, "2 more pass", ""},
      {"typo.kjb", "typo", "SubFolder=yes\n", false, false, "", "SubFolder"},
      {"off.kjb", "off", runs + "Inactive=1\n", true, false, "inactive", ""},
      {"once.kjb", "once", runs + "RunOnce=1\nStatus=5\n", true, false, "run-once", ""},
      {"other.kjb", "elsewhere", runs, true, true, "", "differs from the file name"},
      {"dup1.kjb", "dup", runs, true, true, "", "also the Name of dup2.kjb"},
      {"dup2.kjb", "dup", runs, true, true, "", "also the Name of dup1.kjb"},
      {"slash.kjb", "../x", runs, true, false, "", "not a plain file name"},
      {"pattern.kjb", "pattern", runs + "DoFileMatch=1\nFilename=(\n", true, true, "", "does not compile"},
      {"daily.kjb", "daily", "DoPreview=0\nIntervalType=1\nIntervalTime=08:00:00\nIntState=21.11.2026\n",
       true, true, "fires now", ""},
      {"tomorrow.kjb", "tomorrow", "DoPreview=0\nIntervalType=1\nIntervalTime=08:00:00\nIntState=22.11.2026\n",
       true, false, "2026-11-23 08:00:00", ""},
      {"fresh.kjb", "fresh", "DoPreview=0\nIntervalType=1\nIntervalTime=08:00:00\n", true, false,
       "only records IntState", ""},
      {"badtime.kjb", "badtime", "DoPreview=0\nIntervalType=1\nIntervalTime=8 o'clock\n", true, false, "",
       "not a time of day"},
  };
  for (const Case& c : cases) Job(c.file, c.name, c.extra);
  Put(dir_ / "jobs/nofolder.kjb", "[Job]\nName=nofolder\nFrom=" + (dir_ / "gone").string() +
                                     "\nTo=" + (dir_ / "src/sub").string() + "\n" + runs);
  Put(dir_ / "jobs/nested.kjb", "[Job]\nName=nested\nFrom=" + (dir_ / "src").string() +
                                   "\nTo=" + (dir_ / "src/../src/out").string() + "\n" + runs);
  fs::create_directories(dir_ / "src/out");
  const auto before = Files(dir_.root());

  const RunResult r = Kestrel({"check", "jobs", "--events", "jsonl"});
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_EQ(Files(dir_.root()), before) << "check must write nothing";
  EXPECT_FALSE(fs::exists(dir_ / "error.log"));
  const auto got = ByFile(r.out);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    ASSERT_EQ(got.count(c.file), 1u) << r.out;
    const auto& o = got.at(c.file);
    EXPECT_EQ(o["valid"], c.valid) << o.dump();
    EXPECT_EQ(o["due"], c.due) << o.dump();
    if (!c.why.empty()) {
      EXPECT_TRUE(Mentions(o["why"], c.why) || (o["next"].is_string() && o["next"].get<std::string>() == c.why))
          << o.dump();
    }
    if (c.problem.empty()) {
      EXPECT_TRUE(o["problems"].empty()) << o.dump();
    } else {
      EXPECT_TRUE(Mentions(o["problems"], c.problem)) << o.dump();
    }
  }
  EXPECT_TRUE(Mentions(got.at("nofolder.kjb")["problems"], "does not exist"));
  EXPECT_TRUE(Mentions(got.at("nested.kjb")["problems"], "inside From"));

  // Text: one block per job file, a count at the end.
  const RunResult text = Kestrel({"check", "jobs"});
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_NE(text.out.find("typo.kjb\n  invalid: "), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("\"yes\" is not a number"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("18 job file(s)"), std::string::npos) << text.out;
}

TEST_F(Check, AllWellExitsZeroAndFileNarrowsToOne) {
  Job("good.kjb", "good", "DoPreview=0\nCounter=1\nInterval=1\n");
  Job("bad.kjb", "bad", "Counter=x\n");
  const RunResult one = Kestrel({"check", "jobs", "--file", "good.kjb"});
  EXPECT_EQ(one.exitCode, 0) << one.out << one.err;
  EXPECT_NE(one.out.find("due now: yes"), std::string::npos) << one.out;
  EXPECT_EQ(one.out.find("bad.kjb"), std::string::npos) << one.out;
  EXPECT_EQ(Kestrel({"check", "jobs"}).exitCode, 1);
  const RunResult missing = Kestrel({"check", "jobs", "--file", "none.kjb"});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_NE(missing.out.find("does not exist"), std::string::npos) << missing.out;
}

TEST_F(Check, RunHintsAtCheckWhenAJobFileDoesNotRead) {
  Job("bad.kjb", "bad", "Counter=x\n");
  const RunResult r = Kestrel({"run", "jobs"});
  EXPECT_NE(r.err.find("kestrel check jobs"), std::string::npos) << r.err;
  Job("bad.kjb", "bad", "Counter=1\n");
  EXPECT_EQ(Kestrel({"run", "jobs"}).err.find("kestrel check"), std::string::npos);
}

}  // namespace
}  // namespace e2e

namespace e2e {
namespace {

TEST(RunOne, SaysWhyAPathIsNoJobFile) {
  const Scratch dir_("e2e-runone");
  fs::create_directories(dir_ / "jobs/folder.kjb");
  Put(dir_ / "jobs/notes.txt", "[Job]\nName=notes\n");
  ASSERT_EQ(::mkfifo((dir_ / "jobs/pipe.kjb").c_str(), 0600), 0);
  const struct {
    std::string path, why;
  } cases[] = {{"jobs/missing.kjb", "does not exist"},
               {"jobs/folder.kjb", "is a folder"},
               {"jobs", "is a folder"},
               {"jobs/notes.txt", "is not a job file"},
               {"jobs/pipe.kjb", "is not a regular file"}};
  for (const auto& c : cases) {
    const RunResult r = RunKestrel({"run-one", c.path}, dir_.root());
    EXPECT_EQ(r.exitCode, 1) << c.path;
    EXPECT_TRUE(r.err.starts_with("kestrel: " + c.path + " ")) << r.err;
    EXPECT_NE(r.err.find(c.why), std::string::npos) << c.path << ": " << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
  }
}

}  // namespace
}  // namespace e2e
