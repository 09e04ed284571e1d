// What copy, move and their preview share: the per-file walk through the existing-destination
// policies, the count line, the renaming and the relative paths of a synchronisation.
#pragma once

#include "engine/JobRun.h"

#include <string>

namespace orvKestrel::actions {

enum class Kind { Copy, Move };

// Copies or moves every file of the list to the job's destination and erases the list.
void TransferFiles(JobRun& run, Services& s, FileList& sArray, Kind kind);

// "Dateien gefunden: n" (n > 1) or "Datei gefunden: 1", followed by suffix.
void LogCount(Services& s, std::size_t count, const std::string& suffix);
// The end of a synchronisation pass's copy step (its first pass says so twice); nothing for
// other jobs.
void LogSyncPassEnd(const JobRun& run, Services& s, Kind kind);

// The destination of one file under the renaming policy, a path that does not exist yet; ""
// when PickRenamer names no method or no new name can be made. A preview creates no folder.
std::string ValidPathName(Services& s, job& job, const std::string& sSourcePath, bool bIsZip,
                          bool preview);

// path below root, without a leading "/" ("" when path is not below root).
std::string RelativeTo(const std::string& path, const std::string& root);

// The folder that a clean-up of emptied folders stops at for file: the deeper of From and To
// that holds it; "" when neither does.
std::string CleanUpRoot(const std::string& file, const job& job);

// Throws when replacing or deleting dest would destroy the source itself.
void RefuseSameFile(Services& s, const std::string& source, const std::string& dest);
[[noreturn]] void ThrowSameFile();

}  // namespace orvKestrel::actions
