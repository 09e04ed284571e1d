#include <orvKestrel/clsJobs.h>

#include "jobs/JobFields.h"
#include "platform/FileSystem.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace orvKestrel {
namespace {

using testing::TempDir;
using testing::WriteFile;

using InFolder = testing::CurrentDir;  // the trap's error.log lands there

Host FixedHost() {
  Host host;
  host.clock = Clock::StartingAt(testing::LocalTime(2026, 11, 22, 10));
  host.shortDateFormat = "%d.%m.%Y";
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
  FileSystem fs;
  std::vector<std::string> out;
  const auto entries = fs.ListFolder(dir.str());
  for (const DirEntry& e : entries.value()) {
    if (e.name.ends_with(".kjb") || e.name.ends_with(".KJB")) out.push_back(e.name);
  }
  return out;
}

TEST(GetJobs, ConvertsValues) {
  TempDir dir;
  WriteFile(dir / "a.kjb",
            "[Job]\nZipGrade=7.5\nAction=1,5\nCounter= -3 \nFileSize=1,5\nExecPath=\"  /bin/x  \"\n"
            "ExecParam='  -v  '\nFrom=\"  /in  \"\nTo=" + std::string(300, 't') + "\nName=M\xFC\x6cler\n"
            "[Info]\nProgVersion=2.1\n[Job]\nInactive=1\n");
  WriteFile(dir / "b.kjb", "[Job]\nZipGrade= 4.0 \nDoPreview=0\n");
  WriteFile(dir / "c.kjb", "[Job]\nZipGrade=6.5\nSubFolder=2\n");
  clsJobs jobs(FixedHost());
  const job a = jobs.GetJobs(dir.str() + "/", "a.kjb").at(0);
  EXPECT_EQ(a.ZipGrade, "8");
  EXPECT_EQ(a.Action, 2);
  EXPECT_EQ(a.Counter, -3);
  EXPECT_DOUBLE_EQ(a.FileSize, 1.5);
  EXPECT_EQ(a.ExecPath, "/bin/x");
  EXPECT_EQ(a.ExecParam, "-v");
  EXPECT_EQ(a.From, "  /in  ");  // only the program path and arguments are trimmed
  EXPECT_EQ(a.To, std::string(255, 't'));
  EXPECT_EQ(a.JobName, "M\xC3\xBCller");
  EXPECT_EQ(a.Version, "2.1");
  EXPECT_EQ(a.Inactive, 0);  // a repeated section is not read
  const job b = jobs.GetJobs(dir.str() + "/", "b.kjb").at(0);
  EXPECT_EQ(b.ZipGrade, "4");
  EXPECT_EQ(b.DoPreview, 0);
  const job c = jobs.GetJobs(dir.str() + "/", "c.kjb").at(0);
  EXPECT_EQ(c.ZipGrade, "6");
  EXPECT_EQ(c.SubFolder, 2);
}

TEST(GetJobs, TakesJobFilesInListingOrder) {
  TempDir dir;
  WriteJob(dir, "x.txt");
  WriteJob(dir, "b.kjb");
  WriteJob(dir, "A.KJB");
  WriteJob(dir, ".hidden.kjb");
  WriteJob(dir, "noext");
  std::filesystem::create_directories(dir / "folder.kjb");
  std::filesystem::create_symlink(dir / "b.kjb", dir / "link.kjb");
  clsJobs jobs(FixedHost());
  const std::vector<job> got = jobs.GetJobs(dir.str() + "/");
  std::vector<std::string> expected;
  for (const std::string& name : ListingOrder(dir)) {
    if (name != ".hidden.kjb" && name != "folder.kjb") expected.push_back(name == "link.kjb" ? "b.kjb" : name);
  }
  EXPECT_EQ(Names(got), expected);
  EXPECT_EQ(got.size(), 3u);
}

TEST(GetJobs, ANamedFileGoesThroughTheSameTest) {
  TempDir dir;
  WriteJob(dir, "x.txt");
  WriteJob(dir, "b.kjb");
  WriteJob(dir, "c.kjb");
  clsJobs jobs(FixedHost());
  EXPECT_EQ(Names(jobs.GetJobs(dir.str() + "/", "c.kjb")), std::vector<std::string>{"c.kjb"});
  EXPECT_TRUE(jobs.GetJobs(dir.str() + "/", "x.txt").empty());
  // A named file that is missing reads as a record of defaults, like any missing key.
  const std::vector<job> missing = jobs.GetJobs(dir.str() + "/", "gone.kjb");
  ASSERT_EQ(missing.size(), 1u);
  EXPECT_EQ(missing[0].JobName, "");
  EXPECT_EQ(missing[0].DoPreview, 1);
}

TEST(GetJobs, WithoutTrailingSeparatorTheParentIsListed) {
  TempDir dir;
  WriteJob(dir, "jobs/inside.kjb");
  WriteJob(dir, "jobs-old.kjb");
  WriteJob(dir, "other.kjb");
  clsJobs jobs(FixedHost());
  // "jobs" + "*" lists the parent's names beginning with "jobs"; the name is then joined to
  // "jobs", where no such file is: one record of defaults, nothing from inside the folder.
  const std::vector<job> got = jobs.GetJobs(dir / "jobs");
  EXPECT_EQ(Names(got), std::vector<std::string>{""});
}

struct BadFolder {
  TempDir dir;
  std::vector<std::string> order;  // the five job files in listing order
};

// Five job files; the third in listing order gets the bad line.
void MakeFive(BadFolder& f, const std::string& badLine) {
  for (const char* name : {"j1.kjb", "j2.kjb", "j3.kjb", "j4.kjb", "j5.kjb"}) WriteJob(f.dir, name);
  f.order = ListingOrder(f.dir);
  WriteJob(f.dir, f.order[2], badLine);
}

struct Reported {
  std::vector<std::string> texts;
  BoxAnswer answer = BoxAnswer::Abort;
};

Host Asking(Reported& r) {
  Host host = FixedHost();
  host.messageBox = [&r](const MessageBoxRequest& q) {
    r.texts.push_back(q.text);
    return r.answer;
  };
  return host;
}

TEST(GetJobs, ABadNumberStopsTheListingAndNamesFileAndKey) {
  BadFolder f;
  InFolder here(f.dir.str());
  MakeFive(f, "Counter=abc\n");
  Reported r;
  clsJobs jobs(Asking(r));
  const std::vector<job> got = jobs.GetJobs(f.dir.str() + "/");
  EXPECT_EQ(Names(got), (std::vector<std::string>{f.order[0], f.order[1]}));
  EXPECT_TRUE(jobs.LastReadFailed());
  ASSERT_EQ(r.texts.size(), 1u);
  EXPECT_NE(r.texts[0].find("#13"), std::string::npos) << r.texts[0];
  EXPECT_NE(r.texts[0].find(f.dir / f.order[2]), std::string::npos) << r.texts[0];
  EXPECT_NE(r.texts[0].find("key \"Counter\""), std::string::npos) << r.texts[0];
  EXPECT_NE(r.texts[0].find("\"abc\""), std::string::npos) << r.texts[0];
  EXPECT_NE(testing::ReadFile("error.log").find("key \"Counter\""), std::string::npos);
}

TEST(GetJobs, IgnorePassesOverTheBadFileAndRetryReadsItAgain) {
  BadFolder f;
  InFolder here(f.dir.str());
  MakeFive(f, "Action=x\n");
  Reported r;
  r.answer = BoxAnswer::Ignore;
  clsJobs ignoring(Asking(r));
  EXPECT_EQ(ignoring.GetJobs(f.dir.str() + "/").size(), 4u);
  EXPECT_TRUE(ignoring.LastReadFailed());

  Host host = FixedHost();
  host.messageBox = [&](const MessageBoxRequest&) {
    WriteJob(f.dir, f.order[2], "Action=1\n");  // the user fixes the line, then retries
    return BoxAnswer::Retry;
  };
  clsJobs retrying(host);
  const std::vector<job> got = retrying.GetJobs(f.dir.str() + "/");
  ASSERT_EQ(got.size(), 5u);
  EXPECT_EQ(got[2].Action, 1);
  EXPECT_FALSE(retrying.LastReadFailed());
}

// A value that does not convert fails the read and is reported; a missing key is no error.
TEST(GetJobs, ReadErrorsAreReportedAndFailTheRead) {
  TempDir dir;
  InFolder here(dir.str());
  const struct {
    std::string content;  // "<folder>": a folder named like the job file
    std::string report;   // "": the file reads
  } cases[] = {
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.content);
    std::filesystem::remove_all(dir / "a.kjb");
    if (c.content == "<folder>") {
      std::filesystem::create_directories(dir / "a.kjb");
    } else {
      WriteFile(dir / "a.kjb", c.content);
    }
    Reported r;
    clsJobs jobs(Asking(r));
    EXPECT_EQ(jobs.GetJobs(dir.str() + "/", "a.kjb").size(), c.report.empty() ? 1u : 0u);
    EXPECT_EQ(jobs.LastReadFailed(), !c.report.empty());
    ASSERT_EQ(r.texts.size(), c.report.empty() ? 0u : 1u);
    for (const std::string& text : r.texts) EXPECT_NE(text.find(c.report), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace orvKestrel
