// The reading half of the zip facade: extraction that never writes outside its destination
// and never leaves a partial file under an entry's name.
#include "platform/FileSystem.h"
#include "zip/ZipHandle.h"
#include "zip/ZipNames.h"
#include "zip/modZIP32vb.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>
#include <unordered_set>

namespace orvKestrel {
namespace {

using Failure = ZipLibrary::EntryFailure;
using Kind = Failure::Kind;
using ziphandle::ZipFilePtr;

constexpr std::size_t kChunk = 1 << 18;

std::string Join(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

// A free temporary name beside target; the file is created empty with the given mode.
int CreateTemp(const std::string& folder, const std::string& name, mode_t mode,
               std::string& tmp) {
  static thread_local std::mt19937_64 rng{std::random_device{}()};
  for (int attempt = 0; attempt < 100; ++attempt) {
    tmp = Join(folder, "." + name.substr(0, 100) + ".kestrel-" + std::to_string(rng() % 1000000000));
    const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

bool WriteAll(int fd, const char* data, std::size_t n) {
  while (n > 0) {
    const ssize_t w = ::write(fd, data, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += w;
    n -= static_cast<std::size_t>(w);
  }
  return true;
}

struct Link {
  std::string path, folder, name, target, entry;
  time_t when;
};

class Extractor {
 public:
  Extractor(zip_t* za, const std::string& dest, const zipnames::NameFilter& filter,
            bool keepFolders, int overwrite, std::atomic<bool>& cancel,
            std::vector<Failure>& failures, Faults& faults)
      : za_(za), dest_(dest), filter_(filter), keep_(keepFolders), overwrite_(overwrite),
        cancel_(cancel), failures_(failures), faults_(faults) {}

  // Files extracted; cancelled tells whether CancelZip ended it.
  std::int32_t Run(bool& cancelled);

 private:
  void Entry(zip_uint64_t index);
  bool EnsureFolders(const std::vector<std::string>& parts, std::size_t count,
                     const std::string& entry);
  bool MayWrite(const std::string& path, time_t entryTime, const std::string& entry);
  bool WriteFile(zip_uint64_t index, const zip_stat_t& zs, mode_t mode, const std::string& folder,
                 const std::string& name, const std::string& entry);
  bool ReadLinkTarget(zip_uint64_t index, const std::string& entry, std::string& target);
  void MakeLink(const Link& link);
  void Fail(Kind kind, const std::string& entry, const std::string& reason) {
    failures_.push_back({kind, entry, reason});
  }

  zip_t* za_;
  std::string dest_;
  const zipnames::NameFilter& filter_;
  bool keep_;
  int overwrite_;
  std::atomic<bool>& cancel_;
  std::vector<Failure>& failures_;
  Faults& faults_;  // the file-system object's, so that tests can fail a write here too
  std::unordered_set<std::string> folders_;  // folders known to be real folders, not links
  std::vector<Link> links_;
  std::int32_t count_ = 0;
  bool cancelled_ = false;
};

std::int32_t Extractor::Run(bool& cancelled) {
  const zip_int64_t n = zip_get_num_entries(za_, 0);
  for (zip_int64_t i = 0; i < n && !cancelled_; ++i) {
    if (cancel_.load()) cancelled_ = true;
    else Entry(static_cast<zip_uint64_t>(i));
  }
  // Links come last, so that no file of this archive is written through one of them.
  for (const Link& link : links_) {
    if (cancelled_ || cancel_.load()) {
      cancelled_ = true;
      break;
    }
    MakeLink(link);
  }
  cancelled = cancelled_;
  return count_;
}

void Extractor::Entry(zip_uint64_t index) {
  zip_uint8_t opsys = 0;
  zip_uint32_t attr = 0;
  zip_file_get_external_attributes(za_, index, 0, &opsys, &attr);
  const bool unix = opsys == ZIP_OPSYS_UNIX;
  // Names from Unix systems are bytes, as file names there are; others may be code page 437.
  zip_stat_t zs;
  if (zip_stat_index(za_, index, unix ? ZIP_FL_ENC_RAW : 0, &zs) != 0 ||
      !(zs.valid & ZIP_STAT_NAME)) {
    Fail(Kind::Damaged, "#" + std::to_string(index), ziphandle::ErrorText(zip_get_error(za_)));
    return;
  }
  std::string entry = zs.name;
  const auto umode = static_cast<mode_t>(attr >> 16);
  std::string path = entry;
  if (!unix) {
    for (char& c : path) {
      if (c == '\\') c = '/';
    }
  }
  const bool isFolder = !path.empty() && path.back() == '/';
  const bool isLink = unix && S_ISLNK(umode);
  zipnames::SplitPath split = zipnames::SplitEntryPath(path);
  if (!split.refused.empty()) return Fail(Kind::Unsafe, entry, split.refused);
  auto& parts = split.parts;
  if (parts.empty()) return;
  if (isFolder) {
    if (keep_ && filter_.TakesAll()) EnsureFolders(parts, parts.size(), entry);
    return;
  }
  if (!filter_.Matches(parts.back())) return;
  if (!keep_) parts.erase(parts.begin(), parts.end() - 1);
  if (!EnsureFolders(parts, parts.size() - 1, entry)) return;
  std::string folder = dest_;
  for (std::size_t k = 0; k + 1 < parts.size(); ++k) folder = Join(folder, parts[k]);
  const time_t when = (zs.valid & ZIP_STAT_MTIME) ? zs.mtime : time(nullptr);
  if (isLink) {
    std::string target;
    if (!ReadLinkTarget(index, entry, target)) return;
    const std::vector<std::string> at(parts.begin(), parts.end() - 1);
    if (!zipnames::LinkStaysInside(at, target)) {
      return Fail(Kind::Unsafe, entry, "link points outside the destination: " + target);
    }
    links_.push_back({Join(folder, parts.back()), folder, parts.back(), target, entry, when});
    return;
  }
  const std::string target = Join(folder, parts.back());
  if (!MayWrite(target, when, entry)) return;
  const mode_t mode = (unix && S_ISREG(umode)) ? (umode & 0777) : 0666;
  if (WriteFile(index, zs, mode, folder, parts.back(), entry)) ++count_;
}

bool Extractor::EnsureFolders(const std::vector<std::string>& parts, std::size_t count,
                              const std::string& entry) {
  std::string folder = dest_;
  for (std::size_t k = 0; k < count; ++k) {
    folder = Join(folder, parts[k]);
    if (folders_.count(folder) != 0) continue;
    struct stat st {};
    if (::lstat(folder.c_str(), &st) == 0) {
      if (S_ISLNK(st.st_mode)) {
        Fail(Kind::Unsafe, entry, "folder is a link: " + folder);
        return false;
      }
      if (!S_ISDIR(st.st_mode)) {
        Fail(Kind::Write, entry, "not a folder: " + folder);
        return false;
      }
    } else if (::mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
      Fail(Kind::Write, entry, std::strerror(errno) + std::string(": ") + folder);
      return false;
    }
    folders_.insert(folder);
  }
  return true;
}

// The overwrite policy for an existing path: 3 replaces, 4 replaces older files, others keep.
bool Extractor::MayWrite(const std::string& path, time_t entryTime, const std::string& entry) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return true;
  if (S_ISDIR(st.st_mode)) {
    Fail(Kind::Write, entry, "a folder of that name exists: " + path);
    return false;
  }
  if (overwrite_ == 3) return true;
  if (overwrite_ == 4) return entryTime > st.st_mtime;
  return false;
}

bool Extractor::WriteFile(zip_uint64_t index, const zip_stat_t& zs, mode_t mode,
                          const std::string& folder, const std::string& name,
                          const std::string& entry) {
  const bool encrypted = (zs.valid & ZIP_STAT_ENCRYPTION_METHOD) && zs.encryption_method != 0;
  ZipFilePtr zf(zip_fopen_index(za_, index, 0));
  if (!zf) {
    const int code = zip_error_code_zip(zip_get_error(za_));
    const bool pw = code == ZIP_ER_NOPASSWD || code == ZIP_ER_WRONGPASSWD;
    Fail(pw ? Kind::Password : Kind::Damaged, entry, ziphandle::ErrorText(zip_get_error(za_)));
    return false;
  }
  std::string tmp;
  const int injected = faults_.Check(FaultOp::Open);
  const int fd = injected != 0 ? (errno = injected, -1) : CreateTemp(folder, name, mode, tmp);
  if (fd < 0) {
    Fail(Kind::Write, entry, std::strerror(errno) + std::string(": ") + folder);
    return false;
  }
  std::vector<char> buf(kChunk);
  std::string error;
  Kind kind = Kind::Write;
  for (;;) {
    if (cancel_.load()) {
      cancelled_ = true;
      break;
    }
    const zip_int64_t got = zip_fread(zf.get(), buf.data(), buf.size());
    if (got < 0) {
      // A wrong traditional password can pass the header check and end in garbage.
      kind = encrypted ? Kind::Password : Kind::Damaged;
      error = ziphandle::ErrorText(zip_file_get_error(zf.get()));
      break;
    }
    if (got == 0) break;
    if (const int err = faults_.Check(FaultOp::Write)) {
      error = std::strerror(err);
      break;
    }
    if (!WriteAll(fd, buf.data(), static_cast<std::size_t>(got))) {
      error = std::strerror(errno);
      break;
    }
  }
  const struct timespec times[2] = {{zs.mtime, 0}, {zs.mtime, 0}};
  if (error.empty() && !cancelled_ && (zs.valid & ZIP_STAT_MTIME)) ::futimens(fd, times);
  if (::close(fd) != 0 && error.empty()) error = std::strerror(errno);
  if (error.empty() && !cancelled_) {
    if (const int err = faults_.Check(FaultOp::Rename)) {
      error = std::strerror(err);
    } else if (::rename(tmp.c_str(), Join(folder, name).c_str()) != 0) {
      error = std::strerror(errno);
    }
  }
  if (error.empty() && !cancelled_) return true;
  ::unlink(tmp.c_str());
  if (!error.empty()) Fail(kind, entry, error);
  return false;
}

bool Extractor::ReadLinkTarget(zip_uint64_t index, const std::string& entry,
                               std::string& target) {
  ZipFilePtr zf(zip_fopen_index(za_, index, 0));
  char buf[4096];
  zip_int64_t got = zf ? zip_fread(zf.get(), buf, sizeof buf) : -1;
  if (got < 0 || static_cast<std::size_t>(got) == sizeof buf) {
    Fail(Kind::Damaged, entry, "link target cannot be read");
    return false;
  }
  target.assign(buf, static_cast<std::size_t>(got));
  return true;
}

void Extractor::MakeLink(const Link& link) {
  const std::string& entry = link.entry;
  if (!MayWrite(link.path, link.when, entry)) return;
  std::string tmp;
  const int fd = CreateTemp(link.folder, link.name, 0600, tmp);  // reserves a free name
  if (fd < 0) return Fail(Kind::Write, entry, std::strerror(errno));
  ::close(fd);
  ::unlink(tmp.c_str());
  if (::symlink(link.target.c_str(), tmp.c_str()) != 0 ||
      ::rename(tmp.c_str(), link.path.c_str()) != 0) {
    const int err = errno;
    ::unlink(tmp.c_str());
    return Fail(Kind::Write, entry, std::strerror(err));
  }
  ++count_;
}

// Creates the destination and its missing parents (links to folders are followed here: the
// destination is the caller's choice).
bool MakeDestination(const std::string& dest) {
  std::string path;
  std::size_t pos = 0;
  while (pos != std::string::npos) {
    pos = dest.find('/', pos + 1);
    path = dest.substr(0, pos);
    if (path.empty()) continue;
    if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) return false;
  }
  struct stat st {};
  return ::stat(dest.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

std::int32_t ZipLibrary::UnZipEx(const std::string& archive, const std::string& destination,
                                 const std::string& filter, std::int32_t keepFolders,
                                 const std::string& password, std::int32_t overwriteMode,
                                 std::int32_t) {
  failures_.clear();
  lastCancelled_ = false;
  cancel_.store(false);
  lastDestination_ = destination;
  int err = 0;
  ziphandle::ZipPtr za(zip_open(archive.c_str(), ZIP_RDONLY, &err));
  if (!za) return 0;
  if (!password.empty()) zip_set_default_password(za.get(), password.c_str());
  if (!MakeDestination(destination)) {
    failures_.push_back({Failure::Kind::Write, destination, std::strerror(errno)});
    return 0;
  }
  const zipnames::NameFilter names(filter);
  Extractor x(za.get(), destination, names, keepFolders != 0, overwriteMode, cancel_, failures_,
              fs_.faults());
  bool cancelled = false;
  const std::int32_t count = x.Run(cancelled);
  lastCancelled_ = cancelled;
  return count;
}

void ZipLibrary::SyncExtracted() {
  if (lastDestination_.empty()) return;
  const int fd = ::open(lastDestination_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::syncfs(fd);
  ::close(fd);
}

}  // namespace orvKestrel
