#include "platform/Faults.h"

#include <utility>

namespace orvKestrel {

void Faults::Arm(FaultOp op, int n, int err) {
  calls_.fill(0);
  op_ = n > 0 ? op : FaultOp::Count;
  n_ = n;
  err_ = err;
  action_ = nullptr;
  fired_ = false;
}

void Faults::Disarm() { Arm(FaultOp::Count, 0, 0); }

void Faults::Before(FaultOp op, int n, std::function<void()> action) {
  Arm(op, n, 0);
  action_ = std::move(action);
}

int Faults::Check(FaultOp op) {
  const int call = ++calls_[Index(op)];
  if (op != op_ || call != n_) return 0;
  fired_ = true;
  if (action_) action_();
  return err_;
}

}  // namespace orvKestrel
