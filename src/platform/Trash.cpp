// The recycle bin: the freedesktop.org trash. A file on the home file system goes to the home
// trash ($XDG_DATA_HOME/Trash, by default ~/.local/share/Trash); a file on another file system to
// that file system's own trash at its top folder ($topdir/.Trash/$uid when an administrator
// made a shared one, else $topdir/.Trash-$uid). Each trashed file gets an info entry that
// says where it came from and when it was deleted, so that it can be restored.
#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace orvKestrel {
namespace {

struct TrashDirs {
  std::string files;
  std::string info;
};

void MakeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) ThrowSys(errno, "mkdir", path);
}

void MakeFolders(const std::string& path) {
  std::size_t pos = 1;
  while ((pos = path.find('/', pos)) != std::string::npos) {
    MakeFolder(path.substr(0, pos));
    ++pos;
  }
  MakeFolder(path);
}

// The device of the nearest existing folder on the way to path.
dev_t DeviceOf(std::string path) {
  struct stat st {};
  while (::stat(path.c_str(), &st) != 0) {
    if (path == "/" || path.empty()) ThrowSys(errno, "stat", path);
    path = paths::GetParentFolderName(path);
  }
  return st.st_dev;
}

// The top folder of the file system that holds folder (of device dev).
std::string TopFolder(std::string folder, dev_t dev) {
  while (folder != "/") {
    const std::string parent = paths::GetParentFolderName(folder);
    struct stat st {};
    if (::stat(parent.c_str(), &st) != 0 || st.st_dev != dev) break;
    folder = parent;
  }
  return folder;
}

// Only below a home that exists: without one (unset, or the name of nothing, as the homes of
// service accounts often are) no trash is made, and a recycle fails instead of building a home
// of its own. A data folder named explicitly is made as needed, as such folders are.
ErrorOr<std::string> HomeTrash() {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg != nullptr && xdg[0] == '/') return paths::BuildPath(xdg, "Trash");
  const char* home = std::getenv("HOME");
  struct stat st {};
  if (home == nullptr) return KestrelError(ENOENT, "No trash: HOME is not set", "getenv", "");
  if (home[0] != '/' || ::stat(home, &st) != 0 || !S_ISDIR(st.st_mode)) {
    return KestrelError(ENOENT, std::string("No trash: no home folder ") + home, "stat", home);
  }
  return paths::BuildPath(home, ".local/share/Trash");
}

// A real folder, not a link, with the sticky bit: the shared trash an administrator prepared.
bool IsSharedTrash(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) != 0;
}

std::string TopTrash(const std::string& top) {
  const std::string uid = std::to_string(::getuid());
  const std::string shared = paths::BuildPath(top, ".Trash");
  if (IsSharedTrash(shared)) return paths::BuildPath(shared, uid);
  const std::string own = paths::BuildPath(top, ".Trash-" + uid);
  struct stat st {};
  if (::lstat(own.c_str(), &st) == 0 && (!S_ISDIR(st.st_mode) || st.st_uid != ::getuid())) {
    ThrowSys(EACCES, "lstat", own);  // a link or someone else's folder is never trusted with ours
  }
  return own;
}

TrashDirs ChooseTrash(const std::string& file, dev_t dev) {
  const std::string home = HomeTrash().Value();
  std::string trash = home;
  if (DeviceOf(home) != dev) trash = TopTrash(TopFolder(paths::GetParentFolderName(file), dev));
  TrashDirs dirs{trash + "/files", trash + "/info"};
  MakeFolders(dirs.files);
  MakeFolders(dirs.info);
  return dirs;
}

std::string PercentEncode(const std::string& path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string InfoText(const std::string& file) {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &tm);
  return "[Trash Info]\nPath=" + PercentEncode(file) + "\nDeletionDate=" + date + "\n";
}

// "a.txt", then "a.2.txt", "a.3.txt", ...
std::string Candidate(const std::string& name, int k) {
  if (k == 1) return name;
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return name + "." + std::to_string(k);
  return name.substr(0, dot) + "." + std::to_string(k) + name.substr(dot);
}

