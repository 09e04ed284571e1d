// kestrel list, run as a user runs it.
#include "e2e/E2eSupport.h"

#include <set>

namespace e2e {
namespace {

class List : public JobFolderTest {
 protected:
  List() : JobFolderTest("e2e-list") {}
};

// One JSON object per line, keys in the order written.
std::vector<nlohmann::ordered_json> Lines(const std::string& out) {
  std::vector<nlohmann::ordered_json> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(nlohmann::ordered_json::parse(line));
  }
  return lines;
}

TEST_F(List, TakesOnlyJobFiles) {
  Put(dir_ / "jobs/x.txt", "[Job]\nName=x\n");
  Put(dir_ / "jobs/b.kjb", "[Job]\nName=bee\nAction=1\n");
  Put(dir_ / "jobs/A.KJB", "[Job]\nName=ay\nAction=3\nInactive=1\n");
  const RunResult text = Kestrel(At({"list", "jobs"}));
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_NE(text.out.find("bee"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("ay"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("move"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("zip"), std::string::npos) << text.out;
  EXPECT_EQ(text.out.find("x.txt"), std::string::npos) << text.out;

  const RunResult json = Kestrel(At({"list", "jobs/", "--events", "jsonl"}));
  EXPECT_EQ(json.exitCode, 0) << json.err;
  const auto records = Lines(json.out);
  ASSERT_EQ(records.size(), 2u);
  std::set<std::string> names;
  for (std::size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i]["record"], i);
    names.insert(records[i]["JobName"].get<std::string>());
  }
  EXPECT_EQ(names, (std::set<std::string>{"ay", "bee"}));
}

TEST_F(List, JsonlCarriesAll106FieldsWithTheirDefaults) {
  Put(dir_ / "a.kjb", "[Job]\n");
  const RunResult r = Kestrel(At({"list", dir_.root().string(), "--events", "jsonl"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto records = Lines(r.out);
  ASSERT_EQ(records.size(), 1u);
  const nlohmann::ordered_json& j = records[0];
  ASSERT_EQ(j.size(), 107u);  // "record" and the 106 fields
  EXPECT_EQ(j.begin().key(), "record");
  EXPECT_EQ(std::next(j.begin()).key(), "Action");
  const nlohmann::json expected = {
      {"DoPreview", 1},           {"FreeSpaceVal", 1},           {"Execution", 1},
      {"ExecMaxSec", 1},          {"ZipGrade", "3"},             {"FileAgeType", 1},
      {"FileAgeDiff", 1},         {"IntervalMonthDay", 1},       {"IntervalTime", "00:00:00"},
      {"RenameTxt", "_"},         {"NodeIcon", ",,,,,,,,,,"},    {"IntervalDate", "22.11.2026"},
      {"DateFrom", "22.11.2026"}, {"DateTo", "22.11.2026"},      {"Status", "0"},
      {"JobName", ""},            {"NoHidenFolderScan", 0},      {"FileSize", 0.0},
  };
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(j[key], value) << key;
  EXPECT_TRUE(j["FileSize"].is_number());
  int zeros = 0;
  for (const auto& [key, value] : j.items()) {
    if (key == "record" || expected.contains(key)) continue;
    EXPECT_TRUE(value == 0 || value == "") << key << " = " << value;
    ++zeros;
  }
  EXPECT_EQ(zeros, 106 - 18);
}

TEST_F(List, InvalidUtf8BecomesReplacementCharacters) {
  // Valid UTF-8 elsewhere, so the file is read as UTF-8 ... except that this byte makes it
  // Windows-1252: the name comes out as the character that byte stands for.
  Put(dir_ / "a.kjb", "[Job]\nName=caf\xE9\n");
  const RunResult r = Kestrel(At({"list", dir_.root().string(), "--events", "jsonl"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(Lines(r.out).at(0)["JobName"], "caf\xC3\xA9");
}

TEST_F(List, ABadFileExitsOneAndKeepsTheRecordsBefore) {
  Put(dir_ / "jobs/a.kjb", "[Job]\nName=a\nCounter=many\n");
  const RunResult r = Kestrel(At({"list", "jobs", "--events", "jsonl"}));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_NE(r.err.find("a.kjb"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Counter"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(dir_ / "error.log"));  // a listing writes nothing
}

TEST_F(List, NoJobFilesIsNoError) {
  const RunResult empty = Kestrel(At({"list", dir_.root().string()}));
  EXPECT_EQ(empty.exitCode, 0) << empty.err;
  const RunResult missing = Kestrel(At({"list", dir_ / "missing", "--events", "jsonl"}));
  EXPECT_EQ(missing.exitCode, 0) << missing.err;
  EXPECT_TRUE(missing.out.empty());
}

TEST_F(List, OneNamedFile) {
  Put(dir_ / "a.kjb", "[Job]\nName=a\n");
  Put(dir_ / "b.kjb", "[Job]\nName=b\n");
  const RunResult r =
      Kestrel(At({"list", dir_.root().string(), "--file", "b.kjb", "--events", "jsonl"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto records = Lines(r.out);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0]["JobName"], "b");
}

// The sample jobs of the repository read without an error and say what they are for.
TEST_F(List, TheExampleJobs) {
  const RunResult r = RunKestrel(At({"list", "examples/jobs", "--events", "jsonl"}), KESTREL_SOURCE_DIR);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::set<std::int64_t> actions;
  for (const auto& j : Lines(r.out)) {
    actions.insert(j["Action"].get<std::int64_t>());
    // The run driver writes a job's state into the file named after its Name.
    const std::string file = std::string(KESTREL_SOURCE_DIR) + "/examples/jobs/" +
                             j["JobName"].get<std::string>() + ".kjb";
    EXPECT_TRUE(fs::exists(file)) << file;
    EXPECT_EQ(j["From"].get<std::string>().rfind("examples/demo/", 0), 0u) << j["From"];
  }
  EXPECT_EQ(actions, (std::set<std::int64_t>{0, 1, 2, 3, 5}));
}

// The English language file replaces every message of the catalogue, and only those.
TEST_F(List, TheEnglishLanguageFileHasEveryKey) {
  std::set<int> expected;
  for (int n = 2; n <= 96; ++n) {
    if (n == 4 || n == 5 || (n >= 21 && n <= 24) || n == 29 || n == 68 || n == 69) continue;
    expected.insert(n);
  }
  ASSERT_EQ(expected.size(), 86u);
  std::istringstream in(Get(std::string(KESTREL_SOURCE_DIR) + "/examples/lang/English.lng"));
  std::set<int> keys;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] != 't') continue;
    const auto eq = line.find('=');
    ASSERT_NE(eq, std::string::npos) << line;
    EXPECT_TRUE(keys.insert(std::stoi(line.substr(1, eq - 1))).second) << line;
    EXPECT_FALSE(line.ends_with(":") || line.ends_with(": ")) << line;
  }
  EXPECT_EQ(keys, expected);
}

}  // namespace
}  // namespace e2e
