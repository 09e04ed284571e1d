#include "platform/Paths.h"

#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class PreviewTest : public ActionsTest {
 protected:
  // Runs the preview of one file and checks that nothing changed on disk.
  std::vector<std::string> PreviewOf(const std::string& rel, const std::string& mode) {
    rec.lines.clear();
    const auto before = Snapshot(tmp.str());
    FileList list{Src(rel)};
    engine.Preview(list, j, mode);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(Snapshot(tmp.str()), before);
    auto lines = Lines();
    lines.erase(lines.begin(), lines.begin() + 2);  // the head and the count
    return lines;
  }
  std::string Arrow(const std::string& rel) { return Src(rel) + " nach " + Dst(rel); }
  std::string Over(const std::string& rel) { return Src(rel) + " überschreibt " + Dst(rel); }
};

TEST_F(PreviewTest, HeadAndCountAsTheRealRun) {
  Source("a.txt", "a");
  Source("b.txt", "b");
  j.OnlyCompare = 1;
  FileList list{Src("a.txt"), Src("b.txt")};
  engine.Preview(list, j, "Move");
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         "Vorschau - Dateien verschieben (keine Aktionen): " + src,
                         "Dateien gefunden: 2 (Vergleiche nur existierende Dateien)"}));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{52, 84}));
  EXPECT_EQ(rec.counters.size(), 2u);
}

TEST_F(PreviewTest, EachPolicyTellsWhatTheRealRunWouldDo) {
  struct Case {
    std::int16_t exist, select;
    CheckState efsDelete;
    bool destExists;
    const char* mode;
    std::vector<std::string> expected;  // "S" "D" "N" stand for the paths
  };
  Source("a.txt", "bigger", kNew);
  const std::vector<Case> cases = {
      {0, 0, 0, true, "Copy", {"Datei existiert: A"}},
      {0, 0, 0, false, "Copy", {"Würde kopiert: A"}},
      {0, 0, 0, false, "Move", {"Würde verschoben: A"}},
      {1, 0, 0, true, "Copy", {"Würde gelöscht: S"}},
      {2, 0, 0, true, "Copy", {"Kopierte Datei würde umbenannt: S nach N"}},
      {2, 0, 0, true, "Move", {"Verschobene Datei würde umbenannt: S nach N"}},
      {2, 0, 0, false, "Move", {"Würde verschoben: A"}},
      {3, 0, 0, true, "Copy", {"Würde von Kopie überschrieben: O"}},
      {3, 0, 0, true, "Move", {"Würde ersetzt: O"}},
      {4, 0, 0, true, "Copy", {"Würde von neu kopierter Datei überschrieben: O"}},
      {4, 0, 0, true, "Move", {"Würde von neu verschobener Datei überschrieben: O"}},
      {4, 1, 0, true, "Copy", {"Quelldatei nicht älter: A"}},
      {4, 5, 0, true, "Copy", {"Quelldatei nicht kleiner: A"}},
      {4, 7, 0, true, "Move", {"Quelldatei nicht kleiner und älter: A"}},
      {4, 8, 0, true, "Copy", {"Datei existiert: A"}},
      {4, 0, 1, true, "Copy", {"Würde von neu kopierter Datei überschrieben: O", "Würde gelöscht: S"}},
      {4, 0, 1, true, "Move", {"Würde von neu verschobener Datei überschrieben: O"}},
      {4, 1, 1, true, "Move", {"Quelldatei nicht älter: A", "Würde gelöscht: S"}},
      {5, 0, 0, true, "Copy", {}},
  };
  j.PickRenamer = 1;
  j.ExtFileTime = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.exist) + "/" + std::to_string(c.select) + " " + c.mode);
    std::filesystem::remove(Dst("a.txt"));
    if (c.destExists) Dest("a.txt", "old", kOld);
    j.Exist = c.exist;
    j.EFSelect = c.select;
    j.EFSDelete = c.efsDelete;
    std::vector<std::string> expected;
    for (std::string line : c.expected) {
      line = paths::ReplaceAll(line, "A", Arrow("a.txt"));
      line = paths::ReplaceAll(line, "O", Over("a.txt"));
      line = paths::ReplaceAll(line, "N", Dst("a_1.txt"));
      line = paths::ReplaceAll(line, ": S", ": " + Src("a.txt"));
      expected.push_back(line);
    }
    EXPECT_EQ(PreviewOf("a.txt", c.mode), expected);
  }
}

TEST_F(PreviewTest, OnlyCompareReportsNothingForNewFilesExceptWhenRenaming) {
  j.OnlyCompare = 1;
  Source("a.txt", "a");
  for (std::int16_t exist : {0, 1, 3, 4}) {
    j.Exist = exist;
    EXPECT_EQ(PreviewOf("a.txt", "Copy"), std::vector<std::string>{}) << exist;
  }
  j.Exist = 2;
  j.PickRenamer = 1;
  EXPECT_EQ(PreviewOf("a.txt", "Copy"), std::vector<std::string>{"Würde kopiert: " + Arrow("a.txt")});
}

