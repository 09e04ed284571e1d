// The folder walk and its patterns, the filters, the dispatch of what survives them, and the
// attributes and types of files they look at.
#include "platform/SysError.h"
#include "selection/DestinationMemo.h"
#include "selection/RegExp.h"
#include "selection/modDetermineFileType.h"
#include "selection/modFilterAttribute.h"

#include "Rig.h"

#include <fmt/format.h>

namespace orvKestrel::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

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
};

TEST_F(Search, DepthFirstPreOrderInListingOrderWithFilesBeforeSubFolders) {
  for (int i = 0; i < 1000; ++i) WriteFile(Src(fmt::format("f{:04}.txt", i)), "");
  for (const char* f : {"s1/b.txt", "s1/deep/c.txt", "s1/z.txt", "s2/d.txt", "s2/e/f/g.txt"}) WriteFile(Src(f), "");
  // The order the file system lists them in: the files of a folder first, then each sub-folder.
  std::vector<std::string> expected;
  const std::function<void(const std::string&)> list = [&](const std::string& rel) {
    std::vector<std::string> subs;
    for (const auto& e : fs::directory_iterator(Src(rel)))
      (e.is_directory() ? subs : expected).push_back(rel + e.path().filename().string());
    for (const auto& sub : subs) list(sub + "/");
  };
  list("");
  EXPECT_EQ(expected.size(), 1005u);
  for (const int jobs : {1, 4}) {  // with listings read ahead by a thread of their own
    svc.jobs = jobs;
    EXPECT_EQ(Walk(), expected) << jobs;
    EXPECT_EQ(Walk(false).size(), 1000u) << jobs;
  }
}

// Names without a base name are never selected; file patterns match the base name; folder
// patterns prune whole sub-trees. An empty wildcard is rewritten ("^$" for files, "//" for
// folders) and matches no name; only an empty regular expression stays empty.
TEST_F(Search, PatternsSelectAndPrune) {
  for (const char* f : {".profile", "a.b.txt", "syslog.txt", "LOGFILE.DAT", "keep1/x.log", "drop/c.txt",
                        "drop/keep2/y.txt"})
    WriteFile(Src(f), "");
  const std::string top = "LOGFILE.DAT a.b.txt syslog.txt";
  const std::string all = "LOGFILE.DAT a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log syslog.txt";
  const auto file = [](CheckState how, const char* p, CheckState re = 0) {
    return [=](job& j) { j.DoFileMatch = how, j.Filename = p, j.UseFileRegEx = j.UseFolderRegEx = re; };
  };
  const auto folder = [](CheckState how, const char* p, CheckState re = 0) {
    return [=](job& j) { j.DoFolderMatch = how, j.FolderMatch = p, j.UseFileRegEx = j.UseFolderRegEx = re; };
  };
  const std::pair<std::function<void(job&)>, std::string> rows[] = {
      {[](job&) {}, all},
      {file(2, "*log*"), "LOGFILE.DAT syslog.txt"},  // "x.log" has the base name "x"
      {file(2, "a.b"), "a.b.txt"},
      {file(1, "*log*"), "a.b.txt drop/c.txt drop/keep2/y.txt keep1/x.log"},
      {folder(2, "keep*"), "LOGFILE.DAT a.b.txt keep1/x.log syslog.txt"},
      {folder(1, "keep*"), "LOGFILE.DAT a.b.txt drop/c.txt syslog.txt"},
      {folder(1, "src"), top},  // a component of From excludes every sub-folder
      {file(2, ""), ""}, {file(2, "", 1), ""}, {file(1, ""), all}, {file(1, "", 1), ""},
      {folder(2, ""), top}, {folder(2, "", 1), top}, {folder(1, ""), all}, {folder(1, "", 1), top},
  };
  for (const int jobs : {1, 4}) {
    for (const auto& [set, expected] : rows) {
      set(Fresh());
      svc.jobs = jobs;
      SCOPED_TRACE(j.Filename + " | " + j.FolderMatch + " | jobs " + std::to_string(jobs));
      EXPECT_EQ(Sorted(), expected);
    }
  }
}

