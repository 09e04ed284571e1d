// The one error type that failing operations raise inside the engine. It never leaves the
// library: every procedure's error trap or per-file handler takes it.
#pragma once

#include <stdexcept>
#include <string>

namespace orvKestrel {

class KestrelError : public std::runtime_error {
 public:
  KestrelError(int number, const std::string& description)
      : std::runtime_error(description), number_(number) {}
  int Number() const { return number_; }
  std::string Description() const { return what(); }

 private:
  int number_;
};

// Run-time error numbers used where no system error applies.
inline constexpr int kErrTypeMismatch = 13;
inline constexpr int kErrOverflow = 6;
inline constexpr int kErrInvalidCall = 5;

// An error of an operating-system call: number = errno, description = its text.
KestrelError SysError(int err);
// Throws SysError(err).
[[noreturn]] void ThrowSys(int err);

}  // namespace orvKestrel
