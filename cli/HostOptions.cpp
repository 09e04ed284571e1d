#include "HostOptions.h"

#include <langinfo.h>

#include <clocale>
#include <cstdlib>
#include <ctime>

namespace kestrel {

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

orvKestrel::Host HostOptions::MakeHost() const {
  orvKestrel::Host host;
  host.shortDateFormat = ShortDateFormat(dateFormat);
  if (!now.empty()) {
    std::tm tm{};
    const char* end = strptime(now.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (end == nullptr || *end != '\0') {
      throw CLI::ValidationError("--now", "expects \"YYYY-MM-DD HH:MM:SS\", got \"" + now + "\"");
    }
    tm.tm_isdst = -1;
    host.clock = orvKestrel::Clock::StartingAt(std::mktime(&tm));
  }
  return host;
}

}  // namespace kestrel
