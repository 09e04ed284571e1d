#include <gtest/gtest.h>

#include <cerrno>

#include "engine/Engine.h"
#include "platform/SysError.h"
#include "support/Faults.h"
#include "support/TestSupport.h"
#include "unit/Rig.h"

namespace orvKestrel {
namespace {

using CheckFreeSpaceTest = testing::Rig;

// 0 and below are taken as 1 megabyte, in the caller's value too. A drive that cannot be
// queried reports -1 without an error: below any limit, so the trigger fires (a whole job:
// "free space unknown" in RunDriverTest). 2048 megabytes overflow the limit in bytes: an
// error, and going on regardless compares with 0, which only -1 is below.
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
