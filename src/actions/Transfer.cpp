// The per-file steps of copy and move. A file whose step fails is reported with its error line
// and left at once: none of its later steps runs, so a source is never deleted after its own
// transfer failed, and the list goes on with the next file.
#include "actions/Transfer.h"

#include "actions/Actions.h"
#include "actions/Lookahead.h"
#include "actions/modCheckExistingFiles.h"
#include "common/modGuid.h"
#include "platform/DateText.h"
#include "platform/Paths.h"
#include "platform/SysError.h"
#include "selection/Selection.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

namespace orvKestrel::actions {
namespace {

using paths::BuildPath;
using paths::GetFileName;
using paths::ReplaceAll;

std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// The destination folder of the last file, kept open for the next files of the same folder.
// Each is reached from the job's destination without following a link below it.
class DestFolders {
 public:
  std::shared_ptr<const DestFolder> Open(FileSystem& fs, const std::string& root,
                                         const std::string& folder, bool create) {
    const std::string key = WithoutTrailingSlash(folder);
    if (last_ && key == folder_ && root == root_ && removals_ == fs.FolderRemovals()) {
      return last_;
    }
    last_.reset();
    const std::string sub = RelativeTo(key, root);
    // A folder that the renaming moved out of the destination is taken as named.
    const bool beneath = !sub.empty() || key == WithoutTrailingSlash(root);
    last_ = beneath ? fs.OpenBeneath(root, sub, create) : fs.OpenBeneath(key, "", false);
    folder_ = key;
    root_ = root;
    removals_ = fs.FolderRemovals();
    return last_;
  }
  void Forget() { last_.reset(); }

 private:
  std::shared_ptr<const DestFolder> last_;
  std::string folder_, root_;
  std::uint64_t removals_ = 0;
};

class FileTransfer {
 public:
  FileTransfer(JobRun& run, Services& s, Kind kind, const std::string& src, DestFolders& folders,
               Lookahead& ahead, std::size_t index)
      : run_(run), s_(s), job_(run.Job()), kind_(kind), src_(src), folders_(folders),
        ahead_(ahead), index_(index) {}

  const std::string& Dest() const { return dest_; }

  void Run() {
    const bool times = SetsFileTimes(job_);
    if (times) ReadSourceFileTime(run_, s_, src_);
    // The levels below To are made (or found) without following links; the path text is the
    // one the folder structure gives.
    const std::string folder =
        job_.FStruct == 1 ? HandlePreviewFolders(s_, src_, job_) : job_.To;
    folders_.Open(s_.fs, job_.To, folder, true);
    dest_ = BuildPath(folder, GetFileName(src_));
    destExists_ = s_.fs.FileExists(dest_);
    RefuseWrittenByThisRun();
    bool writeTimes = true;
    switch (DecideExisting(job_.Exist, destExists_)) {
      case Existing::None: return;
      case Existing::New: writeTimes = TransferNew(); break;
      case Existing::Keep: LogLine(kMsgKeptExisting); break;
      case Existing::DeleteSource: DeleteSource(); break;
      case Existing::Rename: Rename(); break;
      case Existing::Replace: writeTimes = ReplaceIfRoom(); break;
      case Existing::Compare: writeTimes = Compare(); break;
    }
    if (writeTimes && times) {
      ReadDestFileTime(run_, s_, dest_);
      WriteFileTime(run_, s_, dest_);
    }
  }

 private:
  bool Copying() const { return kind_ == Kind::Copy; }

  // Two sources of one pass that meet at one destination name (a flattened structure, two
  // jobs into one folder): replacing the first, or deleting the second because the first is
  // there, would lose a file whose source may be gone already. Policies that keep the existing
  // file or pick a free name are safe.
  void RefuseWrittenByThisRun() const {
    if (!destExists_ || job_.Exist == 0 || job_.Exist == 2 || s_.writtenThisRun.empty()) return;
    if (s_.writtenThisRun.contains(FileKey(s_.fs.Identify(dest_)))) {
      throw KestrelError(EEXIST, "Another file of this run was written to " + dest_ + "; kept");
    }
  }
  bool NoRoom(bool replacing) {
    return NoRoomFor(run_, s_, src_, Copying() ? "copy" : "move", dest_, replacing);
  }

