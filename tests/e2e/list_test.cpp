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

}  // namespace
}  // namespace e2e
