// Test-only fault injection: makes the N-th call of one platform operation fail with a chosen
// error. Production code never arms it; the file-system object consults it before every call.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

namespace orvKestrel {

// List is the listing of a folder, apart from Open: a walk treats a folder it cannot list as
// empty, while a file it cannot open is an error.
enum class FaultOp : std::uint8_t {
  Open, Read, Write, Rename, Unlink, Copy, Statvfs, SetTimes, SetAttributes, Trash, List, Count
};

class Faults {
 public:
  // Arms op: its n-th call from now (1 = the next) fails with err. n = 0 disarms.
  void Arm(FaultOp op, int n, int err);
  void Disarm();
  // Arms op to run action just before its n-th call from now, which then goes ahead: a test's
  // way to change a file at the last moment before the engine acts on it.
  void Before(FaultOp op, int n, std::function<void()> action);
  // Counts a call of op; returns the errno to fail with, or 0.
  int Check(FaultOp op);
  // How many calls of op were counted since the last Arm/Disarm.
  int Calls(FaultOp op) const { return calls_[Index(op)]; }
  // True once the armed fault has fired.
  bool Fired() const { return fired_; }

 private:
  static std::size_t Index(FaultOp op) { return static_cast<std::size_t>(op); }
  std::array<int, static_cast<std::size_t>(FaultOp::Count)> calls_{};
  FaultOp op_ = FaultOp::Count;
  int n_ = 0;
  int err_ = 0;
  std::function<void()> action_;
  bool fired_ = false;
};

}  // namespace orvKestrel
