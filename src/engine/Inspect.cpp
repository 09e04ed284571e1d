// The engine's rules for job names, patterns and schedules, as read-only questions for hosts.
#include <orvKestrel/inspect.h>

#include "platform/DateText.h"
#include "platform/SysError.h"
#include "selection/RegExp.h"

#include <string_view>

namespace orvKestrel {
namespace {

// Whether the schedule's day test passes on the day that starts at midnight `day`.
bool DayMatches(const job& j, std::time_t day, std::optional<std::time_t> onDate) {
  const std::tm tm = datetext::Local(day);
  switch (j.IntervalTimeType) {
    case 0: return true;
    case 1: return (tm.tm_wday + 6) % 7 == j.IntervalWeekDay;  // 0 = Monday
    case 2: return tm.tm_mday == j.IntervalMonthDay;
    case 3: return onDate && *onDate == day;
    default: return false;
  }
}

std::time_t AddDays(std::time_t day, int n) {
  std::tm tm = datetext::Local(day);
  tm.tm_mday += n;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

std::time_t AtTime(std::time_t day, int secondsOfDay) {
  std::tm tm = datetext::Local(day);
  tm.tm_sec += secondsOfDay;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

// Reads the texts the schedule needs; false (with o.problem set) when one does not read.
bool ReadScheduleTexts(const job& j, const Host& host, ScheduleOutlook& o, int& at,
                       std::optional<std::time_t>& last, std::optional<std::time_t>& onDate) {
  const auto time = datetext::ParseTimeOfDay(j.IntervalTime);
  if (!time) {
    o.problem = "IntervalTime \"" + j.IntervalTime + "\" is not a time of day (HH:MM:SS)";
    return false;
  }
  at = *time;
  if (j.IntervalTimeType == 3) {
    onDate = datetext::ParseDateTime(j.IntervalDate, host.shortDateFormat);
    if (!onDate) {
      o.problem = "IntervalDate \"" + j.IntervalDate + "\" is not a date (" +
                  host.shortDateFormat + " or YYYY-MM-DD)";
      return false;
    }
  }
  // A state that does not read counts as "never fired", as in the engine.
  if (!j.IntervalState.empty()) last = datetext::ParseDateTime(j.IntervalState, host.shortDateFormat);
  return true;
}

}  // namespace

std::string PatternError(const std::string& pattern) {
  try {
    RegExpCache().Prepare(pattern);
  } catch (const KestrelError& e) {
    return e.Description();
  }
  return {};
}

bool IsPlainJobName(const std::string& name) {
  return name.find_first_of(std::string_view("/\0", 2)) == std::string::npos && name != "." &&
         name != "..";
}

ScheduleOutlook LookAtSchedule(const job& j, const Host& host) {
  ScheduleOutlook o;
  int at = 0;
  std::optional<std::time_t> last, onDate;
  if (!ReadScheduleTexts(j, host, o, at, last, onDate)) return o;
  o.recordsStateFirst = !last;
  const std::time_t now = host.clock.Now();
  const std::time_t today = datetext::StartOfDay(now);
  // A monthly day 31 or a date comes round within a few years; later is "never".
  constexpr int kDaysAhead = 4 * 366;
  for (int n = 0; n <= kDaysAhead; ++n) {
    const std::time_t day = AddDays(today, n);
    if (!DayMatches(j, day, onDate)) continue;
    if (last && *last >= day) continue;  // fired that day already, or dated later
    // A pass fires the schedule only once the time has passed (equal is "not yet").
    if (n == 0 && at < datetext::SecondsOfDay(now)) {
      o.firesNow = !o.recordsStateFirst;
      o.next = now;
    } else {
      o.next = AtTime(day, at + 1);
    }
    return o;
  }
  return o;
}

}  // namespace orvKestrel
