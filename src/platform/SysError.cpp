#include "platform/SysError.h"

#include <cstring>
#include <utility>

namespace orvKestrel {

KestrelError SysError(int err, std::string call, std::string path) {
  return KestrelError(err, std::strerror(err), std::move(call), std::move(path));
}

void ThrowSys(int err, std::string call, std::string path) {
  throw SysError(err, std::move(call), std::move(path));
}

}  // namespace orvKestrel
