// Dates at the command line and in schedule states: a change of date format never stops a
// schedule, and a date that cannot be meant is refused before anything runs.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

using Dates = JobFolderTest;

TEST_F(Dates, AStateInAnotherFormatNeverStopsTheSchedule) {
  const struct {
    std::string state, format;
    bool firesNow;
    std::string stateAfter;
  } cases[] = {
      {"21.11.2026", "%d.%m.%Y", true, "22.11.2026"},
      {"2026-11-21", "%d.%m.%Y", true, "22.11.2026"},  // ISO whatever the format
      {"2026-11-21", "%m/%d/%Y", true, "11/22/2026"},
      {"21.11.2026", "%m/%d/%Y", false, "11/21/2026"},  // another format: as if never fired
      {"garbage", "%Y-%m-%d", false, "2026-11-21"},
  };
  const auto run = [&](const std::string& format, const std::string& now) {
    return Kestrel({"run", "jobs", "--now", now, "--date-format", format});
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.state + " read as " + c.format);
    WriteJob("DoPreview=0\nIntervalType=1\nIntervalTimeType=0\nIntervalTime=08:00:00\nIntState=" + c.state + "\n",
             "d");
    const RunResult r = run(c.format, "2026-11-22 10:00:00");
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(r.err.find("Type mismatch"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("d: Starte Auftrag") != std::string::npos, c.firesNow) << r.out;
    EXPECT_NE(Get(jobs() / "d.kjb").find("IntState=" + c.stateAfter + "\n"), std::string::npos);
    EXPECT_TRUE(c.firesNow || run(c.format, "2026-11-22 10:05:00").out.find("d: Starte Auftrag") != std::string::npos);
  }
}

}  // namespace
}  // namespace e2e
