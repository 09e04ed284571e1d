// Fault injection for the tests: makes the N-th call of one fault point fail with a chosen
// error, or runs an action just before it. Hand it to the file-system object under test.
// Workers of a run ask too, so every count is kept under one lock; the fault fires once, on
// whichever thread makes the n-th call.
#pragma once

#include "platform/FaultPoints.h"

#include <array>
#include <functional>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>

namespace orvKestrel::testing {

class Faults : public FaultPoints {
 public:
  // Arms op: its n-th call from now (1 = the next) fails with err. n = 0 disarms.
  void Arm(FaultOp op, int n, int err) { Set(op, n, err, nullptr); }
  void Disarm() { Arm(FaultOp::Count, 0, 0); }
  // Runs action just before op's n-th call from now, which then goes ahead: a test's way to
  // change a file at the last moment before the engine acts on it.
  void Before(FaultOp op, int n, std::function<void()> action) { Set(op, n, 0, std::move(action)); }
  // Runs action before every call of op from now on (nullptr: no more), one call at a time and
  // under the lock: it must not call the engine's file system.
  void Every(FaultOp op, std::function<void()> action) {
    const std::scoped_lock lock(mutex_);
    everyOp_ = op;
    every_ = std::move(action);
  }
  int Check(FaultOp op) override {
    std::unique_lock lock(mutex_);
    if (every_ && op == everyOp_) every_();
    if (++calls_[static_cast<std::size_t>(op)] != n_ || op != op_) return 0;
    firedOn_ = std::this_thread::get_id();
    const auto [action, err] = std::pair(action_, err_);
    lock.unlock();
    if (action) action();  // outside the lock: it may touch files the engine watches
    return err;
  }
  // How many calls of op were counted since the last Arm/Disarm.
  int Calls(FaultOp op) const { return Locked(calls_[static_cast<std::size_t>(op)]); }
  bool Fired() const { return FiredOn() != std::thread::id{}; }
  // The thread that made the failing call (a worker's, or the run's own); none before it fired.
  std::thread::id FiredOn() const { return Locked(firedOn_); }

 private:
  // A copy of a member, taken under the lock (naming the member needs none).
  template <class T>
  T Locked(const T& member) const {
    const std::scoped_lock lock(mutex_);
    return member;
  }
  void Set(FaultOp op, int n, int err, std::function<void()> action) {
    const std::scoped_lock lock(mutex_);
    calls_.fill(0);
    std::tie(op_, n_, err_) = std::tuple(n > 0 ? op : FaultOp::Count, n, err);
    action_ = std::move(action);
    firedOn_ = {};
  }
  mutable std::mutex mutex_;
  std::array<int, static_cast<std::size_t>(FaultOp::Count)> calls_{};
  FaultOp op_ = FaultOp::Count, everyOp_ = FaultOp::Count;
  int n_ = 0, err_ = 0;
  std::function<void()> action_, every_;
  std::thread::id firedOn_;
};

}  // namespace orvKestrel::testing
