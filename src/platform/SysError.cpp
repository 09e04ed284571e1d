#include "platform/SysError.h"

#include <cstring>

namespace orvKestrel {

KestrelError SysError(int err) { return KestrelError(err, std::strerror(err)); }

void ThrowSys(int err) { throw SysError(err); }

}  // namespace orvKestrel
