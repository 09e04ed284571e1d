#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class MoveTest : public ActionsTest {
 protected:
  void Move(FileList list) {
    engine.BeginCall();
    engine.MoveFiles(list, j);
    EXPECT_TRUE(list.empty());
  }
  std::string Tail(const std::string& rel) { return Src(rel) + " nach " + Dst(rel); }
};

TEST_F(MoveTest, NewFileIsMovedAndReportedWithoutSynchronisationLines) {
  Source("a.txt", "a", kOld);
  engine.syncPass = 1;
  Move({Src("a.txt")});
  EXPECT_EQ(Lines(), (std::vector<std::string>{"Datei gefunden: 1", "Verschoben: " + Tail("a.txt")}));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{85, 12}));
  EXPECT_FALSE(Exists(Src("a.txt")));
  EXPECT_EQ(WriteTime(Dst("a.txt")), kOld);
}

TEST_F(MoveTest, PoliciesOnAnExistingDestination) {
  struct Case {
    std::int16_t exist;
    const char* line;  // "" : none
    bool sourceLeft;
    const char* dest;
  };
  const Case cases[] = {
      {0, "Keine Aktion (Datei vorhanden): ", true, "old"},
      {3, "Von verschobener Datei überschrieben: ", false, "new"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.exist);
    rec.lines.clear();
    j.Exist = c.exist;
    Source("a.txt", "new");
    Dest("a.txt", "old");
    Move({Src("a.txt")});
    EXPECT_EQ(FileLines(), std::vector<std::string>{c.line + Tail("a.txt")});
    EXPECT_EQ(Exists(Src("a.txt")), c.sourceLeft);
    EXPECT_EQ(ReadFile(Dst("a.txt")), c.dest);
  }
}

TEST_F(MoveTest, RefusedComparisonWithEFSDeleteDeletesTheSourceAndStillReports) {
  j.Exist = 4;
  j.EFSelect = 0;
  j.ExtFileTime = 1;
  j.EFSDelete = 1;
  Source("a.txt", "older", kOld);
  Dest("a.txt", "newer", kNew);
  Source("b.txt", "newer", kNew);
  Dest("b.txt", "older", kOld);
  Move({Src("a.txt"), Src("b.txt")});
  EXPECT_EQ(FileLines(), (std::vector<std::string>{
                             "Keine Aktion (Neuere Datei existiert): " + Tail("a.txt"),
                             "Von verschobener Datei überschrieben: " + Tail("b.txt")}));
  EXPECT_FALSE(Exists(Src("a.txt")));
  EXPECT_FALSE(Exists(Src("b.txt")));
  EXPECT_EQ(ReadFile(Dst("a.txt")), "newer");
  EXPECT_EQ(ReadFile(Dst("b.txt")), "newer");
}

TEST_F(MoveTest, FailedMoveAfterTheReplacementDeletionLosesTheOldDestinationOnly) {
  j.Exist = 3;
  Source("a.txt", "new");
  Dest("a.txt", "old");
  Source("b.txt", "b");
  engine.faults.Arm(FaultOp::Rename, 1, EACCES);
  Move({Src("a.txt"), Src("b.txt")});
  engine.faults.Disarm();
  EXPECT_EQ(FileLines(), (std::vector<std::string>{
                             "job: Fehler: Permission denied - Func MoveFiles " + Src("a.txt"),
                             "Verschoben: " + Tail("b.txt")}));
  EXPECT_EQ(ReadFile(Src("a.txt")), "new");
  EXPECT_FALSE(Exists(Dst("a.txt")));
  EXPECT_TRUE(engine.jobError);
}

TEST_F(MoveTest, MoveBetweenFileSystemsIsOneLinePerFile) {
  Source("a.txt", std::string(3 * 1024 * 1024, 'a'), kOld);
  engine.faults.Arm(FaultOp::Rename, 1, EXDEV);
  Move({Src("a.txt")});
  EXPECT_TRUE(engine.faults.Fired());
  engine.faults.Disarm();
  EXPECT_EQ(FileLines(), std::vector<std::string>{"Verschoben: " + Tail("a.txt")});
  EXPECT_FALSE(Exists(Src("a.txt")));
  EXPECT_EQ(WriteTime(Dst("a.txt")), kOld);
}

TEST_F(MoveTest, VanishedSourceOfAMoveBetweenFileSystemsIsAnErrorLine) {
  Source("a.txt", std::string(3 * 1024 * 1024, 'a'));
  engine.faults.Arm(FaultOp::Rename, 1, EXDEV);
  // The simulated cross-device move then fails in its copy: the vanished source.
  std::filesystem::rename(Src("a.txt"), Src("hidden"));
  Move({Src("a.txt")});
  engine.faults.Disarm();
  EXPECT_EQ(FileLines(), std::vector<std::string>{"job: Fehler: No such file or directory - Func MoveFiles " +
                                                  Src("a.txt")});
  EXPECT_EQ(Names(dst), std::vector<std::string>{});
}

TEST_F(MoveTest, ADestinationThatIsTheSourceItselfIsNeverDeleted) {
  j.To = src;
  j.Exist = 3;
  Source("a.txt", "only copy");
  Move({Src("a.txt")});
  EXPECT_EQ(ReadFile(Src("a.txt")), "only copy");
  EXPECT_TRUE(engine.jobError);
}

TEST_F(MoveTest, AMoveWithinOneDriveNeedsNoRoom) {
  engine.noSizeCheck = false;
  engine.lastNoRoom = true;
  Source("a.txt", "a");
  engine.faults.Arm(FaultOp::Statvfs, 1, EIO);  // asking for free space would fail
  Move({Src("a.txt")});
  EXPECT_FALSE(engine.faults.Fired());
  engine.faults.Disarm();
  EXPECT_EQ(FileLines(), std::vector<std::string>{"Verschoben: " + Tail("a.txt")});
  EXPECT_FALSE(engine.lastNoRoom);
}

}  // namespace
}  // namespace orvKestrel::testing
