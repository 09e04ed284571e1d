// Copy: the copy of a selected list, the renaming of policy 2, and the free-space check that
// copy and move make before each file.
#include "actions/Actions.h"
#include "actions/Transfer.h"
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <optional>

namespace orvKestrel {

void CopyFiles(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  actions::TransferFiles(run, s, sArray, actions::Kind::Copy);
}

std::string GetValidPathName(Services& s, job& job, const std::string& sSourcePath,
                             bool bIsZip) {
  Proc p(s.trap, Traced(__func__), "job", job, "sSourcePath", sSourcePath, "bIsZip", bIsZip);
  std::string path;
  p.Do([&] { path = actions::ValidPathName(s, job, sSourcePath, bIsZip, false); });
  return path;
}

namespace {

// Free bytes for unprivileged users on the drive that holds path; -1 when it cannot be asked.
// Any folder of a file system answers for the whole of it, so the destination's own folder is
// asked first, which spares the search for the mount point. Counted in 64 bits: a cap at 32 bits
// would refuse every file of 2 GiB or more.
std::int64_t FreeSpace(FileSystem& fs, const std::string& path) {
  if (auto bytes = fs.FreeBytes(paths::GetParentFolderName(path))) return bytes.Value();
  return fs.FreeBytes(fs.DriveName(path)).ValueOr(-1);
}

// The drive as the refusal names it: its mount point with a closing "/".
std::string DriveLabel(FileSystem& fs, const std::string& path) {
  std::string drive = fs.DriveName(path);
  if (drive.empty() || drive.back() != '/') drive += '/';
  return drive;
}

std::int64_t Length(FileSystem& fs, const std::string& path) {
  return static_cast<std::int64_t>(fs.Stat(path).Value().size);
}

// The length of an existing file; nothing when there is none (or a folder of that name).
std::optional<std::int64_t> ExistingLength(FileSystem& fs, const std::string& path) {
  const auto st = fs.Stat(path);
  if (!st || st.Value().isDir) return std::nullopt;
  return static_cast<std::int64_t>(st.Value().size);
}

}  // namespace

bool NoRoomFor(JobRun& run, Services& s, const std::string& source, const std::string& op,
               const std::string& dest, bool replacing) {
  FileSystem& fs = s.fs;
  Proc p(s.trap, Traced(__func__), "source", source, "op", op, "dest", dest, "replacing",
         replacing);
  if (s.noSizeCheck) return false;
  bool noRoom = s.lastNoRoom;
  if (replacing) {
    // Deliberately the old file's length is subtracted: replacing needs room for both.
    if (const auto existing = ExistingLength(fs, dest)) {
      std::int64_t left = 0;
      noRoom = !__builtin_sub_overflow(FreeSpace(fs, dest), *existing, &left) &&
               left <= Length(fs, source);
    }
  } else if (op == "move" && fs.SameDrive(source, dest)) {
    noRoom = false;
  } else {
    noRoom = FreeSpace(fs, dest) <= Length(fs, source);
  }
  s.lastNoRoom = noRoom;
  if (noRoom && (op == "copy" || op == "move")) {
    const int what = op == "copy" ? kMsgNotCopied : kMsgNotMoved;
    s.Log(
        kMsgError,
        s.T(kMsgError) + s.T(kMsgNoRoomOnDrive) + DriveLabel(fs, dest) + ". " + s.T(what) + source,
        true, true, false, false);
    run.jobError = true;
  }
  return noRoom;
}

}  // namespace orvKestrel
