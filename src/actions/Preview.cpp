// Dry runs of copy, move, delete and a synchronisation's removal step: each file is reported
// with what the real run would do to it under the job's policy; no file and no folder is
// created, changed or removed.
//
// Lines, by case (S source, D destination, N the name renaming would pick; "tN" is the
// catalogue text with its affixes, joined as written):
//
//   case of the real run                            | mode "Copy"        | mode "Move"
//   ------------------------------------------------+--------------------+--------------------
//   head of the list                                | t39 From           | t52 From
//   count (as the real run, OnlyCompare suffix too) | t84 n / t85 1      | t84 n / t85 1
//   D absent: transferred (policies 0, 1, 3, 4)     | t54 S t14 D        | t40 S t14 D
//   D absent and OnlyCompare: skipped silently      | no line            | no line
//   policy 0, D exists: nothing happens             | t59 S t14 D        | t59 S t14 D
//   policy 1, D exists: the source is deleted       | t47 S              | t47 S
//   policy 2, D absent                              | t54 S t14 D        | t40 S t14 D
//   policy 2, D exists: renamed                     | t57 S t14 N        | t58 S t14 N
//   policy 3, D exists: D replaced                  | t41 S t46 D        | t55 S t46 D
//   policy 4, D exists, comparison agrees           | t42 S t46 D        | t56 S t46 D
//   policy 4, D exists, comparison refuses          | t60+EFSelect S t14 D (EFSelect 0..7)
//   policy 4, D exists, EFSelect outside 0..7       | t59 S t14 D (the comparison always refuses)
//   policy 4 and EFSDelete 1: the source is deleted | t47 S after either  | t47 S after a refusal
//   a step the real run would fail (no free name,   | the real run's error line, without
//   destination = source)                           | marking the job as failed
//   any other policy                                | no line            | no line
//   folders a deletion would leave empty and remove | t47 folder (source deletions with DelEFolSource 1;
//   (and the one level of a move under policy 3     |  CheckEmptyFolder when nothing is left in it)
//   with FStruct 1)                                 |
//   synchronisation pass 1 ends / pass 2 ends       | t92 twice / t93    | -
//   synchronisation pass 2: file already reported   | no line            | -
//   in pass 1 or by the removal step                |                    |
//
//   delete job: t53 From, the count, then t47 path per file and t47 folder per folder that
//   DelEFol 1 would remove. Synchronisation removal: t53 To, the count, then t95 path per file
//   and t47 folder per folder.
//
// Not previewed: the free-space check (it depends on the moment of the run), file times and
// attributes, and a folder that CheckEmptyFolder would remove together with the empty files
// left in it.
#include "actions/Actions.h"
#include "actions/Transfer.h"
#include "actions/modCheckExistingFiles.h"
#include "engine/Traced.h"
#include "jobs/JobCodes.h"
#include "platform/Paths.h"
#include "selection/Selection.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace orvKestrel {
namespace {

using actions::Kind;
using paths::BuildPath;
using paths::GetParentFolderName;

// Follows which entries the previewed run would take out of each folder, to tell which folders
// it would leave empty. Each folder is listed once, when it is first touched.
class FolderPreview {
 public:
  explicit FolderPreview(Services& s) : s_(s) {}

  // Why the run would refuse the folder sub of root (reached through a link), or "". The answer
  // for the last folder is kept: its files come one after another, and a preview changes
  // nothing on the disk.
  const std::string& RefusedBeneath(const std::string& root, const std::string& sub) {
    if (!checked_ || checked_->root != root || checked_->sub != sub) {
      const auto refused = s_.fs.RefusedBeneath(root, sub);
      checked_ = Checked{root, sub, refused ? refused->Description() : std::string()};
    }
    return checked_->refused;
  }

