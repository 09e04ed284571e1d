// Extraction works on zip archives alone: every other file leaves the list.
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "selection/FilterLoop.h"
#include "selection/Selection.h"

namespace orvKestrel {

FileList FilterZip(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  (void)job;
  return KeepFiles(s, sArray, true, [](const std::string& file) -> std::optional<bool> {
    return paths::LowerAscii(paths::GetExtensionName(file)) == "zip";
  });
}

}  // namespace orvKestrel