// What the walk takes under the pattern "*": hidden folders (the lines of the walk and the skip:
// e2e Selection) and names with a line break, which "*" once missed; not pipes, nor the
// temporaries a killed run left (a later synchronisation carried such a partial file back into
// the source folder). Links to files, linked folders, loops and dangling links: e2e hostile_test.
TEST_F(Search, WhatTheWalkTakes) {
  for (const char* f : {"real.txt", "sub/deep.txt", ".hid/x.txt", ".hid/deeper/y.txt", "line\nbreak.txt",
                        ".kestrel-notes.txt", "a.kestrel-42", ".kestrel-0123456789abcdeg.tmp", ".x.kestrel-tmp-",
                        ".kestrel-0123456789abcdef.tmp.toolong", ".kestrel-0123456789abcdef.tmp",
                        ".kestrel-0123456789abcdef.tmp.Ab12Cd", ".a.kjb.kestrel-tmp-123456", ".b.txt.kestrel-42"})
    WriteFile(Src(f), "");
  ::mkfifo(Src("pipe").c_str(), 0600);
  j.DoFileMatch = 2, j.Filename = "*";
  EXPECT_EQ(Sorted(),
            ".hid/deeper/y.txt .hid/x.txt .kestrel-0123456789abcdef.tmp.toolong .kestrel-0123456789abcdeg.tmp "
            ".kestrel-notes.txt .x.kestrel-tmp- a.kestrel-42 line\nbreak.txt real.txt sub/deep.txt");
}

