// The way from the walk's list to the action: the filters in their fixed order, then the one
// procedure of the job's action (or its preview). The list is consumed on every way out.
#include "actions/Actions.h"
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
  Proc p(s.trap, "clsKestrel", "Sub ProcessFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (s.Stopped()) {
    sArray.clear();
    return;
  }
  s.Log(17, job.JobName + ": " + s.T(17), true, true, false, false);
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
  Proc p(s.trap, "clsKestrel", "Sub DoMoveCopySelection",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  s.Yield();
  if (s.Stopped()) {
    sArray.clear();
    return;
  }
  const bool preview = job.DoPreview != 0;
  const std::string name = job.JobName + ": ";
  switch (job.Action) {
    case action::kCopy:
      Announce(s, 18, name + s.T(18));
      preview ? Preview(run, s, sArray, "Copy") : CopyFiles(run, s, sArray);
      break;
    case action::kMove:
      Announce(s, 19, name + s.T(19));
      preview ? Preview(run, s, sArray, "Move") : MoveFiles(run, s, sArray);
      break;
    case action::kDelete:
      // The preview names the folder as the real run does.
      Announce(s, 20, name + s.T(20) + job.From);
      preview ? DeleteFilesPreview(run, s, sArray) : DeleteFiles(run, s, sArray);
      break;
    case action::kCompress:
      // The zip preview takes its mode ("Move" with ZipDelComp 1, else "Copy") from the job.
      Announce(s, 30, name + s.T(30));
      preview ? Zip_Preview(run, s, sArray) : Zip_Files(run, s, sArray);
      break;
    case action::kExtract:
      Announce(s, 70, name + s.T(70));
      UnZip_Files(run, s, sArray);  // it handles the preview itself
      break;
    case action::kSync:
      if (preview) {
        Announce(s, 91, name + s.T(91) + job.From);
      } else {
        Announce(s, 89, name + s.T(89) + job.From + s.T(90) + job.To);
      }
      preview ? Preview(run, s, sArray, "Copy") : CopyFiles(run, s, sArray);
      break;
    case action::kSyncRemoval:
      Announce(s, 96, name + s.T(96) + job.To);
      preview ? DeleteSyncFilesPreview(run, s, sArray) : DeleteSyncFiles(run, s, sArray);
      break;
    default:
      break;  // an unknown action is announced by nothing and does nothing
  }
  sArray.clear();
}

}  // namespace orvKestrel
