// The zip facade: the archive operations the engine uses, under their names, on libzip.
//
// Writing. ZipFile and ZipAddFile stage a file in an archive that stays open across calls for
// the same path; the archive is written when Flush() commits it (or when a call names another
// archive). libzip writes a temporary file beside the archive and renames it into place, so an
// archive is either as it was or complete; a cancelled or failed commit leaves it as it was.
// A staged source is read at commit time, through one descriptor; a source that cannot be read
// or changes while it is read is left out of the archive (FailedSources()). Callers that delete
// sources must wait for a successful Flush() and delete only the files of WrittenSources(), and
// only while each is still the file that was read.
//
// What the values the engine passes mean here:
//
//   call / value                   meaning
//   -----------------------------  --------------------------------------------------------------
//   ZipFile mode, flags            The archive is created when missing, otherwise opened and
//   ZipAddFile mode                added to: entries already in it are always kept, and an entry
//     (0..7; 3; 4)                 of the same name from an earlier run is replaced; with mode 4
//                                  only when the source qualifies by the comparison StartZipRun
//                                  named (result 0 otherwise). An entry holds one time, its
//                                  modification time to the even second, which stands for the
//                                  time compared. Dropping an existing archive would lose the
//                                  entries of earlier runs whose sources are gone.
//   same entry name twice in one   The second file is refused (result 0, LastRefusal() says
//     run (StartZipRun)            why): replacing the entry would drop the first file while
//                                  its source may be deleted already.
//   password (ZipFile)             Non-empty: entries are written AES-256 encrypted. Kept for the
//                                  ZipAddFile calls that follow.
//   SetCompressionRate(rate)       Deflate level, clamped to 0..9; 0 stores.
//   SetWorkers(n)                  Threads that deflate a commit's entries ahead of the writer;
//                                  1 (default): libzip compresses each entry as it writes it.
//   SaveFolderLocation(base)       Entry name = the file's path below base, "/"-separated,
//                                  UTF-8; a file outside base keeps its path without the leading
//                                  "/". Entries carry the files' modification times.
//   UnZipEx overwriteMode          For a file that already exists in the destination:
//     0 (default), 2               keep the existing file (the entry is not extracted),
//     3                            replace it,
//     4                            replace it when the entry is newer than the file;
//                                  a kept entry is listed in Kept(). Never replaced, whatever
//                                  the mode: the archive being read, the archives named to
//                                  StartUnzipRun, what an extraction since then wrote.
//   UnZipEx keepFolders            0: every file flat into the destination; else stored folders.
//   UnZipEx filter                 Wildcards (* ?) against the entry's file name, without regard
//                                  to ASCII case; "*.*" and "*" take every file; several
//                                  patterns may be separated by ";".
//   CheckZipFile result            0 readable, 1 damaged or without files, 2 missing (only a
//                                  name that leads to no file), 3 not a zip
//                                  archive, 4 the password does not open the archive's encrypted
//                                  entries (missing or wrong: tested on the first encrypted
//                                  file, which costs one header check, not a decompression).
//
// Reading takes traditional (PKWARE) and AES entries (those without a CRC are authenticated by
// their code instead). Extraction never writes outside its destination: nothing below it is
// followed when it is a link; entries with an absolute path or a ".." component, links whose
// target leaves the destination once the links on its way are followed, and files whose folder
// below the destination is a link are refused and listed in Failures(); the rest is extracted.
// Nothing an extraction of the current run wrote is overwritten, nor the archive being read:
// such entries fail. Each file is written to a temporary name and renamed, so no partial file
// stands under an entry's name; it gets the entry's time.
#pragma once

#include "platform/FileSystem.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct zip;

namespace orvKestrel {
namespace zipahead {
class PackAhead;
}

class ZipLibrary {
 public:
  // Why an entry of the last UnZipEx was not extracted.
  struct EntryFailure {
    enum class Kind { Unsafe, Password, Damaged, Write };
    Kind kind;
    std::string entry;
    std::string reason;
  };

  // A file entry of the last UnZipEx that was not written although nothing failed: the policy
  // kept the file at path, or the filter did not take the entry.
  struct EntryKept {
    enum class Why { Exists, NotNewer, Filtered };
    Why why;
    std::string entry;
    std::string path;
  };
  // A source the last Flush left out, and why.
  struct SourceFailure {
    std::string source;
    std::string reason;
    bool operator==(const SourceFailure&) const = default;
  };
  // A source the last Flush wrote into the archive, as it was read.
  struct SourceRead {
    std::string source;
    FileIdentity read;
  };

  explicit ZipLibrary(FileSystem& fs);
  ~ZipLibrary();
  ZipLibrary(const ZipLibrary&) = delete;
  ZipLibrary& operator=(const ZipLibrary&) = delete;

