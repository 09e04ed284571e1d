#include "platform/DateText.h"
#include "platform/Paths.h"

#include "ActionsFixture.h"

#include <regex>

namespace orvKestrel::testing {
namespace {

class CopyTest : public ActionsTest {
 protected:
  void Copy(FileList list) {
    engine.BeginCall();
    engine.CopyFiles(list, j);
    EXPECT_TRUE(list.empty());
  }
  std::string Copied(const std::string& rel) {
    return "Kopiert: " + Src(rel) + " nach " + Dst(rel);
  }
};

TEST_F(CopyTest, NewFileIsCopiedWithItsWriteTimeAndReported) {
  Source("a.txt", "a", kOld);
  Source("b.txt", "b", kNew);
  Copy({Src("a.txt"), Src("b.txt")});
  EXPECT_EQ(Lines(), (std::vector<std::string>{"Dateien gefunden: 2", Copied("a.txt"), Copied("b.txt")}));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{84, 11, 11}));
  EXPECT_EQ(WriteTime(Dst("a.txt")), kOld);
  EXPECT_EQ(ReadFile(Dst("b.txt")), "b");
  EXPECT_EQ(rec.counters, (std::vector<std::pair<std::int32_t, std::int32_t>>{{2, 1}, {2, 2}}));
  EXPECT_FALSE(engine.jobError);
}

TEST_F(CopyTest, Policy0LeavesAnExistingDestination) {
  Source("a.txt", "new");
  Dest("a.txt", "old");
  Copy({Src("a.txt")});
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         "Datei gefunden: 1",
                         "Keine Aktion (Datei vorhanden): " + Src("a.txt") + " nach " + Dst("a.txt")}));
  EXPECT_EQ(ReadFile(Dst("a.txt")), "old");
}

TEST_F(CopyTest, Policy1DeletesTheSourceAndReportsItTwice) {
  j.Exist = 1;
  Source("a.txt", "new");
  Dest("a.txt", "old");
  Source("b.txt", "b");
  Copy({Src("a.txt"), Src("b.txt")});
  const std::string deleted = "Quelle gelöscht (Datei existiert): " + Src("a.txt");
  EXPECT_EQ(FileLines(), (std::vector<std::string>{deleted, deleted, Copied("b.txt")}));
  EXPECT_FALSE(Exists(Src("a.txt")));
  EXPECT_EQ(ReadFile(Dst("a.txt")), "old");
}

TEST_F(CopyTest, Policy3ReplacesAndPolicy4ReplacesOnlyWhenTheComparisonAgrees) {
  struct Case {
    std::int16_t exist, select;
    std::time_t srcTime;
    bool replaced;
  };
  const Case cases[] = {{3, 0, kOld, true}, {4, 0, kNew, true}, {4, 0, kOld, false},
                        {4, 1, kOld, true}, {4, 8, kNew, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.exist) + "/" + std::to_string(c.select));
    rec.lines.clear();
    j.Exist = c.exist;
    j.EFSelect = c.select;
    j.ExtFileTime = 1;
    Source("a.txt", "new", c.srcTime);
    Dest("a.txt", "old", (kOld + kNew) / 2);
    Copy({Src("a.txt")});
    const std::string tail = Src("a.txt") + " nach " + Dst("a.txt");
    EXPECT_EQ(FileLines(), std::vector<std::string>{(c.replaced ? "Von kopierter Datei überschrieben: "
                                                                : "Keine Aktion (Neuere Datei existiert): ") +
                                                    tail});
    EXPECT_EQ(ReadFile(Dst("a.txt")), c.replaced ? "new" : "old");
    EXPECT_TRUE(Exists(Src("a.txt")));
  }
}

