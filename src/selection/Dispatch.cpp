// The way from the walk's list to the action: the filters in their fixed order, then the one
// procedure of the job's action (or its preview). The list is consumed on every way out.
#include "actions/Actions.h"
#include "engine/Traced.h"
#include "jobs/JobCodes.h"
#include "selection/Selection.h"
#include "zip/Zip.h"

namespace orvKestrel {
namespace {

using Filter = FileList (*)(Services&, FileList&, job&);

// A progress line in the host's view that replaces the previous one and is not logged to file.
void Announce(Services& s, int n, const std::string& text) {
  s.Log(n, text, true, false, true, false);
}

}  // namespace

bool SetsFileTimes(const job& job) {
  return job.DestTCreated == 1 || job.DestTModified == 1 || job.DestTAccess == 1;
}

void ProcessFiles(JobRun& run, Services& s, FileList& sArray) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (s.Stopped()) {
    sArray.clear();
    return;
  }
  s.Log(kMsgChecking, job.JobName + ": " + s.T(kMsgChecking), true, true, false, false);
  if (s.Stopped()) {
    sArray.clear();
    return;
  }
  // Extraction works on zip archives alone, so their filter comes first.
  const Filter chain[] = {&FilterZip, &FilterExtention, &FilterFileSize, &FilterAttributes,
                          &FilterDate};
  for (const Filter filter : chain) {
    if (filter == &FilterZip && job.Action != action::kExtract) continue;
    FileList survivors = filter(s, sArray, job);
    sArray = std::move(survivors);
    if (s.Stopped()) {
      sArray.clear();
      return;
    }
    if (sArray.empty()) {
      run.noFiles = true;
      return;
    }
  }
  DoMoveCopySelection(run, s, sArray);
  sArray.clear();
}

void DoMoveCopySelection(JobRun& run, Services& s, FileList& sArray) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  s.Yield();
  if (s.Stopped()) {
    sArray.clear();
    return;
  }
  const bool preview = job.DoPreview != 0;
  const std::string name = job.JobName + ": ";
  switch (job.Action) {
    case action::kCopy:
      Announce(s, kMsgCopying, name + s.T(kMsgCopying));
      preview ? Preview(run, s, sArray, "Copy") : CopyFiles(run, s, sArray);
      break;
    case action::kMove:
      Announce(s, kMsgMoving, name + s.T(kMsgMoving));
      preview ? Preview(run, s, sArray, "Move") : MoveFiles(run, s, sArray);
      break;
    case action::kDelete:
      // The preview names the folder as the real run does.
      Announce(s, kMsgDeletingFrom, name + s.T(kMsgDeletingFrom) + job.From);
      preview ? DeleteFilesPreview(run, s, sArray) : DeleteFiles(run, s, sArray);
      break;
    case action::kCompress:
      // The zip preview takes its mode ("Move" with ZipDelComp 1, else "Copy") from the job.
      Announce(s, kMsgCompressingCopy, name + s.T(kMsgCompressingCopy));
      preview ? Zip_Preview(run, s, sArray) : Zip_Files(run, s, sArray);
      break;
    case action::kExtract:
      Announce(s, kMsgExtracting, name + s.T(kMsgExtracting));
      UnZip_Files(run, s, sArray);  // it handles the preview itself
      break;
    case action::kSync:
      if (preview) {
        Announce(s, kMsgPreviewSync, name + s.T(kMsgPreviewSync) + job.From);
      } else {
        Announce(s, kMsgSynchronising,
                 name + s.T(kMsgSynchronising) + job.From + s.T(kMsgWith) + job.To);
      }
      preview ? Preview(run, s, sArray, "Copy") : CopyFiles(run, s, sArray);
      break;
    case action::kSyncRemoval:
      Announce(s, kMsgDeletingFromSecondary, name + s.T(kMsgDeletingFromSecondary) + job.To);
      preview ? DeleteSyncFilesPreview(run, s, sArray) : DeleteSyncFiles(run, s, sArray);
      break;
    default:
      break;  // an unknown action is announced by nothing and does nothing
  }
  sArray.clear();
}

}  // namespace orvKestrel