  // path leaves its folder. With cleanUp the folders left empty are reported upwards to the
  // clean-up's root; with oneLevel only the file's own folder.
  void Gone(const std::string& path, const job& job, bool cleanUp, bool oneLevel = false) {
    const std::string file = paths::GetAbsolutePathName(path);
    if (!gone_.insert(file).second) return;
    std::string folder = GetParentFolderName(file);
    if (!Decrement(folder) || !cleanUp) return;
    const std::string root = actions::CleanUpRoot(file, job);
    while (!root.empty() && !actions::RelativeTo(folder, root).empty() && left_[folder] == 0) {
      s_.Log(kMsgWouldDelete, s_.T(kMsgWouldDelete) + folder, true, true, false, false);
      if (oneLevel) return;
      gone_.insert(folder);
      folder = GetParentFolderName(folder);
      if (!Decrement(folder)) return;
    }
  }

 private:
  bool Decrement(const std::string& folder) {
    auto it = left_.find(folder);
    if (it == left_.end()) {
      const auto entries = s_.fs.ListFolder(folder);
      if (!entries) return false;
      it = left_.emplace(folder, static_cast<long>(entries->size())).first;
    }
    if (it->second > 0) --it->second;
    return true;
  }

  Services& s_;
  std::unordered_map<std::string, long> left_;
  std::unordered_set<std::string> gone_;
  struct Checked {
    std::string root, sub, refused;
  };
  std::optional<Checked> checked_;
};

class FilePreview {
 public:
  FilePreview(Services& s, job& job, Kind kind, const std::string& src, FolderPreview& folders)
      : s_(s), job_(job), kind_(kind), src_(src), folders_(folders) {}

  // True when the file got a line.
  bool Run() {
    const std::string folder =
        job_.FStruct == 1 ? HandlePreviewFolders(s_, src_, job_) : job_.To;
    const std::string sub = actions::RelativeTo(folder, job_.To);
    if (!sub.empty()) {  // the real run refuses a folder reached through a link
      const std::string refused = folders_.RefusedBeneath(job_.To, sub);
      if (!refused.empty()) {
        ReportError(refused);
        return true;
      }
    }
    dest_ = BuildPath(folder, paths::GetFileName(src_));
    switch (DecideExisting(job_.Exist, s_.fs.FileExists(dest_))) {
      case Existing::None: return false;
      case Existing::New: return New();
      case Existing::Keep: return Report(kMsgFileExists, dest_, kMsgTo);
      case Existing::DeleteSource:
        if (SameFile()) return true;
        Report(kMsgWouldDelete);
        folders_.Gone(src_, job_, job_.DelEFolSource == 1);
        return true;
      case Existing::Rename: return Rename();
      case Existing::Replace:
        if (SameFile()) return true;
        Report(Copying() ? kMsgWouldBeReplacedByCopy : kMsgWouldReplace, dest_, kMsgReplaces);
        Moved(true);
        return true;
      case Existing::Compare: return Compare();
    }
    return false;
  }

 private:
  bool Copying() const { return kind_ == Kind::Copy; }

  bool Report(int n, const std::string& to = {}, int joiner = 0) {
    std::string line = s_.T(n) + src_;
    if (joiner != 0) line += s_.T(joiner) + to;
    s_.Log(n, line, true, true, false, false);
    return true;
  }

  void ReportError(const std::string& description) {
    const char* where = Copying() ? " -  Move files " : " - Func MoveFiles ";
    s_.Log(kMsgError, job_.JobName + ": " + s_.T(kMsgError) + description + where + src_, true,
           true, false, false);
  }

  // Where the real run refuses to delete the source through its destination: its error line.
  bool SameFile() {
    if (!s_.fs.SameFile(src_, dest_)) return false;
    ReportError("source and destination are the same file");
    return true;
  }

  // The source leaves its folder when it is moved; a replacing move under policy 3 with the
  // folder structure kept removes its folder when nothing is left in it.
  void Moved(bool replaced) {
    if (Copying()) return;
    const bool checkFolder = replaced && job_.Exist == 3 && job_.FStruct == 1;
    folders_.Gone(src_, job_, checkFolder, true);
  }

  bool New() {
    if (job_.OnlyCompare != 0) return false;
    Report(Copying() ? kMsgWouldCopy : kMsgWouldMove, dest_, kMsgTo);
    Moved(false);
    return true;
  }

