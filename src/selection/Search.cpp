// The folder walk: turns a job's source folder into the engine's file list, depth first and
// pre-order, the files of a folder before its sub-folders, in the order the file system gives
// them. Each folder is listed once; the entry types come with the listing.
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/RegExp.h"

#include <algorithm>
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
bool PassesMatch(Engine& e, P& proc, std::int16_t mode, const std::string& pattern,
                 const std::string& subject, const std::string& listed, bool& ok) {
  ok = true;
  if (mode == 0) return true;
  if (mode != 1 && mode != 2) return false;
  if (pattern.empty()) return false;
  bool hit = false;
  bool tested = false;
  ok = proc.Do([&] {
    hit = e.regex->Test(pattern, subject);
    tested = true;
  });
  if (!tested) {
    e.unlistedFolders.push_back(listed);
    return false;
  }
  return mode == 2 ? hit : !hit;
}

// A pattern that cannot compile would select nothing or everything, as the trap's answer
// falls: the job ends with an error before any file is looked at.
template <class P>
bool PatternsCompile(Engine& e, P& proc, const job& job) {
  const std::pair<std::int16_t, const std::string*> used[] = {{job.DoFileMatch, &job.Filename},
                                                              {job.DoFolderMatch, &job.FolderMatch}};
  for (const auto& use : used) {
    const std::string* pattern = use.second;  // named: a lambda below takes it
    if ((use.first != 1 && use.first != 2) || pattern->empty()) continue;
    std::string why;
    bool compiled = false;
    proc.Do([&] {
      try {
        e.regex->Prepare(*pattern);
        compiled = true;
      } catch (const KestrelError& err) {
        why = err.Description();
        throw;
      }
    });
    if (!compiled) {
      e.Log(10, job.JobName + ": " + e.T(10) + why, true, true, false, false);
      return false;
    }
  }
  return true;
}

// A link to a file counts as the file; a link to a folder, a dangling link, a device, a pipe
// or a socket is never selected.
bool IsSelectableFile(Engine& e, const DirEntry& entry, const std::string& full) {
  if (entry.isDir || entry.isOther) return false;
  return !entry.isLink || e.fs.FileExists(full);
}

