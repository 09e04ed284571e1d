#include <gtest/gtest.h>

#include "support/TestEngine.h"
#include "support/TestSupport.h"

namespace orvKestrel {
namespace {

using testing::KeyValue;
using testing::TestEngine;
using testing::LocalTime;
using testing::ReadFile;
using testing::TempDir;

// 2026-06-15 is a Monday; June has 30 days.
class ScheduleTest : public ::testing::Test {
 protected:
  ScheduleTest() {
    e.m_sCurrJobFile = dir / "a.kjb";
    e.host.messageBox = [this](const MessageBoxRequest&) {
      ++errors;
      return BoxAnswer::Abort;
    };
  }
  void At(int y, int mo, int d, int h, int mi, int s = 0) {
    e.host.clock = Clock::FixedAt(LocalTime(y, mo, d, h, mi, s));
  }
  std::optional<std::string> IntState() { return KeyValue(ReadFile(dir / "a.kjb"), "IntState"); }

  TempDir dir;
  testing::CurrentDir cwd{dir.str()};
  TestEngine e{Host{}};
  int errors = 0;
};

TEST_F(ScheduleTest, DailyFiresOnTheCallAfterTheOneThatFoundTheTime) {
  std::string state, time = "08:00:00";
  At(2026, 6, 15, 7, 59);
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  At(2026, 6, 15, 8, 0);  // equal is not yet
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  EXPECT_FALSE(testing::Exists(dir / "a.kjb"));

  At(2026, 6, 15, 8, 1);
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(IntState(), "14.06.2026");  // yesterday
  EXPECT_EQ(state, "");                 // only the file learns it

  state = "14.06.2026";
  At(2026, 6, 15, 8, 2);
  EXPECT_TRUE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(IntState(), "15.06.2026");
  EXPECT_EQ(state, "14.06.2026");

  // Once a day: today's or a later date does not fire.
  for (const char* s : {"15.06.2026", "16.06.2026", "2026-07-01"}) {
    state = s;
    EXPECT_FALSE(e.CheckDailyInterval(state, time)) << s;
  }
  EXPECT_EQ(IntState(), "15.06.2026");
  // The next day fires again, and an ISO date in the file is read too.
  state = "2026-06-15";
  At(2026, 6, 16, 23, 59, 59);
  EXPECT_TRUE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(IntState(), "16.06.2026");
  EXPECT_EQ(errors, 0);
}

TEST_F(ScheduleTest, YesterdayAcrossAMonthAndTheShortDateFormat) {
  e.host.shortDateFormat = "%Y/%m/%d";
  std::string state, time = "00:00";
  At(2026, 3, 1, 0, 0, 1);
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(IntState(), "2026/02/28");
}

TEST_F(ScheduleTest, TimesThatDoNotConvertAreErrors) {
  At(2026, 6, 15, 12, 0);
  std::string state = "01.06.2026", time;
  EXPECT_FALSE(e.CheckDailyInterval(state, time));  // empty: never, and no error
  EXPECT_EQ(errors, 0);
  time = "noon";
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(errors, 1);
  EXPECT_FALSE(testing::Exists(dir / "a.kjb"));
  // A state that reads as no date (another locale wrote it) counts as never fired: no error,
  // yesterday is recorded, so the next pass fires.
  time = "08:00";
  state = "last week";
  EXPECT_FALSE(e.CheckDailyInterval(state, time));
  EXPECT_EQ(errors, 1);
  EXPECT_NE(testing::ReadFile(dir / "a.kjb").find("IntState=14.06.2026"), std::string::npos);
}

TEST_F(ScheduleTest, WeeklyMapsMondayZeroToSundaySix) {
  std::string time = "00:00:00";
  // Days 15 (Monday) to 21 (Sunday) of June 2026; which iWeekDay fires on each.
  for (int day = 15; day <= 21; ++day) {
    for (std::int16_t wd = 0; wd <= 7; ++wd) {
      std::string state = "01.01.2026";
      At(2026, 6, day, 12, 0);
      const bool expected = wd == day - 15;  // 7 never
      EXPECT_EQ(e.CheckWeeklyInterval(state, time, wd), expected) << "day " << day << " wd " << wd;
    }
  }
  std::int16_t sunday = 6;
  std::string state = "01.01.2026";
  At(2026, 6, 14, 12, 0);
  EXPECT_TRUE(e.CheckWeeklyInterval(state, time, sunday));
}

TEST_F(ScheduleTest, MonthlyNeverMovesToTheLastDay) {
  std::string time = "00:00:00";
  std::int16_t day31 = 31;
  for (int d = 1; d <= 30; ++d) {
    std::string state = "01.01.2026";
    At(2026, 6, d, 12, 0);
    EXPECT_FALSE(e.CheckMonthlyInterval(state, time, day31)) << d;
  }
  std::string state = "01.01.2026";
  At(2026, 7, 31, 12, 0);
  EXPECT_TRUE(e.CheckMonthlyInterval(state, time, day31));
  std::int16_t day15 = 15;
  At(2026, 6, 15, 12, 0);
  EXPECT_TRUE(e.CheckMonthlyInterval(state, time, day15));
}

TEST_F(ScheduleTest, DateScheduleFiresOnItsDayOnly) {
  std::string state = "01.01.2026", time = "10:00:00";
  At(2026, 6, 15, 12, 0);
  struct Case {
    const char* date;
    bool fires;
  };
  for (const Case c :
       {Case{"14.06.2026", false}, Case{"16.06.2026", false}, Case{"15.06.2026 10:00", false},
        Case{"15.06.2026", true}, Case{"2026-06-15", true}}) {
    std::string date = c.date;
    EXPECT_EQ(e.CheckDateInterval(state, time, date), c.fires) << c.date;
  }
  EXPECT_EQ(errors, 0);
  // A date that does not convert is an error even when the time has not come.
  time = "23:00:00";
  for (const char* bad : {"", "someday"}) {
    std::string date = bad;
    EXPECT_FALSE(e.CheckDateInterval(state, time, date));
  }
  EXPECT_EQ(errors, 2);
}

}  // namespace
}  // namespace orvKestrel
