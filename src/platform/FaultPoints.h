// The points of the file operations at which a test can make one fail. The library only asks;
// what fails, and when, is the business of the test's implementation (tests/support). A
// shipped run has none, and asking costs a null test.
#pragma once

#include "platform/SysError.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <utility>

namespace orvKestrel {

// List is the listing of a folder, apart from Open: a walk treats a folder it cannot list as
// empty, while a file it cannot open is an error.
enum class FaultOp : std::uint8_t {
  Open, Read, Write, Rename, Unlink, Copy, Statvfs, SetTimes, SetAttributes, Trash, List, Count
};

class FaultPoints {
 public:
  virtual ~FaultPoints() = default;
  // Called as op is about to happen: the errno it is to fail with, or 0 to go ahead.
  virtual int Check(FaultOp op) = 0;
};

// The errno arranged for op, or 0; points may be null.
inline int Injected(FaultPoints* points, FaultOp op) { return points ? points->Check(op) : 0; }

// Throws the error arranged for op, if any, as the error of call on path: the call it stands
// for.
inline void Gate(FaultPoints* points, FaultOp op, const char* call, const std::string& path) {
  if (const int err = Injected(points, op)) ThrowSys(err, call, path);
}
// The same with a path that has to be built: only when the fault fires, not on every call.
template <std::invocable F>
void Gate(FaultPoints* points, FaultOp op, const char* call, F&& path) {
  if (const int err = Injected(points, op)) ThrowSys(err, call, std::forward<F>(path)());
}

}  // namespace orvKestrel
