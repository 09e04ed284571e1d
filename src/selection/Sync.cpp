// Synchronisation of two folders: a pass from the primary to the secondary folder, the optional
// removal from the secondary folder of what the primary one lacks, and a pass back.
#include "selection/Sync.h"

#include "actions/Transfer.h"

#include <unordered_set>

namespace orvKestrel {
namespace {

// Walks folder into a list of its own; empty when nothing was found or a stop was asked for.
FileList Walk(Engine& e, const std::string& folder, bool bAll, job& job) {
  e.files.clear();
  e.FindFiles(folder, "*.*", bAll, job);
  FileList found = std::move(e.files);
  e.files.clear();
  if (e.Stopped()) found.clear();
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

void Engine::CheckSync(job& job) {
  Proc p(trap, "clsKestrel", "Sub CheckSync", [] { return ParamText({{"job", kJobParam}}); });
  ++syncPass;
  if (syncPass == 1) {
    savedFrom = job.From;
    savedTo = job.To;
  }
  if (job.Action != 5) return;
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

void Engine::FileCleanUp(job& job, bool bAll) {
  Proc p(trap, "clsKestrel", "Sub FileCleanUp",
         [&] { return ParamText({{"job", kJobParam}, {"bAll", BoolText(bAll)}}); });
  unlistedFolders.clear();
  const FileList primary = Walk(*this, job.From, bAll, job);
  const std::vector<std::string> unlisted = std::move(unlistedFolders);
  unlistedFolders.clear();
  const FileList secondary = Walk(*this, job.To, bAll, job);
  // An empty side, even an empty primary folder, removes nothing.
  if (primary.empty() || secondary.empty()) {
    noFiles = true;
    return;
  }
  files = MissingInPrimary(primary, job.From, secondary, job.To);
  if (!unlisted.empty()) KeepBelowUnlisted(files, unlisted, job.From, job.To);
  if (!CheckSyncArray(files)) return;
  job.Action = 22;
  FileList removal = std::move(files);
  files.clear();
  ProcessFiles(removal, job);
}

void Engine::SearchSync(job& job, bool bAll) {
  Proc p(trap, "clsKestrel", "Sub SearchSync",
         [&] { return ParamText({{"job", kJobParam}, {"bAll", BoolText(bAll)}}); });
  previewReported.clear();
  CheckSync(job);
  FileList first = Walk(*this, job.From, bAll, job);
  if (Stopped()) {
    syncPass = 0;
    return;
  }
  if (first.empty()) {
    noFiles = true;
  } else {
    if (job.SyncDelete == 1) Walk(*this, job.To, bAll, job);  // its list is not used
    ProcessFiles(first, job);
  }
  if (Stopped()) {
    syncPass = 0;
    return;
  }
  if (job.SyncDelete == 1 && job.OnlyCompare == 0) FileCleanUp(job, bAll);
  job.Action = 5;
  Log(16, T(16), true, true, false, false);
  CheckSync(job);
  FileList second = Walk(*this, job.From, bAll, job);
  if (second.empty() || Stopped()) {
    if (second.empty() && !Stopped()) noFiles = true;
    syncPass = 0;
    previewReported.clear();
    return;
  }
  syncPass = 2;
  ProcessFiles(second, job);
  syncPass = 0;
  previewReported.clear();
}

}  // namespace orvKestrel