// The files of one listed folder; vsFolderPath ends in "/".
void AddFiles(Engine& e, const std::string& vsFolderPath, const std::vector<DirEntry>& entries,
              job& job) {
  Proc p(e.trap, "clsKestrel", "Sub GetFilesInFolder",
         [&] { return ParamText({{"vsFolderPath", vsFolderPath}, {"job", kJobParam}}); });
  e.Yield();
  if (e.Stopped()) return;
  if (!e.regex) e.regex = std::make_unique<RegExpCache>();
  // A run that writes holds its job folder's lock: the engine's temporaries found now are
  // leftovers of a killed run, never files of the job.
  const bool tidy = !e.dryRun && job.DoPreview != 1;
  for (const DirEntry& entry : entries) {
    if (entry.isDir || IsEngineTemporary(entry.name)) {
      if (tidy) RemoveLeftover(e.fs, vsFolderPath, entry);
      continue;
    }
    std::string full = BuildPath(vsFolderPath, entry.name);
    if (!IsSelectableFile(e, entry, full)) continue;
    const std::string base = GetBaseName(full);
    if (base.empty()) continue;  // ".profile" has no base name and is never selected
    bool ok = true;
    const bool take = PassesMatch(e, p, job.DoFileMatch, job.Filename, base, vsFolderPath, ok);
    if (!ok) return;
    if (take) e.files.push_back(std::move(full));
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

bool SkippedByAttributes(Engine& e, const std::string& folder, const job& job) {
  const std::uint32_t attrs = e.fs.GetAttributes(folder);
  return ((attrs & kAttrHidden) && job.NoHidenFolderScan == 1) ||
         ((attrs & kAttrSystem) && job.NoSystemFolderScan == 1) ||
         ((attrs & kAttrReadOnly) && job.NoReadOnlyFolderScan == 1);
}

}  // namespace

void Engine::Search(job& job, bool bAll, bool bOpposite) {
  Proc p(trap, "clsKestrel", "Sub Search", [&] {
    return ParamText({{"job", kJobParam}, {"bAll", BoolText(bAll)},
                      {"bOpposite", BoolText(bOpposite)}});
  });
  regex = std::make_unique<RegExpCache>();
  files.clear();
  noFiles = false;
  Log(16, T(16), true, true, false, false);
  if (job.DoFolderMatch == 1 || job.DoFolderMatch == 2) {
    CleanFolderPattern(job.FolderMatch, job.UseFolderRegEx != 0);
  }
  if (job.DoFileMatch == 1 || job.DoFileMatch == 2) {
    CleanFilePattern(job.Filename, job.UseFileRegEx != 0);
  }
  if (!PatternsCompile(*this, p, job)) {
    jobError = true;
    return;
  }
  // A synchronisation starts from here: pattern object, empty list, "t16" and the rewritten
  // patterns are in place; its passes walk and hand on the lists themselves.
  if (job.Action == 5) {
    SearchSync(job, bAll);
    return;
  }
  FindFiles(job.From, "*.*", bAll, job);
  if (files.empty()) {
    noFiles = true;
    return;
  }
  if (Stopped()) return;
  FileList list = std::move(files);
  files.clear();
  ProcessFiles(list, job);
}

void Engine::FindFiles(const std::string& vsFolderPath, const std::string& vsSearch,
                       bool bSearchInFolder, job& job) {
  Proc p(trap, "clsKestrel", "Sub FindFiles", [&] {
    return ParamText({{"vsFolderPath", vsFolderPath}, {"vsSearch", vsSearch},
                      {"bSearchInFolder", BoolText(bSearchInFolder)}, {"job", kJobParam}});
  });
  Yield();
  if (Stopped()) return;
  std::string folder = vsFolderPath;
  if (folder.empty() || folder.back() != '/') folder += '/';
  // The mask is always "*.*", which takes every entry.
  const auto entries = fs.ListFolder(folder);
  if (!entries) {  // a folder that cannot be listed simply gives no files
    unlistedFolders.push_back(folder);
    return;
  }
  AddFiles(*this, folder, *entries, job);
  if (!bSearchInFolder) return;
  for (const DirEntry& entry : *entries) {
    if (!entry.isDir) continue;  // a link to a folder is not followed: no loops
    if (fs.IsTrashFolder(folder + entry.name, entry.name)) continue;  // what a recycle wrote
    Yield();
    if (Stopped()) return;
    const std::string sub = folder + entry.name;
    Log(16, T(16) + " " + sub, true, false, true, false);
    if (job.NoHidenFolderScan == 1 || job.NoSystemFolderScan == 1 ||
        job.NoReadOnlyFolderScan == 1) {
      bool skip = false;
      if (!p.Do([&] { skip = SkippedByAttributes(*this, sub, job); })) return;
      if (skip) continue;
    }
    bool ok = true;
    const bool enter =
        PassesMatch(*this, p, job.DoFolderMatch, job.FolderMatch, sub + "/", folder, ok);
    if (!ok) return;
    if (enter) FindFiles(sub, vsSearch, bSearchInFolder, job);
  }
}

void Engine::GetFilesInFolder(const std::string& vsFolderPath, const std::string& vsSearch,
                              job& job) {
  (void)vsSearch;  // always "*.*": every entry
  std::string folder = vsFolderPath;
  if (folder.empty() || folder.back() != '/') folder += '/';
  if (const auto entries = fs.ListFolder(folder)) AddFiles(*this, folder, *entries, job);
}

std::string Engine::HandleFolders(const std::string& sArrayStr, job& job) {
  Proc p(trap, "clsKestrel", "Function HandleFolders",
         [&] { return ParamText({{"sArrayStr", sArrayStr}, {"job", kJobParam}}); });
  const std::vector<std::string> levels = DestinationLevels(sArrayStr, job);
  if (levels.empty()) return job.To;
  // Missing levels are made, and all are reached, beneath To without following a link planted
  // there: a level that is a link or no folder throws (ELOOP) to the caller, whose file then
  // fails with its own error line instead of being written elsewhere.
  // The first level is To joined with one name: what follows To there starts the sub-path.
  const std::size_t below = levels.front().size() - LastLevel(levels.front()).size();
  fs.OpenBeneath(job.To, levels.back().substr(below), true);
  return levels.back();
}

std::string Engine::HandlePreviewFolders(const std::string& sArrayStr, job& job) {
  Proc p(trap, "clsKestrel", "Function HandlePreviewFolders",
         [&] { return ParamText({{"sArrayStr", sArrayStr}, {"job", kJobParam}}); });
  const std::vector<std::string> levels = DestinationLevels(sArrayStr, job);
  return levels.empty() ? job.To : levels.back();
}

}  // namespace orvKestrel
