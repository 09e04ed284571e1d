#include "SelectionSupport.h"

namespace orvKestrel::testing {
namespace {

class Dispatch : public SelectionTest {};

TEST_F(Dispatch, EachActionIsAnnouncedAsAProgressLine) {
  struct Case {
    std::int16_t action;
    CheckState preview;
    int id;
    std::string text;
  };
  const std::string from = dir / "in", to = dir / "out";
  const Case cases[] = {
      {0, 0, 18, "j: Kopiere Dateien ..."},
      {0, 1, 18, "j: Kopiere Dateien ..."},
      {1, 0, 19, "j: Verschiebe Dateien ..."},
      {2, 1, 20, "j: Lösche Dateien aus " + from},
      {3, 1, 30, "j: Komprimiere Dateien (Kopie) -  "},
      {4, 1, 70, "j: Dekomprimiere Dateien"},
      {5, 0, 89, "j: Synchronisiere Verzeichnis " + from + " mit " + to},
      {5, 1, 91, "j: Synchronisiere Verzeichnis (Vorschau) " + from},
      {22, 1, 96, "j: Lösche Dateien aus sekundärem Verzeichnis " + to},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    rec.lines.clear();
    job j = MakeJob();
    j.Action = c.action;
    j.DoPreview = c.preview;
    FileList list = {In("a.zip")};
    WriteFile(list[0], "");
    e.DoMoveCopySelection(list, j);
    ASSERT_FALSE(rec.lines.empty());
    const LoggedLine& l = rec.lines.front();
    EXPECT_EQ(l.text, c.text);
    EXPECT_EQ(l.id, c.id);
    EXPECT_TRUE(l.view);
    EXPECT_FALSE(l.file);
    EXPECT_TRUE(l.sameView);
    EXPECT_FALSE(l.isLast);
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(c.preview == 0 || Exists(In("a.zip")));  // a preview deletes or moves nothing
  }
}

TEST_F(Dispatch, UnknownActionFiltersAnnouncesCheckingAndDoesNothing) {
  FileList list = Make({"a.txt"}, "x");
  job j = MakeJob();
  j.Action = 6;
  e.ProcessFiles(list, j);
  EXPECT_EQ(rec.Texts(), std::vector<std::string>{"j: Überprüfe Dateien ..."});
  EXPECT_EQ(rec.lines[0].id, 17);
  EXPECT_FALSE(e.noFiles);
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(Exists(In("a.txt")));
}

TEST_F(Dispatch, AListEmptiedByTheDateFilterNeverReachesTheAction) {
  FileList list = Make({"a.txt"}, "x");
  SetModified(In("a.txt"), LocalTime(2020, 1, 1, 12, 0, 0));
  job j = MakeJob();
  j.Action = 0;
  j.FileAge = 3;
  j.DateFrom = j.DateTo = "02.01.2020";
  e.ProcessFiles(list, j);
  EXPECT_EQ(Lines(17).size(), 1u);
  EXPECT_TRUE(Lines(18).empty());
  EXPECT_TRUE(e.noFiles);
  EXPECT_TRUE(list.empty());
}

TEST_F(Dispatch, ExtractionWithoutArchivesStopsAtTheZipFilter) {
  FileList list = Make({"a.txt"}, "x");
  job j = MakeJob();
  j.Action = 4;
  j.Ext = "txt, log";  // the extension filter would rewrite this
  j.ExtOpt = 2;
  e.ProcessFiles(list, j);
  EXPECT_TRUE(e.noFiles);
  EXPECT_EQ(j.Ext, "txt, log");
  EXPECT_TRUE(Lines(70).empty());
}

TEST_F(Dispatch, FiltersRunInOrderOnTheSurvivorsOfEachOther) {
  FileList list = Make({"a.zip", "b.zip", "c.txt"}, "x");
  WriteFile(In("b.zip"), std::string(500, 'x'));
  job j = MakeJob();
  j.Action = 4;
  j.DoPreview = 1;
  j.FileOpt = 2;  // smaller than 100 bytes
  j.FileSize = 100;
  j.Ext = "zip ,doc";
  j.ExtOpt = 2;
  e.ProcessFiles(list, j);
  EXPECT_EQ(j.Ext, "zip,doc");
  EXPECT_EQ(Lines(70).size(), 1u);
  EXPECT_FALSE(e.noFiles);
}

TEST_F(Dispatch, StopErasesTheListWithoutAWord) {
  FileList list = Make({"a.txt"}, "x");
  job j = MakeJob();
  j.Action = 0;
  e.stop = true;
  e.ProcessFiles(list, j);
  EXPECT_TRUE(rec.lines.empty());
  EXPECT_TRUE(list.empty());
  EXPECT_FALSE(e.noFiles);

  // A stop between filtering and acting: the dispatch yields first.
  e.stop = false;
  list = Make({"a.txt"}, "x");
  e.host.yield = [&] { e.stop = true; };
  e.DoMoveCopySelection(list, j);
  EXPECT_TRUE(rec.lines.empty());
  EXPECT_TRUE(list.empty());
}

}  // namespace
}  // namespace orvKestrel::testing
