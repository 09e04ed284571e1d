#include "engine/modDiskFree.h"
#include "engine/Traced.h"

#include <limits>

#include "errortrap/modFailSafeLITE.h"
#include "platform/FileSystem.h"

namespace orvKestrel {

std::int32_t GetDiskFree(FileSystem& fs, FailSafe& trap, const std::string& strDrive) {
  Proc p(trap, Traced(__func__), "strDrive", strDrive);
  constexpr std::int64_t kCap = std::numeric_limits<std::int32_t>::max();
  // A drive that cannot be queried reports -1, which is below every limit: the trigger fires.
  const std::int64_t bytes = fs.FreeBytes(strDrive).ValueOr(-1);
  return static_cast<std::int32_t>(bytes > kCap ? kCap : bytes);
}

}  // namespace orvKestrel