  void InitZip();
  // A compression run begins: what it writes is never replaced by itself, and mode 4 compares
  // by ExtFileTime and EFSelect (Exist0..Exist7).
  void StartZipRun(std::int32_t extFileTime, std::int16_t selecter);
  // Whether this run has written (or staged) entries in the archive.
  bool WrittenThisRun(const std::string& archive);
  // The next archive staged at this path starts empty and replaces the file there when it is
  // committed (the policy that replaces an existing archive): until then the old one stays,
  // and a commit that fails, or writes nothing, leaves it.
  void ReplaceOnCommit(const std::string& archive) { replace_ = archive; }
  // Why the last ZipFile or ZipAddFile refused its file to keep what this run wrote; "" when
  // it did not refuse for that reason.
  const std::string& LastRefusal() const { return lastRefusal_; }
  void SetCompressionRate(std::int32_t rate);
  void SetWorkers(std::int32_t n) { workers_ = n < 1 ? 1 : n; }
  void SaveFolderLocation(const std::string& base);
  // 1: the file is staged in the archive; 0: it is not.
  std::int32_t ZipFile(const std::string& archive, const std::string& file,
                       const std::string& password, std::int32_t mode, std::int32_t flags);
  std::int32_t ZipAddFile(const std::string& archive, const std::string& file, std::int32_t mode,
                          std::int32_t flags);
  std::int32_t CheckZipFile(const std::string& archive, const std::string& password);
  // Files (not folders) in the archive; 0 when it cannot be opened.
  std::int32_t ZipFileCount(const std::string& archive);
  // Files extracted (links included, folders not).
  std::int32_t UnZipEx(const std::string& archive, const std::string& destination,
                       const std::string& filter, std::int32_t keepFolders,
                       const std::string& password, std::int32_t overwriteMode,
                       std::int32_t reserved);
  // Asks the operation in progress (a commit or an extraction) to stop. Safe from another
  // thread or a signal handler.
  void CancelZip();

  // Commits the open archive; true when it was written or none was open. With durable, the
  // written archive is flushed to disk before Flush returns (do so before deleting sources).
  bool Flush(bool durable = false);
  // The archive staged and not yet committed ("" when none).
  std::string OpenArchive() const;
  // Why the last Flush failed ("" when it did not).
  const std::string& FlushError() const { return flushError_; }
  // Sources of the last Flush that could not be read at commit time, or changed while they were
  // read, and were left out.
  const std::vector<SourceFailure>& FailedSources() const { return failedSources_; }
  const std::vector<SourceRead>& WrittenSources() const { return writtenSources_; }
  // Whether the last commit or extraction ended because of CancelZip.
  bool LastCancelled() const { return lastCancelled_; }
  // Entries of the last UnZipEx that were not extracted because of an error.
  const std::vector<EntryFailure>& Failures() const { return failures_; }
  const std::vector<EntryKept>& Kept() const { return kept_; }
  // The archive the last UnZipEx read, as it was when opened.
  const FileIdentity& ArchiveRead() const { return archiveRead_; }
  // Starts a run over these archives: none of them, and nothing an extraction of the run
  // writes, is replaced by an extraction of the run.
  void StartUnzipRun(const std::vector<FileIdentity>& sources);
  // Flushes everything the last UnZipEx wrote to disk (before its archive is deleted).
  void SyncExtracted();

 private:
  struct Session;
  Session* OpenSession(const std::string& archive);
  std::int32_t Stage(const std::string& archive, const std::string& file, bool compare);
  bool Qualifies(const std::string& file, struct zip* za, std::uint64_t index);
  std::string ArchiveKey(const std::string& archive);
  bool DropFailed(Session& s);
  void CountWritten(Session& s, bool readBack);
  bool Commit(bool durable);
  std::unique_ptr<zipahead::PackAhead> PackAheadFor(Session& s);
  bool PlaceStaged(Session& s);

  FileSystem& fs_;
  TempNames stagingNames_;  // the staging names beside the archives
  std::atomic<bool> cancel_{false};
  std::unique_ptr<Session> session_;
  std::int32_t rate_ = 6;
  std::int32_t workers_ = 1;
  std::string base_;
  std::string password_;
  std::string flushError_;
  std::vector<SourceFailure> failedSources_;
  std::vector<SourceRead> writtenSources_;
  std::set<std::string> entriesWritten_;  // archive key "\n" entry name, since StartZipRun
  std::string lastRefusal_;
  std::string replace_;
  std::int32_t extFileTime_ = 1;
  std::int16_t selecter_ = 0;
  bool lastCancelled_ = false;
  std::vector<EntryFailure> failures_;
  std::vector<EntryKept> kept_;
  FileIdentity archiveRead_;
  // Device and inode of what the run must not replace: its archives (true) and what it wrote.
  std::map<std::pair<std::uint64_t, std::uint64_t>, bool> written_;
  std::string lastDestination_;
};

}  // namespace orvKestrel
