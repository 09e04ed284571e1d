#include <gmock/gmock.h>

#include "engine/Catalogue.h"
#include "jobs/NumberText.h"
#include "platform/SysError.h"
#include "unit/Rig.h"

namespace orvKestrel {
namespace {

using ::testing::ElementsAre;
using namespace testing;  // the shared helpers

// Records the events and the driver's own lines (what the file step logs in between is its own
// business), and lets a test act inside a log event.
class Events : public testing::RecordingEvents {
 public:
  void LogMessage(const std::string& text, std::int16_t id, bool view, bool file, bool same, bool last) override {
    if (std::set<int>{2, 3, 6, 7, 8, 9, 28}.contains(id)) RecordingEvents::LogMessage(text, id, view, file, same, last);
    if (onLog) onLog();
  }
  std::function<void()> onLog;
};

// A scheduled job: its keys (IntervalType=1 is added), the clock, whether it fires, its IntState
// afterwards and the errors shown.
struct Schedule {
  std::string keys;
  std::time_t now;
  bool fires;
  std::string stateAfter;
  int errors = 0;
  std::string dateFormat = "%d.%m.%Y";
};
// 2026-06-15 is a Monday; June has 30 days.
std::time_t June(int d, int h, int mi, int s = 0) { return LocalTime(2026, 6, d, h, mi, s); }
std::string Daily(const std::string& state, const std::string& time = "08:00:00") {
  return "IntTimeType=0\nIntervalTime=" + time + "\n" + (state == "-" ? "" : "IntState=" + state + "\n");
}

class RunDriverTest : public testing::Rig {
 protected:
  RunDriverTest() {
    // Something to find, so that the file step ends as "done" and not as "nothing found".
    WriteFile(src + "/f.txt", "f");
    svc.events = &ev;
    svc.host.clock = Clock::FixedAt(LocalTime(2026, 6, 15, 12, 0));
    svc.host.messageBox = [this](const MessageBoxRequest&) { return ++errors, BoxAnswer::Abort; };
  }
  // A job file named after the job, with paths that exist and DoPreview 0; the first of two
  // keys counts, so extra may say otherwise.
  std::string Job(const std::string& name, const std::string& extra) {
    const std::string path = jobs + name + ".kjb";
    WriteFile(path, "[Job]\n" + extra + "Name=" + name + "\nFrom=" + src + "\nTo=" + dst + "\nDoPreview=0\n");
    return path;
  }
  std::string Value(const std::string& name, const std::string& key) {
    return KeyValue(ReadFile(jobs + name + ".kjb"), key).value_or("<missing>");
  }
  // A pass over the folder, or the one job file `one` run now.
  void Pass(bool verbose = false, const std::string& one = "") {
    ev.lines.clear(), ev.jobs.clear();
    if (one.empty())
      driver.ExecuteAllJobs(jobs, "", verbose, false, false);
    else
      driver.ExecuteOneJob(one, jobs, "", false, false);
  }

