// The filters in their fixed order, and the dispatch of what survives them to the action.
#include "platform/Paths.h"

#include "Rig.h"

#include <functional>

namespace orvKestrel::testing {
namespace {

using Filter = FileList (*)(Services&, FileList&, job&);

class Filters : public Rig {
 protected:
  Filters() { j.Action = 6; }  // does nothing: the selection alone
  // Files below src: "name" (empty), "name:N" (N bytes) or "name@T" (written at T).
  FileList Make(const std::vector<std::string>& specs) {
    FileList list;
    for (const auto& s : specs) {
      const auto colon = s.find(':'), at = s.find('@');
      const std::string name = s.substr(0, std::min(colon, at));
      WriteFile(Src(name), colon == std::string::npos ? "" : std::string(std::stoul(s.substr(colon + 1)), 'x'));
      if (at != std::string::npos) SetModified(Src(name), std::stoll(s.substr(at + 1)));
      list.push_back(Src(name));
    }
    return list;
  }
  std::string Kept(Filter f, FileList list) {
    std::string text;
    for (const auto& p : f(svc, list, j)) text += (text.empty() ? "" : " ") + paths::GetFileName(p);
    return text;
  }
};

TEST_F(Filters, SizeExtensionAndZip) {
  const auto size = [](std::int16_t opt) { return [=](job& j) { j.FileOpt = opt, j.FileSize = 100; }; };
  const auto ext = [](std::int16_t opt, const char* e) { return [=](job& j) { j.ExtOpt = opt, j.Ext = e; }; };
  const std::vector<std::string> sized = {"99:99", "100:100", "101:101"};
  const std::vector<std::string> named = {"a.txt", "b.LOG", "c.log", "d.TXT", "noext", "e.doc", "f.txt.bak", "g."};
  const struct {
    Filter f;
    std::function<void(job&)> set;
    std::vector<std::string> files;
    const char* kept;
  } rows[] = {
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
  };
  for (const auto& r : rows) {
    Fresh();
    r.set(j);
    SCOPED_TRACE(j.Ext + " " + std::to_string(j.FileOpt));
    EXPECT_EQ(Kept(r.f, Make(r.files)), r.kept);
  }
  Fresh();
  j.Ext = "txt, *.LOG";
  j.ExtOpt = 2;
  Kept(&FilterExtention, Make({"a.txt"}));
  EXPECT_EQ(j.Ext, "txt,*.LOG");  // the list is kept without its blanks
}

TEST_F(Filters, AttributesAreDroppedOnlyOnExactEquality) {
  FileList list = Make({"plain", ".hidden", "ro", ".hidro"});
  ::chmod(Src("ro").c_str(), 0444);
  ::chmod(Src(".hidro").c_str(), 0444);  // hidden + read-only = 3
  j.AttrHidden = j.AttrReadOnly = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "plain .hidro");
  Fresh().AttrNormal = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), ".hidden ro .hidro");
  j.AttrNormal = 2;  // only a checked box counts
  EXPECT_EQ(Kept(&FilterAttributes, list), "plain .hidden ro .hidro");
  if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  list = Make({"h", "ha", "a", "s"});
  for (const auto& [f, v] : {std::pair{"h", "0x2"}, {"ha", "0x22"}, {"a", "0x20"}, {"s", "0x4"}}) SetDosAttrib(Src(f), v);
  Fresh().AttrHidden = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "ha a s");  // hidden + archive survives
  j.AttrArchive = j.AttrSystem = 1;
  EXPECT_EQ(Kept(&FilterAttributes, list), "ha");
}

TEST_F(Filters, DateRangeKeepsTheWholeDaysInclusive) {
  const FileList all = Make({"before@" + std::to_string(LocalTime(2024, 3, 9, 23, 59, 59)),
                             "first@" + std::to_string(LocalTime(2024, 3, 10, 0, 0, 0)),
                             "noon@" + std::to_string(LocalTime(2024, 3, 10, 12, 0, 0)),
                             "last@" + std::to_string(LocalTime(2024, 3, 10, 23, 59, 59)),
                             "after@" + std::to_string(LocalTime(2024, 3, 11, 0, 0, 0))});
  j.FileAge = 3;
  j.FileAgeType = 1;
  j.DateFrom = j.DateTo = "10.03.2024";
  EXPECT_EQ(Kept(&FilterDate, all), "first noon last");
  j.FileAge = 4;
  j.FileDateDate = "2024-03-10";  // ISO dates are read as well
  const char* kept[] = {"before first", "last after", "first noon last", "before first noon last after"};
  for (std::int16_t opt = 0; opt < 4; ++opt) {
    j.FileDateOpt = opt;
    EXPECT_EQ(Kept(&FilterDate, all), kept[opt]) << opt;
  }
}

