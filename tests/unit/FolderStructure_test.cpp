// Copy, move and preview with the folder structure kept below the destination.
#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class FolderStructureTest : public ActionsTest {
 protected:
  FolderStructureTest() { j.FStruct = 1; }
};

TEST_F(FolderStructureTest, CopyBuildsTheSubFoldersBelowTheDestination) {
  Source("x/y/a.txt", "a");
  FileList list{Src("x/y/a.txt")};
  engine.CopyFiles(list, j);
  EXPECT_EQ(ReadFile(Dst("x/y/a.txt")), "a");
  EXPECT_EQ(FileLines(), std::vector<std::string>{"Kopiert: " + Src("x/y/a.txt") + " nach " + Dst("x/y/a.txt")});
}

TEST_F(FolderStructureTest, ReplacingMoveRemovesTheEmptiedSourceFolderOnlyWithTheStructureKept) {
  for (const CheckState fstruct : {1, 0}) {
    SCOPED_TRACE(fstruct);
    j.FStruct = fstruct;
    j.Exist = 3;
    Source("sub/a.txt", "new");
    Dest(fstruct == 1 ? "sub/a.txt" : "a.txt", "old");
    FileList list{Src("sub/a.txt")};
    engine.MoveFiles(list, j);
    EXPECT_EQ(ReadFile(Dst(fstruct == 1 ? "sub/a.txt" : "a.txt")), "new");
    EXPECT_EQ(Exists(Src("sub")), fstruct != 1);
    EXPECT_TRUE(Exists(src));
    std::filesystem::remove_all(Src("sub"));
  }
}

TEST_F(FolderStructureTest, RenamingPlacesTheNewNameInTheSubFolderUnlessForAnArchive) {
  j.Exist = 2;
  j.PickRenamer = 1;
  Source("x/a.txt", "a");
  Dest("x/a.txt", "taken");
  EXPECT_EQ(engine.GetValidPathName(j, Src("x/a.txt"), false), Dst("x/a_1.txt"));
  EXPECT_EQ(engine.GetValidPathName(j, Src("x/a.txt"), true), Dst("a.txt"));
}

TEST_F(FolderStructureTest, PreviewCreatesNoFolder) {
  j.Exist = 2;
  j.PickRenamer = 1;
  Source("x/y/a.txt", "a");
  const auto before = Snapshot(tmp.str());
  FileList list{Src("x/y/a.txt")};
  engine.Preview(list, j, "Move");
  EXPECT_EQ(Snapshot(tmp.str()), before);
  EXPECT_EQ(Lines().back(), "Würde verschoben: " + Src("x/y/a.txt") + " nach " + Dst("x/y/a.txt"));
}

}  // namespace
}  // namespace orvKestrel::testing
