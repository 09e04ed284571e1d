// Compression: the selected files into one archive for the job ("All") or one per file
// ("Single"). A run never takes one of its own archives as a source.
//
// A source file is deleted (Exist 1 or ZipDelComp 1) only once the archive that holds it has
// been written: the library reads a staged file when it commits the archive. In "Single" mode
// every archive is committed right after its file, so the messages come in their usual order.
// In "All" mode the archive is committed once after the last file; the deletions of the
// sources and their lines ("<job>: Gelöscht: <file>") follow then, in file order, after all
// the "Hinzufügen" lines instead of after each one. A file that is not in the archive (a zero
// result, or a failed commit) is never deleted, nor one that changed after the commit read it;
// a file that changed while it was read is left out of the archive. Nothing this run wrote is
// replaced by this run: such a file is refused with an error line and kept.
#include "actions/Actions.h"
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "selection/Selection.h"
#include "zip/Zip.h"
#include "zip/ZipCommon.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {
namespace {

using zipcommon::BaseFolder;

void LogFileError(JobRun& run, Services& s, const std::string& why, const std::string& file) {
  const job& job = run.Job();
  s.Log(kMsgError, job.JobName + ": " + s.T(kMsgError) + why + " - " + file, true, true, false);
  run.jobError = true;
}

// The file as the last commit read it into the archive; nothing when it is not in it.
const FileIdentity* ReadInto(Services& s, const std::string& file) {
  for (const auto& w : s.zip->WrittenSources()) {
    if (w.source == file) return &w.read;
  }
  return nullptr;
}

const std::string* FailureOf(Services& s, const std::string& file) {
  for (const auto& f : s.zip->FailedSources()) {
    if (f.source == file) return &f.reason;
  }
  return nullptr;
}

// Deletes a source that the last commit put in the archive, while it is still the file that
// was read; its line names the job in "All" mode.
void DeleteCompressed(JobRun& run, Services& s, const std::string& file,
                      const std::string& prefix) {
  const FileIdentity* read = ReadInto(s, file);
  if (read == nullptr) return;
  if (DeleteZipSourceVerified(run, s, file, *read)) {
    s.Log(kMsgDeleted, prefix + s.T(kMsgDeleted) + file, true, true, false);
  }
}

// Commits the "All" archive, then deletes the sources that it now holds.
void CommitAll(JobRun& run, Services& s, const std::string& archive,
               const std::vector<std::string>& deletions) {
  const job& job = run.Job();
  if (!s.zip->Flush(!deletions.empty())) {
    LogFileError(run, s, s.zip->FlushError(), archive);
    return;
  }
  for (const auto& f : s.zip->FailedSources()) LogFileError(run, s, f.reason, f.source);
  for (const auto& file : deletions) DeleteCompressed(run, s, file, job.JobName + ": ");
}

// The line of a file of "All" mode that the library did not take.
void LogNotAdded(JobRun& run, Services& s, const std::string& file, bool existedBefore) {
  if (!s.zip->LastRefusal().empty()) {
    LogFileError(run, s, s.zip->LastRefusal(), file);
  } else if (!existedBefore) {
    s.Log(kMsgError, s.T(kMsgError) + file, true, true, false);
    run.jobError = true;  // the file is not in the archive: the job must not end as a success
  } else {
    s.Log(kMsgNotAdded, s.T(kMsgNotAdded) + file, true, true, false);
  }
}

template <class P>
void ZipAll(JobRun& run, Services& s, P& p, FileList& sArray) {
  const job& job = run.Job();
  std::string archive;
  if (!p.Do([&] { archive = GetZipFileName(run, s, "All"); })) return;
  if (archive.empty()) return;
  const bool existedBefore = s.fs.FileExists(archive);
  const bool deleting = job.Exist == 1 || job.ZipDelComp == 1;
  const std::int32_t mode = job.Exist == 4 ? 4 : 3;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  std::vector<std::string> deletions;
  std::int32_t result = 0;
  bool goOn = p.Do([&] {
    s.zip->SaveFolderLocation(BaseFolder(sArray[0], job));
    result = s.zip->ZipFile(archive, sArray[0], job.ZipPwd, job.Exist, job.Exist == 4 ? 4 : 0);
  });
  if (goOn && result != 0 && deleting) deletions.push_back(sArray[0]);
  for (std::int32_t i = 1; goOn && i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    s.KestrelCounter(n, i);
    if (s.Stopped()) break;
    s.zip->SaveFolderLocation(BaseFolder(file, job));
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(s, p, file, saved)) break;
    result = s.zip->ZipAddFile(archive, file, mode, 0);
    goOn = zipcommon::RestoreHidden(s, p, file, saved);
    if (result != 0) {
      s.Log(kMsgAdding, s.T(kMsgAdding) + file + s.T(kMsgTo) + archive, true, true, false);
    } else {
      LogNotAdded(run, s, file, existedBefore);
    }
    if (result != 0 && deleting) deletions.push_back(file);
  }
  // Files handled stay handled, also after a stop or an error.
  CommitAll(run, s, archive, deletions);
}

