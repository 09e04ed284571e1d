// The preview of compression: the same walk over the same layouts, reporting what would be
// done. No archive is made, changed or deleted and no source file is deleted; only the brief
// attribute change of an exactly-hidden file is carried out (not in a dry run).
#include "actions/Actions.h"
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "selection/Selection.h"
#include "zip/Zip.h"
#include "zip/ZipCommon.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {
namespace {

using zipcommon::BaseFolder;

// Only Exist 1 previews deletions; ZipDelComp is not consulted here, on purpose.
void PreviewDeletion(Services& s, const job& job, const std::string& file) {
  if (job.Exist == 1) s.Log(kMsgWouldDelete, s.T(kMsgWouldDelete) + file, true, true, false);
}

template <class P>
void PreviewAll(Services& s, P& p, FileList& sArray, job& job) {
  std::string archive;
  if (!p.Do([&] { archive = GetZipFileNamePreview(s, job, "All"); })) return;
  if (archive.empty()) return;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  s.zip->SaveFolderLocation(BaseFolder(sArray[0], job));
  PreviewDeletion(s, job, sArray[0]);
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    s.KestrelCounter(n, i);
    if (s.Stopped()) return;
    s.zip->SaveFolderLocation(BaseFolder(file, job));
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(s, p, file, saved)) return;
    if (!zipcommon::RestoreHidden(s, p, file, saved)) return;
    s.Log(kMsgWouldAdd, s.T(kMsgWouldAdd) + file + s.T(kMsgTo) + archive, true, true, false);
    PreviewDeletion(s, job, file);
  }
}

template <class P>
void PreviewSingle(Services& s, P& p, FileList& sArray, job& job) {
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    if (s.Stopped()) return;
    s.KestrelCounter(n, i);
    s.zip->SaveFolderLocation(BaseFolder(file, job));
    std::string archive;
    if (!p.Do([&] { archive = GetZipFileNamePreview(s, job, "Single", file); })) return;
    if (archive.empty()) continue;
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(s, p, file, saved)) return;
    if (!zipcommon::RestoreHidden(s, p, file, saved)) return;
    s.Log(kMsgZipWouldBeCreated, s.T(kMsgZipWouldBeCreated) + file + s.T(kMsgTo) + archive, true,
          true, false);
    PreviewDeletion(s, job, file);
  }
}

}  // namespace

void Zip_Preview(JobRun& run, Services& s, FileList& sArray) {
  job& job = run.Job();
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (sArray.empty() || !zipcommon::BeginZip(run, s, p, sArray)) return;
  zipcommon::LogCount(s, sArray.size());
  if (job.ZipAll == 0) {
    PreviewAll(s, p, sArray, job);
  } else {
    PreviewSingle(s, p, sArray, job);
  }
}

std::string GetZipFileNamePreview(Services& s, job& job, const std::string& Mode,
                                  const std::string& sFile) {
  Proc p(s.trap, Traced(__func__), "job", job, "Mode", Mode, "sFile", Optional(sFile));
  return zipcommon::ArchiveFor(s, p, job, Mode, sFile, true);
}

}  // namespace orvKestrel