TEST_F(Search, AttributeSkipsReadTheSubFolderOnlyWhenAsked) {
  for (const char* f : {"ro/a.txt", "sys/b.txt"}) WriteFile(Src(f), "");
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
// nothing or something: e2e Selection); a stop ends the walk without either.
TEST_F(Search, AMissingFromOrAStopEndsWithoutACheckLine) {
  for (const char* f : {"a.txt", "s1/b.txt", "s2/c.txt"}) WriteFile(Src(f), "");
  int yields = 0;
  svc.host.yield = [&] { if (++yields == 4) svc.stop = true; };
  orvKestrel::Search(run, svc, true, false);
  EXPECT_EQ(std::tuple(std::ranges::count(rec.Ids(), 17), run.noFiles, run.files.size() < 3u),
            std::tuple(0, false, true));
  svc.stop = false, svc.host.yield = [] {};
  j.From = tmp / "nowhere";
  orvKestrel::Search(run, svc, true, false);
  EXPECT_EQ(std::tuple(std::ranges::count(rec.Ids(), 17), run.noFiles), std::tuple(0, true));  // no check line
}

// A From with a trailing separator gives the same sub-path. (Folders made below To, and none by a
// preview: e2e Selection's FStruct row, Actions.PreviewCreatesNoFolder.)
TEST_F(Search, HandleFoldersBuildsTheSubPathBelowTo) {
  j.From = src + "/";
  EXPECT_EQ(HandleFolders(svc, Src("x/y/a.txt"), j), dst + "/x/y");
  EXPECT_EQ(HandleFolders(svc, Src("a.txt"), j), dst);
  // The folder kept for the files of one folder is the one worked out anew: also after a last
  // part that is no name, and after the job's folders were swapped.
  DestinationMemo memo;
  for (const char* rel : {"x/a.txt", "x/b.txt", "x/..", "x/c.txt", "x/.", "a.txt", "x/y/z/d.txt"}) {
    EXPECT_EQ(memo.Of(Src(rel), j), DestinationFolder(Src(rel), j)) << rel;
  }
  std::swap(j.From, j.To);
  EXPECT_EQ(memo.Of(Src("x/y/z/d.txt"), j), DestinationFolder(Src("x/y/z/d.txt"), j));
}

// Wildcards become anchored expressions (folders: whole components framed by separators) with
// every other character taken literally; regular expressions stay, and without the caller's
// switch a folder expression's "^" means the start of a component (that "^sub" then excludes
// sub, and with the switch names no folder: e2e Selection). Kinds: 'f' a file wildcard,
// 'F' a file expression, 'd' a folder wildcard, 'D' a folder expression, 'C' the same with the
// caller's switch, 'r' an expression as the matcher takes it.
TEST_F(Search, PatternsMatch) {
  RegExpCache re;
  const std::tuple<char, const char*, const char*, bool> cases[] = {
      // "?" matches zero or one character; case is ignored.
      {'f', "a?c", "ac", 1}, {'f', "a?c", "abc", 1}, {'f', "a?c", "abbc", 0}, {'f', "a?c", "xabc", 0},
      {'f', "*log*", "LOGFILE", 1}, {'f', "*log*", "lgo", 0}, {'f', "report*", "xreport", 0}, {'f', "a.b", "axb", 0},
      {'f', "x(1)[2]{3}", "x(1)[2]{3}", 1}, {'f', "^$", "^$", 1}, {'f', "^$", "", 0}, {'F', "^a.*[0-9]$", "abc1", 1},
      // "^report|invoice$": either alternative, each anchored on its own side only.
      {'f', "report|invoice", "report2024", 1}, {'f', "report|invoice", "my invoice", 1},
      {'f', "report|invoice", "my report", 0}, {'f', "a|b+c\\d", "xbbc1", 1},
      // Folder wildcards match whole components anywhere in the path.
      {'d', "temp*", "/x/Temp1/y/", 1}, {'d', "temp*", "/x/mytemp/", 0}, {'d', "a\\b", "/r/a/b/", 1},
      {'d', "a\\b", "/r/a/c/b/", 0}, {'d', "a/b", "/r/a/b/", 1}, {'d', "a?.b", "/r/ax.b/", 1},
      {'d', "a?.b", "/r/axxb/", 0}, {'D', "^te", "/data/ate/", 0}, {'D', "x\\^y", "/data/x^y/", 1},
      {'C', "^/data/te", "/data/tests/", 1},
      // Wildcards take names with line breaks.
      {'f', "*", "a\nb", 1}, {'f', "*b*", "a\nb\nc", 1}, {'d', "x*", "/r/x\ny/", 1},
      // \uHHHH; \xHH without regard to case; "$" only at the very end; an unset back reference
      // matches nothing; names of invalid UTF-8 are matched.
      {'r', "^\\u00e4$", "\xc3\xa4", 1}, {'r', "^\\x41$", "a", 1}, {'r', "^a$", "a\n", 0},
      {'r', "^(x)?\\1b$", "b", 1}, {'r', "^a.b$", "a\xff" "b", 1}, {'r', "^x", "a\xff" "b", 0},
  };
  for (const auto& [kind, pattern, subject, matches] : cases) {
    svc.filterRegExp = kind == 'C';
    std::string p = pattern;
    if (kind == 'f' || kind == 'F') CleanFilePattern(svc, p, kind == 'F');
    if (kind == 'd' || kind == 'D' || kind == 'C') CleanFolderPattern(svc, p, kind != 'd');
    EXPECT_EQ(re.Test(p, subject), matches) << kind << " " << pattern << " ~ " << subject;
  }
  // A nested repetition is rewritten so that it cannot backtrack without end. (An expression that
  // does not compile fails the job before any file: e2e RunSafety.)
  std::string nested = "(.*)*x";
  CleanFolderPattern(svc, nested, true);
  EXPECT_EQ(nested, "(.?)*x");
}

using Filter = FileList (*)(Services&, FileList&, job&);

// The filters in their fixed order, and the dispatch of what survives them to the action.
class Filters : public Search {
 protected:
  // Files below src: "name" (empty), "name:N" (N bytes) or "name@YYYY-MM-DD HH:MM:SS" (written then);
  // a name beginning with "gone" is listed but never written.
  FileList Make(const std::vector<std::string>& specs) {
    FileList list;
    for (const auto& s : specs) {
      const auto at = s.find('@'), colon = s.substr(0, at).find(':');
      const std::string name = s.substr(0, std::min(colon, at));
      list.push_back(Src(name));
      if (name.starts_with("gone")) continue;
      WriteFile(Src(name), colon == std::string::npos ? "" : std::string(std::stoul(s.substr(colon + 1)), 'x'));
      int t[6] = {};
      if (at != s.npos &&
          std::sscanf(s.c_str() + at + 1, "%d-%d-%d %d:%d:%d", t, t + 1, t + 2, t + 3, t + 4, t + 5) == 6)
        SetModified(Src(name), LocalTime(t[0], t[1], t[2], t[3], t[4], t[5]));
    }
    return list;
  }
  std::string Kept(Filter f, FileList list) {
    std::string text;
    for (const auto& p : f(svc, list, j)) text += (text.empty() ? "" : " ") + paths::GetFileName(p);
    return text;
  }
};

// Each filter by its settings. Dates: a range keeps whole days inclusive; an age counts the
// minute boundaries between the file's time and now, 12:30:30, which leaves half a minute of
// slack before the clock crosses the next one (m1 is 31 s old, m2 91 s).
TEST_F(Filters, EachFilterKeepsWhatItsSettingsLetThrough) {
  svc.host.clock = Clock::StartingAt(LocalTime(2024, 5, 6, 12, 30, 30));
  const auto size = [](std::int16_t opt) { return [=](job& j) { j.FileOpt = opt, j.FileSize = 100; }; };
  const auto ext = [](std::int16_t opt, const char* e) { return [=](job& j) { j.ExtOpt = opt, j.Ext = e; }; };
  // FileAge (3: DateFrom to DateTo, 4: FileDateDate by FileDateOpt), FileAgeType, FileAgeDiff, FileDateOpt.
  const auto dated = [](std::int16_t age, std::int16_t type, std::int32_t diff, std::int16_t opt) {
    return [=](job& j) {
      j.FileAge = age, j.FileAgeType = type, j.FileAgeDiff = diff, j.FileDateOpt = opt;
      j.DateFrom = j.DateTo = "10.03.2024", j.FileDateDate = "2024-03-10";  // ISO dates are read as well
    };
  };
  const std::vector<std::string> sized = {"99:99", "100:100", "101:101"};
  const std::vector<std::string> named = {"a.txt", "b.LOG", "c.log", "d.TXT", "noext", "e.doc", "f.txt.bak", "g."};
  const std::vector<std::string> days = {"before@2024-03-09 23:59:59", "first@2024-03-10 00:00:00",
                                         "noon@2024-03-10 12:00:00", "last@2024-03-10 23:59:59",
                                         "after@2024-03-11 00:00:00"};
  const std::vector<std::string> minutes = {"m0@2024-05-06 12:30:00", "m1@2024-05-06 12:29:59",
                                            "m2@2024-05-06 12:28:59", "m3@2024-05-06 12:27:00"};
  // The filter, the job's settings, the files and those the filter keeps.
  const std::tuple<Filter, std::function<void(job&)>, std::vector<std::string>, const char*> rows[] = {
      {&FilterFileSize, size(1), sized, "101"},  // the limit is exclusive both ways
      {&FilterFileSize, size(2), sized, "99"},
      {&FilterFileSize, size(0), sized, "99 100 101"},
      {&FilterExtention, ext(2, "txt, *.LOG"), named, "a.txt b.LOG c.log d.TXT"},
      {&FilterExtention, ext(1, "*."), named, "a.txt b.LOG c.log d.TXT e.doc f.txt.bak"},  // "g." too
      {&FilterExtention, ext(1, "doc,TXT"), named, "b.LOG c.log noext f.txt.bak g."},
      {&FilterExtention, ext(2, ""), named, "a.txt b.LOG c.log d.TXT noext e.doc f.txt.bak g."},
      {&FilterExtention, ext(2, "   "), named, "a.txt b.LOG c.log d.TXT noext e.doc f.txt.bak g."},
      {&FilterExtention, ext(3, "txt"), named, "a.txt b.LOG c.log d.TXT noext e.doc f.txt.bak g."},
      {&FilterZip, [](job&) {}, {"a.zip", "B.ZIP", "c.zip.txt", "zip"}, "a.zip B.ZIP"},
      {&FilterDate, dated(3, 1, 1, 0), days, "first noon last"},
      {&FilterDate, dated(4, 1, 1, 0), days, "before first"},
      {&FilterDate, dated(4, 1, 1, 1), days, "last after"},
      {&FilterDate, dated(4, 1, 1, 2), days, "first noon last"},
      {&FilterDate, dated(4, 1, 1, 3), days, "before first noon last after"},
      {&FilterDate, dated(1, 1, 2, 0), minutes, "m2 m3"},     // at least two boundaries
      {&FilterDate, dated(2, 1, 2, 0), minutes, "m0 m1 m2"},  // at most two
      {&FilterDate, dated(2, 2, 2, 0), minutes, "m0 m1 m2"},  // the access time, set alike
      // "At least old" passes over a vanished file.
      {&FilterDate, dated(1, 1, 10, 0), {"gone", "old@2024-01-01 00:00:00"}, "gone old"},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const auto& [f, set, files, kept] = rows[i];
    set(Fresh());
    EXPECT_EQ(Kept(f, Make(files)), kept) << "row " << i;
  }
}

TEST_F(Filters, TrapAndStop) {
  j.FileAge = 3, j.DateFrom = "someday", j.DateTo = "10.03.2024";
  EXPECT_EQ(Kept(&FilterDate, Make({"a"})), "");  // an unreadable date empties the list
  EXPECT_EQ(svc.trap.ErrorCount(), 1);
  // A file that vanished is kept when the trap's answer goes on.
  svc.host.messageBox = [](const MessageBoxRequest&) { return BoxAnswer::Ignore; };
  Fresh();
  j.FileOpt = 1, j.FileSize = 5;
  FileList list = Make({"big:10", "gone"});
  EXPECT_EQ(Kept(&FilterFileSize, list), "big gone");
  EXPECT_EQ(svc.trap.ErrorCount(), 2);
  // A stop empties the list.
  int yields = 0;
  svc.host.yield = [&] { if (++yields == 2) svc.stop = true; };
  list = Make({"a.zip", "b.zip", "c.zip"});
  EXPECT_TRUE(FilterZip(svc, list, j).empty());
  EXPECT_TRUE(list.empty());
}

TEST_F(Filters, EachActionIsAnnouncedAsAProgressLine) {
  const std::tuple<std::int16_t, CheckState, int, std::string> cases[] = {
      {0, 0, 18, "job: Kopiere Dateien ..."}, {0, 1, 18, "job: Kopiere Dateien ..."},
      {1, 0, 19, "job: Verschiebe Dateien ..."}, {2, 1, 20, "job: Lösche Dateien aus " + src},
      {3, 1, 30, "job: Komprimiere Dateien (Kopie) -  "}, {4, 1, 70, "job: Dekomprimiere Dateien"},
      {5, 0, 89, "job: Synchronisiere Verzeichnis " + src + " mit " + dst},
      {5, 1, 91, "job: Synchronisiere Verzeichnis (Vorschau) " + src},
      {22, 1, 96, "job: Lösche Dateien aus sekundärem Verzeichnis " + dst},
  };
  for (const auto& [action, preview, id, text] : cases) {
    Next();
    Fresh().Action = action;
    j.DoPreview = preview;
    FileList list = Make({"a.zip"});
    DoMoveCopySelection(run, svc, list);
    ASSERT_FALSE(rec.lines.empty());
    const LoggedLine& l = rec.lines.front();  // a progress line: in the view, not in the log file
    EXPECT_EQ(std::tuple(l.text, l.id, l.view && l.sameView && !l.file && !l.isLast), std::tuple(text, id, true));
    EXPECT_TRUE(list.empty() && (preview == 0 || Exists(Src("a.zip"))));  // a preview deletes or moves nothing
  }
}

// Attributes drop a file only when its attributes equal those checked, all of them together.
TEST_F(Filters, AttributesAreDroppedOnlyOnExactEquality) {
  FileList list = Make({"plain", ".hidden", "ro", ".hidro"});
  for (const char* f : {"ro", ".hidro"}) ::chmod(Src(f).c_str(), 0444);  // .hidro: hidden + read-only = 3
  j.AttrHidden = j.AttrReadOnly = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "plain .hidro");
  Fresh().AttrNormal = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), ".hidden ro .hidro");
  j.AttrNormal = 2;  // only a checked box counts
  EXPECT_EQ(Kept(&FilterAttributes, list), "plain .hidden ro .hidro");
  if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  list = Make({"h", "ha", "a", "s"});
  for (const auto& [f, v] : {std::pair{"h", "0x2"}, {"ha", "0x22"}, {"a", "0x20"}, {"s", "0x4"}})
    SetDosAttrib(Src(f), v);
  Fresh().AttrHidden = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "ha a s");  // hidden + archive survives
  j.AttrArchive = j.AttrSystem = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "ha");
}