  // The overwrite flag matters to the copy only: a move never replaces. The copy tells the
  // source as it read it: a later deletion of the source removes only that.
  void Transfer(bool overwrite) {
    const auto into = DestFolderOf();
    TidyFolder(run_, s_, into->path());  // only where a file is written: no walk of unchanged trees
    std::optional<PreparedCopy> ready = ahead_.Take(index_);
    PreparedCopy* made = ready ? &*ready : nullptr;
    if (Copying()) {
      const CopiedFile copied = s_.fs.CopyFile(src_, *into, GetFileName(dest_), overwrite, made);
      read_ = copied.read;
      s_.writtenThisRun.insert(copied.written);
    } else {
      s_.fs.MoveFile(src_, *into, GetFileName(dest_), made);
      s_.writtenThisRun.insert(FileKey(s_.fs.Identify(dest_)));
    }
  }

  // The folder of dest_, opened beneath To (the renaming may have changed its text).
  std::shared_ptr<const DestFolder> DestFolderOf() {
    return folders_.Open(s_.fs, job_.To, paths::GetParentFolderName(dest_), false);
  }

  void SetAttributes() {
    SetDestAttributes(s_, dest_, job_);
    if (!Copying()) return;
    SetSourceAttributes(s_, src_, job_);
    if (read_ && job_.EFSDelete == 1 && ChangesSourceAttributes()) OwnAttributesSet();
  }

  bool ChangesSourceAttributes() const {
    return (job_.AttrSetSource == 0 || job_.AttrSetSource == 1) &&
           (job_.AttrArchive2 == 1 || job_.AttrHidden2 == 1 || job_.AttrReadOnly2 == 1 ||
            job_.AttrSystem2 == 1);
  }

  // Setting the source's attributes changed its change time; its contents stay verified by
  // everything else that the copy read.
  void OwnAttributesSet() {
    const FileIdentity now = s_.fs.Identify(src_);
    if (now.SameObject(*read_) && now.size == read_->size && now.modifiedNs == read_->modifiedNs) {
      read_ = now;
    }
  }

  // The source as the policy sees it before deleting it. Refused when the destination is the
  // source itself under another name: deleting the one would delete the other.
  FileIdentity SeenSource() {
    const FileIdentity seen = s_.fs.Identify(src_);
    if (seen.SameObject(s_.fs.Identify(dest_))) ThrowSameFile();
    return seen;
  }

  void LogLine(int n) {
    s_.Log(n, s_.T(n) + src_ + s_.T(kMsgTo) + dest_, true, true, false, false);
  }
  void LogDone() { LogLine(Copying() ? kMsgCopied : kMsgMoved); }
  void LogReplaced() { LogLine(Copying() ? kMsgReplacedByCopy : kMsgReplacedByMove); }

  // A destination that does not exist yet: nothing happens when only existing files count.
  // The replacing policies (3, 4) ask for room before anything, the others only before a copy.
  bool TransferNew() {
    const bool replacing = job_.Exist >= 3;
    if (replacing && NoRoom(true)) return false;
    if (job_.OnlyCompare != 0) return true;
    if (!replacing && NoRoom(false)) return true;
    Transfer(replacing);
    SetAttributes();
    LogDone();
    return true;
  }

  // A copy replaces the old file in one step (its rename), so that a copy that fails leaves it
  // as it was. A move cannot replace: the old file is deleted first, and a move that then fails
  // loses it (the source survives).
  void Replace() {
    RefuseSameFile(s_, src_, dest_);
    if (!Copying()) s_.fs.DeleteFile(*DestFolderOf(), GetFileName(dest_), true);
    Transfer(true);
    if (!Copying() && job_.Exist == 3 && job_.FStruct == 1) CheckEmptyFolder(s_, src_, job_);
    SetAttributes();
    LogReplaced();
  }

  void DeleteSource() {
    const FileIdentity seen = SeenSource();
    DeleteSourceFileAsSeen(run_, s_, src_, seen);
    s_.Log(kMsgSourceDeleted, s_.T(kMsgSourceDeleted) + src_, true, true, false, false);
  }

