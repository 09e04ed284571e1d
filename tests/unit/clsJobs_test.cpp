#include <orvKestrel/clsJobs.h>

#include "jobs/JobFields.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace orvKestrel {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace testing;  // the shared helpers

// A host with a fixed clock whose message boxes record their text and answer with answer().
Host FixedHost(std::vector<std::string>* asked = nullptr, std::function<BoxAnswer()> answer = nullptr) {
  Host host;
  host.clock = Clock::StartingAt(testing::LocalTime(2026, 11, 22, 10));
  host.shortDateFormat = "%d.%m.%Y";
  if (asked) host.messageBox = [=](const MessageBoxRequest& q) { return asked->push_back(q.text), answer(); };
  return host;
}

// A job file whose Name is its own name, plus extra lines.
void WriteJob(const TempDir& dir, const std::string& name, const std::string& extra = "") {
  WriteFile(dir / name, "[Job]\nName=" + name + "\n" + extra);
}

std::vector<std::string> Names(const std::vector<job>& jobs) {
  std::vector<std::string> out;
  for (const job& j : jobs) out.push_back(j.JobName);
  return out;
}

// Job files of dir in the order the file system lists them.
std::vector<std::string> ListingOrder(const TempDir& dir) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(dir.str())) {
    if (const auto n = e.path().filename().string(); n.ends_with(".kjb") || n.ends_with(".KJB")) out.push_back(n);
  }
  return out;
}

// What belongs to the fields: ZipGrade is a rounded number kept as text, numbers take "," for
// ".", only the program's path and arguments are trimmed, the version comes from [Info]. How a
// profile is read (quotes, code pages, length, repeated sections) is Profile's table.
TEST(GetJobs, ConvertsValues) {
  TempDir dir;
  WriteFile(dir / "a.kjb", "[Job]\nZipGrade=7.5\nAction=1,5\nFileSize=1,5\nExecPath=\"  /bin/x  \"\n"
                           "ExecParam='  -v  '\nFrom=\"  /in  \"\n[Info]\nProgVersion=2.1\n");
  WriteFile(dir / "b.kjb", "[Job]\nZipGrade= 4.0 \n");
  clsJobs jobs(FixedHost());
  const job a = jobs.GetJobs(dir.str() + "/", "a.kjb").at(0);
  EXPECT_EQ(std::tie(a.ZipGrade, a.Action, a.FileSize, a.ExecPath, a.ExecParam, a.From, a.Version),
            std::tuple("8", 2, 1.5, "/bin/x", "-v", "  /in  ", "2.1"));
  EXPECT_EQ(jobs.GetJobs(dir.str() + "/", "b.kjb").at(0).ZipGrade, "4");
}

// A folder gives its job files in listing order (no hidden one, no folder; a link is read);
// a named file goes through the same test (one that passes: e2e List's --file), and a missing
// one reads as a record of defaults, like any missing key. Without a trailing separator,
// "jobs" + "*" lists the parent's names beginning with "jobs"; the name is then joined to
// "jobs", where no such file is: one record of defaults, nothing from inside the folder.
TEST(GetJobs, TakesJobFilesInListingOrder) {
  TempDir dir;
  for (const char* name : {"x.txt", "b.kjb", "A.KJB", ".hidden.kjb", "noext", "jobs/inside.kjb", "jobs-old.kjb"})
    WriteJob(dir, name);
  fs::create_directories(dir / "folder.kjb");
  fs::create_symlink(dir / "b.kjb", dir / "link.kjb");
  clsJobs jobs(FixedHost());
  const std::vector<job> got = jobs.GetJobs(dir.str() + "/");
  std::vector<std::string> expected;
  for (const std::string& name : ListingOrder(dir)) {
    if (name != ".hidden.kjb" && name != "folder.kjb") expected.push_back(name == "link.kjb" ? "b.kjb" : name);
  }
  EXPECT_EQ(Names(got), expected);
  EXPECT_EQ(got.size(), 4u);
  const std::string folder = dir.str() + "/";
  EXPECT_TRUE(jobs.GetJobs(folder, "x.txt").empty());
  for (const auto& missing : {jobs.GetJobs(folder, "gone.kjb"), jobs.GetJobs(dir / "jobs")}) {
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(std::tuple(missing[0].JobName, +missing[0].DoPreview), std::tuple(""s, 1));
  }
}

