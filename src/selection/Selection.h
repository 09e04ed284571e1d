// From a job's source folder to the call of its action: the walk, the name patterns, the
// filters, the dispatch, the synchronisation passes, and the file times and attributes that
// copy and move carry over.
#pragma once

#include "engine/JobRun.h"

#include <cstdint>
#include <string>

namespace orvKestrel {

// ----- folder walk and patterns (Search.cpp, Patterns.cpp) -----
void Search(JobRun& run, Services& s, bool bAll, bool bOpposite);
// Adds the files below vsFolderPath to run.files.
void FindFiles(JobRun& run, Services& s, const std::string& vsFolderPath,
               const std::string& vsSearch, bool bSearchInFolder);
std::string CleanFolderPattern(Services& s, std::string& sPattern, bool bUseRegEx);
std::string CleanFilePattern(Services& s, std::string& sPattern, bool bUseRegEx);
std::string HandleFolders(Services& s, const std::string& sArrayStr, job& job);
std::string HandlePreviewFolders(Services& s, const std::string& sArrayStr, job& job);
// The folder HandlePreviewFolders names, as text alone: nothing is traced or looked at.
std::string DestinationFolder(const std::string& file, const job& job);

// ----- filters (modFilter*.cpp) -----
// Each returns the files that pass, in order, and consumes its argument.
FileList FilterZip(Services& s, FileList& sArray, job& job);
FileList FilterExtention(Services& s, FileList& sArray, job& job);
FileList FilterFileSize(Services& s, FileList& sArray, job& job);
FileList FilterAttributes(Services& s, FileList& sArray, job& job);
FileList FilterDate(Services& s, FileList& sArray, job& job);

// ----- dispatch (Dispatch.cpp) -----
void ProcessFiles(JobRun& run, Services& s, FileList& sArray);
void DoMoveCopySelection(JobRun& run, Services& s, FileList& sArray);
// Whether copy and move give their files chosen times: one of the destination time fields is set.
bool SetsFileTimes(const job& job);

// ----- synchronisation (Sync.cpp) -----
void SearchSync(JobRun& run, Services& s, bool bAll);  // the Action 5 branch of Search
void CheckSync(JobRun& run, Services& s);
void FileCleanUp(JobRun& run, Services& s, bool bAll);

// ----- file times and attributes (modFileTime.cpp, modFilterAttribute.cpp) -----
bool ReadSourceFileTime(JobRun& run, Services& s, const std::string& lpFileName);
bool ReadDestFileTime(JobRun& run, Services& s, const std::string& lpFileName);
bool WriteFileTime(JobRun& run, Services& s, const std::string& lpFileName);
void SetDestAttributes(Services& s, const std::string& sFile, job& job);
void SetSourceAttributes(Services& s, const std::string& sFile, job& job);
void SetAttribute(Services& s, std::uint32_t attr, const std::string& sFile);
void UnsetAttribute(Services& s, std::uint32_t attr, const std::string& sFile);

}  // namespace orvKestrel