void WriteInfo(const std::string& info, const std::string& text) {
  const int fd = ::open(info.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) ThrowSys(errno, "open", info);
  int err = 0;
  const char* call = "write";
  for (std::size_t done = 0; done < text.size() && err == 0;) {
    const ssize_t w = ::write(fd, text.data() + done, text.size() - done);
    if (w >= 0) done += static_cast<std::size_t>(w);
    else if (errno != EINTR) err = errno;
  }
  if (err == 0 && ::fsync(fd) != 0) {
    err = errno;
    call = "fsync";
  }
  if (::close(fd) != 0 && err == 0) {
    err = errno;
    call = "close";
  }
  if (err != 0) ThrowSys(err, call, info);
}

// Reserves the name by creating its info entry exclusively; false when it is taken.
bool Reserve(const std::string& info, const std::string& target) {
  const int fd = ::open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    if (errno == EEXIST) return false;
    ThrowSys(errno, "open", info);
  }
  ::close(fd);
  struct stat st {};
  if (::lstat(target.c_str(), &st) == 0) {  // a trashed file left without its info entry
    ::unlink(info.c_str());
    return false;
  }
  return true;
}

bool SameObject(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether folder or one of the folders above it is the folder `trash`.
bool Below(std::string folder, const struct stat& trash) {
  for (;;) {
    struct stat st {};
    if (::stat(folder.c_str(), &st) == 0 && SameObject(st, trash)) return true;
    if (folder == "/" || folder.empty()) return false;
    folder = paths::GetParentFolderName(folder);
  }
}

bool IsTopTrashName(std::string_view name) {
  if (name == ".Trash") return true;
  if (!name.starts_with(".Trash-") || name.size() == 7) return false;
  return name.substr(7).find_first_not_of("0123456789") == std::string_view::npos;
}

// The top of a file system: its parent lies on another one, or it is the root.
bool IsTopFolder(const std::string& folder) {
  struct stat here {}, up {};
  if (::stat(folder.c_str(), &here) != 0) return false;
  if (::stat(paths::BuildPath(folder, "..").c_str(), &up) != 0) return false;
  return here.st_dev != up.st_dev || here.st_ino == up.st_ino;
}

}  // namespace

bool FileSystem::IsTrashFolder(const std::string& path, std::string_view name) {
  if (name == "Trash") {
    struct stat folder {}, home {};
    const ErrorOr<std::string> trash = HomeTrash();  // no home, so no home trash
    return trash && ::lstat(path.c_str(), &folder) == 0 &&
           ::stat(trash.Value().c_str(), &home) == 0 && SameObject(folder, home);
  }
  return IsTopTrashName(name) && IsTopFolder(paths::GetParentFolderName(path));
}

void FileSystem::Trash(const std::string& path) {
  const Changing changing(cache_, true);
  Gate(FaultOp::Trash, "rename", path);
  if (path.empty()) ThrowSys(ENOENT, "lstat", path);
  const std::string file = paths::GetAbsolutePathName(path);
  struct stat st {};
  if (::lstat(file.c_str(), &st) != 0) ThrowSys(errno, "lstat", file);
  const TrashDirs dirs = ChooseTrash(file, st.st_dev);
  struct stat trash {};
  const std::string top = paths::GetParentFolderName(dirs.files);
  if (::stat(top.c_str(), &trash) != 0) ThrowSys(errno, "stat", top);
  if (Below(paths::GetParentFolderName(file), trash)) {
    throw KestrelError(EINVAL, "The file is in the trash already", "stat", file);
  }
  // The info entry adds ".trashinfo" to the name: a longer name is cut (its info entry keeps
  // the whole path).
  const std::string name = paths::GetFileName(file).substr(0, 230);
  for (int k = 1;; ++k) {
    const std::string entry = Candidate(name, k);
    const std::string info = dirs.info + "/" + entry + ".trashinfo";
    const std::string target = dirs.files + "/" + entry;
    if (!Reserve(info, target)) continue;
    try {
      WriteInfo(info, InfoText(file));
      if (::rename(file.c_str(), target.c_str()) != 0) {
        if (errno != EXDEV) ThrowSys(errno, "rename", target);
        MoveFile(file, target);  // a bind mount: the same file system seen through another mount
      }
    } catch (...) {
      ::unlink(info.c_str());
      throw;
    }
    return;
  }
}

}  // namespace orvKestrel
