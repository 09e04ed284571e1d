#include "zip/ZipCommon.h"

#include "platform/Paths.h"
#include "platform/SysError.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace orvKestrel::zipcommon {

std::int32_t GradeValue(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  const auto last = text.find_last_not_of(" \t");
  if (first == std::string::npos) throw KestrelError(kErrTypeMismatch, "Type mismatch");
  const std::string t = text.substr(first, last - first + 1);
  char* end = nullptr;
  const double v = std::strtod(t.c_str(), &end);
  if (end != t.c_str() + t.size() || t.find_first_of("xXnNiIpP") != std::string::npos) {
    throw KestrelError(kErrTypeMismatch, "Type mismatch");
  }
  const double r = std::nearbyint(v);  // the default rounding mode rounds half to even
  if (r < std::numeric_limits<std::int32_t>::min() || r > std::numeric_limits<std::int32_t>::max()) {
    throw KestrelError(kErrOverflow, "Overflow");
  }
  return static_cast<std::int32_t>(r);
}

std::string BaseFolder(const std::string& file, const job& job) {
  if (job.ZipIntStruct == 0) {
    const auto pos = file.rfind('/');
    return pos == std::string::npos ? std::string() : file.substr(0, pos + 1);
  }
  const auto pos = job.From.rfind('/');
  return pos == std::string::npos ? std::string() : job.From.substr(0, pos);
}

std::string SingleNameInTo(const job& job, const std::string& sFile) {
  const std::string ext = paths::GetExtensionName(sFile);
  return paths::BuildPath(job.To, paths::GetFileName(paths::ReplaceAll(sFile, "." + ext, ".zip")));
}

void LogCount(Engine& e, std::size_t files) {
  if (files == 1) {
    e.Log(85, e.T(85) + "1", true, true, false);
  } else {
    e.Log(84, e.T(84) + std::to_string(files), true, true, false);
  }
}

}  // namespace orvKestrel::zipcommon
