// The few by-name file operations of an archive's commit. The zip library opens, writes and
// renames its own files by path, so the archive is staged under a hidden name beside it and put
// in place here; everything else of a run works through descriptors (FileSystem).
#pragma once

#include "platform/FileSystem.h"

#include <optional>
#include <string>

namespace orvKestrel::staging {

// Whether a new file can be made in folder (written to and searched).
bool CanCreateIn(const std::string& folder);

// The object that path names, not following a final link; nullopt when there is none.
std::optional<FileIdentity> Lookup(const std::string& path);

// What stands at path, links followed: a regular file, something else, nothing, or unknown (the
// look failed for another reason).
enum class Kind { File, Other, Missing, Unknown };
Kind KindOf(const std::string& path);

// A second name for an existing file; false when that cannot be made (no hard links here).
bool Link(const std::string& existing, const std::string& name);

// rename(2); 0 or the errno of the failure.
int Rename(const std::string& from, const std::string& to);

// Removes a name of the run's own making; a missing one is no error.
void Remove(const std::string& path);

// Flushes the file and then its folder, so that a committed archive survives a power cut.
void Flush(const std::string& file, const std::string& folder);

// The first bytes of a file, up to n; fewer when it is shorter or cannot be read.
std::string Head(const std::string& path, std::size_t n);

}  // namespace orvKestrel::staging
