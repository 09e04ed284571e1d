#include "SelectionSupport.h"
#include "platform/Paths.h"

#include <algorithm>

namespace orvKestrel::testing {
namespace {

class Filters : public SelectionTest {
 protected:
  // Empty files with the given modification (and access) times.
  template <std::size_t N>
  FileList WithTimes(const std::pair<const char*, std::time_t> (&files)[N]) {
    FileList list;
    for (const auto& [name, t] : files) {
      WriteFile(In(name), "");
      SetModified(In(name), t);
      list.push_back(In(name));
    }
    return list;
  }
  std::vector<std::string> Names(const FileList& list) {
    std::vector<std::string> out;
    for (const auto& f : list) out.push_back(paths::GetFileName(f));
    return out;
  }
};

TEST_F(Filters, SizeLimitIsExclusiveForBothOptions) {
  WriteFile(In("99"), std::string(99, 'x'));
  WriteFile(In("100"), std::string(100, 'x'));
  WriteFile(In("101"), std::string(101, 'x'));
  const FileList all = {In("99"), In("100"), In("101")};
  job j = MakeJob();
  j.FileSize = 100;
  const std::pair<std::int16_t, std::vector<std::string>> options[] = {
      {1, {"101"}}, {2, {"99"}}, {0, {"99", "100", "101"}}};
  for (const auto& [opt, kept] : options) {
    j.FileOpt = opt;
    FileList list = all;
    EXPECT_EQ(Names(e.FilterFileSize(list, j)), kept) << opt;
  }
}

TEST_F(Filters, KeepOnlyListedExtensionsInAnyCase) {
  FileList list = Make({"a.txt", "b.LOG", "c.log", "d.TXT", "noext", "e.doc", "f.txt.bak"});
  job j = MakeJob();
  j.Ext = "txt, *.LOG";
  j.ExtOpt = 2;
  EXPECT_EQ(Names(e.FilterExtention(list, j)),
            (std::vector<std::string>{"a.txt", "b.LOG", "c.log", "d.TXT"}));
  EXPECT_EQ(j.Ext, "txt,*.LOG");
}

TEST_F(Filters, ExcludingStarDotRemovesFilesWithoutExtension) {
  FileList list = Make({"a.txt", "noext", "b.", "c.Doc"});
  job j = MakeJob();
  j.Ext = "*.";
  j.ExtOpt = 1;
  // "b." has an empty extension as well.
  EXPECT_EQ(Names(e.FilterExtention(list, j)), (std::vector<std::string>{"a.txt", "c.Doc"}));
  list = Make({"a.txt", "noext", "c.Doc", "d.TXT"});
  j.Ext = "doc,TXT";
  EXPECT_EQ(Names(e.FilterExtention(list, j)), std::vector<std::string>{"noext"});
}

TEST_F(Filters, EmptyOrBlankExtensionListsAndOtherOptionsFilterNothing) {
  const FileList all = Make({"a.txt", "noext"});
  job j = MakeJob();
  for (const char* ext : {"", "   "}) {
    j.Ext = ext;
    j.ExtOpt = 2;
    FileList list = all;
    EXPECT_EQ(e.FilterExtention(list, j), all) << ext;
  }
  j.Ext = "txt";
  j.ExtOpt = 3;
  FileList list = all;
  EXPECT_EQ(e.FilterExtention(list, j), all);
}

TEST_F(Filters, ZipFilterKeepsZipArchivesOnly) {
  FileList list = Make({"a.zip", "B.ZIP", "c.zip.txt", "zip"});
  job j = MakeJob();
  EXPECT_EQ(Names(e.FilterZip(list, j)), (std::vector<std::string>{"a.zip", "B.ZIP"}));
}

TEST_F(Filters, AttributesAreDroppedOnlyOnExactEquality) {
  FileList list = Make({"plain", ".hidden", "ro", "hidro"});
  Chmod(In("ro"), 0444);
  std::filesystem::rename(In("hidro"), In(".hidro"));
  list[3] = In(".hidro");
  Chmod(In(".hidro"), 0444);  // hidden + read-only = 3
  job j = MakeJob();
  j.AttrHidden = 1;
  j.AttrReadOnly = 1;
  FileList copy = list;
  EXPECT_EQ(Names(e.FilterAttributes(copy, j)), (std::vector<std::string>{"plain", ".hidro"}));
  j = MakeJob();
  j.AttrNormal = 1;
  copy = list;
  EXPECT_EQ(Names(e.FilterAttributes(copy, j)),
            (std::vector<std::string>{".hidden", "ro", ".hidro"}));
  j.AttrNormal = 2;  // only a checked box counts
  copy = list;
  EXPECT_EQ(e.FilterAttributes(copy, j), list);
}

TEST_F(Filters, HiddenPlusArchiveSurvivesTheHiddenFilter) {
  if (!UserXattrsWork(dir.str())) GTEST_SKIP() << "no user extended attributes on " << dir.str();
  FileList list = Make({"h", "ha", "a", "s"});
  SetDosAttrib(In("h"), "0x2");
  SetDosAttrib(In("ha"), "0x22");
  SetDosAttrib(In("a"), "0x20");
  SetDosAttrib(In("s"), "0x4");
  job j = MakeJob();
  j.AttrHidden = 1;
  FileList copy = list;
  EXPECT_EQ(Names(e.FilterAttributes(copy, j)), (std::vector<std::string>{"ha", "a", "s"}));
  j.AttrArchive = 1;
  j.AttrSystem = 1;
  copy = list;
  EXPECT_EQ(Names(e.FilterAttributes(copy, j)), std::vector<std::string>{"ha"});
}

TEST_F(Filters, DateRangeKeepsTheWholeDaysInclusive) {
  const std::pair<const char*, std::time_t> files[] = {
      {"before", LocalTime(2024, 3, 9, 23, 59, 59)},
      {"first", LocalTime(2024, 3, 10, 0, 0, 0)},
      {"noon", LocalTime(2024, 3, 10, 12, 0, 0)},
      {"last", LocalTime(2024, 3, 10, 23, 59, 59)},
      {"after", LocalTime(2024, 3, 11, 0, 0, 0)},
  };
  const FileList all = WithTimes(files);
  job j = MakeJob();
  j.FileAge = 3;
  j.FileAgeType = 1;
  j.DateFrom = j.DateTo = "10.03.2024";
  FileList list = all;
  EXPECT_EQ(Names(e.FilterDate(list, j)), (std::vector<std::string>{"first", "noon", "last"}));

  j.FileAge = 4;
  j.FileDateDate = "2024-03-10";  // ISO dates are read as well
  const std::pair<std::int16_t, std::vector<std::string>> options[] = {
      {0, {"before", "first"}},
      {1, {"last", "after"}},
      {2, {"first", "noon", "last"}},
      {3, {"before", "first", "noon", "last", "after"}},
  };
  for (const auto& [opt, kept] : options) {
    j.FileDateOpt = opt;
    list = all;
    EXPECT_EQ(Names(e.FilterDate(list, j)), kept) << opt;
  }
}

TEST_F(Filters, AnUnreadableDateGoesToTheTrapAndEmptiesTheList) {
  CurrentDir cwd(dir.str());
  FileList list = Make({"a"});
  job j = MakeJob();
  j.FileAge = 3;
  j.DateFrom = "someday";
  j.DateTo = "10.03.2024";
  EXPECT_TRUE(e.FilterDate(list, j).empty());
  EXPECT_EQ(e.trap.ErrorCount(), 1);
}

TEST_F(Filters, VanishedFileIsKeptWhenTheTrapGoesOn) {
  CurrentDir cwd(dir.str());
  e.host.messageBox = [](const MessageBoxRequest&) { return BoxAnswer::Ignore; };
  FileList list = Make({"big"}, std::string(10, 'x'));
  list.push_back(In("gone"));
  job j = MakeJob();
  j.FileOpt = 1;
  j.FileSize = 5;
  EXPECT_EQ(Names(e.FilterFileSize(list, j)), (std::vector<std::string>{"big", "gone"}));
  EXPECT_EQ(e.trap.ErrorCount(), 1);
}

TEST_F(Filters, StopEmptiesTheList) {
  FileList list = Make({"a.zip", "b.zip", "c.zip"});
  int yields = 0;
  e.host.yield = [&] {
    if (++yields == 2) e.stop = true;
  };
  job j = MakeJob();
  EXPECT_TRUE(e.FilterZip(list, j).empty());
  EXPECT_TRUE(list.empty());
}

// The age in minutes counts the minute boundaries between the file's time and now.
class FileAgeFilter : public Filters {
 protected:
  static Host FixedAt(std::time_t t) {
    Host h;
    h.clock = Clock::StartingAt(t);
    return h;
  }
  FileAgeFilter() { e.host = FixedAt(kNow); }
  // 12:30:30 leaves half a minute of slack before the clock crosses the next boundary.
  static inline const std::time_t kNow = LocalTime(2024, 5, 6, 12, 30, 30);
};

TEST_F(FileAgeFilter, MinuteBoundariesNotElapsedMinutes) {
  const std::pair<const char*, std::time_t> files[] = {
      {"m0", LocalTime(2024, 5, 6, 12, 30, 0)},   // 0 boundaries
      {"m1", LocalTime(2024, 5, 6, 12, 29, 59)},  // 31 s, but 1 boundary
      {"m2", LocalTime(2024, 5, 6, 12, 28, 59)},  // 91 s, 2 boundaries
      {"m3", LocalTime(2024, 5, 6, 12, 27, 0)},   // 3 boundaries
  };
  const FileList all = WithTimes(files);
  job j = MakeJob();
  j.FileAgeType = 1;
  j.FileAgeDiff = 2;
  j.FileAge = 1;  // at least two boundaries
  FileList list = all;
  EXPECT_EQ(Names(e.FilterDate(list, j)), (std::vector<std::string>{"m2", "m3"}));
  j.FileAge = 2;  // at most two
  list = all;
  EXPECT_EQ(Names(e.FilterDate(list, j)), (std::vector<std::string>{"m0", "m1", "m2"}));
  j.FileAgeType = 2;  // the access time, set alike
  list = all;
  EXPECT_EQ(Names(e.FilterDate(list, j)), (std::vector<std::string>{"m0", "m1", "m2"}));
}

TEST_F(FileAgeFilter, AtLeastOldPassesOverVanishedFiles) {
  WriteFile(In("old"), "");
  SetModified(In("old"), LocalTime(2024, 1, 1, 0, 0, 0));
  FileList list = {In("gone"), In("old")};
  job j = MakeJob();
  j.FileAge = 1;
  j.FileAgeDiff = 10;
  EXPECT_EQ(Names(e.FilterDate(list, j)), (std::vector<std::string>{"gone", "old"}));
}

}  // namespace
}  // namespace orvKestrel::testing
