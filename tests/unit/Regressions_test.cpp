// Defects found by fuzzing, fault injection and hostile trees, each pinned by the smallest case
// that showed it.
#include "SelectionSupport.h"
#include "jobs/Profile.h"
#include "selection/RegExp.h"

namespace orvKestrel::testing {
namespace {

// A Windows-1252 file whose only non-UTF-8 bytes sat in the line being replaced used to be
// written back in bytes that read as UTF-8: its leading "ï»¿" became a byte-order mark, and the
// section behind it, ignored before, took over every key.
TEST(Regressions, ProfileWriteKeepsTheMeaningOfTheOtherLines) {
  const std::string file = "\xEF\xBB\xBF[Job]\nName=a\n[Job]\nFrom=caf\xE9\nTo=x\xC3\xA4\n";
  const Profile before(file);
  ASSERT_EQ(before.Get("Job", "From", "-"), "caf\xC3\xA9");
  const Profile after(SetProfileValue(file, "Job", "From", "1"));
  EXPECT_EQ(after.Get("Job", "From", "-"), "1");
  EXPECT_EQ(after.Get("Job", "Name", "-"), before.Get("Job", "Name", "-"));
  EXPECT_EQ(after.Get("Job", "To", "-"), before.Get("Job", "To", "-"));  // "xÃ¤", not "xä"
}

TEST(Regressions, ProfileWriteOfAsciiIntoAsciiStaysByteForByte) {
  const std::string file = "[Job]\r\nStatus=0\r\nFrom=/a\r\n";
  EXPECT_EQ(SetProfileValue(file, "Job", "Status", "5"), "[Job]\r\nStatus=5\r\nFrom=/a\r\n");
}

class NewlineNames : public SelectionTest {};

// "*" is ".*", and "." did not match a line break: a file whose name holds one was never taken
// by a wildcard pattern.
TEST_F(NewlineNames, WildcardsTakeNamesWithLineBreaks) {
  RegExpCache re;
  std::string star = "*", around = "*b*";
  e.CleanFilePattern(star, false);
  e.CleanFilePattern(around, false);
  EXPECT_TRUE(re.Test(star, "a\nb"));
  EXPECT_TRUE(re.Test(around, "a\nb\nc"));
  std::string folder = "x*";
  e.CleanFolderPattern(folder, false);
  EXPECT_TRUE(re.Test(folder, "/r/x\ny/"));
  EXPECT_FALSE(re.Test("^a$", "a\n"));  // "$" still only at the very end
}

TEST_F(NewlineNames, TheWalkSelectsThemByPattern) {
  WriteFile(In("line\nbreak.txt"), "x");
  job j = MakeJob();
  j.DoFileMatch = 2;
  j.Filename = "*";
  e.regex = std::make_unique<RegExpCache>();
  e.CleanFilePattern(j.Filename, false);
  e.FindFiles(j.From, "*.*", false, j);
  EXPECT_EQ(e.files, std::vector<std::string>{In("line\nbreak.txt")});
}

}  // namespace
}  // namespace orvKestrel::testing
