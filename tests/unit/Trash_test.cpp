#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include "ActionsFixture.h"

#include <regex>

namespace orvKestrel::testing {
namespace {

// Points the home trash into the test's folder for the test's length.
class TrashTest : public ActionsTest {
 protected:
  std::string Info(const std::string& name) { return ReadFile(trash + "/info/" + name + ".trashinfo"); }
  ScopedEnv xdg{"XDG_DATA_HOME", tmp / "xdg"};
  std::string trash = tmp / "xdg/Trash";
};

TEST_F(TrashTest, HomeTrashGetsTheFileAndItsInfoEntry) {
  const std::string a = Source("sub dir/grün & co.txt", "data");
  engine.fs.Trash(a);
  EXPECT_FALSE(Exists(a));
  EXPECT_EQ(ReadFile(trash + "/files/grün & co.txt"), "data");
  const std::string info = Info("grün & co.txt");
  const std::string path = paths::GetAbsolutePathName(src) + "/sub%20dir/gr%C3%BCn%20%26%20co.txt";
  const std::regex form("\\[Trash Info\\]\nPath=(.*)\nDeletionDate=(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d)\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(info, m, form)) << info;
  EXPECT_EQ(m[1].str(), path);
}

TEST_F(TrashTest, SameNameTwiceGetsANewNameAndKeepsBoth) {
  Source("a.txt", "first");
  engine.fs.Trash(Src("a.txt"));
  Source("a.txt", "second");
  engine.fs.Trash(Src("a.txt"));
  Source("README", "third");
  engine.fs.Trash(Src("README"));
  Source("README", "fourth");
  engine.fs.Trash(Src("README"));
  EXPECT_EQ(ReadFile(trash + "/files/a.txt"), "first");
  EXPECT_EQ(ReadFile(trash + "/files/a.2.txt"), "second");
  EXPECT_EQ(ReadFile(trash + "/files/README.2"), "fourth");
  EXPECT_EQ(Names(trash + "/info"),
            (std::vector<std::string>{"README.2.trashinfo", "README.trashinfo", "a.2.txt.trashinfo",
                                      "a.txt.trashinfo"}));
}

TEST_F(TrashTest, FailureLeavesTheFileAndNoInfoEntry) {
  const std::string a = Source("a.txt", "a");
  engine.faults.Arm(FaultOp::Trash, 1, EIO);
  EXPECT_THROW(engine.fs.Trash(a), KestrelError);
  engine.faults.Disarm();
  EXPECT_TRUE(Exists(a));
  EXPECT_THROW(engine.fs.Trash(Src("none")), KestrelError);
  EXPECT_TRUE(!Exists(trash + "/info") || Names(trash + "/info").empty());
}

TEST_F(TrashTest, FileOnAnotherFileSystemGoesToThatFileSystemsTrash) {
  const std::string top = OtherFileSystemThan(src);
  if (top.empty()) GTEST_SKIP() << "no second file system";
  if (Exists(top + "/.Trash")) GTEST_SKIP() << "a shared trash is there";
  const std::string own = top + "/.Trash-" + std::to_string(::getuid());
  const bool existed = Exists(own);
  const std::string name = "kestrel-" + paths::GetFileName(tmp.str()) + ".txt";
  WriteFile(top + "/" + name, "shm");
  engine.fs.Trash(top + "/" + name);
  EXPECT_EQ(ReadFile(own + "/files/" + name), "shm");
  EXPECT_NE(ReadFile(own + "/info/" + name + ".trashinfo").find("Path=" + top + "/" + name),
            std::string::npos);
  std::filesystem::remove(own + "/files/" + name);
  std::filesystem::remove(own + "/info/" + name + ".trashinfo");
  if (!existed) std::filesystem::remove_all(own);
  EXPECT_FALSE(Exists(trash));
}

}  // namespace
}  // namespace orvKestrel::testing
