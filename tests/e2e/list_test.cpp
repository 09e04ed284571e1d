// kestrel list, run as a user runs it.
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

TEST_F(List, TakesOnlyJobFilesAndNarrowsToOne) {
  Plant(jobs(), {{"x.txt", "[Job]\nName=x\n"}, {"b.kjb", "[Job]\nName=bee\nAction=1\n"},
                 {"A.KJB", "[Job]\nName=ay\nAction=3\nInactive=1\n"}});
  const RunResult text = Kestrel(At({"list", "jobs"}));
  EXPECT_EQ(text.exitCode, 0) << text.err;
  for (const char* part : {"bee", "ay", "move", "zip"}) EXPECT_NE(text.out.find(part), std::string::npos) << part;
  EXPECT_EQ(text.out.find("x.txt"), std::string::npos) << text.out;
  Lines got;  // "N name" per record, N counting in listing order
  for (const auto& j : Records(Kestrel(At({"list", "jobs/", "--events", "jsonl"})).out)) {
    got.push_back(j["record"].dump() + " " + j["JobName"].get<std::string>());
  }
  EXPECT_TRUE((got == Lines{"0 ay", "1 bee"} || got == Lines{"0 bee", "1 ay"})) << ::testing::PrintToString(got);
  const auto one = Records(Kestrel(At({"list", "jobs", "--file", "b.kjb", "--events", "jsonl"})).out);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0]["JobName"], "bee");
}

// Every field, in the record's order; a key the file lacks takes its default, and the dates
// default to the day of --now. A byte that is no UTF-8 makes the file Windows-1252: the name
// comes out as the character that byte stands for.
TEST_F(List, JsonlCarriesAll106FieldsWithTheirDefaults) {
  Put(jobs() / "a.kjb", "[Job]\nName=caf\xE9\n");
  const RunResult r = Kestrel(At({"list", "jobs", "--events", "jsonl"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto records = Records(r.out);
  ASSERT_EQ(records.size(), 1u);
  const nlohmann::ordered_json& j = records[0];
  ASSERT_EQ(j.size(), 107u);  // "record" and the 106 fields
  EXPECT_EQ(j.begin().key(), "record");
  EXPECT_EQ(std::next(j.begin()).key(), "Action");
  const nlohmann::json expected = {{"DoPreview", 1}, {"Counter", 0}, {"JobName", "caf\xC3\xA9"}, {"FileSize", 0.0},
                                   {"IntervalTime", "00:00:00"}, {"IntervalDate", "22.11.2026"},
                                   {"DateFrom", "22.11.2026"}, {"DateTo", "22.11.2026"}};
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(j[key], value) << key;
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

}  // namespace
}  // namespace e2e