// The age in minutes counts the minute boundaries between the file's time and now; 12:30:30
// leaves half a minute of slack before the clock crosses the next one.
TEST_F(Filters, AgeCountsMinuteBoundariesNotElapsedMinutes) {
  svc.host.clock = Clock::StartingAt(LocalTime(2024, 5, 6, 12, 30, 30));
  const FileList all = Make({"m0@" + std::to_string(LocalTime(2024, 5, 6, 12, 30, 0)),
                             "m1@" + std::to_string(LocalTime(2024, 5, 6, 12, 29, 59)),   // 31 s
                             "m2@" + std::to_string(LocalTime(2024, 5, 6, 12, 28, 59)),   // 91 s
                             "m3@" + std::to_string(LocalTime(2024, 5, 6, 12, 27, 0))});
  j.FileAgeType = 1;
  j.FileAgeDiff = 2;
  j.FileAge = 1;  // at least two boundaries
  EXPECT_EQ(Kept(&FilterDate, all), "m2 m3");
  j.FileAge = 2;  // at most two
  EXPECT_EQ(Kept(&FilterDate, all), "m0 m1 m2");
  j.FileAgeType = 2;  // the access time, set alike
  EXPECT_EQ(Kept(&FilterDate, all), "m0 m1 m2");
  j.FileAge = 1;  // "at least old" passes over a vanished file
  j.FileAgeDiff = 10;
  const FileList old = Make({"old@" + std::to_string(LocalTime(2024, 1, 1, 0, 0, 0))});
  EXPECT_EQ(Kept(&FilterDate, {Src("gone"), old[0]}), "gone old");
}

TEST_F(Filters, TrapAndStop) {
  j.FileAge = 3;
  j.DateFrom = "someday";
  j.DateTo = "10.03.2024";
  EXPECT_EQ(Kept(&FilterDate, Make({"a"})), "");  // an unreadable date empties the list
  EXPECT_EQ(svc.trap.ErrorCount(), 1);
  // A file that vanished is kept when the trap's answer goes on.
  svc.host.messageBox = [](const MessageBoxRequest&) { return BoxAnswer::Ignore; };
  Fresh();
  j.FileOpt = 1;
  j.FileSize = 5;
  FileList list = Make({"big:10"});
  list.push_back(Src("gone"));
  EXPECT_EQ(Kept(&FilterFileSize, list), "big gone");
  EXPECT_EQ(svc.trap.ErrorCount(), 2);
  // A stop empties the list.
  int yields = 0;
  svc.host.yield = [&] {
    if (++yields == 2) svc.stop = true;
  };
  list = Make({"a.zip", "b.zip", "c.zip"});
  EXPECT_TRUE(FilterZip(svc, list, j).empty());
  EXPECT_TRUE(list.empty());
}

TEST_F(Filters, EachActionIsAnnouncedAsAProgressLine) {
  const std::tuple<std::int16_t, CheckState, int, std::string> cases[] = {
      {0, 0, 18, "job: Kopiere Dateien ..."},
      {0, 1, 18, "job: Kopiere Dateien ..."},
      {1, 0, 19, "job: Verschiebe Dateien ..."},
      {2, 1, 20, "job: Lösche Dateien aus " + src},
      {3, 1, 30, "job: Komprimiere Dateien (Kopie) -  "},
      {4, 1, 70, "job: Dekomprimiere Dateien"},
      {5, 0, 89, "job: Synchronisiere Verzeichnis " + src + " mit " + dst},
      {5, 1, 91, "job: Synchronisiere Verzeichnis (Vorschau) " + src},
      {22, 1, 96, "job: Lösche Dateien aus sekundärem Verzeichnis " + dst},
  };
  for (const auto& [action, preview, id, text] : cases) {
    SCOPED_TRACE(text);
    Next();
    Fresh().Action = action;
    j.DoPreview = preview;
    FileList list = Make({"a.zip"});
    DoMoveCopySelection(run, svc, list);
    ASSERT_FALSE(rec.lines.empty());
    const LoggedLine& l = rec.lines.front();
    EXPECT_EQ(l.text, text);
    EXPECT_EQ(l.id, id);
    EXPECT_TRUE(l.view && l.sameView);
    EXPECT_FALSE(l.file || l.isLast);
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(preview == 0 || Exists(Src("a.zip")));  // a preview deletes or moves nothing
  }
}

// ProcessFiles: the filters run in order on each other's survivors; a stop erases the list
// without a word. (The check line, and an emptied list that never reaches the action: e2e
// selection_test, OnlyTheSelectedFilesReachTheAction.)
TEST_F(Filters, ProcessFilesHandsOnOnlyWhatSurvives) {
  j.Action = 4;
  j.Ext = "txt, log";  // the extension filter, after the zip filter, would rewrite this
  j.ExtOpt = 2;
  FileList list = Make({"a.txt"});
  ProcessFiles(run, svc, list);
  EXPECT_TRUE(run.noFiles);  // the extraction takes archives only
  EXPECT_EQ(j.Ext, "txt, log");

  Next();
  j.DoPreview = 1;
  j.FileOpt = 2;  // smaller than 100 bytes
  j.FileSize = 100;
  j.Ext = "zip ,doc";
  list = Make({"a.zip:1", "b.zip:500", "c.txt:1"});
  ProcessFiles(run, svc, list);
  EXPECT_EQ(j.Ext, "zip,doc");
  const auto ids = rec.Ids();
  EXPECT_EQ(std::count(ids.begin(), ids.end(), 70), 1);
  EXPECT_FALSE(run.noFiles);

  Next();
  Fresh().Action = 0;
  svc.stop = true;
  list = Make({"a.txt"});
  ProcessFiles(run, svc, list);
  EXPECT_TRUE(rec.lines.empty());
  EXPECT_TRUE(list.empty());
  EXPECT_FALSE(run.noFiles);
  svc.stop = false;  // a stop between filtering and acting: the dispatch yields first
  list = Make({"a.txt"});
  svc.host.yield = [&] { svc.stop = true; };
  DoMoveCopySelection(run, svc, list);
  EXPECT_TRUE(rec.lines.empty());
  EXPECT_TRUE(list.empty());
}

}  // namespace
}  // namespace orvKestrel::testing
