// kestrel list and kestrel check, run as a user runs them: what they read of job files, and
// one verdict per job file from check, which writes nothing.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

// One JSON object per line, keys in the order written.
std::vector<nlohmann::ordered_json> Records(const std::string& out) {
  std::vector<nlohmann::ordered_json> records;
  for (const std::string& line : SplitLines(out)) records.push_back(nlohmann::ordered_json::parse(line));
  return records;
}

using List = JobFolderTest;

// Only job files, in listing order, as a table for people or one object per record; --file
// narrows to one. A record has every field in its order; a key the file lacks takes its default,
// and the dates default to the day of --now. A byte that is no UTF-8 makes the file Windows-1252:
// the name comes out as the character that byte stands for.
TEST_F(List, TakesOnlyJobFilesWithAll106FieldsAndNarrowsToOne) {
  const std::string cafe = "caf\xC3\xA9";
  Plant(jobs(), {{"x.txt", "[Job]\nName=x\n"}, {"b.kjb", "[Job]\nName=bee\nAction=1\n"},
                 {"A.KJB", "[Job]\nName=caf\xE9\nAction=3\nInactive=1\n"}});
  const RunResult text = Kestrel(At({"list", "jobs"}));
  EXPECT_EQ(text.exitCode, 0) << text.err;
  for (const char* part : {"bee", "caf", "move", "zip"}) EXPECT_NE(text.out.find(part), std::string::npos) << part;
  EXPECT_EQ(text.out.find("x.txt"), std::string::npos) << text.out;
  Lines got;  // "N name" per record, N counting in listing order
  nlohmann::ordered_json a;
  for (const auto& j : Records(Kestrel(At({"list", "jobs/", "--events", "jsonl"})).out)) {
    got.push_back(j["record"].dump() + " " + j["JobName"].get<std::string>());
    if (j["JobName"] == cafe) a = j;
  }
  EXPECT_TRUE((got == Lines{"0 " + cafe, "1 bee"} || got == Lines{"0 bee", "1 " + cafe}))
      << ::testing::PrintToString(got);
  ASSERT_EQ(a.size(), 107u);  // "record" and the 106 fields
  EXPECT_EQ(a.begin().key(), "record");
  EXPECT_EQ(std::next(a.begin()).key(), "Action");
  const nlohmann::json expected = {{"DoPreview", 1}, {"Counter", 0}, {"FileSize", 0.0}, {"IntervalTime", "00:00:00"},
                                   {"IntervalDate", "22.11.2026"}, {"DateFrom", "22.11.2026"},
                                   {"DateTo", "22.11.2026"}};
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(a[key], value) << key;
  const auto one = Records(Kestrel(At({"list", "jobs", "--file", "b.kjb", "--events", "jsonl"})).out);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0]["JobName"], "bee");
}

// The sample jobs of the repository read without an error, each in the file named after its
// Name (where the run driver writes its state), over the demo's folders.
TEST_F(List, TheExampleJobs) {
  const RunResult r = RunKestrel(At({"list", "examples/jobs", "--events", "jsonl"}), KESTREL_SOURCE_DIR);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::set<std::int64_t> actions;
  for (const auto& j : Records(r.out)) {
    actions.insert(j["Action"].get<std::int64_t>());
    const fs::path file = fs::path(KESTREL_SOURCE_DIR) / "examples/jobs" / (j["JobName"].get<std::string>() + ".kjb");
    EXPECT_TRUE(fs::exists(file)) << file;
    EXPECT_TRUE(j["From"].get<std::string>().starts_with("examples/demo/")) << j["From"];
  }
  EXPECT_EQ(actions, (std::set<std::int64_t>{0, 1, 2, 3, 5}));
}

using Check = JobFolderTest;