TEST_F(PreviewTest, FailuresTheRealRunWouldHaveAreShownWithoutFailingThePreview) {
  j.To = src;
  j.ExtFileTime = 1;
  Source("a.txt", "a");
  const std::string error = "job: Fehler: source and destination are the same file -  Move files ";
  for (std::int16_t exist : {1, 3}) {
    j.Exist = exist;
    EXPECT_EQ(PreviewOf("a.txt", "Copy"), std::vector<std::string>{error + Src("a.txt")});
  }
  // Comparing a file with itself refuses, and nothing is deleted: no error in the real run.
  j.Exist = 4;
  EXPECT_EQ(PreviewOf("a.txt", "Copy"),
            std::vector<std::string>{"Quelldatei nicht neuer: " + Src("a.txt") + " nach " + Src("a.txt")});
  j.EFSDelete = 1;
  EXPECT_EQ(PreviewOf("a.txt", "Copy"), std::vector<std::string>{error + Src("a.txt")});
  EXPECT_FALSE(engine.jobError);
}

TEST_F(PreviewTest, FoldersASourceDeletionWouldEmptyAreReported) {
  j.Exist = 1;
  j.DelEFolSource = 1;
  Source("x/y/a.txt", "a");
  Source("x/y/b.txt", "b");
  Dest("a.txt", "a");
  Dest("b.txt", "b");
  const auto before = Snapshot(tmp.str());
  FileList list{Src("x/y/a.txt"), Src("x/y/b.txt")};
  engine.Preview(list, j, "Copy");
  EXPECT_EQ(Snapshot(tmp.str()), before);
  EXPECT_EQ(FileLines(), (std::vector<std::string>{
                             "Dateien gefunden: 2", "Würde gelöscht: " + Src("x/y/a.txt"),
                             "Würde gelöscht: " + Src("x/y/b.txt"), "Würde gelöscht: " + Src("x/y"),
                             "Würde gelöscht: " + Src("x")}));
}

TEST_F(PreviewTest, DeletePreviewListsFilesAndTheFoldersTheyWouldEmpty) {
  j.DelEFol = 1;
  Source("a.txt", "a");
  Source("x/b.txt", "b");
  Source("z/c.txt", "c");
  Source("z/other.txt", "o");
  const auto before = Snapshot(tmp.str());
  FileList list{Src("a.txt"), "", Src("x/b.txt"), Src("z/c.txt")};
  engine.DeleteFilesPreview(list, j);
  EXPECT_EQ(Snapshot(tmp.str()), before);
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         "Vorschau - Dateien löschen (keine Aktionen): " + src, "Dateien gefunden: 4",
                         "Würde gelöscht: " + Src("a.txt"), "Würde gelöscht: " + Src("x/b.txt"),
                         "Würde gelöscht: " + Src("x"), "Würde gelöscht: " + Src("z/c.txt")}));
}

TEST_F(PreviewTest, SynchronisationReportsAFileOnceOverBothPassesAndTheRemoval) {
  Source("both.txt", "p", kNew);
  Source("only-primary.txt", "p");
  Dest("both.txt", "s", kOld);
  Dest("only-secondary.txt", "s");
  Dest("removed.txt", "s");
  j.Action = 5;
  j.Exist = 4;
  j.ExtFileTime = 1;
  const auto before = Snapshot(tmp.str());
  // Pass 1: primary to secondary.
  engine.syncPass = 1;
  FileList first{Src("both.txt"), Src("only-primary.txt")};
  engine.Preview(first, j, "Copy");
  // Removal from the secondary folder.
  j.Action = 22;
  FileList removal{Dst("removed.txt")};
  engine.DeleteSyncFilesPreview(removal, j);
  // Pass 2: the folders swapped.
  j.Action = 5;
  std::swap(j.From, j.To);
  engine.syncPass = 2;
  FileList second{Dst("both.txt"), Dst("only-secondary.txt"), Dst("removed.txt")};
  engine.Preview(second, j, "Copy");
  EXPECT_EQ(Snapshot(tmp.str()), before);
  const std::string t92 = "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         "Vorschau - Dateien kopieren (keine Aktionen): " + src, "Dateien gefunden: 2",
                         "Würde von neu kopierter Datei überschrieben: " + Src("both.txt") +
                             " überschreibt " + Dst("both.txt"),
                         "Würde kopiert: " + Src("only-primary.txt") + " nach " + Dst("only-primary.txt"),
                         t92, t92, "Vorschau - Dateien löschen (keine Aktionen): " + dst,
                         "Datei gefunden: 1",
                         "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden) " + Dst("removed.txt"),
                         "Vorschau - Dateien kopieren (keine Aktionen): " + dst, "Datei gefunden: 1",
                         "Würde kopiert: " + Dst("only-secondary.txt") + " nach " + Src("only-secondary.txt"),
                         "Synchronisation abgeschlossen! "}));
  engine.syncPass = 0;
}

}  // namespace
}  // namespace orvKestrel::testing