TEST_F(CopyTest, EFSDeleteRemovesTheSourceWhateverTheComparisonSaid) {
  j.Exist = 4;
  j.EFSelect = 0;
  j.ExtFileTime = 1;
  j.EFSDelete = 1;
  Source("kept.txt", "older", kOld);
  Dest("kept.txt", "newer", kNew);
  Source("replaced.txt", "newer", kNew);
  Dest("replaced.txt", "older", kOld);
  Copy({Src("kept.txt"), Src("replaced.txt")});
  EXPECT_FALSE(Exists(Src("kept.txt")));
  EXPECT_FALSE(Exists(Src("replaced.txt")));
  EXPECT_EQ(ReadFile(Dst("kept.txt")), "newer");
  EXPECT_EQ(ReadFile(Dst("replaced.txt")), "newer");
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{84, 45, 44}));
}

TEST_F(CopyTest, OnlyCompareActsOnExistingDestinationsOnlyExceptWhenRenaming) {
  j.OnlyCompare = 1;
  j.PickRenamer = 1;
  for (std::int16_t exist : {0, 1, 2, 3, 4}) {
    SCOPED_TRACE(exist);
    rec.lines.clear();
    j.Exist = exist;
    std::filesystem::remove(Dst("a.txt"));
    Source("a.txt", "a");
    Copy({Src("a.txt")});
    EXPECT_EQ(Lines().front(), "Datei gefunden: 1 (Vergleiche nur existierende Dateien)");
    EXPECT_EQ(Lines().size(), exist == 2 ? 2u : 1u);
    EXPECT_EQ(Exists(Dst("a.txt")), exist == 2);
  }
}

TEST_F(CopyTest, UnknownPolicySkipsSilently) {
  j.Exist = 5;
  Source("a.txt", "a");
  Copy({Src("a.txt")});
  EXPECT_EQ(FileLines(), std::vector<std::string>{});
  EXPECT_FALSE(Exists(Dst("a.txt")));
}

TEST_F(CopyTest, RenamingWithACounterTakesTheFirstFreeNumber) {
  j.Exist = 2;
  j.PickRenamer = 1;
  Source("a.txt", "new");
  Dest("a.txt", "0");
  Dest("a_1.txt", "1");
  Copy({Src("a.txt")});
  EXPECT_EQ(ReadFile(Dst("a_2.txt")), "new");
  EXPECT_EQ(FileLines(), std::vector<std::string>{"Kopiert: " + Src("a.txt") + " nach " + Dst("a_2.txt")});
}

TEST_F(CopyTest, RenamingVariants) {
  j.Exist = 2;
  const std::string a = Source("a.txt", "a");
  const std::string readme = Source("README", "r");
  Dest("a.txt", "taken");
  Dest("README", "taken");
  Dest("x.txt/a.txt", "taken");
  struct Case {
    std::int16_t picker, type;
    std::string text, source, to, expected;
  };
  const std::string guid = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";
  const Case cases[] = {
      {1, 1, "Kopie", a, dst, Dst("Kopie1.txt")},
      {1, 0, "_", a, dst + "/x.txt", dst + "/x_1.txt/a_1.txt"},  // the folder changes too
      {1, 0, "_", readme, dst, ""},       // no "." anywhere below the destination's root
      {3, 0, "-", a, dst, Dst("a-" + guid + "\\.txt")},
      {3, 1, "", a, dst, Dst(guid + "\\.txt")},
      {0, 0, "_", a, dst, ""},
      {4, 0, "_", a, dst, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.picker) + " " + c.expected);
    j.PickRenamer = c.picker;
    j.RenameType = c.type;
    j.RenameTxt = c.text;
    j.To = c.to;
    const std::string name = engine.GetValidPathName(j, c.source, false);
    if (c.picker == 3) {
      EXPECT_TRUE(std::regex_match(name, std::regex(c.expected))) << name;
    } else if (c.source != readme || dst.find('.') == std::string::npos) {
      EXPECT_EQ(name, c.expected);
    }
  }
  // A free destination is taken as it is.
  j.PickRenamer = 1;
  j.To = dst;
  EXPECT_EQ(engine.GetValidPathName(j, Source("free.txt", "f"), false), Dst("free.txt"));
}

TEST_F(CopyTest, RenamingTwiceInOneListCountsOn) {
  j.Exist = 2;
  j.PickRenamer = 1;
  j.RenameType = 1;
  j.RenameTxt = "Kopie";
  Source("a.txt", "a");
  Dest("a.txt", "taken");
  Copy({Src("a.txt"), Src("a.txt")});
  EXPECT_EQ(Names(dst), (std::vector<std::string>{"Kopie1.txt", "Kopie2.txt", "a.txt"}));
}

