// The deletions of a source after its action remove only the file that the action saw: a
// line written to it at the last moment before the unlink keeps it.
#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class SafeActions : public ActionsTest {
 protected:
  bool HasLineWith(const std::string& text) const {
    const auto lines = Lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& l) { return l.find(text) != std::string::npos; });
  }
};

// Each way in which a copy or a move deletes its source: untouched, the source goes; a line
// appended just before the unlink keeps it, and the file gets an error line.
TEST_F(SafeActions, ASourceWrittenToBeforeItsDeletionIsKept) {
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
      const std::string a = Source("a.txt", "first line\n", kNew);
      if (row.destExists) Put(j.To + "/a.txt", "old", kOld);
      j.Exist = row.exist;
      j.EFSDelete = 1;
      j.EFSelect = row.efsSelect;
      j.ExtFileTime = 1;
      j.AttrSetSource = row.attrSetSource;
      j.AttrArchive2 = 1;
      engine.jobError = false;
      rec.lines.clear();
      if (appended) {
        engine.faults.Before(FaultOp::Unlink, 1, [&] { AppendFile(a, "last line\n"); });
      }
      FileList list{a};
      row.move ? engine.MoveFiles(list, j) : engine.CopyFiles(list, j);
      engine.faults.Disarm();
      EXPECT_EQ(Exists(a), appended);
      EXPECT_EQ(HasLineWith("changed after it was read"), appended)
          << ::testing::PrintToString(Lines());
      EXPECT_EQ(engine.jobError, appended);
      EXPECT_EQ(ReadFile(a), appended ? "first line\nlast line\n" : "");
      if (row.across) {
        EXPECT_EQ(Exists(j.To + "/a.txt"), !appended);
        std::filesystem::remove_all(j.To);
      }
      std::filesystem::remove(a);
    }
  }
}

// A run that starts inside the trash (From names it) must not trash the trash again.
TEST_F(SafeActions, AFileInItsTrashIsNotTrashedAgain) {
  const ScopedEnv xdg("XDG_DATA_HOME", tmp / "xdg");
  engine.fs.Trash(Source("a.txt", "a"));
  const std::string trashed = tmp / "xdg/Trash/files/a.txt";
  for (const std::string& path : {trashed, tmp / "xdg/Trash/info/a.txt.trashinfo"}) {
    EXPECT_THROW(engine.fs.Trash(path), KestrelError);
    EXPECT_TRUE(Exists(path));
  }
  EXPECT_EQ(ReadFile(trashed), "a");
}

}  // namespace
}  // namespace orvKestrel::testing
