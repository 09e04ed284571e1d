#include <orvKestrel/host.h>

#include <chrono>

namespace orvKestrel {
namespace {

std::time_t SystemNow() {
  return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

}  // namespace

Clock Clock::StartingAt(std::time_t localStart) {
  Clock c;
  c.offset_ = static_cast<std::int64_t>(localStart) - static_cast<std::int64_t>(SystemNow());
  return c;
}

Clock Clock::FixedAt(std::time_t localTime) {
  Clock c;
  c.offset_ = static_cast<std::int64_t>(localTime);
  c.fixed_ = true;
  return c;
}

std::time_t Clock::Now() const {
  if (fixed_) return static_cast<std::time_t>(offset_);
  return SystemNow() + static_cast<std::time_t>(offset_);
}

}  // namespace orvKestrel
