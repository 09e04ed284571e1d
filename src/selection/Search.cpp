// The folder walk: turns a job's source folder into the engine's file list, depth first and
// pre-order, the files of a folder before its sub-folders, in the order the file system gives
// them. Each folder is listed once; the entry types come with the listing.
#include "engine/Traced.h"
#include "jobs/JobCodes.h"
#include "platform/FolderReadAhead.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/DestinationMemo.h"
#include "selection/RegExp.h"
#include "selection/Selection.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace orvKestrel {
namespace {

using paths::BuildPath;
using paths::GetBaseName;

// 0: take everything; 1: take what does NOT match; 2: take what matches. An empty pattern
// with 1 or 2 takes nothing. A name that could not be tested (the match limit, say) is never
// taken, whatever the trap answered, and the folder being listed counts as not fully walked: a
// synchronisation removes nothing below it.
template <class P>
bool PassesMatch(JobRun& run, Services& s, P& proc, std::int16_t mode, const std::string& pattern,
                 const std::string& subject, const std::string& listed, bool& ok) {
  ok = true;
  if (mode == 0) return true;
  if (mode != 1 && mode != 2) return false;
  if (pattern.empty()) return false;
  bool hit = false;
  bool tested = false;
  ok = proc.Do([&] {
    hit = s.regex->Test(pattern, subject);
    tested = true;
  });
  if (!tested) {
    run.unlistedFolders.push_back(listed);
    return false;
  }
  return mode == 2 ? hit : !hit;
}

// A pattern that cannot compile would select nothing or everything, as the trap's answer
// falls: the job ends with an error before any file is looked at.
template <class P>
bool PatternsCompile(Services& s, P& proc, const job& job) {
  const std::pair<std::int16_t, const std::string*> used[] = {{job.DoFileMatch, &job.Filename},
                                                              {job.DoFolderMatch, &job.FolderMatch}};
  for (const auto& use : used) {
    const std::string* pattern = use.second;  // named: a lambda below takes it
    if ((use.first != 1 && use.first != 2) || pattern->empty()) continue;
    std::string why;
    bool compiled = false;
    proc.Do([&] {
      try {
        s.regex->Prepare(*pattern);
        compiled = true;
      } catch (const KestrelError& err) {
        why = err.Description();
        throw;
      }
    });
    if (!compiled) {
      s.Log(kMsgError, job.JobName + ": " + s.T(kMsgError) + why, true, true, false, false);
      return false;
    }
  }
  return true;
}

// A link to a file counts as the file; a link to a folder, a dangling link, a device, a pipe
// or a socket is never selected.
bool IsSelectableFile(Services& s, const DirEntry& entry, const std::string& full) {
  if (entry.isDir || entry.isOther) return false;
  return !entry.isLink || s.fs.FileExists(full);
}

// The files of one listed folder; vsFolderPath ends in "/".
void GetFilesInFolder(JobRun& run, Services& s, const std::string& vsFolderPath,
                      const std::vector<DirEntry>& entries) {
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "vsFolderPath", vsFolderPath, "job", job);
  s.Yield();
  if (s.Stopped()) return;
  if (!s.regex) s.regex = std::make_unique<RegExpCache>();
  // A run that writes holds its job folder's lock: the engine's temporaries found now are
  // leftovers of a killed run, never files of the job.
  const bool tidy = !s.dryRun && job.DoPreview != 1;
  for (const DirEntry& entry : entries) {
    if (entry.isDir || IsEngineTemporary(entry.name)) {
      if (tidy) RemoveLeftover(s.fs, vsFolderPath, entry);
      continue;
    }
    std::string full = BuildPath(vsFolderPath, entry.name);
    if (!IsSelectableFile(s, entry, full)) continue;
    const std::string base = GetBaseName(full);
    if (base.empty()) continue;  // ".profile" has no base name and is never selected
    bool ok = true;
    const bool take =
        PassesMatch(run, s, p, job.DoFileMatch, job.Filename, base, vsFolderPath, ok);
    if (!ok) return;
    if (take) run.files.push_back(std::move(full));
  }
}