// The stamp of the engine's clock, as the renaming writes it with the format "%d.%m.%Y".
std::string Stamp(const TestEngine& e) {
  const std::tm tm = datetext::Local(e.host.clock.Now());
  char text[32];
  std::strftime(text, sizeof text, "%d.%m.%Y_%H-%M-%S", &tm);
  return text;
}

TEST_F(CopyTest, DateStampRenamingCountsOnWhenTheStampIsTaken) {
  j.Exist = 2;
  j.PickRenamer = 2;
  engine.host.clock = Clock::StartingAt(1'794'760'205);
  Source("a.txt", "a");
  Dest("a.txt", "taken");
  const std::string before = Stamp(engine);
  const std::string first = engine.GetValidPathName(j, Src("a.txt"), false);
  const std::string after = Stamp(engine);
  EXPECT_TRUE(first == Dst("a_" + before + ".txt") || first == Dst("a_" + after + ".txt")) << first;
  WriteFile(first, "taken");
  const std::string second = engine.GetValidPathName(j, Src("a.txt"), false);
  if (Stamp(engine) == before) {
    EXPECT_EQ(second, paths::ReplaceAll(first, ".txt", "(1).txt"));
  }
  EXPECT_NE(second, first);
}

TEST_F(CopyTest, DateStampReplacesTheDateSeparators) {
  j.Exist = 2;
  j.PickRenamer = 2;
  Source("a.txt", "a");
  Dest("a.txt", "taken");
  for (const char* format : {"%m/%d/%Y", "%d\\%m\\%Y"}) {
    engine.host.shortDateFormat = format;
    const std::string name = paths::GetFileName(engine.GetValidPathName(j, Src("a.txt"), false));
    EXPECT_TRUE(std::regex_match(name, std::regex("a_\\d\\d-\\d\\d-\\d{4}_\\d\\d-\\d\\d-\\d\\d\\.txt")))
        << name;
  }
}

TEST_F(CopyTest, RenamingThatCannotMakeANameIsAnErrorOfThatFileOnly) {
  j.Exist = 2;
  j.PickRenamer = 1;
  j.To = tmp / "nodots";
  for (const char* name : {"README", "b.txt"}) Source(name, name);
  WriteFile(j.To + "/README", "taken");
  if (j.To.find('.') != std::string::npos) GTEST_SKIP() << "the temporary folder holds a dot";
  Copy({Src("README"), Src("b.txt")});
  EXPECT_EQ(FileLines(),
            (std::vector<std::string>{
                "job: Fehler: Invalid procedure call or argument -  Move files " + Src("README"),
                "Kopiert: " + Src("b.txt") + " nach " + j.To + "/b.txt"}));
  EXPECT_EQ(Ids()[1], 10);
  EXPECT_TRUE(engine.jobError);
}

TEST_F(CopyTest, SynchronisationPassesEndWithTheirMessages) {
  Source("a.txt", "a");
  engine.syncPass = 1;
  Copy({Src("a.txt")});
  const std::string t92 = "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";
  EXPECT_EQ(Lines(), (std::vector<std::string>{"Datei gefunden: 1", Copied("a.txt"), t92, t92}));
  rec.lines.clear();
  engine.syncPass = 2;
  Copy({Src("a.txt")});
  EXPECT_EQ(Lines().back(), "Synchronisation abgeschlossen! ");
  EXPECT_EQ(Ids().back(), 93);
}

TEST_F(CopyTest, StopTakesEffectBeforeTheNextFile) {
  Source("a.txt", "a");
  Source("b.txt", "b");
  engine.host.yield = [&] {
    if (Exists(Dst("a.txt"))) engine.stop = true;
  };
  Copy({Src("a.txt"), Src("b.txt")});
  EXPECT_TRUE(Exists(Dst("a.txt")));
  EXPECT_FALSE(Exists(Dst("b.txt")));
}

TEST_F(CopyTest, FailingFilesGiveTheirErrorLineAndTheListGoesOn) {
  const std::string big(3 * 1024 * 1024, 'x');
  struct Case {
    FaultOp op;
    int n, err;
    const char* text;
  };
  const Case cases[] = {
      {FaultOp::Write, 2, ENOSPC, "No space left on device"},  // after the first chunk
      {FaultOp::Open, 1, EACCES, "Permission denied"},
      {FaultOp::Count, 0, 0, "No such file or directory"},  // a source that vanished
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    rec.lines.clear();
    engine.jobError = false;
    std::filesystem::remove_all(dst);
    std::filesystem::create_directories(dst);
    Source("a.txt", big);
    Source("b.txt", "b");
    engine.faults.Arm(c.op, c.n, c.err);
    Copy({c.op == FaultOp::Count ? Src("gone.txt") : Src("a.txt"), Src("b.txt")});
    engine.faults.Disarm();
    const std::string failed = c.op == FaultOp::Count ? Src("gone.txt") : Src("a.txt");
    EXPECT_EQ(FileLines(), (std::vector<std::string>{
                               std::string("job: Fehler: ") + c.text + " -  Move files " + failed,
                               Copied("b.txt")}));
    EXPECT_TRUE(engine.jobError);
    EXPECT_EQ(Names(dst), std::vector<std::string>{"b.txt"});  // no partial file, no temporary
  }
}

TEST_F(CopyTest, FailedReplacementNeverDeletesTheSource) {
  j.Exist = 4;
  j.EFSelect = 0;
  j.ExtFileTime = 1;
  j.EFSDelete = 1;
  Source("a.txt", std::string(3 * 1024 * 1024, 'n'), kNew);
  Dest("a.txt", "old", kOld);
  engine.faults.Arm(FaultOp::Write, 2, EIO);
  Copy({Src("a.txt")});
  engine.faults.Disarm();
  EXPECT_TRUE(Exists(Src("a.txt")));
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{85, 10}));
}

