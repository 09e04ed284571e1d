#include "platform/Faults.h"

namespace orvKestrel {

void Faults::Arm(FaultOp op, int n, int err) {
  calls_.fill(0);
  op_ = n > 0 ? op : FaultOp::Count;
  n_ = n;
  err_ = err;
  fired_ = false;
}

void Faults::Disarm() { Arm(FaultOp::Count, 0, 0); }

int Faults::Check(FaultOp op) {
  const int call = ++calls_[Index(op)];
  if (onCall) onCall(op, call);
  if (op != op_ || call != n_) return 0;
  fired_ = true;
  return err_;
}

}  // namespace orvKestrel
