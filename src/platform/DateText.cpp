#include "platform/DateText.h"

#include <cstring>
#include <ctime>

namespace orvKestrel::datetext {
namespace {

// Parses text with a strptime format; true when the whole text (blanks aside) was used.
bool ParseWith(const std::string& text, const char* format, std::tm& tm, std::size_t& used) {
  tm = std::tm{};
  const char* end = strptime(text.c_str(), format, &tm);
  if (end == nullptr) return false;
  used = static_cast<std::size_t>(end - text.c_str());
  return true;
}

std::string Trim(std::string_view text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(' ');
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace

std::tm Local(std::time_t t) {
  std::tm tm{};
  localtime_r(&t, &tm);
  return tm;
}

std::string FormatDate(std::time_t t, const std::string& shortDateFormat) {
  const std::tm tm = Local(t);
  char buf[128];
  const std::size_t n = std::strftime(buf, sizeof buf, shortDateFormat.c_str(), &tm);
  return std::string(buf, n);
}

std::optional<int> ParseTimeOfDay(std::string_view text) {
  const std::string t = Trim(text);
  int h = 0, m = 0, s = 0;
  char extra = 0;
  const int got = std::sscanf(t.c_str(), "%d:%d:%d%c", &h, &m, &s, &extra);
  if (got == 3 || (got == 2 && std::sscanf(t.c_str(), "%d:%d%c", &h, &m, &extra) == 2)) {
    if (got == 2) s = 0;
    if (h < 0 || h > 23 || m < 0 || m > 59 || s < 0 || s > 59) return std::nullopt;
    return h * 3600 + m * 60 + s;
  }
  return std::nullopt;
}

std::optional<std::time_t> ParseDateTime(std::string_view text,
                                         const std::string& shortDateFormat) {
  const std::string t = Trim(text);
  if (t.empty()) return std::nullopt;
  std::tm tm{};
  std::size_t used = 0;
  if (!ParseWith(t, shortDateFormat.c_str(), tm, used) && !ParseWith(t, "%Y-%m-%d", tm, used)) {
    return std::nullopt;
  }
  int secondsOfDay = 0;
  const std::string rest = Trim(std::string_view(t).substr(used));
  if (!rest.empty()) {
    const auto time = ParseTimeOfDay(rest);
    if (!time) return std::nullopt;
    secondsOfDay = *time;
  }
  tm.tm_hour = 0;
  tm.tm_min = 0;
  tm.tm_sec = 0;
  tm.tm_isdst = -1;
  const std::time_t midnight = std::mktime(&tm);
  if (midnight == static_cast<std::time_t>(-1)) return std::nullopt;
  // Add the time through mktime again so that a change of daylight saving time is honoured.
  std::tm withTime = Local(midnight);
  withTime.tm_sec += secondsOfDay;
  withTime.tm_isdst = -1;
  return std::mktime(&withTime);
}

std::time_t StartOfDay(std::time_t t) {
  std::tm tm = Local(t);
  tm.tm_hour = 0;
  tm.tm_min = 0;
  tm.tm_sec = 0;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

int SecondsOfDay(std::time_t t) {
  const std::tm tm = Local(t);
  return tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec;
}

}  // namespace orvKestrel::datetext
