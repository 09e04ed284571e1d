// Compression: the selected files into one archive for the job ("All") or one per file
// ("Single").
//
// A source file is deleted (Exist 1 or ZipDelComp 1) only once the archive that holds it has
// been written: the library reads a staged file when it commits the archive. In "Single" mode
// every archive is committed right after its file, so the messages come in their usual order.
// In "All" mode the archive is committed once after the last file; the deletions of the
// sources and their lines ("<job>: Gelöscht: <file>") follow then, in file order, after all
// the "Hinzufügen" lines instead of after each one. A file that is not in the archive (a zero
// result, or a failed commit) is never deleted.
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "zip/ZipCommon.h"
#include "zip/modZIP32vb.h"

#include <unordered_set>

namespace orvKestrel {
namespace {

using zipcommon::BaseFolder;

// Commits the "All" archive, then deletes the sources that it now holds.
void CommitAll(Engine& e, job& job, const std::string& archive,
               const std::vector<std::string>& deletions) {
  if (!e.zip->Flush(!deletions.empty())) {
    e.Log(10, job.JobName + ": " + e.T(10) + e.zip->FlushError() + " - " + archive, true, true,
          false);
    e.jobError = true;
    return;
  }
  const auto& failed = e.zip->FailedSources();
  for (const auto& file : failed) {
    e.Log(10, job.JobName + ": " + e.T(10) + "cannot be read - " + file, true, true, false);
    e.jobError = true;
  }
  const std::unordered_set<std::string> missing(failed.begin(), failed.end());
  for (const auto& file : deletions) {
    if (missing.count(file) != 0) continue;
    e.DeleteZipSourceFile(file, job);
    e.Log(13, job.JobName + ": " + e.T(13) + file, true, true, false);
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
    } else if (!existedBefore) {
      e.Log(10, e.T(10) + file, true, true, false);
      e.jobError = true;  // the file is not in the archive: the job must not end as a success
    } else {
      e.Log(34, e.T(34) + file, true, true, false);
    }
    if (result != 0 && deleting) deletions.push_back(file);
  }
  // Files handled stay handled, also after a stop or an error.
  CommitAll(e, job, archive, deletions);
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
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(e, p, file, saved)) return;
    e.zipping.store(true);
    std::int32_t result = e.zip->ZipFile(archive, file, job.ZipPwd, job.Exist == 4 ? 4 : 0, 0);
    const bool committed = e.zip->Flush(result != 0 && deleting);
    if (!committed) result = 0;
    e.zipping.store(false);
    if (!zipcommon::RestoreHidden(e, p, file, saved)) return;
    if (result != 0) {
      e.Log(32, e.T(32) + file + e.T(14) + archive, true, true, false);
    } else {
      e.Log(35, e.T(35) + file + e.T(14) + archive, true, true, false);
    }
    if (!committed && !e.zip->LastCancelled()) {
      e.Log(10, job.JobName + ": " + e.T(10) + e.zip->FlushError() + " - " + archive, true, true,
            false);
      e.jobError = true;
    }
    if (result != 0 && deleting) {
      e.DeleteZipSourceFile(file, job);
      e.Log(13, e.T(13) + file, true, true, false);
    }
  }
}

}  // namespace

void Engine::Zip_Files(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub Zip_Files",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (dryRun) return Zip_Preview(sArray, job);  // a dry run changes no file
  if (sArray.empty()) return;
  if (!p.Do([&] { zip->SetCompressionRate(zipcommon::GradeValue(job.ZipGrade)); })) return;
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
