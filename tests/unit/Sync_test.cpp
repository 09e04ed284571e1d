#include "selection/Sync.h"

#include "ActionsFixture.h"

namespace orvKestrel::testing {
namespace {

class SyncTest : public ActionsTest {};

TEST_F(SyncTest, CheckSyncSwapsTheFoldersForTheSecondPassAndRestoresNothing) {
  for (const std::int16_t start : {0, 1}) {
    SCOPED_TRACE(start);
    job s;
    s.Action = 5;
    s.SyncStart = start;
    s.From = "/p";
    s.To = "/s";
    engine.CheckSync(s);
    EXPECT_EQ(engine.syncPass, 1);
    EXPECT_EQ(s.From, start == 0 ? "/p" : "/s");
    EXPECT_EQ(s.To, start == 0 ? "/s" : "/p");
    engine.CheckSync(s);
    EXPECT_EQ(engine.syncPass, 0);
    EXPECT_EQ(s.From, start == 0 ? "/s" : "/p");
    EXPECT_EQ(s.To, start == 0 ? "/p" : "/s");
    EXPECT_EQ(engine.savedFrom, "");
    EXPECT_EQ(engine.savedTo, "");
  }
}

TEST_F(SyncTest, CheckSyncLeavesOtherActionsAlone) {
  job s;
  s.Action = 0;
  s.From = "/p";
  s.To = "/s";
  engine.CheckSync(s);
  EXPECT_EQ(engine.syncPass, 1);
  EXPECT_EQ(engine.savedFrom, "/p");
  EXPECT_EQ(s.From, "/p");
  engine.syncPass = 0;
}

TEST(MissingInPrimary, ComparesRelativePathsByBytesInTheSecondarysOrder) {
  const FileList primary{"/p/a.TXT", "/p/sub/c.txt", "/p/d.txt"};
  const FileList secondary{"/s/z.txt", "/s/A.txt", "/s/a.TXT", "/s/sub/c.txt", "/s/c.txt",
                           "/s/sub/sub/c.txt"};
  EXPECT_EQ(MissingInPrimary(primary, "/p", secondary, "/s"),
            (FileList{"/s/z.txt", "/s/A.txt", "/s/c.txt", "/s/sub/sub/c.txt"}));
  // The roots' trailing separators do not matter.
  EXPECT_EQ(MissingInPrimary(primary, "/p/", secondary, "/s"),
            MissingInPrimary(primary, "/p", secondary, "/s/"));
  EXPECT_EQ(MissingInPrimary({}, "/p", secondary, "/s").size(), secondary.size());
}

}  // namespace
}  // namespace orvKestrel::testing