  bool Rename() {
    const std::string name = actions::ValidPathName(s_, job_, src_, false, true);
    if (name.empty()) {
      ReportError("Invalid procedure call or argument");
    } else if (name == dest_) {
      Report(Copying() ? kMsgWouldCopy : kMsgWouldMove, dest_, kMsgTo);
    } else {
      Report(Copying() ? kMsgCopyWouldBeRenamed : kMsgMoveWouldBeRenamed, name, kMsgTo);
    }
    if (!name.empty()) Moved(false);
    return true;
  }

  bool Compare() {
    if (job_.EFSDelete == 1 && SameFile()) return true;
    const bool replace = CheckExist(s_.fs, s_.trap, src_, dest_,
                                    static_cast<std::int16_t>(job_.ExtFileTime), job_.EFSelect);
    if (replace) {
      if (SameFile()) return true;
      Report(Copying() ? kMsgWouldBeReplacedByNewerCopy : kMsgWouldBeReplacedByNewerMove, dest_,
             kMsgReplaces);
      Moved(true);
    } else {
      const bool known = job_.EFSelect >= 0 && job_.EFSelect <= 7;
      Report(known ? kMsgNotNewer + job_.EFSelect : kMsgFileExists, dest_, kMsgTo);
    }
    if (job_.EFSDelete == 1 && (Copying() || !replace)) {
      Report(kMsgWouldDelete);
      folders_.Gone(src_, job_, false);
    }
    return true;
  }

  Services& s_;
  job& job_;
  Kind kind_;
  const std::string& src_;
  FolderPreview& folders_;
  std::string dest_;
};

void DeletePreviewList(JobRun& run, Services& s, FileList& list, int msg,
                       const std::string& root) {
  const job& job = run.Job();
  s.Log(kMsgPreviewDelete, s.T(kMsgPreviewDelete) + root, true, true, false, false);
  actions::LogCount(s, list.size(), "");
  FolderPreview folders(s);
  s.ForEachFile(list, [&](const std::string& path) {
    if (path.empty()) return;
    s.Log(msg, s.T(msg) + path, true, true, false, false);
    if (job.Action == action::kSyncRemoval) run.previewReported.insert(actions::RelativeTo(path, job.To));
    folders.Gone(path, job, job.DelEFol == 1);
  });
  list.clear();
}

}  // namespace

void Preview(JobRun& run, Services& s, FileList& sArray, const std::string& mode) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job, "mode", mode);
  const Kind kind = mode == "Move" ? Kind::Move : Kind::Copy;
  const bool syncing = job.Action == action::kSync;
  if (syncing && run.syncPass == 2) {
    std::erase_if(sArray, [&](const std::string& file) {
      return run.previewReported.contains(actions::RelativeTo(file, job.From));
    });
  }
  const int head = kind == Kind::Copy ? kMsgPreviewCopy : kMsgPreviewMove;
  s.Log(head, s.T(head) + job.From, true, true, false, false);
  if (!sArray.empty()) {
    actions::LogCount(s, sArray.size(),
                      job.OnlyCompare == 1 ? " (" + s.T(kMsgOnlyExisting) + ")" : "");
  }
  FolderPreview folders(s);
  s.ForEachFile(sArray, [&](const std::string& src) {
    const FileSystem::StatusScope once(s.fs);
    const bool reported = FilePreview(s, job, kind, src, folders).Run();
    if (reported && syncing && run.syncPass == 1) {
      run.previewReported.insert(actions::RelativeTo(src, job.From));
    }
  });
  actions::LogSyncPassEnd(run, s, kind);
  sArray.clear();
}

void DeleteFilesPreview(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  DeletePreviewList(run, s, sArray, kMsgWouldDelete, run.Job().From);
}

void DeleteSyncFilesPreview(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  DeletePreviewList(run, s, sArray, kMsgSyncWouldDelete, run.Job().To);
}

}  // namespace orvKestrel
