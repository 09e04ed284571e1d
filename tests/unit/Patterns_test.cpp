#include "SelectionSupport.h"
#include "platform/SysError.h"
#include "selection/RegExp.h"

namespace orvKestrel::testing {
namespace {

class Patterns : public SelectionTest {
 protected:
  std::string File(std::string pattern, bool regex = false) {
    e.CleanFilePattern(pattern, regex);
    return pattern;
  }
  std::string Folder(std::string pattern, bool regex = false) {
    e.CleanFolderPattern(pattern, regex);
    return pattern;
  }
  RegExpCache re;
};

TEST_F(Patterns, WildcardFilePatternsBecomeAnchoredExpressions) {
  const std::pair<const char*, const char*> cases[] = {
      {"report*", "^report.*$"},
      {"a?c", "^a.?c$"},
      {"a.b", "^a\\.b$"},
      {"x(1)[2]{3}", "^x\\(1\\)\\[2\\]\\{3\\}$"},
      {"^$", "^\\^\\$$"},
      {"a|b+c\\d", "^a|b+c\\d$"},  // "|", "+" and "\" are left alone
      {"", "^$"},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(File(in), out) << in;
}

TEST_F(Patterns, ARegularExpressionStaysAsWritten) {
  EXPECT_EQ(File("^a.*[0-9]$", true), "^a.*[0-9]$");
  e.filterRegExp = true;
  EXPECT_EQ(Folder("^te(.*)*st", true), "^te(.*)*st");
}

TEST_F(Patterns, WildcardFolderPatternsAreFramedBySeparators) {
  EXPECT_EQ(Folder("temp*"), "/temp(.?)*/");
  EXPECT_EQ(Folder("a?.b"), "/a.?\\.b/");
  EXPECT_EQ(Folder("a\\b"), "/a/b/");  // "\" names a level
  EXPECT_EQ(Folder("a/b"), "/a/b/");
}

TEST_F(Patterns, FolderExpressionWithoutTheCallersSwitchReadsCaretAsComponentStart) {
  e.filterRegExp = false;
  EXPECT_EQ(Folder("^temp", true), "\\/temp");
  EXPECT_EQ(Folder("(.*)*x", true), "(.?)*x");
  EXPECT_EQ(Folder("a\\^b", true), "a\\^b");  // an escaped caret stays a caret
  EXPECT_TRUE(re.Test(Folder("^te", true), "/data/tests/"));
  EXPECT_FALSE(re.Test(Folder("^te", true), "/data/ate/"));
  EXPECT_TRUE(re.Test(Folder("x\\^y", true), "/data/x^y/"));
}

TEST_F(Patterns, WildcardsMatch) {
  struct Case {
    bool folder;
    const char* pattern;
    const char* subject;
    bool matches;
  };
  const Case cases[] = {
      // "?" matches zero or one character.
      {false, "a?c", "ac", true}, {false, "a?c", "abc", true},
      {false, "a?c", "abbc", false}, {false, "a?c", "xabc", false},
      // Case is ignored.
      {false, "*log*", "syslog", true}, {false, "*log*", "LOGFILE", true},
      {false, "*log*", "lgo", false},
      // "^report|invoice$": either alternative, each anchored on its own side only.
      {false, "report|invoice", "report2024", true}, {false, "report|invoice", "my invoice", true},
      {false, "report|invoice", "my report", false},
      // Folder wildcards match whole components anywhere in the path.
      {true, "temp*", "/x/temp/", true}, {true, "temp*", "/x/Temp1/y/", true},
      {true, "temp*", "/x/mytemp/", false}, {true, "a\\b", "/r/a/b/", true},
      {true, "a\\b", "/r/a/c/b/", false},
  };
  for (const Case& c : cases) {
    const std::string p = c.folder ? Folder(c.pattern) : File(c.pattern);
    EXPECT_EQ(re.Test(p, c.subject), c.matches) << c.pattern << " ~ " << c.subject;
  }
}

TEST_F(Patterns, ScriptDialectEscapesAndDollarAtTheVeryEnd) {
  EXPECT_TRUE(re.Test("^\\u00e4$", "\xc3\xa4"));  // \uHHHH
  EXPECT_TRUE(re.Test("^\\x41$", "a"));           // \xHH, without regard to case
  EXPECT_FALSE(re.Test("^a$", "a\n"));
  EXPECT_TRUE(re.Test("^(x)?\\1b$", "b"));  // an unset back reference matches nothing
}

TEST_F(Patterns, InvalidPatternThrowsAndInvalidUtf8NamesAreMatched) {
  EXPECT_THROW(re.Test("a(", "a"), KestrelError);
  EXPECT_TRUE(re.Test("^a.b$", "a\xff" "b"));
  EXPECT_FALSE(re.Test("^x", "a\xff" "b"));
}

}  // namespace
}  // namespace orvKestrel::testing
