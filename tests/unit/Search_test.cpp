#include "SelectionSupport.h"
#include "platform/Paths.h"
#include "selection/RegExp.h"

#include <fmt/format.h>

namespace orvKestrel::testing {
namespace {

namespace fs = std::filesystem;

class Search : public SelectionTest {
 protected:
  // The walk alone: the files FindFiles gathers.
  std::vector<std::string> Walk(job& j, bool sub = true) {
    e.files.clear();
    if (!e.regex) e.regex = std::make_unique<RegExpCache>();
    if (j.DoFolderMatch == 1 || j.DoFolderMatch == 2) {
      e.CleanFolderPattern(j.FolderMatch, j.UseFolderRegEx != 0);
    }
    if (j.DoFileMatch == 1 || j.DoFileMatch == 2) e.CleanFilePattern(j.Filename, j.UseFileRegEx != 0);
    e.FindFiles(j.From, "*.*", sub, j);
    return e.files;
  }
  // Names relative to the source folder.
  std::vector<std::string> Rel(const std::vector<std::string>& files) {
    std::vector<std::string> out;
    for (const auto& f : files) out.push_back(f.substr(In("").size()));
    return out;
  }
  // The same, sorted: for walks whose order another test pins.
  std::vector<std::string> Sorted(job& j) {
    auto out = Rel(Walk(j));
    std::sort(out.begin(), out.end());
    return out;
  }
  // The walk order as the file system lists: files of a folder first, then each sub-folder.
  void Expected(const std::string& rel, std::vector<std::string>& out) {
    const std::string folder = In(rel);
    const auto names = ListingOrder(folder);
    for (const auto& n : names) {
      if (!fs::is_directory(folder + n)) out.push_back(rel + n);
    }
    for (const auto& n : names) {
      if (fs::is_directory(folder + n)) Expected(rel + n + "/", out);
    }
  }
};

TEST_F(Search, AThousandFilesGiveExactlyAThousandInListingOrder) {
  for (int i = 0; i < 1000; ++i) WriteFile(In(fmt::format("f{:04}.txt", i)), "");
  job j = MakeJob();
  const auto files = Walk(j);
  ASSERT_EQ(files.size(), 1000u);
  std::vector<std::string> expected;
  Expected("", expected);
  EXPECT_EQ(Rel(files), expected);
  EXPECT_EQ(files.front().rfind(In(""), 0), 0u);  // full paths built below From
}

TEST_F(Search, DepthFirstPreOrderWithFilesBeforeSubFolders) {
  for (const char* f : {"a.txt", "s1/b.txt", "s1/deep/c.txt", "s1/z.txt", "s2/d.txt",
                        "s2/e/f/g.txt", "y.txt"}) {
    WriteFile(In(f), "");
  }
  job j = MakeJob();
  std::vector<std::string> expected;
  Expected("", expected);
  EXPECT_EQ(Rel(Walk(j)), expected);
  EXPECT_EQ(Walk(j, false).size(), 2u);
}

TEST_F(Search, NamesWithoutBaseNameAreNeverSelectedAndMatchingUsesTheBaseName) {
  for (const char* f : {".profile", "a.b.txt", "syslog.txt", "LOGFILE.DAT", "other.log"}) {
    WriteFile(In(f), "");
  }
  job j = MakeJob();
  EXPECT_EQ(Sorted(j),
            (std::vector<std::string>{"LOGFILE.DAT", "a.b.txt", "other.log", "syslog.txt"}));

  j.DoFileMatch = 2;
  j.Filename = "*log*";
  EXPECT_EQ(Sorted(j), (std::vector<std::string>{"LOGFILE.DAT", "syslog.txt"}));

  j = MakeJob();
  j.DoFileMatch = 2;
  j.Filename = "a.b";
  EXPECT_EQ(Rel(Walk(j)), std::vector<std::string>{"a.b.txt"});

  j = MakeJob();
  j.DoFileMatch = 1;
  j.Filename = "*log*";
  EXPECT_EQ(Sorted(j), (std::vector<std::string>{"a.b.txt", "other.log"}));
}

// An empty wildcard is rewritten before the walk ("^$" for files, "//" for folders), so it is
// no longer empty there: it matches no name. Only an empty regular expression stays empty.
TEST_F(Search, EmptyPatternsMatchNothingAndEmptyExpressionsSelectNothing) {
  WriteFile(In("a.txt"), "");
  WriteFile(In("sub/b.txt"), "");
  const std::vector<std::string> all = {"a.txt", "sub/b.txt"}, top = {"a.txt"};
  for (const CheckState regex : {0, 1}) {
    SCOPED_TRACE(regex);
    job j = MakeJob();
    j.UseFileRegEx = j.UseFolderRegEx = regex;
    j.DoFileMatch = 2;
    EXPECT_TRUE(Walk(j).empty());
    j.Filename.clear();
    j.DoFileMatch = 1;
    EXPECT_EQ(Walk(j).size(), regex ? 0u : 2u);

    j = MakeJob();
    j.UseFileRegEx = j.UseFolderRegEx = regex;
    j.DoFolderMatch = 2;
    EXPECT_EQ(Rel(Walk(j)), top);
    j.FolderMatch.clear();
    j.DoFolderMatch = 1;
    EXPECT_EQ(Rel(Walk(j)), regex ? top : all);
  }
}

TEST_F(Search, SubFoldersAreLoggedBeforeTheyAreEnteredOrSkipped) {
  WriteFile(In("a.txt"), "");
  WriteFile(In(".hid/x.txt"), "");
  WriteFile(In(".hid/deeper/y.txt"), "");
  job j = MakeJob();
  j.NoHidenFolderScan = 1;
  EXPECT_EQ(Rel(Walk(j)), std::vector<std::string>{"a.txt"});
  const auto t16 = Lines(16);
  ASSERT_EQ(t16.size(), 1u);
  EXPECT_EQ(t16[0].text, "Suche Dateien ... " + In(".hid"));
  EXPECT_TRUE(t16[0].view);
  EXPECT_FALSE(t16[0].file);
  EXPECT_TRUE(t16[0].sameView);
  EXPECT_FALSE(t16[0].isLast);

  rec.lines.clear();
  j.NoHidenFolderScan = 0;
  EXPECT_EQ(Walk(j).size(), 3u);
  EXPECT_EQ(Lines(16).size(), 2u);
  rec.lines.clear();
  Walk(j, false);
  EXPECT_TRUE(Lines(16).empty());
}

TEST_F(Search, AttributeSkipsReadTheSubFolderOnlyWhenAsked) {
  WriteFile(In("ro/a.txt"), "");
  WriteFile(In("sys/b.txt"), "");
  Chmod(In("ro"), 0555);
  job j = MakeJob();
  j.NoReadOnlyFolderScan = 1;
  auto files = Rel(Walk(j));
  EXPECT_EQ(files.size(), 1u);
  EXPECT_EQ(files.front(), "sys/b.txt");
  if (!UserXattrsWork(dir.str())) GTEST_SKIP() << "no user extended attributes on " << dir.str();
  SetDosAttrib(In("sys"), "0x4");
  EXPECT_EQ(Walk(j).size(), 1u);  // system is skipped only when NoSystemFolderScan asks
  j.NoSystemFolderScan = 1;
  EXPECT_EQ(Walk(j).size(), 0u);
  j.NoReadOnlyFolderScan = 0;
  EXPECT_EQ(Rel(Walk(j)), std::vector<std::string>{"ro/a.txt"});
}

TEST_F(Search, FolderPatternsPruneWholeSubTrees) {
  for (const char* f : {"keep1/a.txt", "keep1/inner/b.txt", "drop/c.txt", "drop/keep2/d.txt"}) {
    WriteFile(In(f), "");
  }
  job j = MakeJob();
  j.DoFolderMatch = 2;
  j.FolderMatch = "keep*";
  EXPECT_EQ(Sorted(j), (std::vector<std::string>{"keep1/a.txt", "keep1/inner/b.txt"}));

  j = MakeJob();
  j.DoFolderMatch = 1;
  j.FolderMatch = "keep*";
  EXPECT_EQ(Rel(Walk(j)), std::vector<std::string>{"drop/c.txt"});
}

TEST_F(Search, AFolderPatternNamingAComponentOfFromExcludesEverySubFolder) {
  WriteFile(In("top.txt"), "");
  WriteFile(In("a/x.txt"), "");
  WriteFile(In("b/c/y.txt"), "");
  job j = MakeJob();
  j.DoFolderMatch = 1;
  j.FolderMatch = "in";  // From ends in ".../in"
  EXPECT_EQ(Rel(Walk(j)), std::vector<std::string>{"top.txt"});
}

TEST_F(Search, LinksToFilesAreFilesAndLinksToFoldersAreNotFollowed) {
  WriteFile(In("real.txt"), "x");
  WriteFile(In("sub/deep.txt"), "");
  fs::create_symlink(In("real.txt"), In("link.txt"));
  fs::create_symlink(In(""), In("sub/loop"));
  fs::create_symlink(In("missing"), In("dangling.txt"));
  ::mkfifo(In("pipe").c_str(), 0600);
  job j = MakeJob();
  EXPECT_EQ(Sorted(j), (std::vector<std::string>{"link.txt", "real.txt", "sub/deep.txt"}));
}

TEST_F(Search, SearchAnnouncesAndRewritesPatternsAndReportsNoFiles) {
  job j = MakeJob();
  j.DoFileMatch = 2;
  j.Filename = "a*";
  j.DoFolderMatch = 1;
  j.FolderMatch = "x";
  e.Search(j, true, false);
  EXPECT_EQ(j.Filename, "^a.*$");
  EXPECT_EQ(j.FolderMatch, "/x/");
  EXPECT_TRUE(e.noFiles);
  ASSERT_EQ(rec.lines.size(), 1u);
  EXPECT_EQ(rec.lines[0].text, "Suche Dateien ...");
  EXPECT_EQ(rec.lines[0].id, 16);
  EXPECT_TRUE(rec.lines[0].file);
  EXPECT_FALSE(rec.lines[0].sameView);

  WriteFile(In("a.txt"), "");
  rec.lines.clear();
  j = MakeJob();  // the record keeps its rewritten patterns: a second run would rewrite again
  j.DoFileMatch = 2;
  j.Filename = "a*";
  e.Search(j, true, false);
  EXPECT_FALSE(e.noFiles);
  EXPECT_EQ(rec.Texts(), (std::vector<std::string>{"Suche Dateien ...", "j: Überprüfe Dateien ..."}));
  EXPECT_TRUE(e.files.empty());  // handed on and consumed
}

TEST_F(Search, MissingSourceFolderGivesNoFiles) {
  job j = MakeJob();
  j.From = dir / "nowhere";
  e.Search(j, true, false);
  EXPECT_TRUE(e.noFiles);
  EXPECT_TRUE(Lines(17).empty());
}

TEST_F(Search, StopEndsTheWalkWithoutHandingOn) {
  for (const char* f : {"a.txt", "s1/b.txt", "s2/c.txt"}) WriteFile(In(f), "");
  int yields = 0;
  e.host.yield = [&] {
    if (++yields == 4) e.stop = true;
  };
  job j = MakeJob();
  e.Search(j, true, false);
  EXPECT_TRUE(Lines(17).empty());
  EXPECT_FALSE(e.noFiles);
  EXPECT_LT(e.files.size(), 3u);
}

TEST_F(Search, InvalidFilePatternGoesToTheTrapAndKeepsWhatWasGathered) {
  CurrentDir cwd(dir.str());
  WriteFile(In("a.txt"), "");
  WriteFile(In("sub/b.txt"), "");
  job j = MakeJob();
  j.DoFileMatch = 2;
  j.UseFileRegEx = 1;
  j.Filename = "(";
  EXPECT_TRUE(Walk(j).empty());
  EXPECT_GE(e.trap.ErrorCount(), 1);
  EXPECT_TRUE(Exists(dir / "error.log"));
}

TEST_F(Search, HandleFoldersBuildsTheSubPathBelowTo) {
  job j = MakeJob();
  j.From = In("");  // with a trailing "/"
  EXPECT_EQ(e.HandleFolders(In("a.txt"), j), j.To);
  EXPECT_EQ(e.HandlePreviewFolders(In("x/y/a.txt"), j), j.To + "/x/y");
  EXPECT_FALSE(fs::exists(j.To + "/x"));
  j.From = dir / "in";  // without
  EXPECT_EQ(e.HandleFolders(In("x/y/a.txt"), j), j.To + "/x/y");
  EXPECT_TRUE(fs::is_directory(j.To + "/x/y"));
  EXPECT_EQ(e.HandleFolders(In("x/a.txt"), j), j.To + "/x");
}

}  // namespace
}  // namespace orvKestrel::testing
