#include "ActionsFixture.h"

#include <cstring>

namespace orvKestrel::testing {
namespace {

class DeleteTest : public ActionsTest {
 protected:
  ScopedEnv xdg{"XDG_DATA_HOME", tmp / "xdg"};  // the home trash inside the test's folder
};

TEST_F(DeleteTest, DeleteJobRemovesFilesAndEmptiedFoldersButNeverFrom) {
  j.DelEFol = 1;
  Source("a.txt", "a");
  Source("x/y/b.txt", "b");
  Source("x/keep/.hidden", "h");
  FileList list{Src("a.txt"), "", Src("x/y/b.txt")};
  engine.DeleteFiles(list, j);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(Lines(), (std::vector<std::string>{"Dateien gefunden: 3",
                                               "Quelle gelöscht (Datei existiert): " + Src("a.txt"),
                                               "Quelle gelöscht (Datei existiert): " + Src("x/y/b.txt"),
                                               "Verzeichnis gelöscht: " + Src("x/y")}));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{84, 36, 36, 37}));
  EXPECT_TRUE(Exists(src));
  EXPECT_TRUE(Exists(Src("x/keep/.hidden")));  // a hidden file keeps its folders
  EXPECT_EQ(rec.counters.size(), 3u);
}

TEST_F(DeleteTest, FromIsKeptWhateverItsSpelling) {
  j.DelEFol = 1;
  j.From = src + "/";
  Source("only.txt", "o");
  FileList list{Src("only.txt")};
  engine.DeleteFiles(list, j);
  EXPECT_TRUE(Exists(src));
  EXPECT_EQ(Names(src), std::vector<std::string>{});
}

TEST_F(DeleteTest, EmptiedFoldersStayWithoutDelEFol) {
  Source("x/a.txt", "a");
  FileList list{Src("x/a.txt")};
  engine.DeleteFiles(list, j);
  EXPECT_TRUE(Exists(Src("x")));
}

TEST_F(DeleteTest, FailureGivesItsLineAndTheListGoesOn) {
  Source("b.txt", "b");
  FileList list{Src("gone.txt"), Src("b.txt")};
  engine.DeleteFiles(list, j);
  EXPECT_EQ(FileLines(), (std::vector<std::string>{
                             "Fehler: No such file or directory - " + Src("gone.txt"),
                             "Quelle gelöscht (Datei existiert): " + Src("b.txt")}));
  EXPECT_TRUE(engine.jobError);
  EXPECT_FALSE(Exists(Src("b.txt")));
}

TEST_F(DeleteTest, RecycleBinTakesTheFileWithItsInfoEntry) {
  j.DelType = 1;
  Source("a.txt", "a");
  FileList list{Src("a.txt")};
  engine.DeleteFiles(list, j);
  EXPECT_FALSE(Exists(Src("a.txt")));
  EXPECT_EQ(ReadFile(tmp / "xdg/Trash/files/a.txt"), "a");
  EXPECT_TRUE(Exists(tmp / "xdg/Trash/info/a.txt.trashinfo"));
  EXPECT_EQ(FileLines(), std::vector<std::string>{"Quelle gelöscht (Datei existiert): " + Src("a.txt")});
}

// Logged as deleted as before, but followed by its error line: the job ends with its error.
TEST_F(DeleteTest, FailedRecycleIsLoggedAsDeletedAndAsAnError) {
  j.DelType = 1;
  Source("a.txt", "a");
  engine.faults.Arm(FaultOp::Trash, 1, EIO);
  FileList list{Src("a.txt")};
  engine.DeleteFiles(list, j);
  engine.faults.Disarm();
  EXPECT_TRUE(Exists(Src("a.txt")));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{85, 36, 10}));
  EXPECT_EQ(Lines().back(), "Fehler: Not moved to the trash: " + std::string(std::strerror(EIO)) +
                                " - " + Src("a.txt"));
  EXPECT_TRUE(engine.jobError);
}

TEST_F(DeleteTest, SingleFileDeletionsUseTheirOwnFieldsAndMessages) {
  struct Case {
    void (TestEngine::*del)(const std::string&, job&);
    std::int16_t id;
    const char* text;
  };
  const Case cases[] = {
      {&TestEngine::DeleteSourceFile, 36, "Quelle gelöscht (Datei existiert): "},
      {&TestEngine::DeleteZipSourceFile, 87, "Quelle gelöscht (Nach Zip-Kompression): "},
      {&TestEngine::DeleteFile, 36, "Quelle gelöscht (Datei existiert): "},
  };
  // Each member reads its own recycle-bin and folder switches: only that pair is on.
  j.DelTypeSource = j.ZipDelCompBin = j.DelType = 0;
  for (const Case& c : cases) {
    rec.lines.clear();
    const std::string a = Source("x/a.txt", "a");
    j.DelEFolSource = c.del == &TestEngine::DeleteSourceFile;
    j.ZipDelCompBinFolder = c.del == &TestEngine::DeleteZipSourceFile;
    j.DelEFol = c.del == &TestEngine::DeleteFile;
    (engine.*c.del)(a, j);
    EXPECT_EQ(Lines(), (std::vector<std::string>{c.text + a, "Verzeichnis gelöscht: " + Src("x")}));
    EXPECT_EQ(Ids().front(), c.id);
    (engine.*c.del)("", j);  // nothing to do
    EXPECT_EQ(Lines().size(), 2u);
  }
  rec.lines.clear();
  engine.DeleteSourceFile(Src("gone.txt"), j);
  EXPECT_EQ(Lines(), std::vector<std::string>{"Fehler: No such file or directory - " + Src("gone.txt")});
}

TEST_F(DeleteTest, SynchronisationRemovalReportsItsOwnMessageAndKeepsTheSecondaryRoot) {
  j.DelEFol = 1;
  Dest("sub/b.txt", "b");
  FileList list{Dst("sub/b.txt")};
  engine.DeleteSyncFiles(list, j);
  EXPECT_EQ(FileLines(), (std::vector<std::string>{
                             "Datei gelöscht (Im primären Verzeichnis nicht vorhanden) " + Dst("sub/b.txt"),
                             "Verzeichnis gelöscht: " + Dst("sub")}));
  EXPECT_EQ(Ids()[1], 94);
  EXPECT_TRUE(Exists(dst));
}

TEST_F(DeleteTest, CheckEmptyFolderGoesBySizeOneLevelAndNeverTakesFrom) {
  Source("a/empty.txt", "");
  Source("a/sub/also-empty", "");
  Source("b/full.txt", "x");
  Source("top.txt", "");
  engine.CheckEmptyFolder(Src("a/moved.txt"), j);
  engine.CheckEmptyFolder(Src("b/moved.txt"), j);
  engine.CheckEmptyFolder(Src("moved.txt"), j);
  EXPECT_FALSE(Exists(Src("a")));  // only empty files: gone with them
  EXPECT_TRUE(Exists(Src("b/full.txt")));
  EXPECT_TRUE(Exists(Src("top.txt")));
  EXPECT_EQ(Lines(), std::vector<std::string>{});
}

}  // namespace
}  // namespace orvKestrel::testing
