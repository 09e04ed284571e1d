#include "platform/Paths.h"

#include <gtest/gtest.h>

namespace orvKestrel::paths {
namespace {

struct PathCase {
  const char* path;
  const char* fileName;
  const char* extension;
  const char* baseName;
  const char* parent;
};

TEST(Paths, ComponentsOfAPath) {
  const PathCase cases[] = {
      {"/in/a.b.txt", "a.b.txt", "txt", "a.b", "/in"},
      {"/in/.profile", ".profile", "profile", "", "/in"},
      {"/in/README", "README", "", "README", "/in"},
      {"/in/x.txt/a", "a", "", "a", "/in/x.txt"},
      {"/in/dir/", "", "", "", "/in/dir"},
      {"a.zip", "a.zip", "zip", "a", ""},
      {"/a", "a", "", "a", "/"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(GetFileName(c.path), c.fileName);
    EXPECT_EQ(GetExtensionName(c.path), c.extension);
    EXPECT_EQ(GetBaseName(c.path), c.baseName);
    EXPECT_EQ(GetParentFolderName(c.path), c.parent);
  }
}

TEST(Paths, BuildPathAddsExactlyOneSeparator) {
  EXPECT_EQ(BuildPath("/in", "a.txt"), "/in/a.txt");
  EXPECT_EQ(BuildPath("/in/", "a.txt"), "/in/a.txt");
  EXPECT_EQ(BuildPath("/in/", "/a.txt"), "/in/a.txt");
  EXPECT_EQ(BuildPath("", "a.txt"), "a.txt");
  EXPECT_EQ(BuildPath("/in", ""), "/in");
}

TEST(Paths, AbsolutePathFoldsDotsAndSeparators) {
  EXPECT_EQ(GetAbsolutePathName("/a//b/./c/../d"), "/a/b/d");
  EXPECT_EQ(GetAbsolutePathName("/.."), "/");
  EXPECT_EQ(GetAbsolutePathName("rel").front(), '/');
}

TEST(Paths, ReplaceAllIsPlainAndCaseSensitive) {
  EXPECT_EQ(ReplaceAll("/x.txt/a.txt", ".txt", "_1.txt"), "/x_1.txt/a_1.txt");
  EXPECT_EQ(ReplaceAll("/X.TXT/a.txt", ".txt", "!"), "/X.TXT/a!");
  EXPECT_EQ(ReplaceAll("aaa", "aa", "b"), "ba");
  EXPECT_EQ(ReplaceAll("abc", "", "x"), "abc");
}

}  // namespace
}  // namespace orvKestrel::paths
