// Dates at the command line and in schedule states: a change of date format never stops a
// schedule, and a date that cannot be meant is refused before anything runs.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

using Dates = JobFolderTest;

TEST_F(Dates, BadFormatsAndImpossibleDaysAreRefusedNamingTheOption) {
  const std::pair<std::string, std::string> bad[] = {
      {"--date-format", "%"}, {"--date-format", "%H:%M"}, {"--date-format", "%d.%m"}, {"--date-format", "plain"},
      {"--now", "2026-02-30 10:00:00"}, {"--now", "2026-13-01 10:00:00"}, {"--now", "yesterday"}};
  // Each command takes the options through the same check: one command per row, in turn.
  const char* commands[] = {"run", "list", "check"};
  for (std::size_t i = 0; i < std::size(bad); ++i) {
    const auto& [option, value] = bad[i];
    SCOPED_TRACE(std::string(commands[i % 3]) + " " + option + " " + value);
    const RunResult r = Kestrel({commands[i % 3], "jobs", option, value});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find(option), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("\"" + value + "\""), std::string::npos) << r.err;
  }
  for (const char* good : {"%d.%m.%Y", "%Y-%m-%d", "%m/%d/%y", "%x", "%F"}) {
    EXPECT_EQ(Kestrel({"run", "jobs", "--date-format", good}).exitCode, 0) << good;
  }
  EXPECT_EQ(Kestrel({"run", "jobs", "--now", "2028-02-29 10:00:00"}).exitCode, 0);
}

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