// Stages and commits one file of "Single" mode; the attributes of a hidden file are back
// before the commit reads it, so that the file as read is the file that stays.
template <class P>
bool ZipOne(JobRun& run, Services& s, P& p, const std::string& file, const std::string& archive,
            bool deleting) {
  const job& job = run.Job();
  std::uint32_t saved = 0;
  if (!zipcommon::ClearHidden(s, p, file, saved)) return false;
  s.zipping.store(true);
  std::int32_t result = s.zip->ZipFile(archive, file, job.ZipPwd, job.Exist == 4 ? 4 : 0, 0);
  const std::string refusal = s.zip->LastRefusal();
  const bool restored = zipcommon::RestoreHidden(s, p, file, saved);
  const bool committed = s.zip->Flush(result != 0 && deleting);
  s.zipping.store(false);
  if (!restored) return false;
  if (!committed) result = 0;
  const std::string* failure = FailureOf(s, file);
  if (!refusal.empty()) {
    LogFileError(run, s, refusal, file);
  } else if (result != 0 && failure == nullptr) {
    s.Log(kMsgZipCreated, s.T(kMsgZipCreated) + file + s.T(kMsgTo) + archive, true, true, false);
  } else if (failure != nullptr) {
    LogFileError(run, s, *failure, file);
  } else {
    s.Log(kMsgReplaced, s.T(kMsgReplaced) + file + s.T(kMsgTo) + archive, true, true, false);
  }
  if (!committed && !s.zip->LastCancelled()) LogFileError(run, s, s.zip->FlushError(), archive);
  if (result != 0 && committed && deleting) DeleteCompressed(run, s, file, "");
  return true;
}

template <class P>
void ZipSingle(JobRun& run, Services& s, P& p, FileList& sArray) {
  const job& job = run.Job();
  const bool deleting = job.Exist == 1 || job.ZipDelComp == 1;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    if (s.Stopped()) return;
    s.KestrelCounter(n, i);
    s.zip->SaveFolderLocation(BaseFolder(file, job));
    std::string archive;
    if (!p.Do([&] { archive = GetZipFileName(run, s, "Single", file); })) return;
    if (archive.empty()) continue;
    if (!ZipOne(run, s, p, file, archive, deleting)) return;
  }
}

}  // namespace

void Zip_Files(JobRun& run, Services& s, FileList& sArray) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (s.dryRun) return Zip_Preview(run, s, sArray);  // a dry run changes no file
  if (sArray.empty() || !zipcommon::BeginZip(run, s, p, sArray)) return;
  s.zip->StartZipRun(job.ExtFileTime, job.EFSelect);
  zipcommon::LogCount(s, sArray.size());
  if (job.ZipAll == 0) {
    ZipAll(run, s, p, sArray);
  } else {
    ZipSingle(run, s, p, sArray);
  }
}

std::string GetZipFileName(JobRun& run, Services& s, const std::string& Mode,
                           const std::string& sFile) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "job", job, "Mode", Mode, "sFile", Optional(sFile));
  std::string archive = zipcommon::ArchiveFor(s, p, job, Mode, sFile, false);
  if (!archive.empty()) TidyFolder(run, s, paths::GetParentFolderName(archive));
  return archive;
}

}  // namespace orvKestrel