// ProcessFiles: the filters run in order on each other's survivors; a stop erases the list
// without a word. (The check line, and an emptied list that never reaches the action: e2e
// Selection.OnlyTheSelectedFilesReachTheAction.)
TEST_F(Filters, ProcessFilesHandsOnOnlyWhatSurvives) {
  // The extraction takes archives only; the extension filter, after the zip filter, would have
  // rewritten the list.
  j.Action = 4, j.ExtOpt = 2, j.Ext = "txt, log";
  FileList list = Make({"a.txt"});
  ProcessFiles(run, svc, list);
  EXPECT_EQ(std::pair(run.noFiles, j.Ext), std::pair(true, "txt, log"s));

  Next();  // one archive smaller than 100 bytes; the extension filter drops the blanks of its list
  j.DoPreview = 1, j.FileOpt = 2, j.FileSize = 100, j.Ext = "zip ,doc";
  list = Make({"a.zip:1", "b.zip:500", "c.txt:1"});
  ProcessFiles(run, svc, list);
  EXPECT_EQ(std::tuple(j.Ext, std::ranges::count(rec.Ids(), 70), run.noFiles), std::tuple("zip,doc"s, 1, false));

  Next();
  Fresh().Action = 0, svc.stop = true;
  list = Make({"a.txt"});
  ProcessFiles(run, svc, list);
  EXPECT_EQ(std::tuple(rec.lines.size(), list.size(), run.noFiles), std::tuple(0u, 0u, false));
  svc.stop = false;  // a stop between filtering and acting: the dispatch yields first
  list = Make({"a.txt"});
  svc.host.yield = [&] { svc.stop = true; };
  DoMoveCopySelection(run, svc, list);
  EXPECT_EQ(std::tuple(rec.lines.size(), list.size()), std::tuple(0u, 0u));
}

