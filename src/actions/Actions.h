// The actions on a selected list: copy, move, delete, and their previews.
#pragma once

#include "engine/JobRun.h"

#include <string>

namespace orvKestrel {

// ----- copy and move (CopyFiles.cpp, MoveFiles.cpp) -----
void CopyFiles(JobRun& run, Services& s, FileList& sArray);
void MoveFiles(JobRun& run, Services& s, FileList& sArray);
std::string GetValidPathName(Services& s, job& job, const std::string& sSourcePath, bool bIsZip);
// The per-file free-space check: true when there is NOT enough room (the file is skipped).
bool NoRoomFor(JobRun& run, Services& s, const std::string& source, const std::string& op,
               const std::string& dest, bool replacing);

// ----- delete and folder clean-up (Delete.cpp) -----
// failure, when given, receives why the recycle did not happen.
bool Kill(Services& s, const std::string& Files, std::string* failure = nullptr);
void DeleteSourceFile(JobRun& run, Services& s, const std::string& sArray);
// DeleteSourceFile, but a permanent deletion happens only while the path still names the
// file as seen.
void DeleteSourceFileAsSeen(JobRun& run, Services& s, const std::string& sArray,
                            const FileIdentity& seen);
void DeleteZipSourceFile(JobRun& run, Services& s, const std::string& sArray);
// Only while sArray is still the file as it was read; true when it was deleted.
bool DeleteZipSourceVerified(JobRun& run, Services& s, const std::string& sArray,
                             const FileIdentity& read);
void DeleteFile(JobRun& run, Services& s, const std::string& sArray);
void DeleteFiles(JobRun& run, Services& s, FileList& sArray);
void DeleteSyncFiles(JobRun& run, Services& s, FileList& sArray);
void CheckEmptyFolder(Services& s, const std::string& sPath, job& job);
// Removes emptied folders upwards from the parent of a deleted file, never From itself.
void RemoveEmptyFolders(Services& s, const std::string& deletedFile, job& job);

// ----- previews of copy, move and delete (Preview.cpp) -----
void Preview(JobRun& run, Services& s, FileList& sArray, const std::string& mode);
void DeleteFilesPreview(JobRun& run, Services& s, FileList& sArray);
void DeleteSyncFilesPreview(JobRun& run, Services& s, FileList& sArray);

}  // namespace orvKestrel
