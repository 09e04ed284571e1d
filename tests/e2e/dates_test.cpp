// Dates at the command line and in schedule states: a change of date format never stops a
// schedule, and a date that cannot be meant is refused before anything runs.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class Dates : public JobFolderTest {
 protected:
  Dates() : JobFolderTest("e2e-dates") {}
  std::string Daily(const std::string& state) const {
    const fs::path job = dir_ / "jobs/d.kjb";
    Put(job, "[Job]\nName=d\nFrom=" + src().string() + "\nTo=" + dst().string() +
                 "\nDoPreview=0\nIntervalType=1\nIntervalTimeType=0\nIntervalTime=08:00:00\nIntState=" + state + "\n");
    return job.string();
  }
  RunResult Run(const std::string& format, const std::string& now = "2026-11-22 10:00:00") const {
    return RunKestrel({"run", "jobs", "--now", now, "--date-format", format}, dir_.root());
  }
};

TEST_F(Dates, BadFormatsAndImpossibleDaysAreRefusedNamingTheOption) {
  const struct {
    std::string option, value;
  } bad[] = {{"--date-format", "%"},        {"--date-format", "%H:%M"},
             {"--date-format", "%d.%m"},    {"--date-format", "plain"},
             {"--now", "2026-02-30 10:00:00"}, {"--now", "2026-13-01 10:00:00"},
             {"--now", "yesterday"}};
  for (const auto& b : bad) {
    for (const char* command : {"run", "list", "check"}) {
      SCOPED_TRACE(std::string(command) + " " + b.option + " " + b.value);
      const RunResult r = RunKestrel({command, "jobs", b.option, b.value}, dir_.root());
      EXPECT_EQ(r.exitCode, 2);
      EXPECT_NE(r.err.find(b.option), std::string::npos) << r.err;
      EXPECT_NE(r.err.find("\"" + b.value + "\""), std::string::npos) << r.err;
    }
  }
  for (const char* good : {"%d.%m.%Y", "%Y-%m-%d", "%m/%d/%y", "%x", "%F"}) {
    EXPECT_EQ(RunKestrel({"run", "jobs", "--date-format", good}, dir_.root()).exitCode, 0) << good;
  }
  EXPECT_EQ(RunKestrel({"run", "jobs", "--now", "2028-02-29 10:00:00"}, dir_.root()).exitCode, 0);
}

TEST_F(Dates, AStateInAnotherFormatNeverStopsTheSchedule) {
  const struct {
    std::string state, format;
    bool firesNow;
    std::string stateAfter;
  } cases[] = {
      {"21.11.2026", "%d.%m.%Y", true, "22.11.2026"},
      {"2026-11-21", "%d.%m.%Y", true, "22.11.2026"},   // ISO whatever the format
      {"2026-11-21", "%m/%d/%Y", true, "11/22/2026"},
      {"21.11.2026", "%m/%d/%Y", false, "11/21/2026"},  // another format: as if never fired
      {"garbage", "%Y-%m-%d", false, "2026-11-21"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.state + " read as " + c.format);
    const std::string job = Daily(c.state);
    const RunResult r = Run(c.format);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(r.err.find("Type mismatch"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("d: Starte Auftrag") != std::string::npos, c.firesNow) << r.out;
    EXPECT_NE(Get(job).find("IntState=" + c.stateAfter + "\n"), std::string::npos) << Get(job);
    if (!c.firesNow) {
      const RunResult next = Run(c.format, "2026-11-22 10:05:00");
      EXPECT_NE(next.out.find("d: Starte Auftrag"), std::string::npos) << next.out << next.err;
    }
  }
}

}  // namespace
}  // namespace e2e