// File attributes and times as the file system keeps them, and as a job sets them; the type of
// a file by its first bytes.

class Attributes : public Rig {
 protected:
  Attributes() { ::chmod(file.c_str(), 0664); }
  std::uint32_t Get(const std::string& path) { return svc.fs.GetAttributes(path); }
  std::string DosAttrib(const std::string& path) {
    char buf[64];
    const ssize_t n = ::getxattr(path.c_str(), "user.DOSATTRIB", buf, sizeof buf);
    return n < 0 ? std::string() : std::string(buf, static_cast<std::size_t>(n));
  }
  std::string file = Source("f.txt");
};

TEST_F(Attributes, ReadOnlyAndHiddenFromPermissionsNameAndKindWrittenOnlyWhenChanged) {
  EXPECT_EQ(Get(file), 0u);
  ::chmod(file.c_str(), 0464);  // group write alone does not make it writable for the owner
  EXPECT_EQ((std::vector{Get(file), Get(Source(".dot")), Get(src)}),
            (std::vector{kAttrReadOnly, kAttrHidden, kAttrDirectory}));
  EXPECT_THROW(Get(Src("missing")), KestrelError);
  // Read-only clears every write bit and gives the owner's back.
  ::chmod(file.c_str(), 0664);
  SetAttribute(svc, kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0444u);
  UnsetAttribute(svc, kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0644u);
  // Nothing is written when the bit is already as asked; failures go to the trap.
  faults.Arm(FaultOp::SetAttributes, 1, EIO);
  UnsetAttribute(svc, kAttrReadOnly, file);
  ::chmod(file.c_str(), 0444);
  SetAttribute(svc, kAttrReadOnly, file);
  ::chmod(file.c_str(), 0644);
  EXPECT_EQ(std::pair(faults.Calls(FaultOp::SetAttributes), svc.trap.ErrorCount()), std::pair(0, 0));
  SetAttribute(svc, kAttrReadOnly, file);  // now a write is needed, and it fails
  EXPECT_EQ(std::pair(svc.trap.ErrorCount(), ModeOf(file)), std::pair(1, 0644u));
  SetAttribute(svc, kAttrReadOnly, Src("missing"));
  EXPECT_EQ(svc.trap.ErrorCount(), 2);
}

