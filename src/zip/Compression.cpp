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
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "zip/ZipCommon.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {
namespace {

using zipcommon::BaseFolder;

void LogFileError(Engine& e, const job& job, const std::string& why, const std::string& file) {
  e.Log(10, job.JobName + ": " + e.T(10) + why + " - " + file, true, true, false);
  e.jobError = true;
}

// The file as the last commit read it into the archive; nothing when it is not in it.
const FileIdentity* ReadInto(Engine& e, const std::string& file) {
  for (const auto& w : e.zip->WrittenSources()) {
    if (w.source == file) return &w.read;
  }
  return nullptr;
}

const std::string* FailureOf(Engine& e, const std::string& file) {
  for (const auto& f : e.zip->FailedSources()) {
    if (f.source == file) return &f.reason;
  }
  return nullptr;
}

// Deletes a source that the last commit put in the archive, while it is still the file that
// was read; its line names the job in "All" mode.
void DeleteCompressed(Engine& e, job& job, const std::string& file, const std::string& prefix) {
  const FileIdentity* read = ReadInto(e, file);
  if (read == nullptr) return;
  if (e.DeleteZipSourceVerified(file, *read, job)) {
    e.Log(13, prefix + e.T(13) + file, true, true, false);
  }
}

// Commits the "All" archive, then deletes the sources that it now holds.
void CommitAll(Engine& e, job& job, const std::string& archive,
               const std::vector<std::string>& deletions) {
  if (!e.zip->Flush(!deletions.empty())) {
    LogFileError(e, job, e.zip->FlushError(), archive);
    return;
  }
  for (const auto& f : e.zip->FailedSources()) LogFileError(e, job, f.reason, f.source);
  for (const auto& file : deletions) DeleteCompressed(e, job, file, job.JobName + ": ");
}

// The line of a file of "All" mode that the library did not take.
void LogNotAdded(Engine& e, const job& job, const std::string& file, bool existedBefore) {
  if (!e.zip->LastRefusal().empty()) {
    LogFileError(e, job, e.zip->LastRefusal(), file);
  } else if (!existedBefore) {
    e.Log(10, e.T(10) + file, true, true, false);
    e.jobError = true;  // the file is not in the archive: the job must not end as a success
  } else {
    e.Log(34, e.T(34) + file, true, true, false);
  }
}

template <class P>
void ZipAll(Engine& e, P& p, FileList& sArray, job& job) {
  std::string archive;
  if (!p.Do([&] { archive = e.GetZipFileName(job, "All"); })) return;
  if (archive.empty()) return;
  const bool existedBefore = e.fs.FileExists(archive);
  const bool deleting = job.Exist == 1 || job.ZipDelComp == 1;
  const std::int32_t mode = job.Exist == 4 ? 4 : 3;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  std::vector<std::string> deletions;
  std::int32_t result = 0;
  bool goOn = p.Do([&] {
    e.zip->SaveFolderLocation(BaseFolder(sArray[0], job));
    result = e.zip->ZipFile(archive, sArray[0], job.ZipPwd, job.Exist, job.Exist == 4 ? 4 : 0);
  });
  if (goOn && result != 0 && deleting) deletions.push_back(sArray[0]);
  for (std::int32_t i = 1; goOn && i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    e.KestrelCounter(n, i);
    if (e.Stopped()) break;
    e.zip->SaveFolderLocation(BaseFolder(file, job));
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(e, p, file, saved)) break;
    result = e.zip->ZipAddFile(archive, file, mode, 0);
    goOn = zipcommon::RestoreHidden(e, p, file, saved);
    if (result != 0) {
      e.Log(33, e.T(33) + file + e.T(14) + archive, true, true, false);
    } else {
      LogNotAdded(e, job, file, existedBefore);
    }
    if (result != 0 && deleting) deletions.push_back(file);
  }
  // Files handled stay handled, also after a stop or an error.
  CommitAll(e, job, archive, deletions);
}

// Stages and commits one file of "Single" mode; the attributes of a hidden file are back
// before the commit reads it, so that the file as read is the file that stays.
template <class P>
bool ZipOne(Engine& e, P& p, job& job, const std::string& file, const std::string& archive,
            bool deleting) {
  std::uint32_t saved = 0;
  if (!zipcommon::ClearHidden(e, p, file, saved)) return false;
  e.zipping.store(true);
  std::int32_t result = e.zip->ZipFile(archive, file, job.ZipPwd, job.Exist == 4 ? 4 : 0, 0);
  const std::string refusal = e.zip->LastRefusal();
  const bool restored = zipcommon::RestoreHidden(e, p, file, saved);
  const bool committed = e.zip->Flush(result != 0 && deleting);
  e.zipping.store(false);
  if (!restored) return false;
  if (!committed) result = 0;
  const std::string* failure = FailureOf(e, file);
  if (!refusal.empty()) {
    LogFileError(e, job, refusal, file);
  } else if (result != 0 && failure == nullptr) {
    e.Log(32, e.T(32) + file + e.T(14) + archive, true, true, false);
  } else if (failure != nullptr) {
    LogFileError(e, job, *failure, file);
  } else {
    e.Log(35, e.T(35) + file + e.T(14) + archive, true, true, false);
  }
  if (!committed && !e.zip->LastCancelled()) LogFileError(e, job, e.zip->FlushError(), archive);
  if (result != 0 && committed && deleting) DeleteCompressed(e, job, file, "");
  return true;
}

template <class P>
void ZipSingle(Engine& e, P& p, FileList& sArray, job& job) {
  const bool deleting = job.Exist == 1 || job.ZipDelComp == 1;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    if (e.Stopped()) return;
    e.KestrelCounter(n, i);
    e.zip->SaveFolderLocation(BaseFolder(file, job));
    std::string archive;
    if (!p.Do([&] { archive = e.GetZipFileName(job, "Single", file); })) return;
    if (archive.empty()) continue;
    if (!ZipOne(e, p, job, file, archive, deleting)) return;
  }
}

}  // namespace

void Engine::Zip_Files(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub Zip_Files",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (dryRun) return Zip_Preview(sArray, job);  // a dry run changes no file
  if (sArray.empty()) return;
  if (!zipcommon::LeaveOutOwnArchives(*this, sArray, job)) {
    noFiles = true;
    return;
  }
  if (!p.Do([&] { zip->SetCompressionRate(zipcommon::GradeValue(job.ZipGrade)); })) return;
  zip->StartZipRun(job.ExtFileTime, job.EFSelect);
  zipcommon::LogCount(*this, sArray.size());
  if (job.ZipAll == 0) {
    ZipAll(*this, p, sArray, job);
  } else {
    ZipSingle(*this, p, sArray, job);
  }
}

std::string Engine::GetZipFileName(job& job, const std::string& Mode, const std::string& sFile) {
  Proc p(trap, "clsKestrel", "Function GetZipFileName", [&] {
    return ParamText({{"job", kJobParam}, {"Mode", Mode}, {"sFile", Opt(sFile)}});
  });
  std::string archive = zipcommon::ArchiveFor(*this, p, job, Mode, sFile, false);
  if (!archive.empty()) TidyFolder(paths::GetParentFolderName(archive));
  return archive;
}

}  // namespace orvKestrel
