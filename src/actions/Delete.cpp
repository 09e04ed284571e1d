// Deletion: of the files of a delete job, of a source after a copy, move or compression, of the
// files a synchronisation removes from its secondary folder; and the removal of the folders
// that such deletions leave empty.
#include "actions/Transfer.h"
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <cerrno>

namespace orvKestrel {
namespace {

void LogDeleteError(Engine& e, const std::string& path) {
  int number = 0;
  std::string description;
  DescribeCurrentException(number, description);
  e.Log(10, e.T(10) + description + " - " + path, true, true, false, false);
  e.jobError = true;
}

// Deletes one file permanently (forced) or into the recycle bin, logs message msg and, with
// folders 1, removes the folders it leaves empty. A deletion of a file seen before (a source
// after its action) removes it only while it is still as seen. True when the file was deleted.
bool DeleteOne(Engine& e, const std::string& path, job& job, CheckState toBin, CheckState folders,
               int msg, const FileIdentity* seen = nullptr) {
  bool deleted = false;
  try {
    if (toBin == 1) {
      if (seen != nullptr && e.fs.Identify(path) != *seen) {
        throw KestrelError(EAGAIN, "The file changed after it was read and was kept");
      }
      std::string failure;
      if (!e.Kill(path, &failure)) {
        // Logged as deleted, as it always was; the error line after it tells the truth, and
        // the job ends with its error.
        e.Log(msg, e.T(msg) + path, true, true, false, false);
        throw KestrelError(EIO, failure);
      }
    } else if (seen != nullptr) {
      e.fs.DeleteVerified(path, *seen, true);
    } else {
      e.fs.DeleteFile(path, true);
    }
    e.Log(msg, e.T(msg) + path, true, true, false, false);
    deleted = true;
  } catch (...) {
    LogDeleteError(e, path);
  }
  if (folders != 1) return deleted;
  try {
    e.RemoveEmptyFolders(path, job);
  } catch (...) {
    LogDeleteError(e, path);
  }
  return deleted;
}

void DeleteSingle(Engine& e, const std::string& path, job& job, CheckState toBin,
                  CheckState folders, int msg, const FileIdentity* seen = nullptr) {
  e.Yield();
  if (path.empty()) return;
  DeleteOne(e, path, job, toBin, folders, msg, seen);
}

void DeleteList(Engine& e, FileList& list, job& job, int msg) {
  actions::LogCount(e, list.size(), "");
  const auto n = static_cast<std::int32_t>(list.size()) - 1;
  for (std::int32_t i = 0; i <= n; ++i) {
    e.KestrelCounter(n, i);
    e.Yield();
    if (e.Stopped()) break;
    const std::string& path = list[static_cast<std::size_t>(i)];
    if (!path.empty()) DeleteOne(e, path, job, job.DelType, job.DelEFol, msg);
  }
  list.clear();
}

}  // namespace

bool Engine::Kill(const std::string& Files, std::string* failure) {
  Proc p(trap, "clsKestrel", "Function Kill", [&] {
    return ParamText({{"Files", Files}, {"AllowUndo", Opt("True")}, {"ShowProgress", Opt("False")},
                      {"Confirmation", Opt("False")}, {"Simple", Opt("True")},
                      {"SysErrors", Opt("False")}, {"Hwnd", Opt("0")}, {"UserAborts", "<Missing>"}});
  });
  try {
    fs.Trash(Files);
    return true;
  } catch (const KestrelError& err) {
    if (failure != nullptr) *failure = "Not moved to the trash: " + err.Description();
    return false;
  }
}

void Engine::DeleteSourceFile(const std::string& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteSourceFile",
         [&] { return ParamText({{"sArray", sArray}, {"job", kJobParam}}); });
  DeleteSingle(*this, sArray, job, job.DelTypeSource, job.DelEFolSource, 36);
}

void Engine::DeleteSourceFileAsSeen(const std::string& sArray, job& job,
                                    const FileIdentity& seen) {
  Proc p(trap, "clsKestrel", "Sub DeleteSourceFile",
         [&] { return ParamText({{"sArray", sArray}, {"job", kJobParam}}); });
  DeleteSingle(*this, sArray, job, job.DelTypeSource, job.DelEFolSource, 36, &seen);
}

void Engine::DeleteZipSourceFile(const std::string& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteZipSourceFile",
         [&] { return ParamText({{"sArray", sArray}, {"job", kJobParam}}); });
  DeleteSingle(*this, sArray, job, job.ZipDelCompBin, job.ZipDelCompBinFolder, 87);
}

bool Engine::DeleteZipSourceVerified(const std::string& sArray, const FileIdentity& read,
                                     job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteZipSourceFile",
         [&] { return ParamText({{"sArray", sArray}, {"job", kJobParam}}); });
  Yield();
  if (sArray.empty()) return false;
  return DeleteOne(*this, sArray, job, job.ZipDelCompBin, job.ZipDelCompBinFolder, 87, &read);
}

void Engine::DeleteFile(const std::string& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteFile",
         [&] { return ParamText({{"sArray", sArray}, {"job", kJobParam}}); });
  DeleteSingle(*this, sArray, job, job.DelType, job.DelEFol, 36);
}

void Engine::DeleteFiles(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  DeleteList(*this, sArray, job, 36);
}

void Engine::DeleteSyncFiles(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DeleteSyncFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  DeleteList(*this, sArray, job, 94);
}

// Upwards from the deleted file's folder, each folder that holds nothing at all (hidden entries
// count) is removed, up to but never including the job's From, or To for the files that a
// synchronisation removes from its secondary folder. Errors go to the caller's file handler.
void Engine::RemoveEmptyFolders(const std::string& deletedFile, job& job) {
  Proc p(trap, "clsKestrel", "Sub RemoveEmptyFolders",
         [&] { return ParamText({{"deletedFile", deletedFile}, {"job", kJobParam}}); });
  const std::string root = actions::CleanUpRoot(deletedFile, job);
  if (root.empty()) return;
  std::string folder = paths::GetParentFolderName(paths::GetAbsolutePathName(deletedFile));
  while (!actions::RelativeTo(folder, root).empty() && fs.FolderIsEmpty(folder)) {
    Yield();
    fs.RemoveFolder(folder);
    Log(37, T(37) + folder, true, true, false, false);
    folder = paths::GetParentFolderName(folder);
  }
}

// One level only, and by size: a folder whose remaining files are all empty goes with them.
void Engine::CheckEmptyFolder(const std::string& sPath, job& job) {
  Proc p(trap, "clsKestrel", "Sub CheckEmptyFolder",
         [&] { return ParamText({{"sPath", sPath}, {"job", kJobParam}}); });
  // From itself, or anything not below the job's folders, is never removed.
  const std::string root = actions::CleanUpRoot(sPath, job);
  const std::string parent = paths::GetParentFolderName(paths::GetAbsolutePathName(sPath));
  if (root.empty() || actions::RelativeTo(parent, root).empty()) return;
  std::uint64_t size = 1;
  if (!p.Do([&] { size = fs.FolderSize(parent); })) return;
  if (size == 0) p.Do([&] { fs.DeleteFolder(parent, false); });
}

}  // namespace orvKestrel
