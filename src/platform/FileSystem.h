// The engine's one file-system object. Every file operation of a run goes through it, so that
// tests can make operations fail at named points (FaultPoints). Failing operations throw
// KestrelError (errno + text). What it remembers of the disk between calls, and forgets at
// every change it makes, is its StatusCache.
// The implementation is split by service: one .cpp per service in this folder.
#pragma once

#include "platform/ErrorOr.h"
#include "platform/FaultPoints.h"
#include "platform/PathStatus.h"
#include "platform/StatusCache.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvKestrel {

// Attribute bits as the jobs know them.
inline constexpr std::uint32_t kAttrReadOnly = 1;
inline constexpr std::uint32_t kAttrHidden = 2;
inline constexpr std::uint32_t kAttrSystem = 4;
inline constexpr std::uint32_t kAttrDirectory = 16;
inline constexpr std::uint32_t kAttrArchive = 32;
inline constexpr std::uint32_t kAttrCompressed = 2048;

struct DirEntry {
  std::string name;
  bool isDir = false;  // a real folder; a link to a folder is neither a folder nor a file here
  bool isLink = false;
  bool isOther = false;  // a device, pipe or socket: never a file of a job
};

// The entries of folder path but "." and ".."; nothing, with errno set, when it cannot be listed.
// FileSystem::ListFolder without the faults a test arranged: for threads of their own.
std::optional<std::vector<DirEntry>> ReadFolder(const std::string& path);
// The same for the folder open as folder (an O_PATH descriptor will do).
std::optional<std::vector<DirEntry>> ReadFolderAt(int folder);

// Whether the folder open as folder tells names apart by their bytes (folds no case), as far as
// its file system is known to; false when in doubt.
bool NamesByBytes(int folder);

// True for the names of the engine's own temporary files: ".kestrel-<16 hex>.tmp" (a copy, a
// replaced small file, an extracted entry, an archive being written; with ".XXXXXX" added:
// libzip's temporary of that archive), and the forms that earlier versions used. Renamed into
// place when complete, they remain only where a run was killed, and a walk must not take them
// for files of a job.
bool IsEngineTemporary(std::string_view name);

// A file as such: the same key for every path, link or hard link that reaches it.
struct FileKey {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  explicit FileKey(const FileIdentity& id) : device(id.device), inode(id.inode) {}
  bool operator==(const FileKey&) const = default;
  struct Hash {
    std::size_t operator()(const FileKey& k) const noexcept {
      return std::hash<std::uint64_t>{}(k.inode ^ (k.device * 0x9E3779B97F4A7C15ULL));
    }
  };
};

// A copy as made: the source as it was read, for a verified deletion of it afterwards, and the
// new file itself, whatever name leads to it later.
struct CopiedFile {
  FileIdentity read;
  FileKey written;
};

// A destination folder opened beneath the job's destination: what is written through it stays
// inside, whatever links were planted on the way. Closes its descriptor with the object.
class DestFolder {
 public:
  DestFolder(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~DestFolder();
  DestFolder(const DestFolder&) = delete;
  DestFolder& operator=(const DestFolder&) = delete;
  int fd() const { return fd_; }
  const std::string& path() const { return path_; }  // as text, for messages
  // Whether two names of this folder are the same file only when their bytes are the same
  // (apart from ASCII capitals, which some such file systems fold): false where a file system
  // may fold case or normalise, or where it cannot be told. Asked once, by the run's thread.
  bool ExactNames() const;

 private:
  int fd_;
  std::string path_;
  mutable std::optional<bool> exactNames_;
};

// Names for the temporary file beside a destination, ".kestrel-<16 hex>.tmp": one random draw
// per object, then a counter (a name taken meanwhile is simply skipped by the caller).
class TempNames {
 public:
  std::string Next();
  bool UnnamedPossible();  // whether a file written without a name can be linked here

 private:
  std::uint64_t base_ = 0;
  std::uint64_t count_ = 0;
  bool seeded_ = false;
  std::optional<bool> unnamed_;
};

// A regular file opened once for reading: everything read of it comes through this one
// descriptor, and Finish tells whether it stayed as it was opened.
class SourceFile {
 public:
  SourceFile(SourceFile&& other) noexcept;
  SourceFile& operator=(SourceFile&&) = delete;
  SourceFile(const SourceFile&) = delete;
  ~SourceFile();
  // Up to n bytes; 0 at the end. Throws.
  std::size_t Read(char* buf, std::size_t n);
  // The file as it was read. Throws (EAGAIN) when it changed while it was read: its size,
  // modification or change time differ from those it was opened with, or its length is not
  // what was read.
  FileIdentity Finish();
  const FileIdentity& Opened() const { return opened_; }