TEST_F(Attributes, HiddenSystemArchiveRoundTripThroughTheExtendedAttribute) {
  if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  for (const auto& [bit, text] : {std::pair{kAttrHidden, "0x2"}, {kAttrSystem, "0x4"}, {kAttrArchive, "0x20"}}) {
    SetAttribute(svc, bit, file);
    EXPECT_EQ(std::pair(Get(file), DosAttrib(file)), std::pair(bit, std::string(text)));
    UnsetAttribute(svc, bit, file);
    EXPECT_EQ(Get(file), 0u);
  }
  for (const std::uint32_t bit : {kAttrHidden, kAttrArchive, kAttrReadOnly, kAttrSystem})
    SetAttribute(svc, bit, file);
  // System set on a read-only file, which stays so.
  EXPECT_EQ(std::pair(Get(file), ModeOf(file)), std::pair(39u, 0444u));
  // A file server's value: text, then a NUL and a binary tail; unknown bits are kept.
  ::chmod(file.c_str(), 0644);
  SetDosAttrib(file, std::string("0x822\0\x03\x00", 7));
  EXPECT_EQ(Get(file), kAttrHidden | kAttrArchive | kAttrCompressed);
  UnsetAttribute(svc, kAttrHidden, file);
  EXPECT_EQ(DosAttrib(file), "0x820");
  SetDosAttrib(file, "garbage");
  EXPECT_EQ(Get(file), 0u);
  // A dot name is hidden without recording it.
  const std::string dot = Source(".dot");
  SetAttribute(svc, kAttrArchive, dot);
  EXPECT_EQ(std::pair(DosAttrib(dot), Get(dot)), std::pair("0x20"s, kAttrHidden | kAttrArchive));
}