// The third of five job files has a bad number: Abort stops the listing there (naming file, key
// and value), Ignore passes over the file, Retry reads it again (the user fixed it meanwhile).
TEST(GetJobs, ABadNumberStopsIgnoresOrRetriesAsAnswered) {
  // The answer, and the files read by their place in the listing.
  const std::pair<BoxAnswer, std::vector<int>> cases[] = {
      {BoxAnswer::Abort, {0, 1}}, {BoxAnswer::Ignore, {0, 1, 3, 4}}, {BoxAnswer::Retry, {0, 1, 2, 3, 4}}};
  for (const auto& [answer, read] : cases) {
    SCOPED_TRACE(static_cast<int>(answer));
    TempDir dir;
    testing::CurrentDir here(dir.str());  // the trap's error.log lands there
    for (const char* name : {"j1.kjb", "j2.kjb", "j3.kjb", "j4.kjb", "j5.kjb"}) WriteJob(dir, name);
    const std::vector<std::string> order = ListingOrder(dir);
    WriteJob(dir, order[2], "Counter=abc\n");
    std::vector<std::string> asked;
    clsJobs jobs(FixedHost(&asked, [&] {
      if (answer == BoxAnswer::Retry) WriteJob(dir, order[2], "Counter=1\n");
      return answer;
    }));
    std::vector<std::string> expected;
    for (int i : read) expected.push_back(order[i]);
    EXPECT_EQ(Names(jobs.GetJobs(dir.str() + "/")), expected);
    EXPECT_EQ(jobs.LastReadFailed(), answer != BoxAnswer::Retry);
    ASSERT_EQ(asked.size(), 1u);
    for (const std::string& part : {"#13"s, dir / order[2], "key \"Counter\""s, "\"abc\""s})
      EXPECT_NE(asked[0].find(part), std::string::npos) << asked[0];
  }
}

// A value that does not convert fails the read and is reported; a missing key is no error.
TEST(GetJobs, ReadErrorsAreReportedAndFailTheRead) {
  TempDir dir;
  testing::CurrentDir here(dir.str());
  // The contents ("<folder>": a folder named like the job file) and the report ("": the file reads).
  const std::pair<std::string, std::string> cases[] = {
      {"[Job]\nCounter=\n", "Type mismatch"},  // empty is no number
      {"[Job]\nName=b\n", ""},
      {"[Job]\nAction=32768\n", "#6 (Overflow"},
      {"[Job]\nAction=32767\n", ""},
      {"[Job]\nExecDo=32768\n", "#6 (Overflow"},  // a check box read as 16 bits
      {"[Job]\nInactive=32768\n", ""},             // and one read as 32 bits
      {"[Job]\nCounter=2147483648\n", "#6 (Overflow"},
      {"[Job]\nZipGrade=32768\n", "#6 (Overflow"},
      {"<folder>", dir / "a.kjb"},
  };
  for (const auto& [content, report] : cases) {
    SCOPED_TRACE(content);
    fs::remove_all(dir / "a.kjb");
    content == "<folder>" ? (void)fs::create_directories(dir / "a.kjb") : WriteFile(dir / "a.kjb", content);
    std::vector<std::string> asked;
    clsJobs jobs(FixedHost(&asked, [] { return BoxAnswer::Abort; }));
    EXPECT_EQ(jobs.GetJobs(dir.str() + "/", "a.kjb").size(), report.empty() ? 1u : 0u);
    EXPECT_EQ(jobs.LastReadFailed(), !report.empty());
    ASSERT_EQ(asked.size(), report.empty() ? 0u : 1u);
    for (const std::string& text : asked) EXPECT_NE(text.find(report), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace orvKestrel
