// Deletion: of the files of a delete job, of a source after a copy, move or compression, of the
// files a synchronisation removes from its secondary folder; and the removal of the folders
// that such deletions leave empty.
#include "actions/Actions.h"
#include "actions/Transfer.h"
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <cerrno>

namespace orvKestrel {
namespace {

void LogDeleteError(JobRun& run, Services& s, const std::string& path) {
  int number = 0;
  std::string description;
  DescribeCurrentException(number, description);
  s.Log(kMsgError, s.T(kMsgError) + description + " - " + path, true, true, false, false);
  run.jobError = true;
}

// Deletes one file permanently (forced) or into the recycle bin, logs message msg and, with
// folders 1, removes the folders it leaves empty. A deletion of a file seen before (a source
// after its action) removes it only while it is still as seen. True when the file was deleted.
bool DeleteOne(JobRun& run, Services& s, const std::string& path, CheckState toBin,
               CheckState folders, int msg, const FileIdentity* seen = nullptr) {
  bool deleted = false;
  try {
    if (toBin == 1) {
      if (seen != nullptr && s.fs.Identify(path) != *seen) {
        throw KestrelError(EAGAIN, "The file changed after it was read and was kept");
      }
      std::string failure;
      if (!Kill(s, path, &failure)) {
        // Logged as deleted, as it always was; the error line after it tells the truth, and
        // the job ends with its error.
        s.Log(msg, s.T(msg) + path, true, true, false, false);
        throw KestrelError(EIO, failure);
      }
    } else if (seen != nullptr) {
      s.fs.DeleteVerified(path, *seen, true);
    } else {
      s.fs.DeleteFile(path, true);
    }
    s.Log(msg, s.T(msg) + path, true, true, false, false);
    deleted = true;
  } catch (...) {
    LogDeleteError(run, s, path);
  }
  if (folders != 1) return deleted;
  try {
    RemoveEmptyFolders(s, path, run.Job());
  } catch (...) {
    LogDeleteError(run, s, path);
  }
  return deleted;
}

void DeleteSingle(JobRun& run, Services& s, const std::string& path, CheckState toBin,
                  CheckState folders, int msg, const FileIdentity* seen = nullptr) {
  s.Yield();
  if (path.empty()) return;
  DeleteOne(run, s, path, toBin, folders, msg, seen);
}

void DeleteList(JobRun& run, Services& s, FileList& list, int msg) {
  const job& job = run.Job();
  actions::LogCount(s, list.size(), "");
  s.ForEachFile(list, [&](const std::string& path) {
    if (!path.empty()) DeleteOne(run, s, path, job.DelType, job.DelEFol, msg);
  });
  list.clear();
}

}  // namespace

bool Kill(Services& s, const std::string& Files, std::string* failure) {
  Proc p(s.trap, Traced(__func__), "Files", Files, "AllowUndo", Optional("True"), "ShowProgress",
         Optional("False"), "Confirmation", Optional("False"), "Simple", Optional("True"),
         "SysErrors", Optional("False"), "Hwnd", Optional("0"), "UserAborts", "<Missing>");
  try {
    s.fs.Trash(Files);
    return true;
  } catch (const KestrelError& err) {
    if (failure != nullptr) *failure = "Not moved to the trash: " + err.Description();
    return false;
  }
}

void DeleteSourceFile(JobRun& run, Services& s, const std::string& sArray) {
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  DeleteSingle(run, s, sArray, job.DelTypeSource, job.DelEFolSource, kMsgSourceDeleted);
}

void DeleteSourceFileAsSeen(JobRun& run, Services& s, const std::string& sArray,
                            const FileIdentity& seen) {
  const job& job = run.Job();
  Proc p(s.trap, Traced("DeleteSourceFile"), "sArray", sArray, "job", job);
  DeleteSingle(run, s, sArray, job.DelTypeSource, job.DelEFolSource, kMsgSourceDeleted, &seen);
}

void DeleteZipSourceFile(JobRun& run, Services& s, const std::string& sArray) {
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  DeleteSingle(run, s, sArray, job.ZipDelCompBin, job.ZipDelCompBinFolder,
               kMsgSourceDeletedAfterZip);
}

bool DeleteZipSourceVerified(JobRun& run, Services& s, const std::string& sArray,
                             const FileIdentity& read) {
  const job& job = run.Job();
  Proc p(s.trap, Traced("DeleteZipSourceFile"), "sArray", sArray, "job", job);
  s.Yield();
  if (sArray.empty()) return false;
  return DeleteOne(run, s, sArray, job.ZipDelCompBin, job.ZipDelCompBinFolder,
                   kMsgSourceDeletedAfterZip, &read);
}

void DeleteFile(JobRun& run, Services& s, const std::string& sArray) {
  const job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  DeleteSingle(run, s, sArray, job.DelType, job.DelEFol, kMsgSourceDeleted);
}

void DeleteFiles(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  DeleteList(run, s, sArray, kMsgSourceDeleted);
}

void DeleteSyncFiles(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  DeleteList(run, s, sArray, kMsgSyncDeleted);
}

// Upwards from the deleted file's folder, each folder that holds nothing at all (hidden entries
// count) is removed, up to but never including the job's From, or To for the files that a
// synchronisation removes from its secondary folder. Errors go to the caller's file handler.
void RemoveEmptyFolders(Services& s, const std::string& deletedFile, job& job) {
  Proc p(s.trap, Traced(__func__), "deletedFile", deletedFile, "job", job);
  const std::string root = actions::CleanUpRoot(deletedFile, job);
  if (root.empty()) return;
  std::string folder = paths::GetParentFolderName(paths::GetAbsolutePathName(deletedFile));
  while (!actions::RelativeTo(folder, root).empty() && s.fs.FolderIsEmpty(folder)) {
    s.Yield();
    s.fs.RemoveFolder(folder);
    s.Log(kMsgFolderDeleted, s.T(kMsgFolderDeleted) + folder, true, true, false, false);
    folder = paths::GetParentFolderName(folder);
  }
}

// One level only, and by size: a folder whose remaining files are all empty goes with them.
void CheckEmptyFolder(Services& s, const std::string& sPath, job& job) {
  Proc p(s.trap, Traced(__func__), "sPath", sPath, "job", job);
  // From itself, or anything not below the job's folders, is never removed.
  const std::string root = actions::CleanUpRoot(sPath, job);
  const std::string parent = paths::GetParentFolderName(paths::GetAbsolutePathName(sPath));
  if (root.empty() || actions::RelativeTo(parent, root).empty()) return;
  std::uint64_t size = 1;
  if (!p.Do([&] { size = s.fs.FolderSize(parent); })) return;
  if (size == 0) p.Do([&] { s.fs.DeleteFolder(parent, false); });
}

}  // namespace orvKestrel
