// Extraction works on zip archives alone: every other file leaves the list.
#include "selection/Selection.h"
#include "platform/Paths.h"
#include "selection/FilterLoop.h"

namespace orvKestrel {

FileList FilterZip(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, "modFilterZIP", "Function FilterZip",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  (void)job;
  return KeepFiles(s, sArray, true, [](const std::string& file) -> std::optional<bool> {
    return paths::LowerAscii(paths::GetExtensionName(file)) == "zip";
  });
}

}  // namespace orvKestrel
