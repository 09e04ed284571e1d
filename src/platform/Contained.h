// Writing below one folder without ever following a link below it: each level is opened by
// itself with O_NOFOLLOW, so that a link planted in the tree (or made by an archive) cannot
// carry a write elsewhere. Failing operations throw KestrelError.
#pragma once

#include "platform/FileSystem.h"
#include "platform/NewFile.h"
#include "platform/UniqueFd.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

struct stat;

namespace orvKestrel {

// The identity of the file a status describes.
FileIdentity IdentityOf(const struct stat& st);

// A file opened for reading, and the file it is: the identity comes from the descriptor, so
// that it names what is read even when the name is replaced meanwhile.
struct OpenedFile {
  UniqueFd fd;
  FileIdentity identity;
};
OpenedFile OpenIdentified(const std::string& path);

// What stands under a name (the name itself, never a link's target).
struct Node {
  bool isDir = false;
  bool isLink = false;
  std::time_t modified = 0;
  FileIdentity identity;
};

// A folder below which writes are contained (FileSystem::OpenContained makes one; links in its
// own path are followed: that is the caller's choice; only what lies below it is contained).
class ContainedFolder {
 public:
  // The sub folder name (one component), created when missing. A link there is refused with
  // ELOOP, anything else that is not a folder with ENOTDIR.
  ContainedFolder Sub(const std::string& name) const;
  std::optional<Node> Look(const std::string& name) const;
  // The target of the link at parts below this folder; nullopt when there is none, or a
  // level on the way is not a real folder.
  std::optional<std::string> LinkBelow(const std::vector<std::string>& parts) const;
  // A new file under a temporary name, to be put in place under its own name when complete.
  NewFile Create(std::uint32_t permissions) const;
  // A link name -> target; an existing entry is replaced only when replace is set.
  FileIdentity MakeLink(const std::string& target, const std::string& name, bool replace) const;
  // Flushes the file system that holds this folder.
  void SyncFileSystem() const;

 private:
  friend class FileSystem;
  ContainedFolder(UniqueFd fd, std::string path, FaultPoints* faults, TempNames& names)
      : fd_(std::move(fd)), path_(std::move(path)), faults_(faults), names_(&names) {}
  std::string In(const std::string& name) const { return ShownPath(path_, name); }
  UniqueFd fd_;
  std::string path_;  // for errors
  FaultPoints* faults_;
  TempNames* names_;
};

}  // namespace orvKestrel
