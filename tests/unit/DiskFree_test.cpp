#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

#include "engine/Engine.h"
#include "engine/modDiskFree.h"
#include "platform/SysError.h"
#include "support/Faults.h"
#include "support/TestSupport.h"

namespace orvKestrel {
namespace {

using testing::TempDir;

TEST(Drives, DriveNameIsTheMountPointThatHoldsThePath) {
  FileSystem fs;
  TempDir dir;
  testing::WriteFile(dir / "a/b.txt", "x");
  const std::string drive = fs.DriveName(dir / "a/b.txt");
  EXPECT_FALSE(drive.empty());
  EXPECT_EQ(dir.str().rfind(drive, 0), 0u) << drive;  // a prefix of the path
  // A path that does not exist yet lies on the drive of its nearest existing folder.
  EXPECT_EQ(fs.DriveName(dir / "missing/deeper/x"), drive);
  EXPECT_EQ(fs.DriveName("/"), "/");
  EXPECT_EQ(fs.DriveName("/proc/self/status"), "/proc");
  EXPECT_EQ(fs.DriveName(""), "");
}

TEST(Drives, SameDriveComparesFileSystems) {
  FileSystem fs;
  TempDir dir;
  testing::WriteFile(dir / "a.txt", "x");
  EXPECT_TRUE(fs.SameDrive(dir / "a.txt", dir / "not/yet/there.txt"));
  EXPECT_FALSE(fs.SameDrive("/proc/self/status", dir / "a.txt"));
}

TEST(Drives, FreeBytesAreThoseOfUnprivilegedUsers) {
  testing::Faults faults;
  FileSystem fs{&faults};
  TempDir dir;
  struct statvfs vfs {};
  ASSERT_EQ(::statvfs(dir.str().c_str(), &vfs), 0);
  const auto expected = static_cast<std::int64_t>(vfs.f_bavail * vfs.f_frsize);
  // Other processes may write meanwhile: allow a little drift.
  EXPECT_NEAR(static_cast<double>(fs.FreeBytes(dir.str()).Value()), static_cast<double>(expected),
              64.0 * 1024 * 1024);
  EXPECT_FALSE(fs.FreeBytes(dir / "missing"));
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_FALSE(fs.FreeBytes(dir.str()));
}

TEST(GetDiskFree, CapsAndReportsMinusOneWithoutAnError) {
  testing::Faults faults;
  FileSystem fs{&faults};
  Host host;
  FailSafe trap(host);
  TempDir dir;
  const std::int64_t bytes = fs.FreeBytes(dir.str()).Value();
  const std::int32_t got = GetDiskFree(fs, trap, dir.str());
  if (bytes >= std::numeric_limits<std::int32_t>::max()) {
    EXPECT_EQ(got, 2147483647);
  } else {
    EXPECT_NEAR(got, bytes, 64.0 * 1024 * 1024);
  }
  EXPECT_EQ(GetDiskFree(fs, trap, dir / "missing"), -1);
  EXPECT_EQ(GetDiskFree(fs, trap, ""), -1);
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_EQ(GetDiskFree(fs, trap, dir.str()), -1);
  EXPECT_EQ(trap.ErrorCount(), 0);
}

class CheckFreeSpaceTest : public ::testing::Test {
 protected:
  CheckFreeSpaceTest() {
    e.host.messageBox = [this](const MessageBoxRequest&) {
      ++asked;
      return answer;
    };
  }
  TempDir dir;
  testing::CurrentDir cwd{dir.str()};  // error.log lands here
  testing::Faults faults;
  Services e{Host{}, &faults};
  BoxAnswer answer = BoxAnswer::Abort;
  int asked = 0;
};

TEST_F(CheckFreeSpaceTest, BelowTheLimitOnly) {
  // The temporary folder has more than a megabyte free.
  std::int32_t limit = 0;
  EXPECT_FALSE(CheckFreeSpace(e, limit, dir.str()));
  EXPECT_EQ(limit, 1);  // 0 is taken as 1 megabyte, in the caller's value too
  limit = -5;
  EXPECT_FALSE(CheckFreeSpace(e, limit, dir.str()));
  EXPECT_EQ(limit, 1);

  // A drive that cannot be queried reports -1: below any limit, so the trigger fires (a whole
  // job: RunDriverTest "free space unknown"), also at the largest limit that fits.
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  limit = 2047;
  EXPECT_TRUE(CheckFreeSpace(e, limit, dir.str()));
  EXPECT_EQ(asked, 0);
}

TEST_F(CheckFreeSpaceTest, LimitOf2048MegabytesOverflows) {
  std::int32_t limit = 2048;
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_FALSE(CheckFreeSpace(e, limit, dir.str()));
  EXPECT_EQ(asked, 1);
  EXPECT_NE(testing::ReadFile(dir / "error.log").find("#6 (Overflow)"), std::string::npos);

  // Going on regardless leaves the limit at 0, which only -1 is below.
  answer = BoxAnswer::Ignore;
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_TRUE(CheckFreeSpace(e, limit, dir.str()));
  limit = 100000;
  EXPECT_FALSE(CheckFreeSpace(e, limit, dir.str()));
  EXPECT_EQ(asked, 3);
}

}  // namespace
}  // namespace orvKestrel
