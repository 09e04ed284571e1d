// The comparisons of the existing-destination policies, and the deletions of a source after its
// action, which remove only the file that the action saw.
#include "actions/modCheckExistingFiles.h"

#include "Rig.h"

#include <thread>

namespace orvKestrel::testing {
namespace {

class Policies : public Rig {
 protected:
  // Source and destination whose write time and size differ by the signs given (+1: the
  // source's is greater). The access times run the opposite way.
  void Pair(int time, int size) {
    const std::string base(10, 'x');
    a = Source("a.txt", base + std::string(size > 0 ? 1 : 0, 'x'));
    b = Dest("a.txt", base + std::string(size < 0 ? 1 : 0, 'x'));
    SetTimes(a, kNew - time * 100, kNew + time * 100);
    SetTimes(b, kNew, kNew);
  }
  bool Check(std::int16_t ext, std::int16_t selector) {
    return CheckExist(svc.fs, svc.trap, a, b, ext, selector);
  }
  std::string a, b;
};

// For every combination of write time and size, the answers of selectors 0..7 in order:
// newer, older, bigger, bigger+newer, bigger+older, smaller, smaller+newer, smaller+older.
// Selectors outside the eight and an unknown time selector (for the date comparisons) say no.
TEST_F(Policies, EachComparisonIsStrictAndEvaluatesBothTests) {
  const std::tuple<int, int, const char*> cases[] = {
      {+1, +1, "10110000"}, {+1, 0, "10000000"}, {+1, -1, "10000110"},
      {0, +1, "00100000"},  {0, 0, "00000000"},  {0, -1, "00000100"},
      {-1, +1, "01101000"}, {-1, 0, "01000000"}, {-1, -1, "01000101"},
  };
  for (const auto& [time, size, answers] : cases) {
    Pair(time, size);
    for (std::int16_t sel = 0; sel < 8; ++sel) {
      SCOPED_TRACE("time " + std::to_string(time) + " size " + std::to_string(size) + " selector " +
                   std::to_string(sel));
      EXPECT_EQ(Check(1, sel), answers[sel] == '1');
      for (std::int16_t ext : {3, -1}) EXPECT_EQ(Check(ext, sel), (sel == 2 || sel == 5) && answers[sel] == '1');
    }
    for (std::int16_t sel : {8, -1, 100}) EXPECT_FALSE(Check(1, sel));
  }
  // ExtFileTime 2 compares the access times, which run the other way.
  Pair(+1, 0);
  EXPECT_FALSE(Check(2, 0));
  EXPECT_TRUE(Check(2, 1));
  // A missing file answers no.
  std::filesystem::remove(b);
  for (std::int16_t sel = 0; sel < 8; ++sel) EXPECT_FALSE(Check(1, sel));
}

TEST_F(Policies, CreationTimesAreComparedInWholeSeconds) {
  a = Source("a.txt", "x");
  b = Dest("a.txt", "x");
  EXPECT_FALSE(Check(0, 0));  // made within the same second: equal
  EXPECT_FALSE(Check(0, 1));
  const std::time_t start = std::time(nullptr);
  while (std::time(nullptr) == start) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::filesystem::remove(a);
  a = Source("a.txt", "x");
  if (svc.fs.Stat(a).Value().times.created == svc.fs.Stat(b).Value().times.created) {
    GTEST_SKIP() << "no creation time on this file system";
  }
  EXPECT_TRUE(Check(0, 0));
  EXPECT_FALSE(Check(0, 1));
}

// Each way in which a copy or a move deletes its source: untouched, the source goes; a line
// appended just before the unlink keeps it, and the file gets an error line.
TEST_F(Policies, ASourceWrittenToBeforeItsDeletionIsKept) {
  const std::string other = OtherFileSystemThan(tmp.str());
  const struct {
    const char* what;
    bool move;
    std::int16_t exist, efsSelect, attrSetSource;
    bool destExists, across;
  } rows[] = {
      {"copy, Exist 1", false, 1, 0, 0, true, false},
      {"move, Exist 1", true, 1, 0, 0, true, false},
      {"copy, Exist 4 replaced, EFSDelete", false, 4, 0, 0, true, false},
      {"the same, the source's attributes left", false, 4, 0, 2, true, false},
      {"copy, Exist 4 kept, EFSDelete", false, 4, 1, 0, true, false},
      {"move, Exist 4 kept, EFSDelete", true, 4, 1, 0, true, false},
      {"move to another file system", true, 0, 0, 0, false, true},
  };
  for (const auto& row : rows) {
    for (const bool appended : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (appended ? ", appended" : ""));
      if (row.across && other.empty()) continue;
      const TempDir elsewhere;
      j.To = row.across ? other + "/" + std::filesystem::path(elsewhere.str()).filename().string()
                        : elsewhere.str();
      std::filesystem::create_directories(j.To);
      const std::string s = Source("a.txt", "first line\n", kNew);
      if (row.destExists) Put(j.To + "/a.txt", "old", kOld);
      j.Exist = row.exist;
      j.EFSDelete = j.ExtFileTime = j.AttrArchive2 = 1;
      j.EFSelect = row.efsSelect;
      j.AttrSetSource = row.attrSetSource;
      Next();
      driver.BeginCall();  // each row is a run of its own: an inode may come again
      if (appended) faults.Before(FaultOp::Unlink, 1, [&] { AppendFile(s, "last line\n"); });
      FileList list{s};
      row.move ? MoveFiles(run, svc, list) : CopyFiles(run, svc, list);
      faults.Disarm();
      EXPECT_EQ(ReadFile(s), appended ? "first line\nlast line\n" : "");
      const auto lines = Lines();
      EXPECT_EQ(std::any_of(lines.begin(), lines.end(),
                            [](const std::string& l) { return l.find("changed after it was read") != std::string::npos; }),
                appended)
          << ::testing::PrintToString(lines);
      EXPECT_EQ(run.jobError, appended);
      if (row.across) {
        EXPECT_EQ(Exists(j.To + "/a.txt"), !appended);
        std::filesystem::remove_all(j.To);
      }
      std::filesystem::remove(s);
    }
  }
}

}  // namespace
}  // namespace orvKestrel::testing
