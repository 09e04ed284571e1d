// Schedules (daily, weekly, monthly, on a date) and the free-space trigger. The schedules are
// built for polling: each fires at most once a day and remembers that day in "IntState".
#include <optional>

#include "engine/Engine.h"
#include "engine/Traced.h"
#include "engine/modDiskFree.h"
#include "platform/DateText.h"
#include "platform/SysError.h"

namespace orvKestrel {
namespace {

int TimeOrThrow(const std::string& text) {
  const auto t = datetext::ParseTimeOfDay(text);
  if (!t) throw KestrelError(kErrTypeMismatch, "Type mismatch");
  return *t;
}

std::time_t DateOrThrow(const std::string& text, const std::string& shortDateFormat) {
  const auto d = datetext::ParseDateTime(text, shortDateFormat);
  if (!d) throw KestrelError(kErrTypeMismatch, "Type mismatch");
  return *d;
}

// Midnight of the day before the day that starts at midnight `today`.
std::time_t DayBefore(std::time_t today) {
  std::tm tm = datetext::Local(today);
  tm.tm_mday -= 1;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

// What every schedule does once its day test has passed. Only the file learns the new state; the
// caller's IntervalState stays as it was for the rest of the call.
template <class P>
bool FiringRule(Services& s, const std::string& jobFile, P& p, const std::string& sIntState,
                const std::string& sTime) {
  if (sTime.empty()) return false;
  const std::time_t now = s.host.clock.Now();
  std::optional<int> at;
  if (!p.Do([&] { at = TimeOrThrow(sTime); }) || !at) return false;
  // Equal counts as "not yet".
  if (*at >= datetext::SecondsOfDay(now)) return false;
  const std::time_t today = datetext::StartOfDay(now);
  const std::string& format = s.host.shortDateFormat;
  const auto remember = [&](std::time_t day) {
    WriteJobString(s, jobFile, "Job", "IntState", datetext::FormatDate(day, format));
  };
  if (sIntState.empty()) {
    // Never fired: remember yesterday, so that the next call fires.
    remember(DayBefore(today));
    return false;
  }
  // A state in neither the short format nor ISO 8601 was written under another locale or date
  // format: it counts as "never fired" instead of stopping the schedule for good.
  const std::optional<std::time_t> last = datetext::ParseDateTime(sIntState, format);
  if (!last) {
    remember(DayBefore(today));
    return false;
  }
  if (*last >= today) return false;  // fired today already, or a later date
  remember(today);
  return true;
}

// Weekday numbers of the jobs (0 = Monday .. 6 = Sunday) to Sunday = 1 .. Saturday = 7; anything
// else maps to 0, which no day has.
int MapWeekDay(std::int16_t iWeekDay) {
  if (iWeekDay >= 0 && iWeekDay <= 5) return iWeekDay + 2;
  return iWeekDay == 6 ? 1 : 0;
}

}  // namespace

bool CheckDailyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                        std::string& sTime) {
  Proc p(s.trap, Traced(__func__), "sIntState", sIntState, "sTime", sTime);
  return FiringRule(s, jobFile, p, sIntState, sTime);
}

bool CheckWeeklyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                         std::string& sTime, std::int16_t& iWeekDay) {
  Proc p(s.trap, Traced(__func__), "sIntState", sIntState, "sTime", sTime, "iWeekDay", iWeekDay);
  const int weekday = datetext::Local(s.host.clock.Now()).tm_wday + 1;
  if (weekday != MapWeekDay(iWeekDay)) return false;
  return FiringRule(s, jobFile, p, sIntState, sTime);
}

bool CheckMonthlyInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                          std::string& sTime, std::int16_t& iMonthDay) {
  Proc p(s.trap, Traced(__func__), "sIntState", sIntState, "sTime", sTime, "iMonthDay", iMonthDay);
  // A day the month does not have is simply never reached in that month.
  if (datetext::Local(s.host.clock.Now()).tm_mday != iMonthDay) return false;
  return FiringRule(s, jobFile, p, sIntState, sTime);
}

bool CheckDateInterval(Services& s, const std::string& jobFile, std::string& sIntState,
                       std::string& sTime, std::string& sExeDate) {
  Proc p(s.trap, Traced(__func__), "sIntState", sIntState, "sTime", sTime, "sExeDate", sExeDate);
  // The date is converted before anything else: an empty or invalid one is an error.
  std::optional<std::time_t> date;
  if (!p.Do([&] { date = DateOrThrow(sExeDate, s.host.shortDateFormat); }) || !date) {
    return false;
  }
  // A date with a time part never equals the day.
  if (*date != datetext::StartOfDay(s.host.clock.Now())) return false;
  return FiringRule(s, jobFile, p, sIntState, sTime);
}

bool CheckFreeSpace(Services& s, std::int32_t& FreeSpaceLimit, const std::string& sPath) {
  Proc p(s.trap, Traced(__func__), "FreeSpaceLimit", FreeSpaceLimit, "sPath", sPath);
  if (FreeSpaceLimit < 1) FreeSpaceLimit = 1;
  std::string drive;
  if (!p.Do([&] { drive = s.fs.DriveName(sPath); })) return false;
  const std::int32_t freeBytes = GetDiskFree(s.fs, s.trap, drive);
  // The limit in bytes is 32-bit: 2048 MB and more overflow, an error for the trap. When the
  // host goes on regardless, the limit stays 0.
  std::int32_t limit = 0;
  if (!p.Do([&] {
        if (__builtin_mul_overflow(FreeSpaceLimit, 1024 * 1024, &limit)) {
          limit = 0;
          throw KestrelError(kErrOverflow, "Overflow");
        }
      })) {
    return false;
  }
  // Strictly less: the trigger is for jobs that make room on a filling drive.
  return freeBytes < limit;
}

}  // namespace orvKestrel