TEST_F(Check, SaysOfEachJobWhetherItRunsAndWhatIsWrong) {
  const std::string runs = kDue, daily = "DoPreview=0\nIntervalType=1\nIntervalTime=08:00:00\n";
  const struct {
    std::string name, extra;
    bool valid, due;
    std::string why, problem;  // parts of a reason and of a problem; empty: none expected
    std::string jobName = {};  // when not the file's name
    fs::path from = {}, to = {};
  } cases[] = {
      {"good", runs, true, true, "Counter is 1", ""},
      {"preview", "Counter=1\nInterval=1\n", true, false, "DoPreview is 1", ""},
      {"zero", "DoPreview=0\n", true, false, "Counter is 0", "never runs"},
      {"later", "DoPreview=0\nCounter=3\n", true, false, "2 more pass", ""},
      {"typo", "SubFolder=yes\n", false, false, "", "SubFolder"},
      {"off", runs + "Inactive=1\n", true, false, "inactive", ""},
      {"once", runs + "RunOnce=1\nStatus=5\n", true, false, "run-once", ""},
      {"dup1", runs, true, true, "", "also the Name of dup2.kjb", "dup"},
      {"dup2", runs, true, true, "", "also the Name of dup1.kjb", "dup"},
      {"pattern", runs + "DoFileMatch=1\nFilename=(\n", true, true, "", "does not compile"},
      {"daily", daily + "IntState=21.11.2026\n", true, true, "fires now", ""},
      {"tomorrow", daily + "IntState=22.11.2026\n", true, false, "2026-11-23 08:00:00", ""},
      {"fresh", daily, true, false, "only records IntState", ""},
      {"badtime", "DoPreview=0\nIntervalType=1\nIntervalTime=8 o'clock\n", true, false, "", "not a time of day"},
      {"other", runs, true, true, "", "differs from the file name", "elsewhere"},
      {"slash", runs, true, false, "", "not a plain file name", "../x"},
      {"nofolder", runs, true, false, "", "does not exist", "", dir_ / "gone", src() / "sub"},
      {"nested", runs, true, true, "", "inside From", "", src(), dir_ / "src/../src/out"},
  };
  for (const auto& c : cases) {
    Put(jobs() / (c.name + ".kjb"), "[Job]\nName=" + (c.jobName.empty() ? c.name : c.jobName) + "\nFrom=" +
                                         (c.from.empty() ? src() : c.from).string() + "\nTo=" +
                                         (c.to.empty() ? dst() : c.to).string() + "\n" + c.extra);
  }
  fs::create_directories(src() / "out");
  const auto before = Files(dir_.root());

  const RunResult r = Kestrel(At({"check", "jobs", "--events", "jsonl"}));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_EQ(Files(dir_.root()), before) << "check must write nothing";
  std::map<std::string, nlohmann::ordered_json> got;
  for (const auto& o : Records(r.out)) got[o["file"].get<std::string>()] = o;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(got.count(c.name + ".kjb"), 1u) << r.out;
    const auto& o = got.at(c.name + ".kjb");
    EXPECT_TRUE(o["valid"] == c.valid && o["due"] == c.due) << "want valid, due " << c.valid << c.due << " " << o;
    // A part of a reason or a problem is looked for in the list as JSON text.
    EXPECT_TRUE(c.why.empty() || o["why"].dump().find(c.why) != std::string::npos || o["next"] == c.why) << o.dump();
    EXPECT_TRUE(c.problem.empty() ? o["problems"].empty()
                                  : o["problems"].dump().find(c.problem) != std::string::npos) << o.dump();
  }
  // Text: one block per job file, a count at the end; --file narrows to one job file: all well
  // exits 0.
  for (const auto& [file, code, parts] : std::vector<std::tuple<std::string, int, Lines>>{
           {"", 1, {"typo.kjb\n  invalid: ", "\"yes\" is not a number", "18 job file(s)"}},
           {"good.kjb", 0, {"due now: yes", "\n1 job file(s)"}}, {"none.kjb", 1, {"does not exist"}}}) {
    const RunResult text = Kestrel(At(file.empty() ? Lines{"check", "jobs"} : Lines{"check", "jobs", "--file", file}));
    EXPECT_EQ(text.exitCode, code) << file << text.err;
    for (const std::string& part : parts) EXPECT_NE(text.out.find(part), std::string::npos) << part << text.out;
  }
}

}  // namespace
}  // namespace e2e
