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
#include "actions/Actions.h"
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/Selection.h"
#include "selection/modDetermineFileType.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include <array>
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
Reported ReportFailures(JobRun& run, Services& s, const std::string& file,
                        std::int32_t count) {
  const job& job = run.Job();
  const auto& failures = s.zip->Failures();
  bool onlyPassword = count == 0;
  bool anyPassword = false;
  for (const auto& f : failures) {
    const bool password = f.kind == Failure::Kind::Password;
    onlyPassword = onlyPassword && password;
    anyPassword = anyPassword || password;
  }
  if (failures.empty() || onlyPassword) return {!failures.empty(), false};
  for (const auto& f : failures) {
    s.Log(kMsgError, job.JobName + ": " + s.T(kMsgError) + f.reason + " - " + file + ": " + f.entry,
          true, true, false);
  }
  run.jobError = true;
  return {true, !anyPassword};
}

// Names the entries that the existing-destination policy kept, as a copy names the files it
// leaves; true when the archive holds any entry that was not written.
bool ReportKept(Services& s, const std::string& file) {
  for (const auto& k : s.zip->Kept()) {
    if (k.why == Kept::Why::Filtered) continue;
    const int n = k.why == Kept::Why::NotNewer ? kMsgKeptNewer : kMsgKeptExisting;
    s.Log(n, s.T(n) + file + ": " + k.entry + s.T(kMsgTo) + k.path, true, true, false);
  }
  return !s.zip->Kept().empty();
}

// Deletes the archive that was read, unless its name now leads to another file or it changed.
void DeleteArchive(JobRun& run, Services& s, const std::string& file) {
  const job& job = run.Job();
  const FileIdentity& read = s.zip->ArchiveRead();
  try {
    if (job.ZipDelDeCompBin == 1) {
      if (s.fs.Identify(file) != read) {
        throw KestrelError(EAGAIN, "The file changed after it was read and was kept");
      }
      std::string failure;
      if (!Kill(s, file, &failure)) {
        // Logged as deleted, as it always was; the error line after it tells the truth.
        s.Log(kMsgZipDeleted, s.T(kMsgZipDeleted) + file, true, true, false);
        throw KestrelError(EIO, failure);
      }
    } else {
      s.fs.DeleteVerified(file, read, true);
    }
  } catch (const KestrelError& err) {
    s.Log(kMsgError, job.JobName + ": " + s.T(kMsgError) + err.Description() + " - " + file, true,
          true, false);
    run.jobError = true;
    return;
  }
  s.Log(kMsgZipDeleted, s.T(kMsgZipDeleted) + file, true, true, false);
}

void ReportCount(Services& s, std::int32_t count, int one, int many, const std::string& file,
                 const std::string& dest) {
  if (count == 0) return;
  const int n = count == 1 ? one : many;
  s.Log(n, std::to_string(count) + s.T(n) + file + s.T(kMsgTo) + dest, true, true, false);
}

// The real extraction of one archive; false when a stop ended it.
template <class P>
bool Extract(JobRun& run, Services& s, P& p, const std::string& file, const std::string& dest) {
  const job& job = run.Job();
  s.zipping.store(true);
  std::int32_t count = 0;
  TidyFolder(run, s, dest);
  const bool done = p.Do([&] { count = UnZipFile(s, file, run.Job(), dest); });
  s.zipping.store(false);
  // A cancelled extraction is incomplete: it must not lead to deleting the archive.
  if (s.Stopped() || s.zip->LastCancelled() || !done) return false;
  const Reported failed = ReportFailures(run, s, file, count);
  const bool kept = ReportKept(s, file);
  if (count == 0) {
    if (!failed.explained)
      s.Log(kMsgZipUnreadable, s.T(kMsgZipUnreadable) + file, true, true, false);
  } else {
    ReportCount(s, count, kMsgExtractedOne, kMsgExtractedMany, file, dest);
  }
  if (count == 0 || job.ZipDelDeComp != 1 || failed.any || kept) return true;
  // The extracted files reach the disk before the archive that holds them goes.
  s.zip->SyncExtracted();
  DeleteArchive(run, s, file);
  return true;
}

// The type of a selected file as the run read it first, or the error that reading it gave.
struct TypeRead {
  std::string type;
  std::optional<KestrelError> error;
};

// The archives of the run are known to the library by identity, so that no extraction of the
// run replaces one of them before it is read (nor what another extraction of the run wrote).
std::vector<TypeRead> StartExtractionRun(Services& s, const FileList& files) {
  std::vector<TypeRead> types(files.size());
  std::vector<FileIdentity> archives;
  for (std::size_t i = 0; i < files.size() && !s.Stopped(); ++i) {
    try {
      types[i].type = GetFileType(s.fs, files[i]);
      if (types[i].type == kZipType) archives.push_back(s.fs.Identify(files[i]));
    } catch (const KestrelError& err) {
      types[i].error = err;
    }
  }
  s.zip->StartUnzipRun(archives);
  return types;
}

