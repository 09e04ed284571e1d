// Extraction of the selected zip archives into the job's destination, and its preview.
//
// Beyond the count line of each archive, entries that could not be extracted (refused because
// they would leave the destination or replace what this run wrote or the archive itself,
// damaged, not writable, a password that does not fit) get an error line each and mark the job
// as failed; entries that the existing-destination policy kept get a line each. An archive is
// deleted only when every entry it holds was written, and only while its name still leads to the
// file that was read: otherwise it may hold the only copy of an entry. When no entry at all
// could be extracted because of the password, the "fehlendes Passwort?" line alone reports it;
// when the error lines already tell why nothing was extracted (damaged or tampered data, unsafe
// entries), that guess is left out.
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/modDetermineFileType.h"
#include "zip/modZIP32vb.h"

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

namespace orvKestrel {
namespace {

using Failure = ZipLibrary::EntryFailure;
using Kept = ZipLibrary::EntryKept;

constexpr const char* kZipType = "ZIP Archive File";

// Logs the entries of the last extraction that failed. any: there were such entries;
// explained: each has its line and none is a password failure, so an empty result needs no
// guess at a missing password.
struct Reported {
  bool any = false;
  bool explained = false;
};
Reported ReportFailures(Engine& e, const job& job, const std::string& file, std::int32_t count) {
  const auto& failures = e.zip->Failures();
  bool onlyPassword = count == 0;
  bool anyPassword = false;
  for (const auto& f : failures) {
    const bool password = f.kind == Failure::Kind::Password;
    onlyPassword = onlyPassword && password;
    anyPassword = anyPassword || password;
  }
  if (failures.empty() || onlyPassword) return {!failures.empty(), false};
  for (const auto& f : failures) {
    e.Log(10, job.JobName + ": " + e.T(10) + f.reason + " - " + file + ": " + f.entry, true, true,
          false);
  }
  e.jobError = true;
  return {true, !anyPassword};
}

// Names the entries that the existing-destination policy kept, as a copy names the files it
// leaves; true when the archive holds any entry that was not written.
bool ReportKept(Engine& e, const std::string& file) {
  for (const auto& k : e.zip->Kept()) {
    if (k.why == Kept::Why::Filtered) continue;
    const int n = k.why == Kept::Why::NotNewer ? 45 : 38;
    e.Log(n, e.T(n) + file + ": " + k.entry + e.T(14) + k.path, true, true, false);
  }
  return !e.zip->Kept().empty();
}

// Deletes the archive that was read, unless its name now leads to another file or it changed.
void DeleteArchive(Engine& e, const job& job, const std::string& file) {
  const FileIdentity& read = e.zip->ArchiveRead();
  try {
    if (job.ZipDelDeCompBin == 1) {
      if (e.fs.Identify(file) != read) {
        throw KestrelError(EAGAIN, "The file changed after it was read and was kept");
      }
      std::string failure;
      if (!e.Kill(file, &failure)) {
        // Logged as deleted, as it always was; the error line after it tells the truth.
        e.Log(81, e.T(81) + file, true, true, false);
        throw KestrelError(EIO, failure);
      }
    } else {
      e.fs.DeleteVerified(file, read, true);
    }
  } catch (const KestrelError& err) {
    e.Log(10, job.JobName + ": " + e.T(10) + err.Description() + " - " + file, true, true, false);
    e.jobError = true;
    return;
  }
  e.Log(81, e.T(81) + file, true, true, false);
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
  e.TidyFolder(dest);
  const bool done = p.Do([&] { count = e.UnZipFile(file, job, dest); });
  e.zipping.store(false);
  // A cancelled extraction is incomplete: it must not lead to deleting the archive.
  if (e.Stopped() || e.zip->LastCancelled() || !done) return false;
  const Reported failed = ReportFailures(e, job, file, count);
  const bool kept = ReportKept(e, file);
  if (count == 0) {
    if (!failed.explained) e.Log(83, e.T(83) + file, true, true, false);
  } else {
    ReportCount(e, count, 77, 78, file, dest);
  }
  if (count == 0 || job.ZipDelDeComp != 1 || failed.any || kept) return true;
  // The extracted files reach the disk before the archive that holds them goes.
  e.zip->SyncExtracted();
  DeleteArchive(e, job, file);
  return true;
}

// The type of a selected file as the run read it first, or the error that reading it gave.
struct TypeRead {
  std::string type;
  std::optional<KestrelError> error;
};

// The archives of the run are known to the library by identity, so that no extraction of the
// run replaces one of them before it is read (nor what another extraction of the run wrote).
std::vector<TypeRead> StartExtractionRun(Engine& e, const FileList& files) {
  std::vector<TypeRead> types(files.size());
  std::vector<FileIdentity> archives;
  for (std::size_t i = 0; i < files.size() && !e.Stopped(); ++i) {
    try {
      types[i].type = GetFileType(e.fs, files[i]);
      if (types[i].type == kZipType) archives.push_back(e.fs.Identify(files[i]));
    } catch (const KestrelError& err) {
      types[i].error = err;
    }
  }
  e.zip->StartUnzipRun(archives);
  return types;
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
  // The count, a blank, and the text, which begins with a blank of its own.
  Log(announce, std::to_string(n + 1) + " " + T(announce), true, true, false);
  std::vector<TypeRead> types = preview ? std::vector<TypeRead>() : StartExtractionRun(*this, sArray);
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
            const std::string base = paths::GetBaseName(file);
            if (preview) {
              dest = HandlePreviewFolders(file, job) + "/" + base;
              return;
            }
            const std::string folder = HandleFolders(file, job);
            fs.OpenBeneath(folder, base, true);  // the archive's own level: never a link either
            dest = folder + "/" + base;
          })) {
        return;
      }
    }
    std::string type;
    // An error of the first reading is reported here, in the file's turn; a retry reads again.
    TypeRead first = types.empty() ? TypeRead{} : std::move(types[static_cast<std::size_t>(i)]);
    if (!p.Do([&] {
          if (auto err = std::exchange(first.error, std::nullopt)) throw *err;
          type = first.type.empty() ? GetFileType(fs, file) : first.type;
        })) {
      return;
    }
    if (type != kZipType) continue;
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
