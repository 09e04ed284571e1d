// The free space of a drive, in the 32-bit form that the free-space trigger compares.
#pragma once

#include <cstdint>
#include <string>

namespace orvKestrel {

class FileSystem;
class FailSafe;

// Free bytes for unprivileged users on the file system that holds strDrive, capped at
// 2147483647; -1 when it cannot be queried. Errors stay inside: they are never reported.
std::int32_t GetDiskFree(FileSystem& fs, FailSafe& trap, const std::string& strDrive);

}  // namespace orvKestrel
