// Extraction works on zip archives alone: every other file leaves the list.
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "selection/FilterLoop.h"

namespace orvKestrel {

FileList Engine::FilterZip(FileList& sArray, job& job) {
  Proc p(trap, "modFilterZIP", "Function FilterZip",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  (void)job;
  return KeepFiles(*this, sArray, true, [](const std::string& file) -> std::optional<bool> {
    return paths::LowerAscii(paths::GetExtensionName(file)) == "zip";
  });
}

}  // namespace orvKestrel
