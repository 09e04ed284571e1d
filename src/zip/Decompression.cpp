// Extraction of the selected zip archives into the job's destination, and its preview.
//
// Beyond the count line of each archive, entries that could not be extracted (refused because
// they would leave the destination, damaged, not writable, a password that does not fit) get
// an error line each and mark the job as failed; their archive is then kept even when the job
// deletes extracted archives, since it still holds the only copy of those entries. When no
// entry at all could be extracted because of the password, the "fehlendes Passwort?" line
// alone reports it.
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "selection/modDetermineFileType.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {
namespace {

using Failure = ZipLibrary::EntryFailure;

// Logs the entries of the last extraction that failed; true when there were any.
bool ReportFailures(Engine& e, const job& job, const std::string& file, std::int32_t count) {
  const auto& failures = e.zip->Failures();
  bool onlyPassword = count == 0;
  for (const auto& f : failures) onlyPassword = onlyPassword && f.kind == Failure::Kind::Password;
  if (failures.empty() || onlyPassword) return !failures.empty();
  for (const auto& f : failures) {
    e.Log(10, job.JobName + ": " + e.T(10) + f.reason + " - " + file + ": " + f.entry, true, true,
          false);
  }
  e.jobError = true;
  return true;
}

void ReportCount(Engine& e, std::int32_t count, int one, int many, const std::string& file,
                 const std::string& dest) {
  if (count == 0) return;
  const int n = count == 1 ? one : many;
  e.Log(n, std::to_string(count) + e.T(n) + file + e.T(14) + dest, true, true, false);
}

// The real extraction of one archive; false when a stop ended it.
template <class P>
bool Extract(Engine& e, P& p, job& job, const std::string& file, const std::string& dest) {
  e.zipping.store(true);
  std::int32_t count = 0;
  const bool done = p.Do([&] { count = e.UnZipFile(file, job, dest); });
  e.zipping.store(false);
  // A cancelled extraction is incomplete: it must not lead to deleting the archive.
  if (e.Stopped() || e.zip->LastCancelled() || !done) return false;
  const bool failed = ReportFailures(e, job, file, count);
  if (count == 0) {
    e.Log(83, e.T(83) + file, true, true, false);
  } else {
    ReportCount(e, count, 77, 78, file, dest);
  }
  if (count == 0 || job.ZipDelDeComp != 1 || failed) return true;
  // The extracted files reach the disk before the archive that holds them goes.
  e.zip->SyncExtracted();
  bool deleted = true;
  if (job.ZipDelDeCompBin == 1) {
    e.Kill(file);
  } else {
    deleted = p.Do([&] { e.fs.DeleteFile(file, true); });
  }
  if (deleted) e.Log(81, e.T(81) + file, true, true, false);
  return true;
}

void PreviewArchive(Engine& e, const job& job, const std::string& file, const std::string& dest) {
  const std::int32_t count = e.zip->ZipFileCount(file);
  if (e.Stopped()) return;
  if (count == 0) {
    e.Log(83, e.T(83) + file + e.T(14) + dest, true, true, false);
  } else {
    ReportCount(e, count, 79, 80, file, dest);
  }
  if (job.ZipDelDeComp == 1) {
    e.Log(82, e.T(82) + " " + file + e.T(14) + dest, true, true, false);
  }
}

}  // namespace

void Engine::UnZip_Files(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub UnZip_Files",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (sArray.empty()) return;
  const bool preview = job.DoPreview != 0 || dryRun;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  const int announce = preview ? 73 : 72;
  // The count, a blank, then the text, which brings its own blank before it.
  Log(announce, std::to_string(n + 1) + " " + T(announce), true, true, false);
  bool skip = false;  // carried over from archive to archive; changed by statuses 0 to 3 only
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    KestrelCounter(n, i);
    Yield();
    if (Stopped()) return;
    std::string dest = job.To;
    if (job.FStruct == 1) {
      // A preview names the mirrored folder without creating it.
      if (!p.Do([&] {
            dest = (preview ? HandlePreviewFolders(file, job) : HandleFolders(file, job)) + "/" +
                   paths::GetBaseName(file);
          })) {
        return;
      }
    }
    std::string type;
    if (!p.Do([&] { type = GetFileType(fs, file); })) return;
    if (type != "ZIP Archive File") continue;
    switch (zip->CheckZipFile(file, job.DestZipPwd)) {
      case 0: skip = false; break;
      case 1: Log(74, T(74) + file, true, true, false); skip = true; break;
      case 2: Log(75, T(75) + file, true, true, false); skip = true; break;
      case 3: Log(76, T(76) + file, true, true, false); skip = true; break;
      default: break;
    }
    if (skip) continue;
    if (preview) {
      PreviewArchive(*this, job, file, dest);
    } else if (!Extract(*this, p, job, file, dest)) {
      return;
    }
    if (Stopped()) return;
  }
}

std::int32_t Engine::UnZipFile(const std::string& sZipFile, job& job,
                               const std::string& sDestPath) {
  Proc p(trap, "clsKestrel", "Function UnZipFile", [&] {
    return ParamText({{"sZipFile", sZipFile}, {"job", kJobParam}, {"sDestPath", sDestPath}});
  });
  std::int32_t mode = 0;
  switch (job.DestZipExist) {
    case 0: mode = 2; break;
    case 1: mode = 3; break;
    case 2: mode = 4; break;
    default: mode = 0; break;
  }
  const std::string filter = job.DestZipFilter.empty() ? "*.*" : job.DestZipFilter;
  return zip->UnZipEx(sZipFile, sDestPath, filter, job.DestZipFolder, job.DestZipPwd, mode, 0);
}

}  // namespace orvKestrel
