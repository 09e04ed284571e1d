// Writing below one folder without ever following a link below it: each level is opened by
// itself with O_NOFOLLOW, so that a link planted in the tree (or made by an archive) cannot
// carry a write elsewhere. Failing operations throw KestrelError.
#pragma once

#include "platform/FileSystem.h"


#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

struct stat;

namespace orvKestrel {

// The identity of the file a status describes.
FileIdentity IdentityOf(const struct stat& st);

// A descriptor that is closed with its owner.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd();
  UniqueFd(UniqueFd&& other) noexcept;
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  int get() const { return fd_; }
  int release();  // the caller owns the descriptor from now

 private:
  int fd_;
};

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

// A file being written under a hidden temporary name until it is placed under its own.
class NewFile {
 public:
  NewFile(int dirFd, std::string tmp, UniqueFd fd) : dir_(dirFd), tmp_(std::move(tmp)),
                                                     fd_(std::move(fd)) {}
  ~NewFile();
  NewFile(NewFile&&) noexcept = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  void Write(const char* data, std::size_t n);
  void SetModified(std::time_t t);
  // Gives the file its name; an existing entry there is replaced only when replace is set.
  // Returns what was placed.
  FileIdentity Place(const std::string& name, bool replace);

 private:
  int dir_;
  std::string tmp_;
  UniqueFd fd_;
  bool placed_ = false;
};

class ContainedFolder {
 public:
  // The folder (created with its parents when missing). Links in this path are followed: it is
  // the caller's choice; only what lies below it is contained.
  static ContainedFolder Open(const std::string& path);
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
  explicit ContainedFolder(UniqueFd fd) : fd_(std::move(fd)) {}
  UniqueFd fd_;
};

}  // namespace orvKestrel