 private:
  friend class FileSystem;
  SourceFile(FaultPoints* faults, int fd, const FileIdentity& opened, std::string path);
  FaultPoints* faults_;
  int fd_;
  std::string path_;  // for messages
  FileIdentity opened_;
  std::uint64_t read_ = 0;
};

class ContainedFolder;
class PreparedCopy;
class FolderReadAhead;

class FileSystem {
 public:
  // faults: where a test makes operations fail; none in a shipped run.
  explicit FileSystem(FaultPoints* faults = nullptr) : faults_(faults) {}
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;

  // The error a test arranged for op, or 0: for the steps that a library does with its own
  // calls (the zip library writes its archives itself).
  int Injected(FaultOp op) { return orvKestrel::Injected(faults_, op); }
  // The same for workers that make their own calls (copies made ahead).
  FaultPoints* Faults() const { return faults_; }

  // While a scope is alive the status of a path is read from the disk once: the steps for one
  // file ask about the same two paths several times. Any change made through this object
  // forgets what was read.
  class StatusScope {
   public:
    explicit StatusScope(FileSystem& fs) : cache_(fs.cache_) { cache_.Enter(); }
    ~StatusScope() { cache_.Leave(); }
    StatusScope(const StatusScope&) = delete;
    StatusScope& operator=(const StatusScope&) = delete;

   private:
    StatusCache& cache_;
  };

  // How many changes were made through this object; a status read while it stayed the same is
  // still what the run itself left there. Safe to read from any thread.
  std::uint64_t Changes() const { return cache_.Changes(); }
  // How many of those changes may have changed which folder a path names (see StatusCache).
  std::uint64_t FolderChanges() const { return cache_.FolderChanges(); }
  // A status a worker looked up when Changes() was `changes`: taken as read by this object
  // inside the current scope, unless the run has changed something since.
  void Seed(std::uint64_t changes, PathStatus status) { cache_.Seed(changes, std::move(status)); }
  // Look-ups dated before this count are stale, whatever their paths (see StatusCache).
  std::uint64_t DatedFrom() const { return cache_.DatedFrom(); }
  // What the current scope looked up for path, if anything.
  const PathStatus* Known(const std::string& path) const { return cache_.Known(path); }

  // --- queries (Folders.cpp) ---
  bool FileExists(const std::string& path);    // a regular file (links followed)
  bool FolderExists(const std::string& path);  // a folder (links followed)
  // FolderExists, but a folder found less than a second ago that nothing of this object has
  // removed or renamed since is taken as still there: the files of one folder mostly go to one
  // folder.
  bool FolderStillExists(const std::string& path);
  // The entries of a folder in the order the file system gives them, without "." and "..";
  // nullopt when the folder cannot be opened.
  // ahead: the walk's listings read in advance, taken when path is among them.
  std::optional<std::vector<DirEntry>> ListFolder(const std::string& path,
                                                  FolderReadAhead* ahead = nullptr);
  ErrorOr<FileStat> Stat(const std::string& path);  // an error when missing
  std::uint64_t FolderSize(const std::string& path);  // all files below, recursively
  bool FolderIsEmpty(const std::string& path);         // no entry at all, hidden ones included
  void CreateFolder(const std::string& path);          // one level; throws when it exists

  // --- contents (FileContents.cpp) ---
  std::optional<std::string> ReadFile(const std::string& path);  // nullopt when missing
  std::string ReadHead(const std::string& path, std::size_t n);  // throws when unreadable
  // A settings file (job, language): nullopt when missing; throws KestrelError when it is no
  // regular file or holds more than limit bytes, so that a device, a pipe or a huge file can
  // neither hang a run nor fill the memory.
  std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t limit);
  // Writes a temporary file beside path, flushes it and renames it over path.
  void WriteFileAtomic(const std::string& path, const std::string& data);

  // --- attributes (Attributes.cpp) ---
  std::uint32_t GetAttributes(const std::string& path);
  void SetAttributes(const std::string& path, std::uint32_t attrs);

  // --- times (FileTimes.cpp) ---
  FileTimes GetTimes(const std::string& path);
  ErrorOr<FileTimes> TryGetTimes(const std::string& path);  // an error when unreadable
  // Sets last access and last write; the creation time cannot be set here and is left as it is.
  void SetTimes(const std::string& path, std::time_t accessed, std::time_t written);

  // --- transfers (Transfers.cpp) ---
  // Contents, permission bits and the last-write time; never a partial file under dest's name.
  CopiedFile CopyFile(const std::string& source, const std::string& dest, bool overwrite);
  // rename; across file systems a flushed copy with all times, then removal of the source only
  // while it is still the file that was copied. An existing destination is an error.
  void MoveFile(const std::string& source, const std::string& dest);
  // The same three, for the file name in a folder opened beneath a destination.
  // ready: the copy a worker made ahead (Prefetch.h), taken only while the source is still the
  // file it was made from; else the copy is made here as without it.
  CopiedFile CopyFile(const std::string& source, const DestFolder& folder,
                      const std::string& name, bool overwrite, PreparedCopy* ready = nullptr);
  void MoveFile(const std::string& source, const DestFolder& folder, const std::string& name,
                PreparedCopy* ready = nullptr);
  void DeleteFile(const DestFolder& folder, const std::string& name, bool force);

