// The status of a path as one look-up finds it: what a run asks before it acts on a file.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

struct statx;

namespace orvKestrel {

// Whole seconds since the epoch.
struct FileTimes {
  std::time_t created = 0;  // birth time; the change time where the file system has none
  std::time_t accessed = 0;
  std::time_t written = 0;
};

// What makes a file the one that was read: device and inode name it, size and the modification
// and change times (to the nanosecond) tell that its contents are still those that were read.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modifiedNs = 0;
  std::int64_t changedNs = 0;
  bool SameObject(const FileIdentity& o) const { return device == o.device && inode == o.inode; }
  bool operator==(const FileIdentity&) const = default;
};

struct FileStat {
  bool isDir = false;
  bool isFile = false;  // a regular file
  std::uint64_t size = 0;
  FileTimes times;
};

// What a look-up of a path (links followed) found, or the errno of its failure.
struct PathStatus {
  std::string path;
  int err = 0;
  FileStat stat;
  FileIdentity id;
  bool link = false;  // the last part of the path is a link: its status is its target's
};
// The look-up itself: no state, so workers may call it at once.
PathStatus StatusOf(const std::string& path);
// The same for name in an open folder; path is what the status is reported for.
PathStatus StatusAt(int folder, const char* name, std::string path);
// What a statx of path found (links followed).
PathStatus StatusFrom(std::string path, const struct statx& found);

}  // namespace orvKestrel
