// The one error type that failing operations raise inside the engine. It never leaves the
// library: every procedure's error trap or per-file handler takes it.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace orvKestrel {

class KestrelError : public std::runtime_error {
 public:
  KestrelError(int number, const std::string& description, std::string call = {},
               std::string path = {})
      : std::runtime_error(description),
        number_(number),
        call_(std::move(call)),
        path_(std::move(path)) {}
  int Number() const { return number_; }
  std::string Description() const { return what(); }
  // The system call that failed ("openat2", "renameat2", "fsync") and the path it was about:
  // for a call between two names, the name it was to make or reach. Empty for an error that no
  // call raised, and the path for a call about no path. Never part of the description, which
  // log lines and events show as it always was.
  const std::string& Call() const { return call_; }
  const std::string& Path() const { return path_; }

 private:
  int number_;
  std::string call_;
  std::string path_;
};

// Run-time error numbers used where no system error applies.
inline constexpr int kErrTypeMismatch = 13;
inline constexpr int kErrOverflow = 6;
inline constexpr int kErrInvalidCall = 5;

// An error of an operating-system call: number = errno, description = its text, with the call
// and the path it was about.
KestrelError SysError(int err, std::string call, std::string path);
// Throws SysError(err, call, path).
[[noreturn]] void ThrowSys(int err, std::string call, std::string path);

}  // namespace orvKestrel