TEST_F(Attributes, DestinationAndSourceChoicesByMode) {
  if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  j.AttrHidden1 = j.AttrArchive1 = 1;
  j.AttrSystem1 = j.AttrSetDest = 2;  // only a checked box counts; 2 neither sets nor clears
  SetDestAttributes(svc, file, j);
  EXPECT_EQ(Get(file), 0u);
  j.AttrSetDest = 0;
  SetDestAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrHidden | kAttrArchive);
  j.AttrReadOnly2 = j.AttrHidden2 = j.AttrSetSource = 1;
  SetSourceAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrArchive);
  j.AttrSetSource = 0;
  SetSourceAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrArchive | kAttrHidden | kAttrReadOnly);
}

// Only values made of the four known bits answer, and only for one of those bits.
TEST(AttributeExists, OnlySumsOfTheFourKnownBitsAnswer) {
  const std::tuple<std::int32_t, std::int32_t, bool> cases[] = {
      {1, 1, 1}, {3, 2, 1}, {39, 4, 1}, {39, 32, 1}, {38, 1, 0}, {7, 32, 0}, {33, 32, 1}, {3, 3, 0}, {1, 0, 0},
      {0, 1, 0}, {-1, 1, 0}, {-31, 1, 0}, {9, 1, 0}, {2049, 1, 0}, {2048, 2048, 0}, {16, 16, 0}, {4095, 2, 0}};
  for (const auto& [attr, sel, yes] : cases) EXPECT_EQ(AttributeExists(attr, sel), yes) << attr << " " << sel;
}

