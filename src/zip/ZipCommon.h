// Steps shared by compression and its preview.
#pragma once

#include "engine/Engine.h"
#include "platform/Paths.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvKestrel::zipcommon {

// The job's ZipGrade as a whole number, as the run time converts text to a long: blanks
// around it ignored, a fraction rounded half to even. Anything else is a type mismatch.
std::int32_t GradeValue(const std::string& text);

// The folder the entry name of file is formed against: the file's own folder (with its "/")
// when the job stores bare names, else From up to its last "/", so that the entries keep the
// source folder's own name.
std::string BaseFolder(const std::string& file, const job& job);

// The "Single" archive of sFile in To: every ".ext" of the whole path becomes ".zip" (a file
// without extension has every "." replaced) and only the file name part is used.
std::string SingleNameInTo(const job& job, const std::string& sFile);

// The archive for Mode "All" or "Single" before the existing-archive policy applies; nothing
// when Mode is neither or the trap asked to leave. A preview names the mirrored folder without
// making it.
template <class P>
std::optional<std::string> ArchiveName(Engine& e, P& p, job& job, const std::string& Mode,
                                       const std::string& sFile, bool preview) {
  if (Mode == "All") return paths::BuildPath(job.To, job.JobName + ".zip");
  if (Mode != "Single") return std::nullopt;
  if (job.ZipExtStruct == 0) return SingleNameInTo(job, sFile);
  std::string folder;
  if (!p.Do([&] {
        folder = preview ? e.HandlePreviewFolders(sFile, job) : e.HandleFolders(sFile, job);
      })) {
    return std::nullopt;
  }
  return paths::BuildPath(folder, paths::GetFileName(sFile) + ".zip");
}

// "Dateien gefunden: n+1", or "Datei gefunden: 1" for a single file.
void LogCount(Engine& e, std::size_t files);

// Clears the attributes of a file that is exactly hidden before a library call and gives them
// back afterwards; nothing in a dry run. Each step runs under the caller's trap: false means
// the trap asked to leave.
template <class P>
bool ClearHidden(Engine& e, P& p, const std::string& file, std::uint32_t& saved) {
  saved = 0;
  if (e.dryRun) return true;
  std::uint32_t attrs = 0;
  if (!p.Do([&] { attrs = e.fs.GetAttributes(file); })) return false;
  if (attrs != kAttrHidden) return true;
  if (!p.Do([&] { e.fs.SetAttributes(file, 0); })) return false;
  saved = attrs;
  return true;
}

template <class P>
bool RestoreHidden(Engine& e, P& p, const std::string& file, std::uint32_t saved) {
  if (saved == 0) return true;
  return p.Do([&] { e.fs.SetAttributes(file, saved); });
}

}  // namespace orvKestrel::zipcommon
