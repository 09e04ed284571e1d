// kestrel list, run as a user runs it.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class TempDir {
 public:
  TempDir() {
    std::random_device rd;
    path_ = fs::temp_directory_path() / ("kestrel-e2e-" + std::to_string(rd()) + std::to_string(rd()));
    fs::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string str() const { return path_.string(); }
  std::string operator/(const std::string& rel) const { return (path_ / rel).string(); }

 private:
  fs::path path_;
};

void WriteFile(const std::string& path, const std::string& data) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << data;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

struct Result {
  int exit = -1;
  std::string out;
  std::string err;
};

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (const char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

// Runs kestrel with args in folder cwd.
Result Kestrel(const std::vector<std::string>& args, const std::string& cwd) {
  TempDir io;
  std::string cmd = "cd " + Quote(cwd) + " && " + Quote(KESTREL_BIN);
  for (const std::string& a : args) cmd += " " + Quote(a);
  cmd += " >" + Quote(io / "out") + " 2>" + Quote(io / "err");
  const int status = std::system(cmd.c_str());
  Result r;
  r.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = ReadFile(io / "out");
  r.err = ReadFile(io / "err");
  return r;
}

// One JSON object per line, keys in the order written.
std::vector<nlohmann::ordered_json> Lines(const std::string& out) {
  std::vector<nlohmann::ordered_json> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(nlohmann::ordered_json::parse(line));
  }
  return lines;
}

const std::vector<std::string> kNow = {"--now", "2026-11-22 10:00:00", "--date-format",
                                       "%d.%m.%Y"};

std::vector<std::string> With(std::vector<std::string> args) {
  args.insert(args.end(), kNow.begin(), kNow.end());
  return args;
}

TEST(List, TakesOnlyJobFiles) {
  TempDir dir;
  WriteFile(dir / "jobs/x.txt", "[Job]\nName=x\n");
  WriteFile(dir / "jobs/b.kjb", "[Job]\nName=bee\nAction=1\n");
  WriteFile(dir / "jobs/A.KJB", "[Job]\nName=ay\nAction=3\nInactive=1\n");
  const Result text = Kestrel(With({"list", "jobs"}), dir.str());
  EXPECT_EQ(text.exit, 0) << text.err;
  EXPECT_NE(text.out.find("bee"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("ay"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("move"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("zip"), std::string::npos) << text.out;
  EXPECT_EQ(text.out.find("x.txt"), std::string::npos) << text.out;

  const Result json = Kestrel(With({"list", "jobs/", "--events", "jsonl"}), dir.str());
  EXPECT_EQ(json.exit, 0) << json.err;
  const auto records = Lines(json.out);
  ASSERT_EQ(records.size(), 2u);
  std::set<std::string> names;
  for (std::size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i]["record"], i);
    names.insert(records[i]["JobName"].get<std::string>());
  }
  EXPECT_EQ(names, (std::set<std::string>{"ay", "bee"}));
}

TEST(List, JsonlCarriesAll106FieldsWithTheirDefaults) {
  TempDir dir;
  WriteFile(dir / "a.kjb", "[Job]\n");
  const Result r = Kestrel(With({"list", dir.str(), "--events", "jsonl"}), dir.str());
  ASSERT_EQ(r.exit, 0) << r.err;
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

TEST(List, InvalidUtf8BecomesReplacementCharacters) {
  TempDir dir;
  // Valid UTF-8 elsewhere, so the file is read as UTF-8 ... except that this byte makes it
  // Windows-1252: the name comes out as the character that byte stands for.
  WriteFile(dir / "a.kjb", "[Job]\nName=caf\xE9\n");
  const Result r = Kestrel(With({"list", dir.str(), "--events", "jsonl"}), dir.str());
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Lines(r.out).at(0)["JobName"], "caf\xC3\xA9");
}

TEST(List, ABadFileExitsOneAndKeepsTheRecordsBefore) {
  TempDir dir;
  WriteFile(dir / "jobs/a.kjb", "[Job]\nName=a\nCounter=many\n");
  const Result r = Kestrel(With({"list", "jobs", "--events", "jsonl"}), dir.str());
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_NE(r.err.find("a.kjb"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Counter"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::exists(dir / "error.log"));
}

TEST(List, NoJobFilesIsNoError) {
  TempDir dir;
  const Result empty = Kestrel(With({"list", dir.str()}), dir.str());
  EXPECT_EQ(empty.exit, 0) << empty.err;
  const Result missing = Kestrel(With({"list", dir / "missing", "--events", "jsonl"}), dir.str());
  EXPECT_EQ(missing.exit, 0) << missing.err;
  EXPECT_TRUE(missing.out.empty());
}

TEST(List, OneNamedFile) {
  TempDir dir;
  WriteFile(dir / "a.kjb", "[Job]\nName=a\n");
  WriteFile(dir / "b.kjb", "[Job]\nName=b\n");
  const Result r = Kestrel(With({"list", dir.str(), "--file", "b.kjb", "--events", "jsonl"}),
                           dir.str());
  ASSERT_EQ(r.exit, 0) << r.err;
  const auto records = Lines(r.out);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0]["JobName"], "b");
}

TEST(List, BadCommandLines) {
  TempDir dir;
  EXPECT_EQ(Kestrel({"list"}, dir.str()).exit, 2);
  EXPECT_EQ(Kestrel({"list", ".", "--events", "xml"}, dir.str()).exit, 2);
  EXPECT_EQ(Kestrel({"list", ".", "--now", "yesterday"}, dir.str()).exit, 2);
  const Result help = Kestrel({"list", "--help"}, dir.str());
  EXPECT_EQ(help.exit, 0);
  EXPECT_NE(help.out.find("Examples:"), std::string::npos);
}

// The sample jobs of the repository read without an error and say what they are for.
TEST(List, TheExampleJobs) {
  const Result r = Kestrel(With({"list", "examples/jobs", "--events", "jsonl"}), KESTREL_SOURCE_DIR);
  ASSERT_EQ(r.exit, 0) << r.err;
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
TEST(List, TheEnglishLanguageFileHasEveryKey) {
  std::set<int> expected;
  for (int n = 2; n <= 96; ++n) {
    if (n == 4 || n == 5 || (n >= 21 && n <= 24) || n == 29 || n == 68 || n == 69) continue;
    expected.insert(n);
  }
  ASSERT_EQ(expected.size(), 86u);
  std::istringstream in(ReadFile(std::string(KESTREL_SOURCE_DIR) + "/examples/lang/English.lng"));
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
