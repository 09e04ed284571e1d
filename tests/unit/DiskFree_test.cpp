#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

#include "engine/Engine.h"
#include "engine/modDiskFree.h"
#include "platform/SysError.h"
#include "support/Faults.h"
#include "support/TestSupport.h"
#include "unit/Rig.h"

namespace orvKestrel {
namespace {

using testing::TempDir;

// A drive is the mount point that holds the path, or the nearest existing folder's; its free
// bytes are those of unprivileged users, and -1 (capped to 32 bits) when they cannot be asked.
TEST(Drives, MountPointsAndFreeBytes) {
  testing::Faults faults;
  FileSystem fs{&faults};
  TempDir dir;
  Host host;
  FailSafe trap(host);
  testing::WriteFile(dir / "a/b.txt", "x");
  const std::string drive = fs.DriveName(dir / "a/b.txt");
  EXPECT_FALSE(drive.empty());
  EXPECT_EQ(dir.str().rfind(drive, 0), 0u) << drive;  // a prefix of the path
  EXPECT_EQ(fs.DriveName(dir / "missing/deeper/x"), drive);
  EXPECT_EQ(fs.DriveName("/"), "/");
  EXPECT_EQ(fs.DriveName("/proc/self/status"), "/proc");
  EXPECT_EQ(fs.DriveName(""), "");
  EXPECT_TRUE(fs.SameDrive(dir / "a/b.txt", dir / "not/yet/there.txt"));
  EXPECT_FALSE(fs.SameDrive("/proc/self/status", dir / "a/b.txt"));

  struct statvfs vfs {};
  ASSERT_EQ(::statvfs(dir.str().c_str(), &vfs), 0);
  const auto expected = static_cast<std::int64_t>(vfs.f_bavail * vfs.f_frsize);
  // Other processes may write meanwhile: allow a little drift.
  const std::int64_t bytes = fs.FreeBytes(dir.str()).Value();
  EXPECT_NEAR(static_cast<double>(bytes), static_cast<double>(expected), 64.0 * 1024 * 1024);
  const std::int32_t got = GetDiskFree(fs, trap, dir.str());
  if (bytes >= std::numeric_limits<std::int32_t>::max()) {
    EXPECT_EQ(got, 2147483647);
  } else {
    EXPECT_NEAR(got, bytes, 64.0 * 1024 * 1024);
  }
  EXPECT_FALSE(fs.FreeBytes(dir / "missing"));
  EXPECT_EQ(GetDiskFree(fs, trap, dir / "missing"), -1);
  EXPECT_EQ(GetDiskFree(fs, trap, ""), -1);
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_FALSE(fs.FreeBytes(dir.str()));
  faults.Arm(FaultOp::Statvfs, 1, EIO);
  EXPECT_EQ(GetDiskFree(fs, trap, dir.str()), -1);
  EXPECT_EQ(trap.ErrorCount(), 0);
}

using CheckFreeSpaceTest = testing::Rig;

// 0 and below are taken as 1 megabyte, in the caller's value too. A drive that cannot be
// queried reports -1: below any limit, so the trigger fires (a whole job: RunDriverTest "free
// space unknown"). 2048 megabytes overflow the limit in bytes: an error, and going on
// regardless compares with 0, which only -1 is below.
TEST_F(CheckFreeSpaceTest, BelowTheLimitOnly) {
  const struct {
    std::int32_t limit;
    bool noInfo;
    BoxAnswer answer;
    bool below;
    std::int32_t limitAfter;
    int asked;
  } rows[] = {{0, false, BoxAnswer::Abort, false, 1, 0},      {-5, false, BoxAnswer::Abort, false, 1, 0},
              {2047, true, BoxAnswer::Abort, true, 2047, 0},  {2048, true, BoxAnswer::Abort, false, 2048, 1},
              {2048, true, BoxAnswer::Ignore, true, 2048, 2}, {100000, false, BoxAnswer::Ignore, false, 100000, 3}};
  int asked = 0;
  for (const auto& r : rows) {
    SCOPED_TRACE(r.limit);
    if (r.noInfo) faults.Arm(FaultOp::Statvfs, 1, EIO);
    svc.host.messageBox = [&](const MessageBoxRequest&) { return ++asked, r.answer; };
    std::int32_t limit = r.limit;
    EXPECT_EQ(CheckFreeSpace(svc, limit, src), r.below);
    EXPECT_EQ(limit, r.limitAfter);
    EXPECT_EQ(asked, r.asked);
  }
  EXPECT_NE(testing::ReadFile(tmp / "error.log").find("#6 (Overflow)"), std::string::npos);
}

}  // namespace
}  // namespace orvKestrel
