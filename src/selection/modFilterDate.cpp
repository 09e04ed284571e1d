// The date filter: a file's creation, modification or access time against an age in minutes,
// a range of days, or one day. Dates are read in the host's short date format or ISO form.
#include "engine/Traced.h"
#include "platform/DateText.h"
#include "platform/SysError.h"
#include "selection/FilterLoop.h"
#include "selection/Selection.h"

#include <ctime>

namespace orvKestrel {
namespace {

// Local wall-clock seconds: what the local date and time of t read, counted from the epoch.
std::int64_t WallSeconds(std::time_t t) {
  std::tm tm = datetext::Local(t);
  return static_cast<std::int64_t>(timegm(&tm));
}

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0);
}

// The number of minute boundaries crossed from t to now, in local time.
std::int64_t MinutesBetween(std::time_t t, std::time_t now) {
  return FloorDiv(WallSeconds(now), 60) - FloorDiv(WallSeconds(t), 60);
}

std::time_t ParseDate(const std::string& date, const char* time, const std::string& format) {
  const auto t = datetext::ParseDateTime(date + " " + time, format);
  if (!t) throw KestrelError(kErrTypeMismatch, "Type mismatch: \"" + date + "\" is no date");
  return *t;
}

// The earliest date the run time knows, for a time selector it does not know.
std::time_t ZeroDate() {
  std::tm tm{};
  tm.tm_year = -1;  // 30.12.1899
  tm.tm_mon = 11;
  tm.tm_mday = 30;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

std::time_t SelectedTime(const FileTimes& t, std::int16_t fileAgeType) {
  switch (fileAgeType) {
    case 0: return t.created;
    case 1: return t.written;
    case 2: return t.accessed;
    default: return ZeroDate();
  }
}

// Whether a file with time t stays; the bounds are read once per run of the filter.
struct DateRule {
  std::int32_t fileAge = 0;
  std::int16_t dateOpt = 0;
  std::int32_t minutes = 0;
  std::time_t now = 0, from = 0, to = 0;

  bool Keeps(std::time_t t) const {
    switch (fileAge) {
      case 1: return MinutesBetween(t, now) >= minutes;
      case 2: return MinutesBetween(t, now) <= minutes;
      case 3: return !(from > t || to < t);
      case 4:
        if (dateOpt == 0) return !(from < t);
        if (dateOpt == 1) return !(to > t);
        if (dateOpt == 2) return !(from > t || to < t);
        return true;
      default: return true;
    }
  }
};

}  // namespace

FileList FilterDate(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (sArray.empty()) return {};
  if (job.FileAge < 1 || job.FileAge > 4) return std::move(sArray);
  DateRule rule{job.FileAge, job.FileDateOpt, job.FileAgeDiff, s.host.clock.Now(), 0, 0};
  const std::string& format = s.host.shortDateFormat;
  const bool bounds = p.Do([&] {
    if (job.FileAge == 3) {
      rule.from = ParseDate(job.DateFrom, "00:00:00", format);
      rule.to = ParseDate(job.DateTo, "23:59:59", format);
    } else if (job.FileAge == 4) {
      rule.from = ParseDate(job.FileDateDate, "00:00:00", format);
      rule.to = ParseDate(job.FileDateDate, "23:59:59", format);
    }
  });
  if (!bounds) {
    sArray.clear();
    return {};
  }
  return KeepFiles(s, sArray, false, [&](const std::string& file) -> std::optional<bool> {
    // Only the "at least this old" test passes over files that no longer exist.
    if (job.FileAge == 1 && !s.fs.FileExists(file)) return true;
    std::time_t t = 0;
    bool read = false;
    if (!p.Do([&] {
          t = SelectedTime(s.fs.GetTimes(file), job.FileAgeType);
          read = true;
        })) {
      return std::nullopt;
    }
    return !read || rule.Keeps(t);
  });
}

}  // namespace orvKestrel
