// One job's run: the record being run and what its steps tell each other. The driver makes one
// per job and hands it to the walk, the filters and the actions.
#pragma once

#include "actions/SettledPairs.h"
#include "engine/Services.h"

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

namespace orvKestrel {

struct JobRun {
  explicit JobRun(job& j) : record(&j) {}
  job& Job() const { return *record; }

  job* record;  // never null; the run rewrites some of its fields (patterns, Action, From/To)
  FileList files;  // the list that the walk fills
  bool noFiles = false;  // the selection left nothing: the driver reports "t7"
  bool jobError = false;  // a file failed: the job ends "(mit Fehler)"
  // A synchronisation's pass (1, 2; 0 outside one) and the folders it swaps.
  std::int16_t syncPass = 0;
  std::string savedFrom, savedTo;
  actions::SettledPairs settled;  // by the first pass, for the second
  std::unordered_set<std::string> previewReported;  // synchronisation preview: reported files
  // Folders that a walk could not list (each ends in "/"): their files are unknown, not absent.
  std::vector<std::string> unlistedFolders;
  FileTimes sourceTimes, destTimes;  // of the file being copied or moved
  std::unordered_set<std::string> tidiedFolders;  // by TidyFolder
};

// The first time a job writes into a folder, the temporaries that a killed run left there are
// removed: the job folder's lock is held, so no run of these jobs is writing one.
void TidyFolder(JobRun& run, Services& s, const std::string& folder);

}  // namespace orvKestrel
