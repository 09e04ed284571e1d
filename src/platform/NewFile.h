// The one way the engine makes a file: written without a name, or under a hidden temporary
// name beside its destination (TempNames), and given its own name only when complete. A
// destination's name never shows a partial file, whatever happens to the process; a killed run
// leaves at most a temporary, which the next run removes. Used by copies and moves, extracted
// entries, links of archives and job files.
#pragma once

#include "platform/FaultPoints.h"
#include "platform/FileSystem.h"
#include "platform/UniqueFd.h"

#include <cstdint>
#include <ctime>
#include <string>

namespace orvKestrel {

// The path of rel, relative to the folder descriptor whose path is where ("" for AT_FDCWD,
// whose names are paths already): what an error names.
std::string ShownPath(const std::string& where, const std::string& rel);

// Puts tmp (relative to dir, whose path is where) under name in dir; without replace an
// existing name is refused (EEXIST), also on file systems without a no-replace rename.
void PlaceName(int dir, const std::string& where, const std::string& tmp, const std::string& name,
               bool replace);

class NewFile {
 public:
  // A new file in folder (relative to the folder descriptor dir: AT_FDCWD with a path, or a
  // folder opened beneath a destination with "."), with the given permission bits. where: the
  // path of dir, for errors (ShownPath). With unnamed, where the file system allows, it has no
  // name at all until it is placed (then Place refuses an existing name). Fault point: Open.
  NewFile(int dir, std::string where, const std::string& folder, TempNames& names,
          FaultPoints* faults, std::uint32_t permissions, bool unnamed);
  ~NewFile();
  NewFile(NewFile&& other) noexcept;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  NewFile& operator=(NewFile&&) = delete;

  // A file without a name in folder (relative to dir), or an error where the file system
  // cannot make one: never a temporary name. For copies made ahead, whose placing falls back to
  // a plain copy when anything fails.
  static NewFile Unnamed(FaultPoints* faults, int dir, std::string where,
                         const std::string& folder, std::uint32_t permissions);

  int fd() const { return fd_.get(); }
  // The path of the file as an error names it: its temporary name, or its folder while it has
  // no name.
  std::string Shown() const { return ShownPath(where_, tmp_.empty() ? folder_ : tmp_); }
  void Write(const char* data, std::size_t n);  // all of it; fault point: Write
  void SetTimes(const struct timespec& accessed, const struct timespec& modified);
  void Flush();            // its contents on the disk before it gets a name
  FileIdentity Identify();  // the file as written so far
  // Gives the file name (relative to dir) and closes it; an existing entry is replaced only
  // when replace is set. Fault point: Rename.
  void Place(const std::string& name, bool replace);
  // Place, for a file made without a name, into another folder dir of the same file system. A
  // replacing placement links it under a temporary name first, then renames that over name.
  void PlaceIn(int dir, std::string where, const std::string& name, bool replace,
               TempNames& names);

 private:
  NewFile(FaultPoints* faults, int dir, std::string where, std::string folder, UniqueFd fd);
  void Link(const std::string& name);
  FaultPoints* faults_;
  int dir_;
  std::string where_;   // the path of dir_, for errors
  std::string folder_;  // relative to dir_
  std::string tmp_;  // relative to dir_; empty while the file has no name
  UniqueFd fd_;
  bool placed_ = false;
};

}  // namespace orvKestrel
