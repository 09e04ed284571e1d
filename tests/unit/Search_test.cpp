// The folder walk and its patterns.
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/RegExp.h"

#include "Rig.h"

#include <dirent.h>
#include <fmt/format.h>

#include <functional>

namespace orvKestrel::testing {
namespace {

namespace fs = std::filesystem;

class Search : public Rig {
 protected:
  Search() { j.Action = 6; }  // does nothing: the selection alone
  // The walk alone: the files FindFiles gathers, relative to From.
  std::vector<std::string> Walk(bool sub = true) {
    run.files.clear();
    if (!svc.regex) svc.regex = std::make_unique<RegExpCache>();
    if (j.DoFolderMatch == 1 || j.DoFolderMatch == 2) CleanFolderPattern(svc, j.FolderMatch, j.UseFolderRegEx != 0);
    if (j.DoFileMatch == 1 || j.DoFileMatch == 2) CleanFilePattern(svc, j.Filename, j.UseFileRegEx != 0);
    FindFiles(run, svc, j.From, "*.*", sub);
    std::vector<std::string> out;
    for (const auto& f : run.files) out.push_back(f.substr(src.size() + 1));
    return out;
  }
  std::string Sorted() {
    auto files = Walk();
    std::sort(files.begin(), files.end());
    std::string text;
    for (const auto& f : files) text += (text.empty() ? "" : " ") + f;
    return text;
  }
  // The walk order as the file system lists: files of a folder first, then each sub-folder.
  void Expected(const std::string& rel, std::vector<std::string>& out) {
    std::vector<std::string> names;
    if (DIR* d = ::opendir(Src(rel).c_str())) {
      while (const dirent* e = ::readdir(d)) {
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
      }
      ::closedir(d);
    }
    for (const auto& n : names) if (!fs::is_directory(Src(rel + n))) out.push_back(rel + n);
    for (const auto& n : names) if (fs::is_directory(Src(rel + n))) Expected(rel + n + "/", out);
  }
  std::vector<LoggedLine> Lines(int id) const {
    std::vector<LoggedLine> out;
    for (const auto& l : rec.lines) if (l.id == id) out.push_back(l);
    return out;
  }
};

TEST_F(Search, DepthFirstPreOrderInListingOrderWithFilesBeforeSubFolders) {
  for (int i = 0; i < 1000; ++i) WriteFile(Src(fmt::format("f{:04}.txt", i)), "");
  for (const char* f : {"s1/b.txt", "s1/deep/c.txt", "s1/z.txt", "s2/d.txt", "s2/e/f/g.txt"}) WriteFile(Src(f), "");
  std::vector<std::string> expected;
  Expected("", expected);
  EXPECT_EQ(Walk(), expected);
  EXPECT_EQ(expected.size(), 1005u);
  EXPECT_EQ(Walk(false).size(), 1000u);
}

// Names without a base name are never selected; file patterns match the base name; folder
// patterns prune whole sub-trees. An empty wildcard is rewritten ("^$" for files, "//" for
// folders) and matches no name; only an empty regular expression stays empty.
TEST_F(Search, PatternsSelectAndPrune) {
  for (const char* f : {".profile", "a.b.txt", "syslog.txt", "LOGFILE.DAT", "keep1/x.log", "drop/c.txt",
                        "drop/keep2/y.txt"}) {
    WriteFile(Src(f), "");
  }
  const std::string top = "LOGFILE.DAT a.b.txt syslog.txt";
  const auto file = [](CheckState how, const char* p, CheckState re = 0) {
    return [=](job& j) { j.DoFileMatch = how, j.Filename = p, j.UseFileRegEx = j.UseFolderRegEx = re; };
  };
  const auto folder = [](CheckState how, const char* p, CheckState re = 0) {
    return [=](job& j) { j.DoFolderMatch = how, j.FolderMatch = p, j.UseFileRegEx = j.UseFolderRegEx = re; };
  };
  const std::pair<std::function<void(job&)>, std::string> rows[] = {
      {[](job&) {}, "LOGFILE.DAT a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log syslog.txt"},
      {file(2, "*log*"), "LOGFILE.DAT syslog.txt"},  // "x.log" has the base name "x"
      {file(2, "a.b"), "a.b.txt"},
      {file(1, "*log*"), "a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log"},
      {folder(2, "keep*"), "LOGFILE.DAT a.b.txt keep1/x.log syslog.txt"},
      {folder(1, "keep*"), "LOGFILE.DAT a.b.txt drop/c.txt syslog.txt"},
      {folder(1, "src"), top},  // a component of From excludes every sub-folder
      {file(2, ""), ""},
      {file(2, "", 1), ""},
      {file(1, ""), "LOGFILE.DAT a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log syslog.txt"},
      {file(1, "", 1), ""},
      {folder(2, ""), top},
      {folder(2, "", 1), top},
      {folder(1, ""), "LOGFILE.DAT a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log syslog.txt"},
      {folder(1, "", 1), top},
  };
  for (const auto& [set, expected] : rows) {
    Fresh();
    set(j);
    SCOPED_TRACE(j.Filename + " | " + j.FolderMatch);
    EXPECT_EQ(Sorted(), expected);
  }
}

// What the walk takes under the pattern "*": links to files as files, hidden folders (the lines
// of the walk and the skip: e2e selection_test) and names with a line break, which "*" once
// missed; not linked folders, pipes, dangling links, nor the temporaries a killed run left
// (a later synchronisation carried such a partial file back into the source folder).
TEST_F(Search, WhatTheWalkTakes) {
  for (const char* f : {"real.txt", "sub/deep.txt", ".hid/x.txt", ".hid/deeper/y.txt", "line\nbreak.txt",
                        ".kestrel-notes.txt", "a.kestrel-42", ".kestrel-0123456789abcdeg.tmp", ".x.kestrel-tmp-",
                        ".kestrel-0123456789abcdef.tmp.toolong", ".kestrel-0123456789abcdef.tmp",
                        ".kestrel-0123456789abcdef.tmp.Ab12Cd", ".a.kjb.kestrel-tmp-123456", ".b.txt.kestrel-42"}) {
    WriteFile(Src(f), "");
  }
  fs::create_symlink(Src("real.txt"), Src("link.txt"));
  fs::create_symlink(src, Src("sub/loop"));
  fs::create_symlink(Src("missing"), Src("dangling.txt"));
  ::mkfifo(Src("pipe").c_str(), 0600);
  j.DoFileMatch = 2;
  j.Filename = "*";
  EXPECT_EQ(Sorted(),
            ".hid/deeper/y.txt .hid/x.txt .kestrel-0123456789abcdef.tmp.toolong .kestrel-0123456789abcdeg.tmp "
            ".kestrel-notes.txt .x.kestrel-tmp- a.kestrel-42 line\nbreak.txt link.txt real.txt sub/deep.txt");
}

TEST_F(Search, AttributeSkipsReadTheSubFolderOnlyWhenAsked) {
  WriteFile(Src("ro/a.txt"), "");
  WriteFile(Src("sys/b.txt"), "");
  ::chmod(Src("ro").c_str(), 0555);
  j.NoReadOnlyFolderScan = 1;
  EXPECT_EQ(Walk(), std::vector<std::string>{"sys/b.txt"});
  if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  SetDosAttrib(Src("sys"), "0x4");
  EXPECT_EQ(Walk().size(), 1u);  // system is skipped only when NoSystemFolderScan asks
  j.NoSystemFolderScan = 1;
  EXPECT_EQ(Walk().size(), 0u);
  j.NoReadOnlyFolderScan = 0;
  EXPECT_EQ(Walk(), std::vector<std::string>{"ro/a.txt"});
}

// A From that is gone gives no files and no check line (the lines of a search that finds
// nothing or something: e2e selection_test; the rewriting: PatternRewriting).
TEST_F(Search, AMissingFromReportsNoFiles) {
  j.From = tmp / "nowhere";
  orvKestrel::Search(run, svc, true, false);
  EXPECT_TRUE(run.noFiles);
  EXPECT_TRUE(Lines(17).empty());
}

TEST_F(Search, StopEndsTheWalkWithoutHandingOn) {
  for (const char* f : {"a.txt", "s1/b.txt", "s2/c.txt"}) WriteFile(Src(f), "");
  int yields = 0;
  svc.host.yield = [&] {
    if (++yields == 4) svc.stop = true;
  };
  orvKestrel::Search(run, svc, true, false);
  EXPECT_TRUE(Lines(17).empty());
  EXPECT_FALSE(run.noFiles);
  EXPECT_LT(run.files.size(), 3u);
}

TEST_F(Search, InvalidFilePatternGoesToTheTrapAndKeepsWhatWasGathered) {
  WriteFile(Src("a.txt"), "");
  WriteFile(Src("sub/b.txt"), "");
  j.DoFileMatch = 2;
  j.UseFileRegEx = 1;
  j.Filename = "(";
  EXPECT_TRUE(Walk().empty());
  EXPECT_GE(svc.trap.ErrorCount(), 1);
  EXPECT_TRUE(Exists(tmp / "error.log"));
}

TEST_F(Search, HandleFoldersBuildsTheSubPathBelowTo) {
  j.From = src + "/";
  EXPECT_EQ(HandleFolders(svc, Src("a.txt"), j), dst);
  EXPECT_EQ(HandlePreviewFolders(svc, Src("x/y/a.txt"), j), dst + "/x/y");
  EXPECT_FALSE(fs::exists(dst + "/x"));
  j.From = src;
  EXPECT_EQ(HandleFolders(svc, Src("x/y/a.txt"), j), dst + "/x/y");
  EXPECT_TRUE(fs::is_directory(dst + "/x/y"));
  EXPECT_EQ(HandleFolders(svc, Src("x/a.txt"), j), dst + "/x");
}

// How a pattern is rewritten: wildcards become anchored expressions (folders framed by
// separators), regular expressions stay, and without the caller's switch a folder
// expression's "^" means the start of a component.
TEST_F(Search, PatternRewriting) {
  const struct {
    bool folder, regex, callerRegex;
    const char *in, *out;
  } cases[] = {
      {false, false, false, "report*", "^report.*$"}, {false, false, false, "a?c", "^a.?c$"},
      {false, false, false, "a.b", "^a\\.b$"}, {false, false, false, "x(1)[2]{3}", "^x\\(1\\)\\[2\\]\\{3\\}$"},
      {false, false, false, "^$", "^\\^\\$$"}, {false, false, false, "a|b+c\\d", "^a|b+c\\d$"},
      {false, false, false, "", "^$"}, {false, true, false, "^a.*[0-9]$", "^a.*[0-9]$"},
      {true, true, true, "^te(.*)*st", "^te(.*)*st"}, {true, false, false, "temp*", "/temp(.?)*/"},
      {true, false, false, "a?.b", "/a.?\\.b/"}, {true, false, false, "a\\b", "/a/b/"},
      {true, false, false, "a/b", "/a/b/"}, {true, true, false, "^temp", "\\/temp"},
      {true, true, false, "(.*)*x", "(.?)*x"}, {true, true, false, "a\\^b", "a\\^b"},
  };
  for (const auto& c : cases) {
    svc.filterRegExp = c.callerRegex;
    std::string p = c.in;
    c.folder ? CleanFolderPattern(svc, p, c.regex) : CleanFilePattern(svc, p, c.regex);
    EXPECT_EQ(p, c.out) << c.in;
  }
}

TEST_F(Search, PatternsMatch) {
  RegExpCache re;
  const struct {
    bool folder, regex;
    const char *pattern, *subject;
    bool matches;
  } cases[] = {
      // "?" matches zero or one character; case is ignored.
      {false, false, "a?c", "ac", true}, {false, false, "a?c", "abc", true},
      {false, false, "a?c", "abbc", false}, {false, false, "a?c", "xabc", false},
      {false, false, "*log*", "LOGFILE", true}, {false, false, "*log*", "lgo", false},
      // "^report|invoice$": either alternative, each anchored on its own side only.
      {false, false, "report|invoice", "report2024", true}, {false, false, "report|invoice", "my invoice", true},
      {false, false, "report|invoice", "my report", false},
      // Folder wildcards match whole components anywhere in the path.
      {true, false, "temp*", "/x/Temp1/y/", true}, {true, false, "temp*", "/x/mytemp/", false},
      {true, false, "a\\b", "/r/a/b/", true}, {true, false, "a\\b", "/r/a/c/b/", false},
      {true, true, "^te", "/data/tests/", true}, {true, true, "^te", "/data/ate/", false},
      {true, true, "x\\^y", "/data/x^y/", true},
      // Wildcards take names with line breaks.
      {false, false, "*", "a\nb", true}, {false, false, "*b*", "a\nb\nc", true},
      {true, false, "x*", "/r/x\ny/", true},
  };
  for (const auto& c : cases) {
    std::string p = c.pattern;
    c.folder ? CleanFolderPattern(svc, p, c.regex) : CleanFilePattern(svc, p, c.regex);
    EXPECT_EQ(re.Test(p, c.subject), c.matches) << c.pattern << " ~ " << c.subject;
  }
  EXPECT_TRUE(re.Test("^\\u00e4$", "\xc3\xa4"));  // \uHHHH
  EXPECT_TRUE(re.Test("^\\x41$", "a"));           // \xHH, without regard to case
  EXPECT_FALSE(re.Test("^a$", "a\n"));            // "$" only at the very end
  EXPECT_TRUE(re.Test("^(x)?\\1b$", "b"));        // an unset back reference matches nothing
  EXPECT_THROW(re.Test("a(", "a"), KestrelError);
  EXPECT_TRUE(re.Test("^a.b$", "a\xff" "b"));     // invalid UTF-8 names are matched
  EXPECT_FALSE(re.Test("^x", "a\xff" "b"));
}

}  // namespace
}  // namespace orvKestrel::testing
