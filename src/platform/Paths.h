// Path functions on "/" paths, with the semantics of the path helpers that the jobs were
// written against: pure text, no file-system access.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvKestrel::paths {

// Joins with exactly one "/" between the parts (none added when either side is empty).
std::string BuildPath(std::string_view folder, std::string_view name);
// The last component ("" for a path ending in "/").
std::string GetFileName(std::string_view path);
// The text after the last "." of the last component; "" when there is none.
std::string GetExtensionName(std::string_view path);
// The last component without its last extension; "" for ".profile".
std::string GetBaseName(std::string_view path);
// Everything before the last component, without the trailing "/" ("/" stays "/").
std::string GetParentFolderName(std::string_view path);
// An absolute, lexically normalised path ("." and ".." folded, repeated "/" joined).
std::string GetAbsolutePathName(std::string_view path);

// The names between the "/" of path, without empty ones and "." ("a//./b/.." gives "a", "b",
// ".."); what ".." means is the caller's.
std::vector<std::string_view> PathParts(std::string_view path);
// Replaces every occurrence of what by with, left to right (plain, case-sensitive).
std::string ReplaceAll(std::string_view text, std::string_view what, std::string_view with);
// ASCII lower case.
std::string LowerAscii(std::string_view text);

}  // namespace orvKestrel::paths
