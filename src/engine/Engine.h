// The engine object behind clsKestrel: its state and all its procedures. The procedures are
// defined by role across src/engine, src/selection, src/actions and src/zip (one .cpp each).
// Internal header: tests of this project use it directly.
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

class Engine {
 public:
  explicit Engine(Host host);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // ----- public members and events (engine/clsKestrel.cpp, engine/Engine.cpp) -----
  // May run on another thread than the run (it then calls host.yield on that thread), and in a
  // signal handler only when host.yield is unset or safe there too.
  void StopMsg(bool bStop);
  void FireLogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                      bool bSameView, bool bIsLast = false);
  void FireCurrentJob(const std::string& sFileName, std::int32_t lIndex, std::int32_t lCounter,
                      std::int16_t iStatus, std::int16_t IntervalType = 0,
                      std::int16_t IntervalTimeType = 0, const std::string& IntervalTime = "",
                      const std::string& IntervalDate = "", std::int16_t IntervalWeekDay = 0,
                      std::int16_t IntervalMonthDay = 0);
  // Raises the event with both values + 1: callers pass zero-based positions.
  void KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile);
  // Lets the host's pending events run.
  void Yield();
  // The loaded catalogue text of "tN" and its number.
  const std::string& T(int n) const { return catalogue.Text(n); }
  std::int16_t Id(int n) const { return catalogue.Id(n); }
  // Raises a line with message n's number: the common case of every Part.
  void Log(int n, const std::string& text, bool bView, bool bFile, bool bSameView,
           bool bIsLast = false) {
    FireLogMessage(text, Id(n), bView, bFile, bSameView, bIsLast);
  }
  bool Stopped() const { return stop.load(); }

  // ----- run driver (engine/RunDriver.cpp) -----
  void ExecuteAllJobs(const std::string& sJobDir, const std::string& sLanguagePath, bool bVerbose,
                      bool bDoPreview, bool bFilterRegExp);
  void ExecuteOneJob(const std::string& sFile, const std::string& sJobDir,
                     const std::string& sLanguagePath, bool bStartInactive, bool bFilterRegEx);
  JobState CheckStatus(job& job, const std::string& sDel);
  void ExecuteSingleJob(job& job, const std::string& sJobDir, const std::string& sLanguagePath,
                        bool bStartInactive, bool bVerbose);
  // The job reader with this engine's error trap and host.
  std::vector<job> GetJobs(const std::string& sJobDir, const std::string& sFile = "");
  // Writes into m_sCurrJobFile; nothing in a dry run.
  void WriteJobString(const std::string& section, const std::string& Name,
                      const std::string& Value);
  void RunExternalProgram(job& job);  // clsCmd::ShellAndWait unless dry run
  // A job of the current call ended "(mit Fehler)"; unlike jobError, cleared by every call.
  bool jobEndedWithError = false;
  // Clears what one call of ExecuteAllJobs or ExecuteOneJob remembers.
  void BeginCall();
  bool jobFileUnreadable = false;  // the last GetJobs stopped at a file it could not read

  // ----- schedules and free space (engine/Scheduling.cpp) -----
  bool CheckDailyInterval(std::string& sIntState, std::string& sTime);
  bool CheckWeeklyInterval(std::string& sIntState, std::string& sTime, std::int16_t& iWeekDay);
  bool CheckMonthlyInterval(std::string& sIntState, std::string& sTime, std::int16_t& iMonthDay);
  bool CheckDateInterval(std::string& sIntState, std::string& sTime, std::string& sExeDate);
  bool CheckFreeSpace(std::int32_t& FreeSpaceLimit, const std::string& sPath);

  // ----- catalogue (engine/Catalogue.cpp) -----
  void LoadLogMessages(const std::string& sLanguagePath);
  void SetMsgIDs();

  // ----- folder walk and patterns (selection/Search.cpp, selection/Patterns.cpp) -----
  void Search(job& job, bool bAll, bool bOpposite);
  void FindFiles(const std::string& vsFolderPath, const std::string& vsSearch,
                 bool bSearchInFolder, job& job);
  void GetFilesInFolder(const std::string& vsFolderPath, const std::string& vsSearch, job& job);
  std::string CleanFolderPattern(std::string& sPattern, bool bUseRegEx);
  std::string CleanFilePattern(std::string& sPattern, bool bUseRegEx);
  std::string HandleFolders(const std::string& sArrayStr, job& job);
  std::string HandlePreviewFolders(const std::string& sArrayStr, job& job);

  // ----- filters (selection/modFilter*.cpp) -----
  // Each returns the files that pass, in order, and consumes its argument; an empty result sets
  // the no-files flag.
  FileList FilterZip(FileList& sArray, job& job);
  FileList FilterExtention(FileList& sArray, job& job);
  FileList FilterFileSize(FileList& sArray, job& job);
  FileList FilterAttributes(FileList& sArray, job& job);
  FileList FilterDate(FileList& sArray, job& job);

  // ----- dispatch (selection/Dispatch.cpp) -----
  void ProcessFiles(FileList& sArray, job& job);
  void DoMoveCopySelection(FileList& sArray, job& job);

  // ----- synchronisation (selection/Sync.cpp) -----
  void SearchSync(job& job, bool bAll);  // the Action 5 branch of Search
  void CheckSync(job& job);
  void FileCleanUp(job& job, bool bAll);
  static bool CheckSyncArray(const FileList& arr) { return !arr.empty(); }

  // ----- file times and attributes (selection/modFileTime.cpp, selection/modFilterAttribute.cpp)
  bool ReadSourceFileTime(const std::string& lpFileName);
  bool ReadDestFileTime(const std::string& lpFileName);
  bool WriteFileTime(const std::string& lpFileName, job& job);
  void SetDestAttributes(const std::string& sFile, job& job);
  void SetSourceAttributes(const std::string& sFile, job& job);
  void SetAttribute(std::uint32_t attr, const std::string& sFile);
  void UnsetAttribute(std::uint32_t attr, const std::string& sFile);

  // The first time a job writes into a folder, the temporaries that a killed run left there are
  // removed: the job folder's lock is held, so no run of these jobs is writing one.
  void TidyFolder(const std::string& folder);

  // ----- copy and move (actions/CopyFiles.cpp, actions/MoveFiles.cpp) -----
  void CopyFiles(FileList& sArray, job& job);
  void MoveFiles(FileList& sArray, job& job);
  std::string GetValidPathName(job& job, const std::string& sSourcePath, bool bIsZip);
  // The per-file free-space check: true when there is NOT enough room (the file is skipped).
  bool NoRoomFor(const std::string& source, const std::string& op, const std::string& dest,
                 bool replacing);

  // ----- delete and folder clean-up (actions/Delete.cpp) -----
  // failure, when given, receives why the recycle did not happen.
  bool Kill(const std::string& Files, std::string* failure = nullptr);
  void DeleteSourceFile(const std::string& sArray, job& job);
  // DeleteSourceFile, but a permanent deletion happens only while the path still names the
  // file as seen.
  void DeleteSourceFileAsSeen(const std::string& sArray, job& job, const FileIdentity& seen);
  void DeleteZipSourceFile(const std::string& sArray, job& job);
  // Only while sArray is still the file as it was read; true when it was deleted.
  bool DeleteZipSourceVerified(const std::string& sArray, const FileIdentity& read, job& job);
  void DeleteFile(const std::string& sArray, job& job);
  void DeleteFiles(FileList& sArray, job& job);
  void DeleteSyncFiles(FileList& sArray, job& job);
  void CheckEmptyFolder(const std::string& sPath, job& job);
  // Removes emptied folders upwards from the parent of a deleted file, never From itself.
  void RemoveEmptyFolders(const std::string& deletedFile, job& job);

  // ----- previews of copy, move and delete (actions/Preview.cpp) -----
  void Preview(FileList& sArray, job& job, const std::string& mode);
  void DeleteFilesPreview(FileList& sArray, job& job);
  void DeleteSyncFilesPreview(FileList& sArray, job& job);

  // ----- zip (zip/Compression.cpp, zip/Decompression.cpp, zip/ZipPreview.cpp) -----
  void Zip_Files(FileList& sArray, job& job);
  std::string GetZipFileName(job& job, const std::string& Mode, const std::string& sFile = "");
  void UnZip_Files(FileList& sArray, job& job);
  std::int32_t UnZipFile(const std::string& sZipFile, job& job, const std::string& sDestPath);
  void Zip_Preview(FileList& sArray, job& job);
  std::string GetZipFileNamePreview(job& job, const std::string& Mode,
                                    const std::string& sFile = "");

  // ----- state (the engine-wide flags and values that all roles share) -----
  Host host;
  IKestrelEvents* events = nullptr;
  FileSystem fs;  // the one shared file-system object
  FailSafe trap{host};
  Catalogue catalogue;
  std::unique_ptr<ZipLibrary> zip;
  std::unique_ptr<RegExpCache> regex;  // the run's pattern object; replaced by each Search

  std::atomic<bool> stop{false};
  std::atomic<bool> zipping{false};
  bool noSizeCheck = false;
  bool dryRun = false;
  bool filterRegExp = false;  // the caller's regular-expression switch
  bool catalogueLoaded = false;
  bool noFiles = false;
  bool jobError = false;
  bool fileTime = false;  // set by the dispatch: the job sets destination file times
  std::string m_sCurrJobFile;

  FileList files;  // the file list of the walk
  std::int16_t syncPass = 0;
  std::string savedFrom, savedTo;
  std::unordered_set<std::string> previewReported;  // synchronisation preview: reported files
  bool lastNoRoom = false;  // the free-space check's last answer
  // Folders that a walk could not list (each ends in "/"): their files are unknown, not absent.
  std::vector<std::string> unlistedFolders;
  FileTimes sourceTimes, destTimes;
  std::unordered_set<std::string> tidiedFolders;  // by TidyFolder, during the current job
  // The destinations that copies and moves of the current call placed: never replaced, nor a
  // reason to delete another source, by the same call.
  std::unordered_set<std::string> writtenThisRun;
};

}  // namespace orvKestrel
