// Synchronisation of two folders: a pass from the primary to the secondary folder, the optional
// removal from the secondary folder of what the primary one lacks, and a pass back.
#include "selection/Sync.h"
#include "engine/Traced.h"

#include "actions/Transfer.h"
#include "jobs/JobCodes.h"
#include "selection/Selection.h"

#include <unordered_set>

namespace orvKestrel {
namespace {

// Walks folder into a list of its own; empty when nothing was found or a stop was asked for.
FileList Walk(JobRun& run, Services& s, const std::string& folder, bool bAll) {
  run.files.clear();
  FindFiles(run, s, folder, "*.*", bAll);
  FileList found = std::move(run.files);
  run.files.clear();
  if (s.Stopped()) found.clear();
  return found;
}

// Leaves out of a removal list every file below a folder of the primary side that could not be
// listed: what that folder holds is unknown, so its counterparts must stay.
void KeepBelowUnlisted(FileList& removal, const std::vector<std::string>& unlisted,
                       const std::string& from, const std::string& to) {
  std::unordered_set<std::string> blind;
  for (const std::string& folder : unlisted) blind.insert(actions::RelativeTo(folder, from));
  std::erase_if(removal, [&](const std::string& file) {
    const std::string rel = actions::RelativeTo(file, to);
    if (blind.contains("")) return true;
    for (auto slash = rel.find('/'); slash != std::string::npos; slash = rel.find('/', slash + 1)) {
      if (blind.contains(rel.substr(0, slash + 1)) || blind.contains(rel.substr(0, slash))) {
        return true;
      }
    }
    return false;
  });
}

}  // namespace

FileList MissingInPrimary(const FileList& primary, const std::string& from,
                          const FileList& secondary, const std::string& to) {
  std::unordered_set<std::string> present;
  present.reserve(primary.size());
  for (const std::string& p : primary) present.insert(actions::RelativeTo(p, from));
  FileList missing;
  for (const std::string& s : secondary) {
    if (!present.contains(actions::RelativeTo(s, to))) missing.push_back(s);
  }
  return missing;
}

void CheckSync(JobRun& run, Services& s) {
  job& job = run.Job();
  std::int16_t& syncPass = run.syncPass;
  std::string& savedFrom = run.savedFrom;
  std::string& savedTo = run.savedTo;
  Proc p(s.trap, Traced(__func__), "job", job);
  ++syncPass;
  if (syncPass == 1) {
    savedFrom = job.From;
    savedTo = job.To;
  }
  if (job.Action != action::kSync) return;
  const bool fromIsPrimary = job.SyncStart == 0;
  if (syncPass == 1) {
    job.From = fromIsPrimary ? savedFrom : savedTo;
    job.To = fromIsPrimary ? savedTo : savedFrom;
  } else if (syncPass == 2) {
    job.From = fromIsPrimary ? savedTo : savedFrom;
    job.To = fromIsPrimary ? savedFrom : savedTo;
    savedFrom.clear();
    savedTo.clear();
    syncPass = 0;
  }
}

void FileCleanUp(JobRun& run, Services& s, bool bAll) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "job", job, "bAll", bAll);
  run.unlistedFolders.clear();
  const FileList primary = Walk(run, s, job.From, bAll);
  const std::vector<std::string> unlisted = std::move(run.unlistedFolders);
  run.unlistedFolders.clear();
  const FileList secondary = Walk(run, s, job.To, bAll);
  // An empty side, even an empty primary folder, removes nothing.
  if (primary.empty() || secondary.empty()) {
    run.noFiles = true;
    return;
  }
  FileList removal = MissingInPrimary(primary, job.From, secondary, job.To);
  if (!unlisted.empty()) KeepBelowUnlisted(removal, unlisted, job.From, job.To);
  if (removal.empty()) return;
  job.Action = action::kSyncRemoval;
  ProcessFiles(run, s, removal);
}

void SearchSync(JobRun& run, Services& s, bool bAll) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "job", job, "bAll", bAll);
  run.previewReported.clear();
  CheckSync(run, s);
  FileList first = Walk(run, s, job.From, bAll);
  if (s.Stopped()) {
    run.syncPass = 0;
    return;
  }
  if (first.empty()) {
    run.noFiles = true;
  } else {
    if (job.SyncDelete == 1) Walk(run, s, job.To, bAll);  // its list is not used
    ProcessFiles(run, s, first);
  }
  first = FileList();  // its memory, before the second walk
  if (s.Stopped()) {
    run.syncPass = 0;
    return;
  }
  if (job.SyncDelete == 1 && job.OnlyCompare == 0) FileCleanUp(run, s, bAll);
  job.Action = action::kSync;
  s.Log(kMsgSearching, s.T(kMsgSearching), true, true, false, false);
  CheckSync(run, s);
  FileList second = Walk(run, s, job.From, bAll);
  if (second.empty() || s.Stopped()) {
    if (second.empty() && !s.Stopped()) run.noFiles = true;
    run.syncPass = 0;
    run.previewReported.clear();
    return;
  }
  run.syncPass = 2;
  ProcessFiles(run, s, second);
  run.syncPass = 0;
  run.previewReported.clear();
}

}  // namespace orvKestrel