TEST_F(CopyTest, ADestinationThatIsTheSourceItselfIsNeverDeleted) {
  j.To = src;
  for (std::int16_t exist : {1, 3, 4}) {
    SCOPED_TRACE(exist);
    rec.lines.clear();
    j.Exist = exist;
    j.EFSDelete = 1;
    Source("a.txt", "only copy");
    Copy({Src("a.txt")});
    EXPECT_EQ(ReadFile(Src("a.txt")), "only copy");
    EXPECT_EQ(FileLines(), std::vector<std::string>{
                               "job: Fehler: source and destination are the same file -  Move files " +
                               Src("a.txt")});
  }
  // Comparing a file with itself refuses, and nothing is deleted: that is no error.
  rec.lines.clear();
  j.EFSDelete = 0;
  Copy({Src("a.txt")});
  EXPECT_EQ(Ids(), (std::vector<std::int16_t>{85, 45}));
}

TEST_F(CopyTest, FreeSpaceRefusalIsReportedAndSkipsTheFile) {
  engine.noSizeCheck = false;
  engine.lastNoRoom = true;  // a destination that does not exist keeps the last answer
  j.Exist = 3;
  Source("a.txt", "a");
  Copy({Src("a.txt")});
  ASSERT_EQ(FileLines().size(), 1u);
  const std::string line = FileLines()[0];
  EXPECT_EQ(line.rfind("Fehler: Zu wenig Speicherplatz auf Laufwerk /", 0), 0u) << line;
  EXPECT_NE(line.find("/. Datei nicht kopiert: " + Src("a.txt")), std::string::npos) << line;
  EXPECT_EQ(Ids()[1], 10);
  EXPECT_TRUE(engine.jobError);
  EXPECT_FALSE(Exists(Dst("a.txt")));
  // A new file under policy 0 asks the drive itself, which has room.
  j.Exist = 0;
  Copy({Src("a.txt")});
  EXPECT_TRUE(Exists(Dst("a.txt")));
  EXPECT_FALSE(engine.lastNoRoom);
}

}  // namespace
}  // namespace orvKestrel::testing