// The job's time fields: 1 takes the source's time, 0 the destination's own as read before it
// was overwritten, anything else keeps the stored source value; whole seconds; a failed write is
// not reported.
TEST_F(Attributes, FileTimesByTheJobsFields) {
  const std::string s = Source("s"), d = Dest("d", "d");
  const struct timespec st[2] = {{kNew, 123456789}, {kOld, 987654321}};
  ::utimensat(AT_FDCWD, s.c_str(), st, 0);
  // DestTModified, DestTAccess, and the times written.
  const std::tuple<CheckState, CheckState, std::time_t, std::time_t> rows[] = {
      {1, 0, kOld, kOld - 1000}, {0, 2, kOld - 2000, kNew}, {1, 1, kOld, kNew}};
  j.DestTCreated = 1;
  for (const auto& [modified, access, written, accessed] : rows) {
    j.DestTModified = modified, j.DestTAccess = access;
    SetTimes(d, kOld - 1000, kOld - 2000);
    ASSERT_TRUE(ReadSourceFileTime(run, svc, s) && ReadDestFileTime(run, svc, d));
    WriteFile(d, "new contents");  // the overwrite moves its times on
    EXPECT_TRUE(WriteFileTime(run, svc, d));
    EXPECT_EQ(std::pair(svc.fs.GetTimes(d).written, svc.fs.GetTimes(d).accessed), std::pair(written, accessed))
        << modified << access;
  }
  struct stat buf {};
  ::stat(d.c_str(), &buf);
  EXPECT_EQ(buf.st_mtim.tv_nsec, 0);
  EXPECT_FALSE(ReadSourceFileTime(run, svc, Src("missing")));
  EXPECT_EQ(run.sourceTimes.written, kOld);  // the stored values stay
  EXPECT_FALSE(ReadDestFileTime(run, svc, Src("missing")));
  EXPECT_FALSE(WriteFileTime(run, svc, Src("missing")));
  faults.Arm(FaultOp::SetTimes, 1, EPERM);
  EXPECT_FALSE(WriteFileTime(run, svc, d));
  EXPECT_EQ(svc.trap.ErrorCount(), 0);
}

TEST_F(Attributes, FileTypeByTheFirstMatchingTest) {
  const std::pair<std::string, const char*> cases[] = {
      {"MZ\x90", "PE Executable"}, {"ZM", "PE Executable"}, {"[Job]\nFrom=x", "INI File"},
      {"[" + std::string(120, 'a') + "]", "Unknown text file"},  // "]" beyond 100
      {"RIFF\x10\0\0\0AVI LIST"s, "AVI Movie File"}, {"RIFF\x10\0\0\0WAVEfmt "s, "WAV Audio File"},
      {"\xD0\xCF\x11\xE0\xA1\xB1", "Microsoft Word Document"},
      {"\0\1\0\0Standard Jet DB"s, "Microsoft Access Database"},
      {"GIF87a", "GIF Image File"}, {"xxxxGIF89", "GIF Image File"}, {"\xFF\xFB\x90\x44\0"s, "MP3 Audio File"},
      {"\xFF\xD8\xFF\xE0\0\x10JFIF"s, "MP3 Audio File"},  // test 8 first
      {"\xFF\xD8\xFF\xE1\x12" "Exif", "JPEG Image File"}, {"BM6\0\0\0", "BMP (Bitmap) Image File"},
      {"II*\0", "TIFF Image File"}, {"PK\x03\x04", "ZIP Archive File"}, {"  <HTML><body>", "HTML Document File"},
      {"<!DOCTYPE html>", "HTML Document File"}, {"rar!\x1a", "RAR Archive File"}, {"\x60\xEAxx", "ARJ Archive File"},
      {"Type=Exe\r\nReference=x", "Visual Basic Project File"}, {"VBGROUP 5.0", "Visual Basic Group Project File"},
      {"VERSION 5.00\r\nBegin VB.Form", "Visual Basic Form File"}, {"VERSION 5.00\nBegin", "Unknown text file"},
      {"text\x02more", "Unknown binary file"}, {"plain text\r\n", "Unknown text file"},
      {"", "Unknown text file"},  // the blank buffer passes no test
      {std::string(300, 'a') + "GIF89", "Unknown text file"},  // only the first 300 bytes count
  };
  for (std::size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(GetFileType(svc.fs, Source("t" + std::to_string(i), cases[i].first)), cases[i].second) << i;
  EXPECT_EQ(GetFileType(svc.fs, Src("missing")), "NOT FOUND");
}

}  // namespace
}  // namespace orvKestrel::testing
