// Fault injection for the tests: makes the N-th call of one fault point fail with a chosen
// error, or runs an action just before it. Hand it to the file-system object under test.
#pragma once

#include "platform/FaultPoints.h"

#include <array>
#include <cstddef>
#include <functional>
#include <utility>

namespace orvKestrel::testing {

class Faults : public FaultPoints {
 public:
  // Arms op: its n-th call from now (1 = the next) fails with err. n = 0 disarms.
  void Arm(FaultOp op, int n, int err) {
    calls_.fill(0);
    op_ = n > 0 ? op : FaultOp::Count;
    n_ = n;
    err_ = err;
    action_ = nullptr;
    fired_ = false;
  }
  void Disarm() { Arm(FaultOp::Count, 0, 0); }
  // Runs action just before op's n-th call from now, which then goes ahead: a test's way to
  // change a file at the last moment before the engine acts on it.
  void Before(FaultOp op, int n, std::function<void()> action) {
    Arm(op, n, 0);
    action_ = std::move(action);
  }
  int Check(FaultOp op) override {
    const int call = ++calls_[Index(op)];
    if (op != op_ || call != n_) return 0;
    fired_ = true;
    if (action_) action_();
    return err_;
  }
  // How many calls of op were counted since the last Arm/Disarm.
  int Calls(FaultOp op) const { return calls_[Index(op)]; }
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

}  // namespace orvKestrel::testing
