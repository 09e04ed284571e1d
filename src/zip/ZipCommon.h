// Steps shared by compression and its preview.
#pragma once

#include "actions/Actions.h"
#include "platform/Paths.h"
#include "selection/Selection.h"
#include "zip/modZIP32vb.h"

#include <cstdint>
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

// A preview of the mirrored folder of an archive throws what the run would meet there: a level
// beneath To that is a link or no folder, which the run refuses instead of writing elsewhere.
void RefuseAsTheRunWould(Services& s, const job& job, const std::string& folder);

// The archive for Mode "All" or "Single" under the existing-archive policy; "" when Mode is
// neither, the archive exists under policy 0, or the trap asked to leave. A preview names the
// mirrored folder without making it and reports the deletion of policy 3 instead of making it.
template <class P>
std::string ArchiveFor(Services& s, P& p, job& job, const std::string& Mode,
                       const std::string& sFile, bool preview) {
  std::string name;
  if (Mode == "All") {
    name = paths::BuildPath(job.To, job.JobName + ".zip");
  } else if (Mode != "Single") {
    return {};
  } else if (job.ZipExtStruct == 0) {
    name = SingleNameInTo(job, sFile);
  } else {
    std::string folder;
    if (!p.Do([&] {
          folder = preview ? HandlePreviewFolders(s, sFile, job) : HandleFolders(s, sFile, job);
          if (preview) RefuseAsTheRunWould(s, job, folder);
        })) {
      return {};
    }
    name = paths::BuildPath(folder, paths::GetFileName(sFile) + ".zip");
  }
  if (job.Exist == 0 && s.fs.FileExists(name)) {
    const int msg = preview ? kMsgFileExists : kMsgExistsNoAction;
    s.Log(msg, name + s.T(msg), true, true, false);
    return {};
  }
  if (job.Exist == 2) {
    std::string free;
    if (!p.Do([&] { free = GetValidPathName(s, job, name, true); })) return {};
    return free;
  }
  // The old archive is replaced when the new one is committed, not deleted now: a run that
  // fails on the way leaves it. An archive this run has written is added to instead: replacing
  // it would lose the files whose sources are gone already.
  if (job.Exist == 3 && s.fs.FileExists(name) && (preview || !s.zip->WrittenThisRun(name))) {
    if (!preview) s.zip->ReplaceOnCommit(name);
    const int msg = preview ? kMsgWouldDelete : kMsgDeleted;
    s.Log(msg, s.T(msg) + name + (Mode == "Single" ? "" : " - " + s.T(kMsgZipCreated) + name), true,
          true, false);
  }
  return name;
}

// Takes out of the list every file that is one of the archives the run writes (by device and
// inode: the same file reached through a link or another mount counts): a run never packs its
// own archive into itself, nor deletes it as a source. False when nothing is left.
bool LeaveOutOwnArchives(Services& s, FileList& sArray, job& job);

// What a compression and its preview do first: leave out the run's own archives (none left:
// the run found no files) and set the compression rate under p. False when nothing is to be done.
template <class P>
bool BeginZip(JobRun& run, Services& s, P& p, FileList& sArray) {
  job& job = run.Job();
  if (!LeaveOutOwnArchives(s, sArray, job)) {
    run.noFiles = true;
    return false;
  }
  return p.Do([&] { s.zip->SetCompressionRate(GradeValue(job.ZipGrade)); });
}

// "Dateien gefunden: n+1", or "Datei gefunden: 1" for a single file.
void LogCount(Services& s, std::size_t files);

// Clears the attributes of a file that is exactly hidden before a library call and gives them
// back afterwards; nothing in a dry run. Each step runs under the caller's trap: false means
// the trap asked to leave.
template <class P>
bool ClearHidden(Services& s, P& p, const std::string& file, std::uint32_t& saved) {
  saved = 0;
  if (s.dryRun) return true;
  std::uint32_t attrs = 0;
  if (!p.Do([&] { attrs = s.fs.GetAttributes(file); })) return false;
  if (attrs != kAttrHidden) return true;
  if (!p.Do([&] { s.fs.SetAttributes(file, 0); })) return false;
  saved = attrs;
  return true;
}

template <class P>
bool RestoreHidden(Services& s, P& p, const std::string& file, std::uint32_t saved) {
  if (saved == 0) return true;
  return p.Do([&] { s.fs.SetAttributes(file, saved); });
}

}  // namespace orvKestrel::zipcommon
