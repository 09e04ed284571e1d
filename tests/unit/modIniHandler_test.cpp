#include "jobs/modIniHandler.h"

#include "jobs/Profile.h"
#include "platform/FileSystem.h"
#include "platform/SysError.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace orvKestrel {
namespace {

using namespace testing;  // the shared helpers

TEST(Profile, ReadsValuesAsTheProfileFunctionsDo) {
  const std::string longValue(300, 'x');
  std::string umlauts;
  for (int i = 0; i < 300; ++i) umlauts += "\xC3\xA4";  // 300 times "ä" in UTF-8
  // What the case shows, the file, the key of [Job] and its value ("dflt": the default).
  const std::tuple<const char*, std::string, const char*, std::string> cases[] = {
      {"plain", "[Job]\nName=a\n", "Name", "a"},
      {"names without regard to case", "[jOB]\nNAME=a\n", "name", "a"},
      {"blanks around key and value", "  [ Job ]  \n  Name  =  a b  \n", "Name", "a b"},
      {"tabs too", "[Job]\n\tName\t=\ta\t\n", "Name", "a"},
      {"double quotes keep inner blanks", "[Job]\nName=\"  a  \"\n", "Name", "  a  "},
      {"single quotes", "[Job]\nName='a'\n", "Name", "a"},
      {"one pair only", "[Job]\nName=\"\"a\"\"\n", "Name", "\"a\""},
      {"quotes that do not match stay", "[Job]\nName=\"a'\n", "Name", "\"a'"},
      {"a lone quote stays", "[Job]\nName=\"\n", "Name", "\""},
      {"first key wins", "[Job]\nName=a\nName=b\n", "Name", "a"},
      {"first section wins", "[Job]\nName=a\n[Job]\nName=b\nTo=t\n", "Name", "a"},
      {"a repeated section is not searched", "[Job]\nName=a\n[job]\nTo=t\n", "To", "dflt"},
      {"comment", "[Job]\n;Name=a\n  ; Name=b\nName=c\n", "Name", "c"},
      {"commented section", ";[Job]\nName=a\n", "Name", "dflt"},
      {"keys before any section", "Name=a\n[Job]\n", "Name", "dflt"},
      {"other section", "[Info]\nName=a\n", "Name", "dflt"},
      {"empty value is not the default", "[Job]\nName=\n", "Name", ""},
      {"line without equals sign", "[Job]\nName\n", "Name", ""},
      {"equals sign in the value", "[Job]\nName=a=b\n", "Name", "a=b"},
      {"CRLF line ends", "[Job]\r\nName=a\r\nTo=b\r\n", "To", "b"},
      {"no line end at the end", "[Job]\nName=a", "Name", "a"},
      {"byte-order mark", "\xEF\xBB\xBF[Job]\nName=a\n", "Name", "a"},
      {"Windows-1252", "[Job]\nName=M\xFCller \xC4\xD6\x80\n", "Name", "M\xC3\xBCller \xC3\x84\xC3\x96\xE2\x82\xAC"},
      {"UTF-8", "[Job]\nName=M\xC3\xBCller\n", "Name", "M\xC3\xBCller"},
      {"cut to 255 characters", "[Job]\nFrom=" + longValue + "\n", "From", std::string(255, 'x')},
      {"cut counts characters, not bytes", "[Job]\nFrom=" + umlauts + "\n", "From", umlauts.substr(0, 510)},
      {"bytes Windows-1252 leaves undefined", "[Job]\nName=a\x81\x8D\x8F\x90\x9D\xE4\n", "Name",
       "a\xC2\x81\xC2\x8D\xC2\x8F\xC2\x90\xC2\x9D\xC3\xA4"},
  };
  for (const auto& [name, file, key, expected] : cases)
    EXPECT_EQ(Profile(file).Get("Job", key, "dflt"), expected) << name;
  // A value, and the default too, is cut to nSize - 1.
  EXPECT_EQ(Profile("[Job]\nName=abcdef\n").Get("Job", "Name", "dflt", 4), "abc");
  EXPECT_EQ(Profile("[Job]\nName=abcdef\n").Get("Job", "Name", "dflt", 1), "");
  EXPECT_EQ(Profile("").Get("Job", "Name", "dflt", 3), "df");
}

TEST(SetProfileValue, KeepsEveryOtherLine) {
  const std::string head = "; my backup job\n[Job]\nName=Backup\n; how often\n", info = "\n[Info]\nProgVersion=2.1\n";
  const std::string job = head + "Counter = 3   \nTo=/b\n" + info;
  // What the case shows, the file before, section, key and value, and the file after ("<refused>": throws).
  const std::tuple<const char*, std::string, const char*, const char*, std::string, std::string> cases[] = {
      {"replaces the value in place", job, "Job", "counter", "2", head + "Counter=2\nTo=/b\n" + info},
      {"adds after the last key", job, "JOB", "Status", "5", head + "Counter = 3   \nTo=/b\nStatus=5\n" + info},
      {"adds a section at the end", job, "Extra", "IntState", "22.11.2026", job + "\n[Extra]\nIntState=22.11.2026\n"},
      {"creates the content of a new file", "", "Job", "Status", "5", "[Job]\nStatus=5\n"},
      {"first of two", "[Job]\nA=1\nA=2\n[job]\nA=3\n", "Job", "A", "9", "[Job]\nA=9\nA=2\n[job]\nA=3\n"},
      {"a key only in a repeated section goes into the first", "[Job]\nA=1\n[job]\nB=3\n", "Job", "B", "9",
       "[Job]\nA=1\nB=9\n[job]\nB=3\n"},
      {"into an empty section", "[Job]\n[Info]\nX=1\n", "Job", "A", "1", "[Job]\nA=1\n[Info]\nX=1\n"},
      {"CRLF kept", "[Job]\r\nA=1\r\n", "Job", "B", "2", "[Job]\r\nA=1\r\nB=2\r\n"},
      {"last line without a line end", "[Job]\nA=1", "Job", "B", "2", "[Job]\nA=1\nB=2\n"},
      {"byte-order mark kept", "\xEF\xBB\xBF[Job]\nA=1\n", "Job", "A", "2", "\xEF\xBB\xBF[Job]\nA=2\n"},
      {"Windows-1252 kept", "[Job]\nName=M\xFCller\nA=1\n", "Job", "A", "\xC3\xA4", "[Job]\nName=M\xFCller\nA=\xE4\n"},
      {"a character Windows-1252 cannot hold turns the file into UTF-8", "[Job]\nName=M\xFCller\n", "Job", "A",
       "\xE2\x86\x92", "[Job]\nName=M\xC3\xBCller\nA=\xE2\x86\x92\n"},
      {"undefined Windows-1252 bytes stay as they were", "[Job]\nName=a\x81\x8D\x8F\x90\x9D\xE4\n", "Job",
       "To", "b", "[Job]\nName=a\x81\x8D\x8F\x90\x9D\xE4\nTo=b\n"},
      // Written back as it was, the rest of such a file once read as UTF-8: its "ï»¿" became a
      // byte-order mark, and the section behind it, ignored before, took over every key.
      {"Windows-1252 whose only non-UTF-8 bytes are replaced is rewritten as UTF-8 of the same text",
       "\xEF\xBB\xBF[Job]\nName=a\n[Job]\nFrom=caf\xE9\nTo=x\xC3\xA4\n", "Job", "From", "1",
       "\xC3\xAF\xC2\xBB\xC2\xBF[Job]\nName=a\n[Job]\nFrom=1\nTo=x\xC3\x83\xC2\xA4\n"},
      {"a line break in the value", "", "Job", "A", "1\n2", "<refused>"},
      {"an equals sign in the key", "", "Job", "A=B", "1", "<refused>"},
      {"a blank key", "", "Job", " ", "1", "<refused>"},
  };
  for (const auto& [name, before, section, key, value, after] : cases) {
    try {
      EXPECT_EQ(SetProfileValue(before, section, key, value), after) << name;
    } catch (const KestrelError&) {
      EXPECT_EQ("<refused>", after) << name;
    }
  }
}

// A write keeps the file's mode and goes through a link, which stays; a read-only file is left
// as it was; a missing folder is an error. (A write that fails at any step leaves the job file
// as it was and nothing beside it: Faults_test, whose every run checks the job file.)
TEST(WriteJobString, WritesThroughALinkKeepsTheModeAndARefusedWriteLeavesTheOldFile) {
  TempDir dir;
  FileSystem fs;
  const std::string path = dir / "a.kjb", link = dir / "link.kjb";
  WriteJobString(fs, "Job", "Counter", "4", path);
  EXPECT_EQ(ReadFile(path), "[Job]\nCounter=4\n");
  ::chmod(path.c_str(), 0640);
  std::filesystem::create_symlink(path, link);
  WriteJobString(fs, "Job", "Status", "5", link);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(GetJobString(fs, "Job", "Status", "0", path) + GetJobString(fs, "Job", "Counter", "0", path), "54");
  EXPECT_EQ(testing::ModeOf(path), 0640u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.str()), {}), 2);
  EXPECT_THROW(WriteJobString(fs, "Job", "A", "2", dir / "no/a.kjb"), KestrelError);
  if (::geteuid() == 0) return;  // root may write any file
  ::chmod(path.c_str(), 0444);
  EXPECT_THROW(WriteJobString(fs, "Job", "A", "2", path), KestrelError);
  EXPECT_EQ(ReadFile(path), "[Job]\nCounter=4\nStatus=5\n");
}

}  // namespace
}  // namespace orvKestrel