void PreviewArchive(Services& s, const job& job, const std::string& file,
                    const std::string& dest) {
  const std::int32_t count = s.zip->ZipFileCount(file);
  if (s.Stopped()) return;
  if (count == 0) {
    s.Log(kMsgZipUnreadable, s.T(kMsgZipUnreadable) + file + s.T(kMsgTo) + dest, true, true, false);
  } else {
    ReportCount(s, count, kMsgWouldExtractOne, kMsgWouldExtractMany, file, dest);
  }
  if (job.ZipDelDeComp == 1) {
    s.Log(kMsgZipWouldBeDeleted, s.T(kMsgZipWouldBeDeleted) + " " + file + s.T(kMsgTo) + dest, true,
          true, false);
  }
}

// The folder an archive is extracted into when the structure is kept: its mirrored folder and
// a level named after it. A preview names it without creating it.
std::string ArchiveFolder(Services& s, job& job, const std::string& file, bool preview) {
  const std::string base = paths::GetBaseName(file);
  if (preview) return HandlePreviewFolders(s, file, job) + "/" + base;
  const std::string folder = HandleFolders(s, file, job);
  s.fs.OpenBeneath(folder, base, true);  // the archive's own level: never a link either
  return folder + "/" + base;
}

// Whether to pass over an archive after its check: statuses 1 to 3 say why, 0 clears the
// switch, and any other status leaves it as the archive before left it.
bool SkipArchive(Services& s, std::int32_t status, const std::string& file, bool skip) {
  constexpr std::array<int, 3> kWhy = {kMsgZipDamaged, kMsgZipMissing, kMsgZipInvalid};
  if (status == 0) return false;
  if (status < 1 || status > 3) return skip;
  const int n = kWhy[static_cast<std::size_t>(status - 1)];
  s.Log(n, s.T(n) + file, true, true, false);
  return true;
}

}  // namespace

void UnZip_Files(JobRun& run, Services& s, FileList& sArray) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (sArray.empty()) return;
  const bool preview = job.DoPreview != 0 || s.dryRun;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  const int announce = preview ? kMsgArchivesFoundPreview : kMsgArchivesFound;
  // The count, a blank, and the text, which begins with a blank of its own.
  s.Log(announce, std::to_string(n + 1) + " " + s.T(announce), true, true, false);
  std::vector<TypeRead> types = preview ? std::vector<TypeRead>() : StartExtractionRun(s, sArray);
  bool skip = false;  // carried over from archive to archive; changed by statuses 0 to 3 only
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    s.KestrelCounter(n, i);
    s.Yield();
    if (s.Stopped()) return;
    std::string dest = job.To;
    if (job.FStruct == 1 && !p.Do([&] { dest = ArchiveFolder(s, job, file, preview); })) return;
    std::string type;
    // An error of the first reading is reported here, in the file's turn; a retry reads again.
    TypeRead first = types.empty() ? TypeRead{} : std::move(types[static_cast<std::size_t>(i)]);
    if (!p.Do([&] {
          if (auto err = std::exchange(first.error, std::nullopt)) throw *err;
          type = first.type.empty() ? GetFileType(s.fs, file) : first.type;
        })) {
      return;
    }
    if (type != kZipType) continue;
    skip = SkipArchive(s, s.zip->CheckZipFile(file, job.DestZipPwd), file, skip);
    if (skip) continue;
    if (preview) {
      PreviewArchive(s, job, file, dest);
    } else if (!Extract(run, s, p, file, dest)) {
      return;
    }
    if (s.Stopped()) return;
  }
}

std::int32_t UnZipFile(Services& s, const std::string& sZipFile, job& job,
                       const std::string& sDestPath) {
  Proc p(s.trap, Traced(__func__), "sZipFile", sZipFile, "job", job, "sDestPath", sDestPath);
  std::int32_t mode = 0;
  switch (job.DestZipExist) {
    case 0: mode = 2; break;
    case 1: mode = 3; break;
    case 2: mode = 4; break;
    default: mode = 0; break;
  }
  const std::string filter = job.DestZipFilter.empty() ? "*.*" : job.DestZipFilter;
  return s.zip->UnZipEx(sZipFile, sDestPath, filter, job.DestZipFolder, job.DestZipPwd, mode, 0);
}

}  // namespace orvKestrel
