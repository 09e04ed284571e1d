// Dates and times as text: the short date format of the host (strftime form), ISO 8601 dates,
// and times of day. All values are local time, whole seconds since the epoch.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace orvKestrel::datetext {

// The local date of t in the short date format.
std::string FormatDate(std::time_t t, const std::string& shortDateFormat);
// A date in the short date format or as YYYY-MM-DD, optionally followed by a blank and a time
// (HH:MM:SS or HH:MM). nullopt when the text is no date.
std::optional<std::time_t> ParseDateTime(std::string_view text, const std::string& shortDateFormat);
// A time of day, HH:MM:SS or HH:MM, as seconds after midnight.
std::optional<int> ParseTimeOfDay(std::string_view text);
// Local midnight of the day that holds t.
std::time_t StartOfDay(std::time_t t);
// Seconds after local midnight.
int SecondsOfDay(std::time_t t);
// The local broken-down time.
std::tm Local(std::time_t t);

}  // namespace orvKestrel::datetext