  void Fires(const Schedule& r) {
    SCOPED_TRACE(r.keys + "at " + std::to_string(r.now));
    Job("a", "IntervalType=1\n" + r.keys);
    svc.host.clock = Clock::FixedAt(r.now), svc.host.shortDateFormat = r.dateFormat, errors = 0;
    Pass();
    EXPECT_EQ(std::tuple(std::ranges::count(ev.Texts(), "a: Starte Auftrag"), Value("a", "IntState"), errors),
              std::tuple(r.fires ? 1 : 0, r.stateAfter, r.errors));
  }
  const std::string jobs = tmp / "jobs/";
  Events ev;
  int errors = 0;
};

MATCHER_P5(Line, text, id, view, file, same, "") {
  return arg.text == text && arg.id == id && arg.view == view && arg.file == file &&
         arg.sameView == same && arg.isLast == same;
}

MATCHER_P4(Current, file, index, counter, status, "") {
  return arg.sFileName == file && arg.lIndex == index && arg.lCounter == counter &&
         arg.iStatus == status;
}

// One pass over one job "a": its lines, its CurrentJob events ("counter/status", nullptr: not
// looked at) and its Counter afterwards. When a schedule fires: the schedule tables below.
TEST_F(RunDriverTest, OnePassByTheJobsKeys) {
  const std::string daily = "IntervalType=1\nIntTimeType=0\nIntervalTime=08:00:00\n";
  const std::string space = "ChkFreeSpace=1\nFreeSpaceVal=1\nCounter=1\nInterval=4\n";
  const std::vector<std::string> ran = {"a: Starte Auftrag", "a: Auftrag ausgeführt"};
  // What the row shows, the keys, verbose, the lines, the CurrentJob events ("counter/status ",
  // nullptr: not looked at), the Counter afterwards, and whether the free space cannot be asked
  // (-1, below any limit).
  const std::tuple<const char*, std::string, bool, std::vector<std::string>, const char*, const char*, bool> rows[] = {
      {"counter 0 never runs", "", false, {}, nullptr, "-1", false},
      {"and keeps falling", "Counter=-2\n", false, {}, nullptr, "-3", false},
      {"a delete job needs no destination", "To=" + tmp / "missing\nAction=2\nCounter=1\n", false, ran, nullptr, "0",
       false},
      {"missing paths are state 2", "To=" + tmp / "missing\nCounter=1\nInterval=3\n", true,
       {"a: Pfade ungültig"}, "0/2 3/2 ", "3", false},
      {"and silent without verbose", "To=" + tmp / "missing\nCounter=1\nInterval=3\n", false, {}, nullptr, "3", false},
      {"inactive does not count down", "Inactive=1\nCounter=2\n", true, {}, nullptr, "2", false},
      {"and says so when due", "Inactive=1\nCounter=1\n", true, {"a: Auftrag deaktiviert"}, nullptr, "1", false},
      {"only unscheduled jobs count", daily + "IntState=14.06.2026\n", false, ran, nullptr, "<missing>", false},
      {"free space above the limit", space, false, {}, "4/0 ", "4", false},
      {"free space unknown", space, false, ran, "0/0 4/0 ", "4", true},
      // A preview job is left out of ordinary runs (taken in with --preview-jobs: e2e actions_test).
      {"preview job", "DoPreview=1\nCounter=1\n", true, {}, "", "1", false},
  };
  for (const auto& [name, keys, verbose, texts, events, counter, noSpaceInfo] : rows) {
    SCOPED_TRACE(name);
    Job("a", keys);
    WriteFile(src + "/f.txt", "f");  // the delete job's row takes it
    if (noSpaceInfo) faults.Arm(FaultOp::Statvfs, 1, EIO);
    Pass(verbose);
    EXPECT_EQ(ev.Texts(), texts);
    std::string got;
    for (const auto& c : ev.jobs) got += std::to_string(c.lCounter) + "/" + std::to_string(c.iStatus) + " ";
    EXPECT_TRUE(events == nullptr || got == events) << got;
    EXPECT_EQ(Value("a", "Counter"), counter);
  }
  EXPECT_EQ(errors, 0);
}

TEST_F(RunDriverTest, RunOnceIsMarkedBeforeItRunsAndThenReportedInactive) {
  Job("a", "RunOnce=1\nCounter=1\nInterval=1\n");
  std::string statusAtStart;
  ev.onLog = [&] { if (statusAtStart.empty()) statusAtStart = Value("a", "Status"); };
  Pass();
  EXPECT_EQ(std::pair(statusAtStart, Value("a", "Status")), std::pair(std::string("5"), std::string("5")));
  EXPECT_THAT(ev.Texts(), ElementsAre("a: Starte Auftrag", "a: Auftrag ausgeführt"));
  EXPECT_THAT(ev.jobs, ElementsAre(Current("a.kjb", 0, 0, 1), Current("a.kjb", 0, 1, 5)));

  ev.onLog = nullptr;
  Pass(true);
  EXPECT_THAT(ev.lines, ElementsAre(Line("a: Auftrag deaktiviert", 9, true, true, false)));
  EXPECT_THAT(ev.jobs, ElementsAre(Current("a.kjb", 0, 0, 5)));
  Pass(false);
  EXPECT_TRUE(ev.lines.empty());
}

// The start line of a preview names the action; action 9 has none.
TEST_F(RunDriverTest, PreviewStartLineByAction) {
  const std::string start = "a: Starte Auftrag - ", sync = "Synchronisiere Verzeichnis (Vorschau) ";
  const std::pair<int, std::string> cases[] = {
      {0, "Vorschau - Dateien kopieren (keine Aktionen): "}, {1, "Vorschau - Dateien verschieben (keine Aktionen): "},
      {2, "Vorschau - Dateien löschen (keine Aktionen): "}, {3, "Komprimiere Dateien (Kopie) -  "},
      {4, "Dekomprimiere Dateien (Vorschau - keine Aktion)"}, {5, sync}, {22, sync}, {9, ""}};
  for (const auto& [action, line] : cases) {
    Job("a", "DoPreview=1\nAction=" + std::to_string(action) + "\n");
    Pass(false, "a.kjb");
    ASSERT_FALSE(ev.lines.empty());
    EXPECT_EQ(ev.lines[0].id == 3 ? ev.lines[0].text : "", line.empty() ? "" : start + line) << action;
    EXPECT_TRUE(ev.lines.back().isLast);
  }
}

TEST_F(RunDriverTest, StateIsWrittenToTheFileNamedAfterTheJob) {
  const std::string path = Job("x", "Name=other\nCounter=2\n"), before = ReadFile(path);
  Pass();
  EXPECT_EQ(ReadFile(path), before);
  EXPECT_EQ(Value("other", "Counter"), "1");
  EXPECT_THAT(ev.jobs, ElementsAre(Current("other.kjb", 0, 1, 0)));
}

TEST_F(RunDriverTest, DueFlagCarriesOverToAJobWhoseScheduleIsNotTested) {
  // The listing order is the file system's, and rewriting a file keeps its place in it.
  Job("a", "");
  Job("b", "");
  const auto listed = driver.GetJobs(jobs);
  ASSERT_EQ(listed.size(), 2u);
  const std::string a = listed[0].JobName, b = listed[1].JobName;
  // "a" has no schedule: due. "b" keeps that answer and runs with its Counter of 1.
  Job(a, "Counter=5\n");
  Job(b, "IntervalType=1\nIntTimeType=9\nCounter=1\n");
  Pass();
  EXPECT_THAT(ev.Texts(), ElementsAre(b + ": Starte Auftrag", b + ": Auftrag ausgeführt"));
  EXPECT_EQ(Value(a, "Counter"), "4");

  // A job that is never due passes "not due" on.
  Job(a, "IntervalType=2\nCounter=1\n");
  Pass();
  EXPECT_TRUE(ev.lines.empty() && ev.jobs.empty());
}

// One job runs now without writing its state or sending CurrentJob events (e2e RunTest's
// RunOne...); an inactive one is passed over silently even when asked to start it, and the
// closing line reads the job-error flag, which only ExecuteAllJobs clears.
TEST_F(RunDriverTest, OneJobNowWithoutStateOrEvents) {
  const std::string path = Job("a", "Inactive=1\nCounter=1\n");
  driver.ExecuteOneJob("a.kjb", jobs, "", true, false);
  EXPECT_TRUE(ev.lines.empty() && ev.jobs.empty());
  Job("a", "Counter=7\nRunOnce=1\n");
  const std::string before = ReadFile(path);
  driver.jobError = true;
  Pass(false, "a.kjb");
  EXPECT_THAT(ev.lines, ElementsAre(Line("a: Starte Auftrag", 3, true, true, false),
                                    Line("a: Auftrag ausgeführt (mit Fehler)", 28, true, true, true)));
  EXPECT_TRUE(driver.jobEndedWithError && ev.jobs.empty());
  EXPECT_EQ(ReadFile(path), before);  // RunOnce is not marked either
}

TEST_F(RunDriverTest, StopEndsTheRunAfterTheCurrentJob) {
  const auto due = [&] { for (const char* name : {"a", "b"}) Job(name, "Counter=1\n"); };
  due();
  ev.onLog = [this] { driver.StopMsg(true); };
  Pass();
  ASSERT_EQ(ev.lines.size(), 2u);
  const std::string name = ev.lines[0].text.substr(0, 1);
  EXPECT_THAT(ev.lines, ElementsAre(Line(name + ": Starte Auftrag", 3, true, true, false),
                                    Line(name + ": Aktion 'Aufträge ausführen' abgebrochen", 2, true, true, true)));
  EXPECT_EQ(ev.jobs.size(), 2u);  // the stopped job's two events, none of the other

  // A stop requested between runs is forgotten.
  ev.onLog = nullptr;
  driver.StopMsg(true);
  due();
  Pass();
  EXPECT_EQ(ev.lines.size(), 4u);
}

// A state of yesterday fires, in ISO too, and a state that reads as no date counts as never
// fired: e2e RunTest.AScheduleStateInAnotherDateFormatNeverStopsTheSchedule. Here the edges: a daily
// schedule fires on the pass after the one that found the time, weekdays run from Monday 0 to
// Sunday 6, a day of the month never moves to a shorter month's last day, and a date fires on
// its day only.
TEST_F(RunDriverTest, SchedulesFireAtTheirEdges) {
  const std::string monthly = "IntTimeType=2\nIntervalTime=00:00:00\nIntState=01.01.2026\nIntMonthDay=";
  const auto date = [](const std::string& d, const std::string& time = "10:00:00") {
    return "IntTimeType=3\nIntervalTime=" + time + "\nIntState=01.01.2026\nIntervalDate=" + d + "\n";
  };
  const Schedule rows[] = {
      {Daily("-"), June(15, 7, 59), false, "<missing>"},
      {Daily("-"), June(15, 8, 0), false, "<missing>"},  // equal is not yet
      {Daily("-"), June(15, 8, 1), false, "14.06.2026"},  // yesterday: the next pass fires
      {Daily("15.06.2026"), June(15, 8, 2), false, "15.06.2026"},  // once a day
      {Daily("16.06.2026"), June(15, 8, 2), false, "16.06.2026"},
      {Daily("2026-07-01"), June(15, 8, 2), false, "2026-07-01"},
      {Daily("2026-06-15"), June(16, 23, 59, 59), true, "16.06.2026"},  // to the day's last second
      {Daily("-", "00:00"), LocalTime(2026, 3, 1, 0, 0, 1), false, "2026/02/28", 0, "%Y/%m/%d"},
      // No time: never, and no error; a time that does not convert is one.
      {Daily("01.06.2026", ""), June(15, 12, 0), false, "01.06.2026"},
      {Daily("01.06.2026", "noon"), June(15, 12, 0), false, "01.06.2026", 1},
      {monthly + "31\n", LocalTime(2026, 7, 31, 12, 0), true, "31.07.2026"},
      {monthly + "15\n", June(15, 12, 0), true, "15.06.2026"},
      {date("14.06.2026"), June(15, 12, 0), false, "01.01.2026"},
      {date("16.06.2026"), June(15, 12, 0), false, "01.01.2026"},
      {date("15.06.2026 10:00"), June(15, 12, 0), false, "01.01.2026"},
      {date("15.06.2026"), June(15, 12, 0), true, "15.06.2026"},
      {date("2026-06-15"), June(15, 12, 0), true, "15.06.2026"},
      // A date that does not convert is an error even when the time has not come.
      {date("", "23:00:00"), June(15, 12, 0), false, "01.01.2026", 1},
      {date("someday", "23:00:00"), June(15, 12, 0), false, "01.01.2026", 1},
  };
  for (const Schedule& r : rows) Fires(r);
  for (int d = 1; d <= 30; ++d) Fires({monthly + "31\n", June(d, 12, 0), false, "01.01.2026"});
  for (int day = 14; day <= 21; ++day) {  // Sunday 14 to Sunday 21; weekday 7 never fires
    for (int wd = 0; wd <= 7; ++wd) {
      const bool fires = wd == (day - 8) % 7;
      Fires({"IntTimeType=1\nIntervalTime=00:00:00\nIntState=01.01.2026\nIntWeekDay=" + std::to_string(wd) + "\n",
             June(day, 12, 0), fires, fires ? std::to_string(day) + ".06.2026" : "01.01.2026"});
    }
  }
}

// 0 and below are taken as 1 megabyte, in the caller's value too. A drive that cannot be
// queried reports -1 without an error: below any limit, so the trigger fires (a whole job:
// "free space unknown" above). 2048 megabytes overflow the limit in bytes: an
// error, and going on regardless compares with 0, which only -1 is below.
TEST_F(RunDriverTest, FreeSpaceBelowTheLimitOnly) {
  // The limit, whether the drive cannot be queried, the answer to an error, whether the space is
  // below the limit, the limit afterwards and the questions asked so far.
  const std::tuple<std::int32_t, bool, BoxAnswer, bool, std::int32_t, int> rows[] = {
      {0, false, BoxAnswer::Abort, false, 1, 0},      {-5, false, BoxAnswer::Abort, false, 1, 0},
      {2047, true, BoxAnswer::Abort, true, 2047, 0},  {2048, true, BoxAnswer::Abort, false, 2048, 1},
      {2048, true, BoxAnswer::Ignore, true, 2048, 2}, {100000, false, BoxAnswer::Ignore, false, 100000, 3}};
  int asked = 0;
  for (const auto& [given, noInfo, answer, below, after, askedAfter] : rows) {
    if (noInfo) faults.Arm(FaultOp::Statvfs, 1, EIO);
    svc.host.messageBox = [&, answer](const MessageBoxRequest&) { return ++asked, answer; };
    std::int32_t limit = given;
    EXPECT_EQ(std::tuple(CheckFreeSpace(svc, limit, src), limit, asked), std::tuple(below, after, askedAfter)) << given;
  }
  EXPECT_NE(testing::ReadFile(tmp / "error.log").find("#6 (Overflow)"), std::string::npos);
}

// 13 present but empty: the empty text, not the default; 28 built from the replaced "t6". An
// engine loads its catalogue once: the language file of its second run is not read.
TEST(Catalogue, LanguageFileReplacesTextsButNotAffixesOncePerEngine) {
  testing::TempDir dir;
  FileSystem fs;
  const std::string lang = dir / "en.lng";
  const auto load = [&] { Catalogue c; c.LoadLogMessages(fs, lang); c.SetMsgIDs(); return c; };
  WriteFile(lang, "[LogMessages]\nt11=Copied\nt13=\nt14=to\nt6=Job done\nt99=ignored\nt3=" + std::string(300, 'x'));
  const Catalogue c = load();
  EXPECT_EQ((std::vector{c.Text(11), c.Text(13), c.Text(14), c.Text(28), c.Text(3), c.Text(12)}),
            (std::vector<std::string>{"Copied: ", ": ", " to ", "Job done (mit Fehler)", std::string(255, 'x'),
                                      "Verschoben: "}));
  Engine e{Host{}};
  e.ExecuteAllJobs(dir / "jobs/", lang, false, false, false);
  WriteFile(lang, "[LogMessages]\nt28=(with errors)\nt6=Done\n");  // both parts of "t28"
  EXPECT_EQ(load().Text(28), "Done (with errors)");
  WriteFile(dir / "fr.lng", "[LogMessages]\nt11=Copie\n");
  e.ExecuteAllJobs(dir / "jobs/", dir / "fr.lng", false, false, false);
  EXPECT_EQ(e.svc.T(11), "Copied: ");
}

// The value, or the error number as a negative value beyond the range.
std::int64_t Read(const std::function<std::int64_t()>& convert) {
  try {
    return convert();
  } catch (const KestrelError& e) {
    return -1'000'000'000'000 - e.Number();
  }
}
constexpr std::int64_t kOverflow = -1'000'000'000'000 - kErrOverflow;
constexpr std::int64_t kMismatch = -1'000'000'000'000 - kErrTypeMismatch;

// Halves round to even; blanks, "," and "+" are read; each width has its overflow; anything but
// a number is a type mismatch.
TEST(NumberText, SixteenAndThirtyTwoBits) {
  const std::tuple<const char*, std::int64_t, std::int64_t> cases[] = {
      {"7.5", 8, 8}, {"6.5", 6, 6}, {"0.5", 0, 0}, {"-7.5", -8, -8}, {"2.51", 3, 3}, {"2.49", 2, 2},
      {"2.50000", 2, 2}, {"2.500001", 3, 3}, {"4,0", 4, 4}, {" 4 ", 4, 4}, {"\t-3\t", -3, -3},
      {"+3", 3, 3}, {".5", 0, 0}, {"5.", 5, 5}, {"007", 7, 7}, {"-0", 0, 0},
      {"32767", 32767, 32767}, {"-32768.5", -32768, -32768}, {"32767.5", kOverflow, 32768},
      {"-32769", kOverflow, -32769}, {"2147483647", kOverflow, 2147483647},
      {"-2147483648", kOverflow, -2147483648LL}, {"2147483648", kOverflow, kOverflow},
      {"99999999999999999999999", kOverflow, kOverflow},
  };
  const auto both = [](const char* t) {
    return std::pair(Read([&] { return ToInt16(t); }), Read([&] { return ToInt32(t); }));
  };
  for (const auto& [text, v16, v32] : cases) EXPECT_EQ(both(text), std::pair(v16, v32)) << text;
  for (const char* text :
       {"", "  ", "abc", "1a", "a1", "1.2.3", "1 2", "-", "+", ".", "1e3", "--1", "0x10", "1,5,0", "ä"}) {
    EXPECT_EQ(both(text), std::pair(kMismatch, kMismatch)) << '"' << text << '"';
    EXPECT_THROW(ToDouble(text), KestrelError) << '"' << text << '"';
  }
  EXPECT_DOUBLE_EQ(ToDouble("1,5"), 1.5);
  EXPECT_DOUBLE_EQ(ToDouble(" -0.125 "), -0.125);
  EXPECT_DOUBLE_EQ(ToDouble("1048576"), 1048576.0);
}

}  // namespace
}  // namespace orvKestrel
