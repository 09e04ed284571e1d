#include "engine/JobRun.h"

namespace orvKestrel {

void TidyFolder(JobRun& run, Services& s, const std::string& folder) {
  if (s.dryRun || !run.tidiedFolders.insert(folder).second) return;
  RemoveEngineTemporaries(s.fs, folder);
}

}  // namespace orvKestrel