// The sub-path of a file's folder below From, without separators at either end; "" when the
// file lies in From itself. The removal of From is a plain text replacement.
std::string SubPathBelowFrom(const std::string& file, const std::string& from) {
  std::string folder = paths::GetParentFolderName(paths::GetAbsolutePathName(file));
  if (folder.back() != '/') folder += '/';
  std::string root = paths::GetAbsolutePathName(from);
  if (root.back() != '/') root += '/';
  std::string sub = paths::ReplaceAll(folder, root, "");
  while (!sub.empty() && sub.back() == '/') sub.pop_back();
  return sub;
}

// The destination folder of a file: To followed by the levels of its sub-path, each level
// listed after its parents.
std::vector<std::string> DestinationLevels(const std::string& file, const job& job) {
  const std::string sub = SubPathBelowFrom(file, job.From);
  std::vector<std::string> levels;
  std::string path = job.To;
  std::size_t start = 0;
  while (start < sub.size()) {
    const std::size_t end = std::min(sub.find('/', start), sub.size());
    if (end > start) {
      path = BuildPath(path, std::string_view(sub).substr(start, end - start));
      levels.push_back(path);
    }
    start = end + 1;
  }
  return levels;
}

// The last component of a destination level.
std::string_view LastLevel(const std::string& level) {
  return std::string_view(level).substr(level.rfind('/') + 1);
}

bool SkippedByAttributes(Services& s, const std::string& folder, const job& job) {
  const std::uint32_t attrs = s.fs.GetAttributes(folder);
  return ((attrs & kAttrHidden) && job.NoHidenFolderScan == 1) ||
         ((attrs & kAttrSystem) && job.NoSystemFolderScan == 1) ||
         ((attrs & kAttrReadOnly) && job.NoReadOnlyFolderScan == 1);
}

}  // namespace

void Search(JobRun& run, Services& s, bool bAll, bool bOpposite) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "job", job, "bAll", bAll, "bOpposite", bOpposite);
  s.regex = std::make_unique<RegExpCache>();
  run.files.clear();
  run.noFiles = false;
  s.Log(kMsgSearching, s.T(kMsgSearching), true, true, false, false);
  if (job.DoFolderMatch == 1 || job.DoFolderMatch == 2) {
    CleanFolderPattern(s, job.FolderMatch, job.UseFolderRegEx != 0);
  }
  if (job.DoFileMatch == 1 || job.DoFileMatch == 2) {
    CleanFilePattern(s, job.Filename, job.UseFileRegEx != 0);
  }
  if (!PatternsCompile(s, p, job)) {
    run.jobError = true;
    return;
  }
  // A synchronisation starts from here: pattern object, empty list, "t16" and the rewritten
  // patterns are in place; its passes walk and hand on the lists themselves.
  if (job.Action == action::kSync) {
    SearchSync(run, s, bAll);
    return;
  }
  FindFiles(run, s, job.From, "*.*", bAll);
  if (run.files.empty()) {
    run.noFiles = true;
    return;
  }
  if (s.Stopped()) return;
  FileList list = std::move(run.files);
  run.files.clear();
  ProcessFiles(run, s, list);
}

