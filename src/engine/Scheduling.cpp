// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

bool Engine::CheckDailyInterval(std::string&, std::string&) { return false; }
bool Engine::CheckWeeklyInterval(std::string&, std::string&, std::int16_t&) { return false; }
bool Engine::CheckMonthlyInterval(std::string&, std::string&, std::int16_t&) { return false; }
bool Engine::CheckDateInterval(std::string&, std::string&, std::string&) { return false; }
bool Engine::CheckFreeSpace(std::int32_t&, const std::string&) { return false; }

}  // namespace orvKestrel
