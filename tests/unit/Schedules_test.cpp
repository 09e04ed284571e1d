// When a scheduled job fires, seen through a run of the public class at a fixed clock: whether
// the job starts, the state its file keeps afterwards, and the errors the host is shown.
#include <orvKestrel/clsKestrel.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace orvKestrel {
namespace {

using testing::LocalTime;

struct Row {
  std::string keys;      // the schedule; IntervalType=1 is added
  std::time_t now;
  bool fires;
  std::string stateAfter;  // "-": no IntState in the file
  int errors = 0;
  std::string dateFormat = "%d.%m.%Y";
};

// 2026-06-15 is a Monday; June has 30 days.
std::time_t June(int d, int h, int mi, int s = 0) { return LocalTime(2026, 6, d, h, mi, s); }

std::string Daily(const std::string& state, const std::string& time = "08:00:00") {
  return "IntTimeType=0\nIntervalTime=" + time + "\n" + (state == "-" ? "" : "IntState=" + state + "\n");
}

void Check(const Row& r) {
  SCOPED_TRACE(r.keys + "at " + std::to_string(r.now));
  testing::TempDir dir;
  testing::CurrentDir cwd(dir.str());  // error.log lands here
  std::filesystem::create_directories(dir / "src");
  const std::string file = dir / "jobs/a.kjb";
  testing::WriteFile(file, "[Job]\nName=a\nFrom=" + dir / "src" + "\nTo=" + dir / "src" +
                               "\nDoPreview=0\nIntervalType=1\n" + r.keys);
  int errors = 0;
  Host host;
  host.clock = Clock::FixedAt(r.now);
  host.shortDateFormat = r.dateFormat;
  host.messageBox = [&](const MessageBoxRequest&) { return ++errors, BoxAnswer::Abort; };
  testing::RecordingEvents events;
  clsKestrel kestrel(host);
  kestrel.Connect(&events);
  kestrel.ExecuteAllJobs(dir / "jobs/", "");
  const auto texts = events.Texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "a: Starte Auftrag"), r.fires ? 1 : 0);
  EXPECT_EQ(testing::KeyValue(testing::ReadFile(file), "IntState").value_or("-"), r.stateAfter);
  EXPECT_EQ(errors, r.errors);
}

// A state of yesterday fires, in ISO too, and a state that reads as no date counts as never
// fired: e2e dates_test (AStateInAnotherFormatNeverStopsTheSchedule). Here the edges.
TEST(Schedules, DailyFiresOnThePassAfterTheOneThatFoundTheTime) {
  const Row rows[] = {
      {Daily("-"), June(15, 7, 59), false, "-"},
      {Daily("-"), June(15, 8, 0), false, "-"},  // equal is not yet
      {Daily("-"), June(15, 8, 1), false, "14.06.2026"},  // yesterday: the next pass fires
      {Daily("15.06.2026"), June(15, 8, 2), false, "15.06.2026"},  // once a day
      {Daily("16.06.2026"), June(15, 8, 2), false, "16.06.2026"},
      {Daily("2026-07-01"), June(15, 8, 2), false, "2026-07-01"},
      {Daily("2026-06-15"), June(16, 23, 59, 59), true, "16.06.2026"},  // to the day's last second
      {Daily("-", "00:00"), LocalTime(2026, 3, 1, 0, 0, 1), false, "2026/02/28", 0, "%Y/%m/%d"},
      // No time: never, and no error; a time that does not convert is one.
      {Daily("01.06.2026", ""), June(15, 12, 0), false, "01.06.2026"},
      {Daily("01.06.2026", "noon"), June(15, 12, 0), false, "01.06.2026", 1},
  };
  for (const Row& r : rows) Check(r);
}

TEST(Schedules, WeeklyMapsMondayZeroToSundaySix) {
  for (int day = 14; day <= 21; ++day) {  // Sunday 14 to Sunday 21
    for (int wd = 0; wd <= 7; ++wd) {     // 7 never fires
      const bool fires = wd == (day - 8) % 7;
      Check({"IntTimeType=1\nIntervalTime=00:00:00\nIntState=01.01.2026\nIntWeekDay=" +
                 std::to_string(wd) + "\n",
             June(day, 12, 0), fires, fires ? std::to_string(day) + ".06.2026" : "01.01.2026"});
    }
  }
}

TEST(Schedules, MonthlyNeverMovesToTheLastDayAndDatesFireOnTheirDayOnly) {
  const std::string monthly = "IntTimeType=2\nIntervalTime=00:00:00\nIntState=01.01.2026\nIntMonthDay=";
  for (int d = 1; d <= 30; ++d) Check({monthly + "31\n", June(d, 12, 0), false, "01.01.2026"});
  Check({monthly + "31\n", LocalTime(2026, 7, 31, 12, 0), true, "31.07.2026"});
  Check({monthly + "15\n", June(15, 12, 0), true, "15.06.2026"});

  const auto date = [](const std::string& d, const std::string& time = "10:00:00") {
    return "IntTimeType=3\nIntervalTime=" + time + "\nIntState=01.01.2026\nIntervalDate=" + d + "\n";
  };
  const Row rows[] = {
      {date("14.06.2026"), June(15, 12, 0), false, "01.01.2026"},
      {date("16.06.2026"), June(15, 12, 0), false, "01.01.2026"},
      {date("15.06.2026 10:00"), June(15, 12, 0), false, "01.01.2026"},
      {date("15.06.2026"), June(15, 12, 0), true, "15.06.2026"},
      {date("2026-06-15"), June(15, 12, 0), true, "15.06.2026"},
      // A date that does not convert is an error even when the time has not come.
      {date("", "23:00:00"), June(15, 12, 0), false, "01.01.2026", 1},
      {date("someday", "23:00:00"), June(15, 12, 0), false, "01.01.2026", 1},
  };
  for (const Row& r : rows) Check(r);
}

}  // namespace
}  // namespace orvKestrel