  void Rename() {
    if (NoRoom(false)) return;
    dest_ = GetValidPathName(s_, job_, src_, false);
    Transfer(false);
    SetAttributes();
    LogDone();
  }

  bool ReplaceIfRoom() {
    if (NoRoom(true)) return false;
    Replace();
    return true;
  }

  bool Compare() {
    if (NoRoom(true)) return false;
    const bool efsDelete = job_.EFSDelete == 1;
    std::optional<FileIdentity> seen;
    if (efsDelete) seen = SeenSource();
    if (CheckExist(s_.fs, s_.trap, src_, dest_, static_cast<std::int16_t>(job_.ExtFileTime),
                   job_.EFSelect)) {
      Replace();
    } else {
      if (!Copying() && efsDelete) s_.fs.DeleteVerified(src_, *seen, true);
      LogLine(kMsgKeptNewer);
    }
    if (Copying() && efsDelete) s_.fs.DeleteVerified(src_, read_.value_or(*seen), true);
    return true;
  }

  JobRun& run_;
  Services& s_;
  job& job_;
  Kind kind_;
  const std::string& src_;
  DestFolders& folders_;
  Lookahead& ahead_;
  std::size_t index_;
  std::string dest_;
  bool destExists_ = false;  // looked at once, before the policy acts
  std::optional<FileIdentity> read_;  // the source as the copy read it
};

void LogError(JobRun& run, Services& s, Kind kind, const std::string& src) {
  int number = 0;
  std::string description;
  DescribeCurrentException(number, description);
  const char* where = kind == Kind::Copy ? " -  Move files " : " - Func MoveFiles ";
  s.Log(kMsgError, run.Job().JobName + ": " + s.T(kMsgError) + description + where + src, true,
        true, false, false);
  run.jobError = true;
}

std::string TwoDigits(int v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%02d", v);
  return buf;
}

// The current date in the short date format with its separators made safe for a file name,
// then "_HH-MM-SS".
std::string DateStamp(const Services& s) {
  const std::time_t now = s.host.clock.Now();
  std::string date = datetext::FormatDate(now, s.host.shortDateFormat);
  if (date.find('\\') != std::string::npos) {
    date = ReplaceAll(date, "\\", "-");
  } else if (date.find('/') != std::string::npos) {
    date = ReplaceAll(date, "/", "-");
  }
  const std::tm tm = datetext::Local(now);
  return date + "_" + TwoDigits(tm.tm_hour) + "-" + TwoDigits(tm.tm_min) + "-" +
         TwoDigits(tm.tm_sec);
}

}  // namespace

void TransferFiles(JobRun& run, Services& s, FileList& sArray, Kind kind) {
  const std::string suffix = run.Job().OnlyCompare == 1 ? " (" + s.T(kMsgOnlyExisting) + ")" : "";
  LogCount(s, sArray.size(), suffix);
  DestFolders folders;
  // A synchronisation's first pass notes the pairs that its second pass will keep.
  const bool settle = SettledPairs::Apply(run.Job());
  const bool noting = settle && run.syncPass == 1, seeding = settle && run.syncPass == 2;
  if (!seeding) run.settled.Clear();
  if (noting) run.settled.Reserve(sArray, run.Job().From);
  // A stop or failure closes the copies not taken.
  Lookahead ahead(run, s, sArray, kind, seeding ? &run.settled : nullptr);
  s.ForEachFile(sArray, [&](const std::string& src) {
    const auto index = static_cast<std::size_t>(&src - sArray.data());
    ahead.Reach(index);
    try {
      const FileSystem::StatusScope once(s.fs);
      const std::string relative = settle ? RelativeTo(src, run.Job().From) : std::string();
      if (seeding) run.settled.Seed(s.fs, relative, src, ahead.DestOf(src));
      ahead.Seed(index, s.fs);
      const std::uint64_t before = s.fs.Changes();
      FileTransfer transfer(run, s, kind, src, folders, ahead, index);
      transfer.Run();
      if (noting) run.settled.Note(s.fs, run.Job(), relative, src, transfer.Dest(), before);
    } catch (...) {
      folders.Forget();  // the folder may be what failed
      LogError(run, s, kind, src);
    }
  });
  LogSyncPassEnd(run, s, kind);
  if (seeding) run.settled.Clear();
  sArray.clear();
}

void LogSyncPassEnd(const JobRun& run, Services& s, Kind kind) {
  if (kind == Kind::Copy && run.syncPass == 1) {
    s.Log(kMsgFirstPassDone, s.T(kMsgFirstPassDone), true, true, false, false);
    s.Log(kMsgFirstPassDone, s.T(kMsgFirstPassDone), true, true, false, false);
  } else if (kind == Kind::Copy && run.syncPass == 2) {
    s.Log(kMsgSyncDone, s.T(kMsgSyncDone), true, true, false, false);
  }
}

void LogCount(Services& s, std::size_t count, const std::string& suffix) {
  if (count > 1) {
    s.Log(kMsgFilesFound, s.T(kMsgFilesFound) + std::to_string(count) + suffix, true, true, false,
          false);
  } else {
    s.Log(kMsgFileFound, s.T(kMsgFileFound) + "1" + suffix, true, true, false, false);
  }
}

std::string ValidPathName(Services& s, job& job, const std::string& sSourcePath, bool bIsZip,
                          bool preview) {
  const std::string ext = paths::GetExtensionName(sSourcePath);
  const std::string name = GetFileName(sSourcePath);
  std::string folder = job.To;
  if (!bIsZip && job.FStruct == 1) {
    folder = preview ? HandlePreviewFolders(s, sSourcePath, job)
                     : HandleFolders(s, sSourcePath, job);
  }
  const std::string dest = BuildPath(folder, name);
  const auto candidate = [&](const std::string& x) {
    const std::string inserted = job.RenameTxt + x + "." + ext;
    return job.RenameType == 0 ? ReplaceAll(dest, "." + ext, inserted)
                               : ReplaceAll(dest, name, inserted);
  };
  const auto taken = [&](const std::string& path) {
    return s.fs.FileExists(path) || s.fs.FolderExists(path);
  };
  if (job.PickRenamer < 1 || job.PickRenamer > 3) return {};
  if (!taken(dest)) return dest;
  // A replacement that changes nothing (no "." anywhere, for instance) would never end.
  if (candidate("1") == dest) return {};
  if (job.PickRenamer == 1) {
    for (long k = 1;; ++k) {
      std::string c = candidate(std::to_string(k));
      if (!taken(c)) return c;
    }
  }
  if (job.PickRenamer == 2) {
    const std::string stamp = DateStamp(s);
    std::string c = candidate(stamp);
    for (long k = 1; taken(c); ++k) c = candidate(stamp + "(" + std::to_string(k) + ")");
    return c;
  }
  std::string guid = CreateGUID();
  if (guid.empty()) return {};
  std::string c = candidate(guid);
  while (taken(c)) {
    guid = CreateGUID();
    if (guid.empty()) return {};
    c = candidate(guid);
  }
  return c;
}

std::string RelativeTo(const std::string& path, const std::string& root) {
  std::string base = root;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  if (path.compare(0, base.size(), base) != 0) return {};
  std::size_t start = base.size();
  if (start < path.size() && path[start] != '/' && base != "/") return {};
  while (start < path.size() && path[start] == '/') ++start;
  return path.substr(start);
}

std::string CleanUpRoot(const std::string& file, const job& job) {
  const std::string path = paths::GetAbsolutePathName(file);
  std::string best;
  for (const std::string* root : {&job.From, &job.To}) {
    if (root->empty()) continue;
    std::string r = paths::GetAbsolutePathName(*root);
    const std::string rel = RelativeTo(path, r);
    if (!rel.empty() && r.size() > best.size()) best = std::move(r);
  }
  return best;
}

void RefuseSameFile(Services& s, const std::string& source, const std::string& dest) {
  if (s.fs.SameFile(source, dest)) ThrowSameFile();
}

void ThrowSameFile() { throw KestrelError(EINVAL, "source and destination are the same file"); }

}  // namespace orvKestrel::actions
