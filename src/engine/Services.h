// What every part of a run shares, one per clsKestrel: the host and its events, the file system,
// the error trap, the catalogue, the zip library, the caller's switches and the stop flag, with
// the small helpers that every procedure uses to report and to yield.
#pragma once

#include <orvKestrel/clsKestrel.h>

#include "engine/Catalogue.h"
#include "errortrap/modFailSafeLITE.h"
#include "platform/FileSystem.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

namespace orvKestrel {

// The file list: full source paths, index 0 first. Empty = "not dimensioned".
using FileList = std::vector<std::string>;

class ZipLibrary;
class RegExpCache;
class DestinationMemo;

class Services {
 public:
  // faults: where a test makes file operations fail; none in a shipped run.
  explicit Services(Host host, FaultPoints* faults = nullptr);
  ~Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  void FireLogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                      bool bSameView, bool bIsLast = false);
  // Raises the event with both values + 1: callers pass zero-based positions.
  void KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile);
  // Lets the host's pending events run.
  void Yield();
  // The loaded catalogue text of "tN" and its number.
  const std::string& T(int n) const { return catalogue.Text(n); }
  std::int16_t Id(int n) const { return catalogue.Id(n); }
  // Raises a line with message n's number: the common case of every procedure.
  void Log(int n, const std::string& text, bool bView, bool bFile, bool bSameView,
           bool bIsLast = false) {
    FireLogMessage(text, Id(n), bView, bFile, bSameView, bIsLast);
  }
  bool Stopped() const { return stop.load(); }
  // The per-file loop of a list: for each file in order the progress event, the host's turn and
  // the stop test, then f(file). A stop ends the loop before the next file.
  template <class F>
  void ForEachFile(const FileList& list, F&& f) {
    const auto n = static_cast<std::int32_t>(list.size()) - 1;
    for (std::int32_t i = 0; i <= n; ++i) {
      KestrelCounter(n, i);
      Yield();
      if (Stopped()) return;
      f(list[static_cast<std::size_t>(i)]);
    }
  }

  Host host;
  IKestrelEvents* events = nullptr;
  FileSystem fs;  // the one shared file-system object
  FailSafe trap{host};
  Catalogue catalogue;
  std::unique_ptr<ZipLibrary> zip;
  std::unique_ptr<RegExpCache> regex;  // the run's pattern object; replaced by each Search
  std::unique_ptr<DestinationMemo> destinations;  // HandlePreviewFolders's last answer

  std::atomic<bool> stop{false};
  std::atomic<bool> zipping{false};
  bool noSizeCheck = false;
  std::int32_t jobs = 1;  // worker threads of a run; 1 starts none
  bool dryRun = false;
  bool filterRegExp = false;  // the caller's regular-expression switch
  // The free-space check's last answer. It outlives the job on purpose: a replacing check
  // without a destination repeats it, also for the first file of the next job.
  bool lastNoRoom = false;
  // The files that copies and moves of the current call placed, by device and inode (whatever
  // path text or link reaches them): never replaced, nor a reason to delete another source, by
  // the same call. Kept here, not per job, because two jobs of one call into one folder must not
  // undo each other either.
  std::unordered_set<FileKey, FileKey::Hash> writtenThisRun;
};

}  // namespace orvKestrel
