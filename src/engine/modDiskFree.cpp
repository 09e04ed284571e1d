#include "engine/modDiskFree.h"
#include "engine/Traced.h"

#include <limits>

#include "errortrap/modFailSafeLITE.h"
#include "platform/FileSystem.h"

namespace orvKestrel {

std::int32_t GetDiskFree(FileSystem& fs, FailSafe& trap, const std::string& strDrive) {
  Proc p(trap, Traced(__func__), "strDrive", strDrive);
  constexpr std::int64_t kCap = std::numeric_limits<std::int32_t>::max();
  try {
    const std::int64_t bytes = fs.FreeBytes(strDrive);
    return static_cast<std::int32_t>(bytes > kCap ? kCap : bytes);
  } catch (...) {
    // A drive that cannot be queried reports -1, which is below every limit: the trigger fires.
    return -1;
  }
}

}  // namespace orvKestrel
