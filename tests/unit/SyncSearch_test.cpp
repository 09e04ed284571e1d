// Whole synchronisations through Search: the walk, the dispatch, the copy and the removal.
#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class SyncSearchTest : public ActionsTest {
 protected:
  SyncSearchTest() {
    j.Action = 5;
    j.SubFolder = 1;
    j.FStruct = 1;
    j.Exist = 4;
    j.EFSelect = 0;
    j.ExtFileTime = 1;
  }
  void Sync() {
    engine.Search(j, true, false);
    EXPECT_EQ(engine.syncPass, 0);
    EXPECT_EQ(j.Action, 5);
  }
  bool Logged(std::int16_t id) const {
    return std::any_of(rec.lines.begin(), rec.lines.end(), [&](const auto& l) { return l.id == id; });
  }
};

TEST_F(SyncSearchTest, BothDirectionsAndTheNewerFileWins) {
  Source("p.txt", "p");
  Source("sub/both.txt", "primary newer", kNew);
  Dest("s.txt", "s");
  Dest("sub/both.txt", "secondary older", kOld);
  Sync();
  EXPECT_EQ(ReadFile(Dst("p.txt")), "p");
  EXPECT_EQ(ReadFile(Src("s.txt")), "s");
  EXPECT_EQ(ReadFile(Dst("sub/both.txt")), "primary newer");
  EXPECT_EQ(ReadFile(Src("sub/both.txt")), "primary newer");
  const std::string t92 = "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";
  const auto lines = Lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), t92), 2);
  EXPECT_EQ(lines.back(), "Synchronisation abgeschlossen! ");
  // Pass 2 left the folders exchanged in the job record.
  EXPECT_EQ(j.From, dst);
  EXPECT_EQ(j.To, src);
  EXPECT_FALSE(engine.noFiles);
}

TEST_F(SyncSearchTest, SyncStartOneBeginsWithTheDestination) {
  j.SyncStart = 1;
  j.Exist = 0;
  Source("a.txt", "from");
  Dest("a.txt", "to");
  Dest("b.txt", "b");
  Sync();
  // The first pass copied To's b.txt into From and left a.txt; the second found a.txt there.
  EXPECT_EQ(ReadFile(Src("b.txt")), "b");
  const std::string firstFile = "Keine Aktion (Datei vorhanden): " + Dst("a.txt") + " nach " + Src("a.txt");
  const auto lines = Lines();
  const auto it = std::find(lines.begin(), lines.end(), firstFile);
  ASSERT_NE(it, lines.end());
  EXPECT_LT(it - lines.begin(), std::find(lines.begin(), lines.end(),
                                          "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. "
                                          "Verzeichnis ... ") - lines.begin());
  EXPECT_EQ(j.From, src);
}

TEST_F(SyncSearchTest, RemovalStepDeletesWhatThePrimaryLacksBeforeThePassBack) {
  j.SyncDelete = 1;
  Source("a.TXT", "a");
  Dest("A.txt", "differs in case only");
  Dest("sub/b.txt", "b");
  Sync();
  EXPECT_FALSE(Exists(Dst("A.txt")));
  EXPECT_FALSE(Exists(Dst("sub/b.txt")));
  EXPECT_FALSE(Exists(Src("sub/b.txt")));  // not copied back
  EXPECT_FALSE(Exists(Src("A.txt")));
  EXPECT_TRUE(Exists(Dst("a.TXT")));
  EXPECT_TRUE(Logged(94));
  EXPECT_TRUE(Logged(96));
}

TEST_F(SyncSearchTest, NoRemovalWhenOnlyComparingOrWhenThePrimaryIsEmpty) {
  j.SyncDelete = 1;
  j.OnlyCompare = 1;
  Source("a.txt", "a");
  Dest("b.txt", "b");
  Sync();
  EXPECT_TRUE(Exists(Dst("b.txt")));
  EXPECT_FALSE(Logged(94));

  std::filesystem::remove(Src("a.txt"));
  j = job{};
  j.JobName = "job";
  j.From = src;
  j.To = dst;
  j.Action = 5;
  j.SyncDelete = 1;
  j.DoPreview = 0;
  rec.lines.clear();
  engine.Search(j, true, false);
  EXPECT_TRUE(Exists(Dst("b.txt")));
  EXPECT_FALSE(Logged(94));
  EXPECT_TRUE(engine.noFiles);
  EXPECT_EQ(ReadFile(Src("b.txt")), "b");  // the pass back still runs
}

TEST_F(SyncSearchTest, EmptySecondWalkEndsWithNoFiles) {
  j.OnlyCompare = 1;  // nothing is copied into the empty secondary folder
  Source("a.txt", "a");
  Sync();
  EXPECT_TRUE(engine.noFiles);
  EXPECT_FALSE(Exists(Dst("a.txt")));
  EXPECT_FALSE(Logged(93));
}

TEST_F(SyncSearchTest, PreviewChangesNothingAndReportsEachFileOnce) {
  j.DoPreview = 1;
  j.SyncDelete = 1;
  Source("both.txt", "p", kNew);
  Source("p.txt", "p");
  Dest("both.txt", "s", kOld);
  Dest("gone.txt", "s");
  const auto before = Snapshot(tmp.str());
  Sync();
  EXPECT_EQ(Snapshot(tmp.str()), before);
  std::vector<std::string> fileLines;
  for (const auto& l : rec.lines) {
    if (l.id == 42 || l.id == 54 || l.id == 95 || (l.id >= 59 && l.id <= 67)) {
      fileLines.push_back(l.text);
    }
  }
  EXPECT_EQ(fileLines, (std::vector<std::string>{
                           "Würde von neu kopierter Datei überschrieben: " + Src("both.txt") +
                               " überschreibt " + Dst("both.txt"),
                           "Würde kopiert: " + Src("p.txt") + " nach " + Dst("p.txt"),
                           "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden) " +
                               Dst("gone.txt")}));
  EXPECT_TRUE(engine.previewReported.empty());
}

}  // namespace
}  // namespace orvKestrel::testing