namespace {

// The walk below vsFolderPath; ahead, when given, reads the sub-folders' listings in advance.
void FindFiles(JobRun& run, Services& s, const std::string& vsFolderPath,
               const std::string& vsSearch, bool bSearchInFolder, FolderReadAhead* ahead) {
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "vsFolderPath", vsFolderPath, "vsSearch", vsSearch,
         "bSearchInFolder", bSearchInFolder, "job", job);
  s.Yield();
  if (s.Stopped()) return;
  std::string folder = vsFolderPath;
  if (folder.empty() || folder.back() != '/') folder += '/';
  // The mask is always "*.*", which takes every entry.
  const auto entries = s.fs.ListFolder(folder, ahead);
  if (!entries) {  // a folder that cannot be listed simply gives no files
    run.unlistedFolders.push_back(folder);
    return;
  }
  if (ahead && bSearchInFolder) {
    std::vector<std::string> below;
    for (const DirEntry& entry : *entries) {
      if (entry.isDir) below.push_back(folder + entry.name + '/');
    }
    ahead->Expect(folder, below);
  }
  // The sub-folders left out, or not reached when the walk ends early, are not read for it.
  const struct Forgetting {
    FolderReadAhead* ahead;
    const std::string& folder;
    ~Forgetting() {
      if (ahead) ahead->Forget(folder);
    }
  } forgetting{ahead, folder};
  GetFilesInFolder(run, s, folder, *entries);
  if (!bSearchInFolder) return;
  for (const DirEntry& entry : *entries) {
    if (!entry.isDir) continue;  // a link to a folder is not followed: no loops
    if (s.fs.IsTrashFolder(folder + entry.name, entry.name)) continue;  // what a recycle wrote
    s.Yield();
    if (s.Stopped()) return;
    const std::string sub = folder + entry.name;
    s.Log(kMsgSearching, s.T(kMsgSearching) + " " + sub, true, false, true, false);
    if (job.NoHidenFolderScan == 1 || job.NoSystemFolderScan == 1 ||
        job.NoReadOnlyFolderScan == 1) {
      bool skip = false;
      if (!p.Do([&] { skip = SkippedByAttributes(s, sub, job); })) return;
      if (skip) continue;
    }
    bool ok = true;
    const bool enter =
        PassesMatch(run, s, p, job.DoFolderMatch, job.FolderMatch, sub + "/", folder, ok);
    if (!ok) return;
    if (enter) FindFiles(run, s, sub, vsSearch, bSearchInFolder, ahead);
  }
}

}  // namespace

// With more than one job, a thread of its own lists the folders the walk is about to enter.
void FindFiles(JobRun& run, Services& s, const std::string& vsFolderPath,
               const std::string& vsSearch, bool bSearchInFolder) {
  std::optional<FolderReadAhead> ahead;
  if (s.jobs > 1 && bSearchInFolder) ahead.emplace();
  FindFiles(run, s, vsFolderPath, vsSearch, bSearchInFolder, ahead ? &*ahead : nullptr);
}

std::string HandleFolders(Services& s, const std::string& sArrayStr, job& job) {
  Proc p(s.trap, Traced(__func__), "sArrayStr", sArrayStr, "job", job);
  const std::vector<std::string> levels = DestinationLevels(sArrayStr, job);
  if (levels.empty()) return job.To;
  // Missing levels are made, and all are reached, beneath To without following a link planted
  // there: a level that is a link or no folder throws (ELOOP) to the caller, whose file then
  // fails with its own error line instead of being written elsewhere.
  // The first level is To joined with one name: what follows To there starts the sub-path.
  const std::size_t below = levels.front().size() - LastLevel(levels.front()).size();
  s.fs.OpenBeneath(job.To, levels.back().substr(below), true);
  return levels.back();
}

std::string HandlePreviewFolders(Services& s, const std::string& sArrayStr, job& job) {
  Proc p(s.trap, Traced(__func__), "sArrayStr", sArrayStr, "job", job);
  if (!s.destinations) s.destinations = std::make_unique<DestinationMemo>();
  return s.destinations->Of(sArrayStr, job);
}

std::string DestinationFolder(const std::string& file, const job& job) {
  const std::vector<std::string> levels = DestinationLevels(file, job);
  return levels.empty() ? job.To : levels.back();
}

// The folder depends on the text before the file's name alone, unless that name is no plain
// name ("..", say), which changes the folder that holds the file.
const std::string& DestinationMemo::Of(const std::string& file, const job& job) {
  const std::size_t slash = file.rfind('/');
  const std::string_view name =
      slash == std::string::npos ? std::string_view() : std::string_view(file).substr(slash + 1);
  const bool plain = !name.empty() && name != "." && name != "..";
  const std::string_view parent(file.data(), plain ? slash : 0);
  if (!plain || !held_ || parent != parent_ || job.From != from_ || job.To != to_) {
    folder_ = DestinationFolder(file, job);
    held_ = plain;
    parent_ = parent;
    from_ = job.From;
    to_ = job.To;
  }
  return folder_;
}

}  // namespace orvKestrel
