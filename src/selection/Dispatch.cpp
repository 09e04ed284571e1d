// The way from the walk's list to the action: the filters in their fixed order, then the one
// procedure of the job's action (or its preview). The list is consumed on every way out.
#include "engine/Engine.h"

namespace orvKestrel {
namespace {

using Filter = FileList (Engine::*)(FileList&, job&);

// A progress line in the host's view that replaces the previous one and is not logged to file.
void Announce(Engine& e, int n, const std::string& text) {
  e.Log(n, text, true, false, true, false);
}

}  // namespace

void Engine::ProcessFiles(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub ProcessFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (Stopped()) {
    sArray.clear();
    return;
  }
  Log(17, job.JobName + ": " + T(17), true, true, false, false);
  if (Stopped()) {
    sArray.clear();
    return;
  }
  // Extraction works on zip archives alone, so their filter comes first.
  const Filter chain[] = {&Engine::FilterZip, &Engine::FilterExtention, &Engine::FilterFileSize,
                          &Engine::FilterAttributes, &Engine::FilterDate};
  for (const Filter filter : chain) {
    if (filter == &Engine::FilterZip && job.Action != 4) continue;
    FileList survivors = (this->*filter)(sArray, job);
    sArray = std::move(survivors);
    if (Stopped()) {
      sArray.clear();
      return;
    }
    if (sArray.empty()) {
      noFiles = true;
      return;
    }
  }
  DoMoveCopySelection(sArray, job);
  sArray.clear();
}

void Engine::DoMoveCopySelection(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub DoMoveCopySelection",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  Yield();
  if (Stopped()) {
    sArray.clear();
    return;
  }
  const bool preview = job.DoPreview != 0;
  const std::string name = job.JobName + ": ";
  auto setFileTime = [&] {
    fileTime = job.DestTCreated == 1 || job.DestTModified == 1 || job.DestTAccess == 1;
  };
  switch (job.Action) {
    case 0:
      Announce(*this, 18, name + T(18));
      setFileTime();
      preview ? Preview(sArray, job, "Copy") : CopyFiles(sArray, job);
      break;
    case 1:
      Announce(*this, 19, name + T(19));
      setFileTime();
      preview ? Preview(sArray, job, "Move") : MoveFiles(sArray, job);
      break;
    case 2:
      // The preview names the folder as the real run does.
      Announce(*this, 20, name + T(20) + job.From);
      preview ? DeleteFilesPreview(sArray, job) : DeleteFiles(sArray, job);
      break;
    case 3:
      // The zip preview takes its mode ("Move" with ZipDelComp 1, else "Copy") from the job.
      Announce(*this, 30, name + T(30));
      preview ? Zip_Preview(sArray, job) : Zip_Files(sArray, job);
      break;
    case 4:
      Announce(*this, 70, name + T(70));
      UnZip_Files(sArray, job);  // it handles the preview itself
      break;
    case 5:
      if (preview) {
        Announce(*this, 91, name + T(91) + job.From);
      } else {
        Announce(*this, 89, name + T(89) + job.From + T(90) + job.To);
      }
      setFileTime();
      preview ? Preview(sArray, job, "Copy") : CopyFiles(sArray, job);
      break;
    case 22:
      Announce(*this, 96, name + T(96) + job.To);
      preview ? DeleteSyncFilesPreview(sArray, job) : DeleteSyncFiles(sArray, job);
      break;
    default:
      break;  // an unknown action is announced by nothing and does nothing
  }
  sArray.clear();
}

}  // namespace orvKestrel