  // --- contained destinations (Beneath.cpp) ---
  // The folder root/sub, reached from root (taken as named) without following any link below
  // it; with create, missing levels are made on the way. A level that is a link or no folder is
  // refused (ELOOP), naming it.
  // The folder at path, made with its parents when missing, for writes contained below it
  // (extraction; Contained.h).
  ContainedFolder OpenContained(const std::string& path);
  std::shared_ptr<const DestFolder> OpenBeneath(const std::string& root, const std::string& sub,
                                                bool create);
  // For a preview: the error of the first level of root/sub that such an opening would refuse (a
  // link or no folder); nothing when none (a missing level would be made).
  std::optional<KestrelError> RefusedBeneath(const std::string& root, const std::string& sub);
  // Counts the folders removed through this object: a folder opened before may be gone.
  std::uint64_t FolderRemovals() const { return folderRemovals_; }
  void DeleteFile(const std::string& path, bool force);  // force also removes read-only files
  // The file path names now (links followed); throws when missing.
  FileIdentity Identify(const std::string& path);
  // A regular file opened for reading (never blocking on a pipe); throws. It and the
  // SourceFile touch nothing of this object but its fault points, so workers may call it at once
  // (a test's fault points must then be safe for threads).
  SourceFile OpenToRead(const std::string& path);
  // DeleteFile, but only while path still names the file `was` describes: a source is removed
  // after its action only when nothing replaced or changed it since it was read. Else throws
  // (EAGAIN) and the file stays.
  void DeleteVerified(const std::string& path, const FileIdentity& was, bool force);
  void DeleteFolder(const std::string& path, bool force);  // with everything inside
  void RemoveFolder(const std::string& path);  // an empty folder only
  // Both paths reach one file (same device and inode: the same path, a link, a hard link, a bind
  // mount): replacing or deleting the one may destroy the other.
  bool SameFile(const std::string& a, const std::string& b);

  // --- recycle bin (Trash.cpp) ---
  // Refuses a file that lies in the trash it would go to.
  void Trash(const std::string& path);
  // Whether the folder path (named name in its parent) is a trash: the home trash, or a
  // ".Trash" or ".Trash-<uid>" at the top of a file system. Told by identity and position; only
  // a folder with such a name costs a look.
  bool IsTrashFolder(const std::string& path, std::string_view name);

  // --- drives (Drives.cpp) ---
  std::string DriveName(const std::string& path);    // the mount point that holds path
  // For unprivileged users; an error when the file system cannot be asked. A figure read less
  // than a second ago for the same path is reused while nothing was written through this object:
  // a long run of files that need no copy asks once.
  ErrorOr<std::int64_t> FreeBytes(const std::string& path);
  bool SameDrive(const std::string& a, const std::string& b);

 private:
  // Throws the armed fault, as the error of call on path.
  void Gate(FaultOp op, const char* call, const std::string& path);
  // To the end; more than limit bytes throws. path: the file's, for errors.
  std::string ReadAll(int fd, const std::string& path, std::size_t limit);
  ErrorOr<std::shared_ptr<const DestFolder>> TryOpenBeneath(const std::string& root,
                                                            const std::string& sub, bool create);
  // Held by every operation that changes the disk.
  using Changing = StatusCache::Change;

  // dir's path is where ("" for AT_FDCWD), for errors.
  // exactNames: dir compares names by their bytes (DestFolder::ExactNames).
  CopiedFile CopyAt(const std::string& source, int dir, const std::string& where,
                    const std::string& folder, const std::string& name, bool overwrite,
                    PreparedCopy* ready = nullptr, bool exactNames = false);
  // Whether path, as the run would find it now, is still the file that was read.
  bool FoundAsRead(const std::string& path, const FileIdentity& read);
  void MoveAt(const std::string& source, int dir, const std::string& where,
              const std::string& folder, const std::string& name, PreparedCopy* ready = nullptr);

  FaultPoints* faults_;
  TempNames tempNames_;
  std::uint64_t folderRemovals_ = 0;
  StatusCache cache_;
};

// Removes a temporary that a killed run left (IsEngineTemporary names only, plain files only).
// Only a run that holds its job folder's lock may call it: then no run of these jobs is writing
// one. Returns whether it was removed; one that cannot be removed stays, skipped by every walk.
bool RemoveLeftover(FileSystem& fs, const std::string& folder, const DirEntry& entry);
// RemoveLeftover for every entry of folder.
void RemoveEngineTemporaries(FileSystem& fs, const std::string& folder);

}  // namespace orvKestrel
