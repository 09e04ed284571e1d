#include "actions/modCheckExistingFiles.h"

#include "ActionsFixture.h"

#include <thread>

namespace orvKestrel::testing {
namespace {

class PoliciesTest : public ActionsTest {
 protected:
  // Source and destination whose write time and size differ from each other by the signs given
  // (+1: the source's is greater). The access times run the opposite way.
  void Pair(int time, int size) {
    const std::string base(10, 'x');
    a = Source("a.txt", base + std::string(size > 0 ? 1 : 0, 'x'));
    b = Dest("a.txt", base + std::string(size < 0 ? 1 : 0, 'x'));
    SetTimes(a, kNew - time * 100, kNew + time * 100);
    SetTimes(b, kNew, kNew);
  }
  bool Check(std::int16_t ext, std::int16_t selector) {
    return CheckExist(engine.fs, engine.trap, a, b, ext, selector);
  }
  std::string a, b;
};

// For every combination of write time and size, the answers of selectors 0..7 in order:
// newer, older, bigger, bigger+newer, bigger+older, smaller, smaller+newer, smaller+older.
TEST_F(PoliciesTest, EachComparisonIsStrictAndEvaluatesBothTests) {
  struct Case {
    int time, size;
    const char* answers;
  };
  const Case cases[] = {
      {+1, +1, "10110000"}, {+1, 0, "10000000"}, {+1, -1, "10000110"},
      {0, +1, "00100000"},  {0, 0, "00000000"},  {0, -1, "00000100"},
      {-1, +1, "01101000"}, {-1, 0, "01000000"}, {-1, -1, "01000101"},
  };
  for (const Case& c : cases) {
    Pair(c.time, c.size);
    for (std::int16_t sel = 0; sel < 8; ++sel) {
      SCOPED_TRACE("time " + std::to_string(c.time) + " size " + std::to_string(c.size) +
                   " selector " + std::to_string(sel));
      EXPECT_EQ(Check(1, sel), c.answers[sel] == '1');
    }
  }
}

TEST_F(PoliciesTest, ExtFileTimeChoosesTheTimeCompared) {
  Pair(+1, 0);  // written later, accessed earlier than the destination
  EXPECT_TRUE(Check(1, 0));
  EXPECT_FALSE(Check(1, 1));
  EXPECT_FALSE(Check(2, 0));
  EXPECT_TRUE(Check(2, 1));
  EXPECT_TRUE(Exist0(engine.fs, engine.trap, a, b, 1));
  EXPECT_TRUE(Exist1(engine.fs, engine.trap, a, b, 2));
}

TEST_F(PoliciesTest, UnknownTimeSelectorAnswersFalseForEveryDateComparison) {
  Pair(+1, +1);
  for (std::int16_t ext : {3, -1, 99}) {
    for (std::int16_t sel : {0, 1, 3, 4, 6, 7}) EXPECT_FALSE(Check(ext, sel)) << ext << sel;
    EXPECT_TRUE(Check(ext, 2)) << "the size comparison does not look at the time";
  }
}

TEST_F(PoliciesTest, SelectorOutsideTheEightNeverReplaces) {
  Pair(+1, +1);
  for (std::int16_t sel : {8, -1, 100}) EXPECT_FALSE(Check(1, sel));
}

TEST_F(PoliciesTest, MissingFileAnswersFalse) {
  Pair(+1, +1);
  std::filesystem::remove(b);
  for (std::int16_t sel = 0; sel < 8; ++sel) EXPECT_FALSE(Check(1, sel));
  std::filesystem::remove(a);
  Dest("a.txt", "x");
  EXPECT_FALSE(Check(1, 5));
}

TEST_F(PoliciesTest, CreationTimesAreComparedInWholeSeconds) {
  a = Source("a.txt", "x");
  b = Dest("a.txt", "x");
  EXPECT_FALSE(Check(0, 0));  // made within the same second: equal
  EXPECT_FALSE(Check(0, 1));
  const std::time_t start = std::time(nullptr);
  while (std::time(nullptr) == start) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::filesystem::remove(a);
  a = Source("a.txt", "x");
  if (engine.fs.Stat(a).Value().times.created == engine.fs.Stat(b).Value().times.created) {
    GTEST_SKIP() << "no creation time on this file system";
  }
  EXPECT_TRUE(Check(0, 0));
  EXPECT_FALSE(Check(0, 1));
}

}  // namespace
}  // namespace orvKestrel::testing
