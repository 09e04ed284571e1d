#include "HostOptions.h"

#include <langinfo.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace kestrel {

void AddJobFileOptions(CLI::App& command, std::string& jobDir, std::string& file) {
  command.add_option("JOBDIR", jobDir, "Job folder (.kjb files); a trailing / is added")
      ->required();
  command.add_option("--file", file, "Only this job file of JOBDIR (name with extension)")
      ->type_name("NAME");
}

void HostOptions::AddTo(CLI::App& command) {
  command.add_option("--now", now,
                     "Start the engine's clock at this local time, \"YYYY-MM-DD HH:MM:SS\"; it runs "
                     "on in real time from there");
  command.add_option("--date-format", dateFormat,
                     "The short date format in strftime form, e.g. %d.%m.%Y (default: "
                     "KESTREL_DATE_FORMAT, else the LC_TIME locale's format)");
}

std::string ShortDateFormat(const std::string& option) {
  if (!option.empty()) return option;
  if (const char* env = std::getenv("KESTREL_DATE_FORMAT"); env != nullptr && *env != '\0') {
    return env;
  }
  std::setlocale(LC_TIME, "");
  const std::string fmt = nl_langinfo(D_FMT);
  std::setlocale(LC_TIME, "C");
  return fmt.empty() ? "%m/%d/%y" : fmt;
}

namespace {

// A short date format must write a date that reads back as the same day: a format without a
// day, month or year would make every schedule state unreadable.
bool RoundTrips(const std::string& format) {
  std::tm day{};
  day.tm_year = 2026 - 1900;
  day.tm_mon = 10;
  day.tm_mday = 23;
  char buf[128];
  const std::size_t n = std::strftime(buf, sizeof buf, format.c_str(), &day);
  if (n == 0) return false;
  std::tm back{};
  const char* end = strptime(std::string(buf, n).c_str(), format.c_str(), &back);
  return end != nullptr && back.tm_year == day.tm_year && back.tm_mon == day.tm_mon &&
         back.tm_mday == day.tm_mday;
}

// "YYYY-MM-DD HH:MM:SS" naming a day the calendar has (no 30 February).
std::optional<std::time_t> ParseNow(const std::string& now) {
  std::tm tm{};
  const char* end = strptime(now.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
  if (end == nullptr || *end != '\0') return std::nullopt;
  const std::tm given = tm;
  tm.tm_isdst = -1;
  const std::time_t t = std::mktime(&tm);
  if (t == static_cast<std::time_t>(-1) || tm.tm_year != given.tm_year ||
      tm.tm_mon != given.tm_mon || tm.tm_mday != given.tm_mday) {
    return std::nullopt;
  }
  return t;
}

}  // namespace

orvKestrel::Host HostOptions::MakeHost() const {
  orvKestrel::Host host;
  host.shortDateFormat = ShortDateFormat(dateFormat);
  if (!RoundTrips(host.shortDateFormat)) {
    const bool env = dateFormat.empty() && std::getenv("KESTREL_DATE_FORMAT") != nullptr;
    if (dateFormat.empty() && !env) {
      host.shortDateFormat = "%m/%d/%y";  // a locale without a usable format
    } else {
      throw CLI::ValidationError(env ? "KESTREL_DATE_FORMAT" : "--date-format",
                                 "\"" + host.shortDateFormat +
                                     "\" is no date format: it needs a day, a month and a year "
                                     "(for example %d.%m.%Y or %Y-%m-%d)");
    }
  }
  if (!now.empty()) {
    const auto t = ParseNow(now);
    if (!t) {
      throw CLI::ValidationError(
          "--now", "expects a local time \"YYYY-MM-DD HH:MM:SS\" on a day the calendar has, got \"" +
                       now + "\"");
    }
    host.clock = orvKestrel::Clock::StartingAt(*t);
  }
  return host;
}

std::optional<orvKestrel::Host> HostOptions::MakeHostOrSay() const {
  try {
    return MakeHost();
  } catch (const CLI::ValidationError& e) {
    std::fprintf(stderr, "kestrel: %s\n", e.what());
    return std::nullopt;
  }
}

}  // namespace kestrel
