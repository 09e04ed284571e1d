// The preview of compression: the same walk over the same layouts, reporting what would be
// done. No archive is made, changed or deleted and no source file is deleted; only the brief
// attribute change of an exactly-hidden file is carried out (not in a dry run).
#include "engine/Engine.h"
#include "platform/Paths.h"
#include "zip/ZipCommon.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {
namespace {

using zipcommon::BaseFolder;

// Only Exist 1 previews deletions; ZipDelComp is not consulted here, on purpose.
void PreviewDeletion(Engine& e, const job& job, const std::string& file) {
  if (job.Exist == 1) e.Log(47, e.T(47) + file, true, true, false);
}

template <class P>
void PreviewAll(Engine& e, P& p, FileList& sArray, job& job) {
  std::string archive;
  if (!p.Do([&] { archive = e.GetZipFileNamePreview(job, "All"); })) return;
  if (archive.empty()) return;
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  e.zip->SaveFolderLocation(BaseFolder(sArray[0], job));
  PreviewDeletion(e, job, sArray[0]);
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    e.KestrelCounter(n, i);
    if (e.Stopped()) return;
    e.zip->SaveFolderLocation(BaseFolder(file, job));
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(e, p, file, saved)) return;
    if (!zipcommon::RestoreHidden(e, p, file, saved)) return;
    e.Log(51, e.T(51) + file + e.T(14) + archive, true, true, false);
    PreviewDeletion(e, job, file);
  }
}

template <class P>
void PreviewSingle(Engine& e, P& p, FileList& sArray, job& job) {
  const auto n = static_cast<std::int32_t>(sArray.size()) - 1;
  for (std::int32_t i = 0; i <= n; ++i) {
    const std::string& file = sArray[static_cast<std::size_t>(i)];
    if (e.Stopped()) return;
    e.KestrelCounter(n, i);
    e.zip->SaveFolderLocation(BaseFolder(file, job));
    std::string archive;
    if (!p.Do([&] { archive = e.GetZipFileNamePreview(job, "Single", file); })) return;
    if (archive.empty()) continue;
    std::uint32_t saved = 0;
    if (!zipcommon::ClearHidden(e, p, file, saved)) return;
    if (!zipcommon::RestoreHidden(e, p, file, saved)) return;
    e.Log(49, e.T(49) + file + e.T(14) + archive, true, true, false);
    PreviewDeletion(e, job, file);
  }
}

}  // namespace

void Engine::Zip_Preview(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub Zip_Preview",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  if (sArray.empty()) return;
  if (!zipcommon::LeaveOutOwnArchives(*this, sArray, job)) {
    noFiles = true;
    return;
  }
  if (!p.Do([&] { zip->SetCompressionRate(zipcommon::GradeValue(job.ZipGrade)); })) return;
  zipcommon::LogCount(*this, sArray.size());
  if (job.ZipAll == 0) {
    PreviewAll(*this, p, sArray, job);
  } else {
    PreviewSingle(*this, p, sArray, job);
  }
}

std::string Engine::GetZipFileNamePreview(job& job, const std::string& Mode,
                                          const std::string& sFile) {
  Proc p(trap, "clsKestrel", "Function GetZipFileNamePreview", [&] {
    return ParamText({{"job", kJobParam}, {"Mode", Mode}, {"sFile", Opt(sFile)}});
  });
  return zipcommon::ArchiveFor(*this, p, job, Mode, sFile, true);
}

}  // namespace orvKestrel
