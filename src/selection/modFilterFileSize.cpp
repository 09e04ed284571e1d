// The size filter: 1 keeps files strictly larger than FileSize, 2 strictly smaller ones.
#include "engine/Traced.h"
#include "selection/FilterLoop.h"
#include "selection/Selection.h"

namespace orvKestrel {

FileList FilterFileSize(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (job.FileOpt != 1 && job.FileOpt != 2) return std::move(sArray);
  const bool larger = job.FileOpt == 1;
  return KeepFiles(s, sArray, larger, [&](const std::string& file) -> std::optional<bool> {
    double length = 0;
    // A file that vanished since the walk is not tested and stays (when the trap goes on).
    bool read = false;
    if (!p.Do([&] {
          length = static_cast<double>(s.fs.Stat(file).Value().size);
          read = true;
        })) {
      return std::nullopt;
    }
    if (!read) return true;
    return larger ? length > job.FileSize : length < job.FileSize;
  });
}

}  // namespace orvKestrel
