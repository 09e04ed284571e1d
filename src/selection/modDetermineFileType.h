// Names a file's type from its first bytes.
#pragma once

#include <string>

namespace orvKestrel {

class FileSystem;

// The type name of the file at xFile from its first 300 bytes, or "NOT FOUND" when there is no
// such file. A file that exists but cannot be read throws KestrelError for the caller's trap.
std::string GetFileType(FileSystem& fs, const std::string& xFile);

}  // namespace orvKestrel
