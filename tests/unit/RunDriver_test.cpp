#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "engine/Engine.h"
#include "support/Faults.h"
#include "support/TestSupport.h"
#include "unit/Rig.h"

namespace orvKestrel {
namespace {

using ::testing::ElementsAre;
using testing::KeyValue;
using testing::LocalTime;
using testing::ReadFile;
using testing::WriteFile;

// Records the events and the driver's own lines (what the file step logs in between is its own
// business), and lets a test act inside a log event.
class Events : public testing::RecordingEvents {
 public:
  void LogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                  bool bSameView, bool bIsLast) override {
    static constexpr std::int16_t kDriver[] = {2, 3, 6, 7, 8, 9, 28};
    if (std::find(std::begin(kDriver), std::end(kDriver), MsgID) != std::end(kDriver)) {
      RecordingEvents::LogMessage(LogMsg, MsgID, bView, bFile, bSameView, bIsLast);
    }
    if (onLog) onLog();
  }
  std::function<void()> onLog;
};

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
  void Pass(bool verbose = false) {
    ev.lines.clear();
    ev.jobs.clear();
    driver.ExecuteAllJobs(jobs, "", verbose, false, false);
  }
  void RunOne(const std::string& file) {
    ev.lines.clear();
    ev.jobs.clear();
    driver.ExecuteOneJob(file, jobs, "", false, false);
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
// looked at) and a key of its file afterwards. When a schedule fires: Schedules_test.
TEST_F(RunDriverTest, OnePassByTheJobsKeys) {
  const std::string daily = "IntervalType=1\nIntTimeType=0\nIntervalTime=08:00:00\n";
  const std::string space = "ChkFreeSpace=1\nFreeSpaceVal=1\nCounter=1\nInterval=4\n";
  const std::vector<std::string> ran = {"a: Starte Auftrag", "a: Auftrag ausgeführt"};
  const struct {
    const char* name;
    std::string keys;
    bool verbose;
    std::vector<std::string> texts;
    const char* events;
    const char *key, *value;
    bool noSpaceInfo = false;  // the free space cannot be asked: -1, below any limit
  } rows[] = {
      {"counter 0 never runs", "", false, {}, nullptr, "Counter", "-1"},
      {"and keeps falling", "Counter=-2\n", false, {}, nullptr, "Counter", "-3"},
      {"a delete job needs no destination", "To=" + tmp / "missing\nAction=2\nCounter=1\n", false, ran,
       nullptr, "Counter", "0"},
      {"missing paths are state 2", "To=" + tmp / "missing\nCounter=1\nInterval=3\n", true,
       {"a: Pfade ungültig"}, "0/2 3/2", "Counter", "3"},
      {"and silent without verbose", "To=" + tmp / "missing\nCounter=1\nInterval=3\n", false, {}, nullptr,
       "Counter", "3"},
      {"inactive does not count down", "Inactive=1\nCounter=2\n", true, {}, nullptr, "Counter", "2"},
      {"and says so when due", "Inactive=1\nCounter=1\n", true, {"a: Auftrag deaktiviert"}, nullptr, "Counter", "1"},
      {"only unscheduled jobs count", daily + "IntState=14.06.2026\n", false, ran, nullptr, "Counter", "<missing>"},
      {"free space above the limit", space, false, {}, "4/0", "Counter", "4"},
      {"free space unknown", space, false, ran, "0/0 4/0", "Counter", "4", true},
      // A preview job is left out of ordinary runs (taken in with --preview-jobs: e2e actions_test).
      {"preview job", "DoPreview=1\nCounter=1\n", true, {}, "", "Counter", "1"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.name);
    Job("a", r.keys);
    WriteFile(src + "/f.txt", "f");  // the delete job's row takes it
    if (r.noSpaceInfo) faults.Arm(FaultOp::Statvfs, 1, EIO);
    Pass(r.verbose);
    EXPECT_EQ(ev.Texts(), r.texts);
    if (r.events != nullptr) {
      std::string events;
      for (const auto& c : ev.jobs) {
        events += (events.empty() ? "" : " ") + std::to_string(c.lCounter) + "/" + std::to_string(c.iStatus);
      }
      EXPECT_EQ(events, r.events);
    }
    EXPECT_EQ(Value("a", r.key), r.value);
  }
  EXPECT_EQ(errors, 0);
}

TEST_F(RunDriverTest, RunOnceIsMarkedBeforeItRunsAndThenReportedInactive) {
  Job("a", "RunOnce=1\nCounter=1\nInterval=1\n");
  std::string statusAtStart;
  ev.onLog = [&] {
    if (statusAtStart.empty()) statusAtStart = Value("a", "Status");
  };
  Pass();
  EXPECT_EQ(statusAtStart, "5");
  EXPECT_EQ(Value("a", "Status"), "5");
  EXPECT_THAT(ev.Texts(), ElementsAre("a: Starte Auftrag", "a: Auftrag ausgeführt"));
  EXPECT_THAT(ev.jobs, ElementsAre(Current("a.kjb", 0, 0, 1), Current("a.kjb", 0, 1, 5)));

  ev.onLog = nullptr;
  Pass(true);
  EXPECT_THAT(ev.lines, ElementsAre(Line("a: Auftrag deaktiviert", 9, true, true, false)));
  EXPECT_THAT(ev.jobs, ElementsAre(Current("a.kjb", 0, 0, 5)));
  Pass(false);
  EXPECT_TRUE(ev.lines.empty());
}

TEST_F(RunDriverTest, PreviewStartLineByAction) {
  struct Case {
    int action;
    const char* line;  // nullptr: no start line
  };
  const Case cases[] = {
      {0, "a: Starte Auftrag - Vorschau - Dateien kopieren (keine Aktionen): "},
      {1, "a: Starte Auftrag - Vorschau - Dateien verschieben (keine Aktionen): "},
      {2, "a: Starte Auftrag - Vorschau - Dateien löschen (keine Aktionen): "},
      {3, "a: Starte Auftrag - Komprimiere Dateien (Kopie) -  "},
      {4, "a: Starte Auftrag - Dekomprimiere Dateien (Vorschau - keine Aktion)"},
      {5, "a: Starte Auftrag - Synchronisiere Verzeichnis (Vorschau) "},
      {22, "a: Starte Auftrag - Synchronisiere Verzeichnis (Vorschau) "},
      {9, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.action);
    Job("a", "DoPreview=1\nAction=" + std::to_string(c.action) + "\n");
    RunOne("a.kjb");
    ASSERT_FALSE(ev.lines.empty());
    if (c.line != nullptr) {
      EXPECT_THAT(ev.lines[0], Line(c.line, 3, true, true, false));
    } else {
      EXPECT_NE(ev.lines[0].id, 3);
    }
    EXPECT_TRUE(ev.lines.back().isLast);
  }
}

TEST_F(RunDriverTest, StateIsWrittenToTheFileNamedAfterTheJob) {
  const std::string path = jobs + "x.kjb";
  WriteFile(path, "[Job]\nName=other\nFrom=" + src + "\nTo=" + dst + "\nCounter=2\nDoPreview=0\n");
  const std::string before = ReadFile(path);
  Pass();
  EXPECT_EQ(ReadFile(path), before);
  EXPECT_EQ(Value("other", "Counter"), "1");
  EXPECT_THAT(ev.jobs, ElementsAre(Current("other.kjb", 0, 1, 0)));
}

TEST_F(RunDriverTest, DueFlagCarriesOverToAJobWhoseScheduleIsNotTested) {
  // The listing order is the file system's: find names that list the carrier after "a".
  const std::string carrier = "IntervalType=1\nIntTimeType=9\nCounter=1\n";
  std::string b;
  for (int k = 0; k < 50 && b.empty(); ++k) {
    for (bool aFirst : {true, false}) {
      std::filesystem::remove_all(jobs);
      const std::string name = "b" + std::to_string(k);
      if (aFirst) Job("a", "Counter=5\n");
      Job(name, carrier);
      if (!aFirst) Job("a", "Counter=5\n");
      const auto listed = driver.GetJobs(jobs);
      if (listed.size() == 2 && listed[0].JobName == "a") {
        b = name;
        break;
      }
    }
  }
  ASSERT_FALSE(b.empty());
  // "a" has no schedule: due. "b" keeps that answer and runs with its Counter of 1.
  Pass();
  EXPECT_THAT(ev.Texts(), ElementsAre(b + ": Starte Auftrag", b + ": Auftrag ausgeführt"));
  EXPECT_EQ(Value("a", "Counter"), "4");

  // A job that is never due passes "not due" on.
  Job("a", "IntervalType=2\nCounter=1\n");
  Pass();
  EXPECT_TRUE(ev.lines.empty());
  EXPECT_TRUE(ev.jobs.empty());
}

// One job runs now, inactive or not, without writing its state or sending CurrentJob events;
// its closing line reads the job-error flag, which only ExecuteAllJobs clears. (Nothing to
// find ends "Keine Dateien gefunden": e2e selection_test, ids 7 and 6.)
TEST_F(RunDriverTest, OneJobNowWithoutStateOrEvents) {
  const std::string path = Job("a", "Inactive=1\nCounter=1\n");
  driver.ExecuteOneJob("a.kjb", jobs, "", true, false);
  EXPECT_TRUE(ev.lines.empty());
  EXPECT_TRUE(ev.jobs.empty());
  Job("a", "Counter=7\nRunOnce=1\n");
  const std::string before = ReadFile(path);
  driver.jobError = true;
  RunOne("a.kjb");
  EXPECT_THAT(ev.lines, ElementsAre(Line("a: Starte Auftrag", 3, true, true, false),
                                    Line("a: Auftrag ausgeführt (mit Fehler)", 28, true, true, true)));
  EXPECT_TRUE(driver.jobEndedWithError);
  EXPECT_TRUE(ev.jobs.empty());
  EXPECT_EQ(ReadFile(path), before);
}

// What the e2e dry run does not show: a schedule's state is not written either, and nothing
// beside the job file appears.
TEST_F(RunDriverTest, DryRunWritesNoScheduleState) {
  Job("c", "IntervalType=1\nIntervalTime=00:00:01\n");
  const std::string before = ReadFile(jobs + "c.kjb");
  driver.svc.dryRun = true;
  Pass();
  Pass();
  EXPECT_EQ(ReadFile(jobs + "c.kjb"), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(jobs), {}), 1);
}

TEST_F(RunDriverTest, StopEndsTheRunAfterTheCurrentJob) {
  Job("a", "Counter=1\n");
  Job("b", "Counter=1\n");
  ev.onLog = [this] { driver.StopMsg(true); };
  Pass();
  ASSERT_EQ(ev.lines.size(), 2u);
  const std::string name = ev.lines[0].text.substr(0, 1);
  EXPECT_THAT(ev.lines, ElementsAre(Line(name + ": Starte Auftrag", 3, true, true, false),
                                    Line(name + ": Aktion 'Aufträge ausführen' abgebrochen", 2,
                                         true, true, true)));
  EXPECT_EQ(ev.jobs.size(), 2u);  // the stopped job's two events, none of the other

  // A stop requested between runs is forgotten.
  ev.onLog = nullptr;
  driver.StopMsg(true);
  Job("a", "Counter=1\n");
  Job("b", "Counter=1\n");
  Pass();
  EXPECT_EQ(ev.lines.size(), 4u);
}

}  // namespace
}  // namespace orvKestrel
