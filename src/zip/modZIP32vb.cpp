// The writing half of the zip facade (staging, commit), and the archive tests.
#include "zip/modZIP32vb.h"

#include "platform/FileSystem.h"
#include "zip/ZipHandle.h"
#include "zip/ZipNames.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <cerrno>
#include <cstring>
#include <unordered_set>

namespace orvKestrel {

using ziphandle::ZipPtr;

namespace {

int CancelRequested(zip_t*, void* flag) {
  return static_cast<std::atomic<bool>*>(flag)->load() ? 1 : 0;
}

std::string ParentOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

// The file's modification time when it is a readable regular file.
bool ReadableFile(const std::string& path, time_t& mtime) {
  // Non-blocking, so that a pipe in the list cannot hang the run.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return false;
  struct stat st {};
  const bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  ::close(fd);
  mtime = st.st_mtime;
  return ok;
}

void SyncFile(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

bool StartsWithZipRecord(const std::string& path) {
  unsigned char head[4] = {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool got = fd >= 0 && ::read(fd, head, 4) == 4;
  if (fd >= 0) ::close(fd);
  // Local file header, end record, spanning marker.
  return got && head[0] == 'P' && head[1] == 'K' &&
         ((head[2] == 3 && head[3] == 4) || (head[2] == 5 && head[3] == 6) ||
          (head[2] == 7 && head[3] == 8));
}

// A free hidden name beside the archive, of the form the walk knows as the engine's own
// temporary (".kestrel-<16 hex>.tmp"); libzip's temporary of the commit adds ".XXXXXX" to it.
std::string StagingName(const std::string& archive) {
  static thread_local std::mt19937_64 rng{std::random_device{}()};
  char hex[17];
  std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(rng()));
  return ParentOf(archive) + "/.kestrel-" + hex + ".tmp";
}

// Errors of a commit that one unreadable source explains.
bool SourceError(int code) {
  return code == ZIP_ER_READ || code == ZIP_ER_OPEN || code == ZIP_ER_NOENT ||
         code == ZIP_ER_INCONS || code == ZIP_ER_EOF || code == ZIP_ER_CHANGED;
}

}  // namespace

struct ZipLibrary::Session {
  struct Staged {
    zip_uint64_t index;
    std::string source;
    bool replaced;  // an entry of that name came from an earlier commit
  };
  // Unlinks the staging name unless the commit put it in place.
  ~Session() {
    za.reset();
    if (!staging.empty()) ::unlink(staging.c_str());
  }
  std::string path;
  // The archive is written under a hidden name beside it (a hard link to the archive when
  // there is one, which libzip's commit replaces), then renamed over it: libzip's temporary file
  // is hidden as well, and a killed run leaves nothing that looks like an archive.
  std::string staging;
  ZipPtr za;
  std::vector<Staged> staged;
  std::unordered_set<std::string> names;
};

ZipLibrary::ZipLibrary(FileSystem& fs) : fs_(fs) {}

ZipLibrary::~ZipLibrary() = default;  // an uncommitted archive is dropped: it stays as it was

void ZipLibrary::InitZip() {
  session_.reset();
  rate_ = 6;
  base_.clear();
  password_.clear();
}

void ZipLibrary::SetCompressionRate(std::int32_t rate) { rate_ = std::clamp(rate, 0, 9); }

void ZipLibrary::SaveFolderLocation(const std::string& base) { base_ = base; }

void ZipLibrary::CancelZip() { cancel_.store(true); }

std::string ZipLibrary::OpenArchive() const { return session_ ? session_->path : std::string(); }

ZipLibrary::Session* ZipLibrary::OpenSession(const std::string& archive) {
  if (session_ && session_->path == archive) return session_.get();
  if (session_) Commit(false);
  // libzip creates the file only at the commit; a folder that cannot take it fails the file
  // now, while the caller can still report it.
  if (::access(ParentOf(archive).c_str(), W_OK | X_OK) != 0) return nullptr;
  std::string staging = StagingName(archive);
  struct stat st {};
  if (::stat(archive.c_str(), &st) == 0 && ::link(archive.c_str(), staging.c_str()) != 0) {
    staging.clear();  // no hard links here: libzip works beside the archive itself
  }
  int err = 0;
  ZipPtr za(zip_open((staging.empty() ? archive : staging).c_str(), ZIP_CREATE, &err));
  if (!za) {
    if (!staging.empty()) ::unlink(staging.c_str());
    return nullptr;
  }
  cancel_.store(false);
  zip_register_cancel_callback_with_state(za.get(), CancelRequested, nullptr, &cancel_);
  session_ = std::make_unique<Session>();
  session_->path = archive;
  session_->staging = std::move(staging);
  session_->za = std::move(za);
  return session_.get();
}

std::int32_t ZipLibrary::Stage(const std::string& archive, const std::string& file) {
  Session* s = OpenSession(archive);
  if (s == nullptr) return 0;
  const std::string name = zipnames::EntryName(file, base_);
  if (name.empty() || s->names.count(name) != 0) return 0;
  time_t mtime = 0;
  if (fs_.faults().Check(FaultOp::Open) != 0 || !ReadableFile(file, mtime)) return 0;
  zip_t* za = s->za.get();
  zip_source_t* src = zip_source_file_create(file.c_str(), 0, -1, nullptr);
  if (src == nullptr) return 0;
  const bool replaced = zip_name_locate(za, name.c_str(), ZIP_FL_ENC_RAW) >= 0;
  const zip_flags_t enc = zipnames::IsValidUtf8(name) ? ZIP_FL_ENC_UTF_8 : ZIP_FL_ENC_RAW;
  const zip_int64_t idx = zip_file_add(za, name.c_str(), src, enc | ZIP_FL_OVERWRITE);
  if (idx < 0) {
    zip_source_free(src);
    return 0;
  }
  const auto index = static_cast<zip_uint64_t>(idx);
  bool ok = rate_ == 0 ? zip_set_file_compression(za, index, ZIP_CM_STORE, 0) == 0
                       : zip_set_file_compression(za, index, ZIP_CM_DEFLATE,
                                                  static_cast<zip_uint32_t>(rate_)) == 0;
  ok = ok && zip_file_set_mtime(za, index, mtime, 0) == 0;
  if (ok && !password_.empty()) {
    ok = zip_file_set_encryption(za, index, ZIP_EM_AES_256, password_.c_str()) == 0;
  }
  if (!ok) {
    if (replaced) zip_unchange(za, index);
    else zip_delete(za, index);
    return 0;
  }
  s->staged.push_back({index, file, replaced});
  s->names.insert(name);
  return 1;
}

std::int32_t ZipLibrary::ZipFile(const std::string& archive, const std::string& file,
                                 const std::string& password, std::int32_t, std::int32_t) {
  password_ = password;
  return Stage(archive, file);
}

std::int32_t ZipLibrary::ZipAddFile(const std::string& archive, const std::string& file,
                                    std::int32_t, std::int32_t) {
  return Stage(archive, file);
}

bool ZipLibrary::Flush(bool durable) { return Commit(durable); }

// Puts the committed staging file in the archive's place.
bool ZipLibrary::PlaceStaged(Session& s) {
  if (s.staging.empty()) return true;
  struct stat staged {}, current {};
  if (::lstat(s.staging.c_str(), &staged) != 0) {
    s.staging.clear();  // a new archive without entries: libzip writes no file
    return true;
  }
  const bool unchanged = ::lstat(s.path.c_str(), &current) == 0 &&
                         staged.st_ino == current.st_ino && staged.st_dev == current.st_dev;
  if (!unchanged && ::rename(s.staging.c_str(), s.path.c_str()) != 0) {
    flushError_ = std::strerror(errno);
    return false;  // the session's end removes the staging file: the archive stays as it was
  }
  if (unchanged) ::unlink(s.staging.c_str());
  s.staging.clear();
  return true;
}

bool ZipLibrary::Commit(bool durable) {
  flushError_.clear();
  failedSources_.clear();
  lastCancelled_ = false;
  if (!session_) return true;
  std::unique_ptr<Session> s = std::move(session_);
  zip_t* za = s->za.get();
  // An injected fault stands for the commit's own writing failing: nothing is written.
  if (const int err = fs_.faults().Check(FaultOp::Write)) {
    flushError_ = std::strerror(err);
    return false;
  }
  for (;;) {
    if (zip_close(za) == 0) {
      (void)s->za.release();  // closed and freed by libzip
      break;
    }
    const zip_error_t* err = zip_get_error(za);
    const int code = zip_error_code_zip(err);
    if (code == ZIP_ER_CANCELLED) lastCancelled_ = true;
    // A source that became unreadable since it was staged fails the whole commit: leave it
    // out and write the others.
    bool dropped = false;
    if (SourceError(code)) {
      for (auto& st : s->staged) {
        time_t mtime = 0;
        if (st.source.empty() || ReadableFile(st.source, mtime)) continue;
        if (st.replaced) zip_unchange(za, st.index);
        else zip_delete(za, st.index);
        failedSources_.push_back(st.source);
        st.source.clear();
        dropped = true;
      }
    }
    if (!dropped) {
      flushError_ = ziphandle::ErrorText(err);
      return false;  // s->za discards: the archive stays as it was
    }
    zip_error_clear(za);
  }
  if (!PlaceStaged(*s)) return false;
  if (durable) {
    SyncFile(s->path, O_RDONLY);
    SyncFile(ParentOf(s->path), O_RDONLY | O_DIRECTORY);
  }
  return true;
}

std::int32_t ZipLibrary::CheckZipFile(const std::string& archive, const std::string& password) {
  struct stat st {};
  if (::stat(archive.c_str(), &st) != 0) return (errno == ENOENT || errno == ENOTDIR) ? 2 : 1;
  if (!S_ISREG(st.st_mode)) return 3;
  int err = 0;
  // Not in strict consistency mode: it refuses archives that other tools read without fault
  // (data descriptors, trailing bytes, differing header dates); every entry is still checked
  // as it is extracted.
  ZipPtr za(zip_open(archive.c_str(), ZIP_RDONLY, &err));
  if (!za) {
    // The file is there (stat above): whatever the library says, it is not missing.
    if (err != ZIP_ER_NOZIP) return 1;
    // No end record: a cut-off archive still begins with a zip record.
    return StartsWithZipRecord(archive) ? 1 : 3;
  }
  const zip_int64_t n = zip_get_num_entries(za.get(), 0);
  bool anyFile = false;
  for (zip_int64_t i = 0; i < n; ++i) {
    zip_stat_t zs;
    const auto index = static_cast<zip_uint64_t>(i);
    if (zip_stat_index(za.get(), index, 0, &zs) != 0) return 1;
    if (ziphandle::IsFolderName(zs.name)) continue;
    anyFile = true;
    if (!(zs.valid & ZIP_STAT_ENCRYPTION_METHOD) || zs.encryption_method == ZIP_EM_NONE) continue;
    // Opening an encrypted entry checks the password against its header only.
    ziphandle::ZipFilePtr zf(zip_fopen_index_encrypted(
        za.get(), index, 0, password.empty() ? nullptr : password.c_str()));
    if (zf) break;
    const int code = zip_error_code_zip(zip_get_error(za.get()));
    return (code == ZIP_ER_NOPASSWD || code == ZIP_ER_WRONGPASSWD) ? 4 : 1;
  }
  return anyFile ? 0 : 1;
}

std::int32_t ZipLibrary::ZipFileCount(const std::string& archive) {
  int err = 0;
  ZipPtr za(zip_open(archive.c_str(), ZIP_RDONLY, &err));
  if (!za) return 0;
  const zip_int64_t n = zip_get_num_entries(za.get(), 0);
  std::int32_t count = 0;
  for (zip_int64_t i = 0; i < n; ++i) {
    const char* name = zip_get_name(za.get(), static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW);
    if (name != nullptr && !ziphandle::IsFolderName(name)) ++count;
  }
  return count;
}

}  // namespace orvKestrel
