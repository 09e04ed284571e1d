// The writing half of the zip facade (staging, commit), and the archive tests.
#include "zip/modZIP32vb.h"

#include <orvKestrel/utf8.h>

#include "actions/modCheckExistingFiles.h"
#include "platform/FileSystem.h"
#include "platform/Staging.h"
#include "zip/ZipHandle.h"
#include "zip/PackAhead.h"
#include "zip/ZipNames.h"
#include "zip/ZipSource.h"

#include <algorithm>
#include <cstdio>
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

bool StartsWithZipRecord(const std::string& path) {
  const std::string head = staging::Head(path, 4);
  // Local file header, end record, spanning marker.
  return head.size() == 4 && head[0] == 'P' && head[1] == 'K' &&
         ((head[2] == 3 && head[3] == 4) || (head[2] == 5 && head[3] == 6) ||
          (head[2] == 7 && head[3] == 8));
}

// Zip entries keep their time to the even second below: a source is compared with an entry at
// that resolution.
std::time_t EvenSecond(std::time_t t) { return t - ((t % 2) + 2) % 2; }

}  // namespace

struct ZipLibrary::Session {
  struct Staged {
    zip_uint64_t index;
    std::string source;
    std::string name;
    bool replaced;  // an entry of that name came from an earlier commit
    std::unique_ptr<zipsource::State> state;
    bool dropped = false;
  };
  // Unlinks the staging name unless the commit put it in place.
  ~Session() {
    za.reset();
    if (!staging.empty()) staging::Remove(staging);
  }
  std::string path;
  std::string key;  // the archive by its folder's identity and its name
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

void ZipLibrary::StartZipRun(std::int32_t extFileTime, std::int16_t selecter) {
  entriesWritten_.clear();
  extFileTime_ = extFileTime;
  selecter_ = selecter;
}

// The same archive reached through another spelling of its folder has the same key.
std::string ZipLibrary::ArchiveKey(const std::string& archive) {
  const auto pos = archive.rfind('/');
  const std::string name = pos == std::string::npos ? archive : archive.substr(pos + 1);
  try {
    const FileIdentity folder = fs_.Identify(ParentOf(archive));
    return std::to_string(folder.device) + ":" + std::to_string(folder.inode) + "/" + name;
  } catch (const std::exception&) {
    return archive;
  }
}

bool ZipLibrary::WrittenThisRun(const std::string& archive) {
  const std::string key = ArchiveKey(archive) + "\n";
  const auto it = entriesWritten_.lower_bound(key);
  if (it != entriesWritten_.end() && it->compare(0, key.size(), key) == 0) return true;
  return session_ && session_->key + "\n" == key && !session_->staged.empty();
}

void ZipLibrary::InitZip() {
  session_.reset();
  entriesWritten_.clear();
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
  if (!staging::CanCreateIn(ParentOf(archive))) return nullptr;
  // A free hidden name of the form the walk knows as the engine's own temporary; libzip's
  // temporary of the commit adds ".XXXXXX" to it.
  std::string staging = ParentOf(archive) + "/" + stagingNames_.Next();
  // A replacement starts empty under the staging name: the old archive stays until the commit.
  const bool fresh = replace_ == archive;
  replace_.clear();
  const auto there = staging::KindOf(archive);
  if (!fresh && (there == staging::Kind::File || there == staging::Kind::Other) &&
      !staging::Link(archive, staging)) {
    staging.clear();  // no hard links here: libzip works beside the archive itself
  }
  int err = 0;
  ZipPtr za(zip_open((staging.empty() ? archive : staging).c_str(),
                     fresh ? ZIP_CREATE | ZIP_TRUNCATE : ZIP_CREATE, &err));
  if (!za) {
    if (!staging.empty()) staging::Remove(staging);
    return nullptr;
  }
  cancel_.store(false);
  zip_register_cancel_callback_with_state(za.get(), CancelRequested, nullptr, &cancel_);
  session_ = std::make_unique<Session>();
  session_->path = archive;
  session_->key = ArchiveKey(archive);
  session_->staging = std::move(staging);
  session_->za = std::move(za);
  return session_.get();
}

// Under mode 4 an entry of an earlier run is replaced only when the source qualifies by the
// run's comparison; an entry holds one time, its modification time, which stands for all three.
bool ZipLibrary::Qualifies(const std::string& file, zip_t* za, std::uint64_t index) {
  zip_stat_t zs;
  if (zip_stat_index(za, index, ZIP_FL_UNCHANGED, &zs) != 0) return false;
  const auto stat = fs_.Stat(file);
  if (!stat) return false;
  FileStat source = stat.Value();
  const std::time_t m = EvenSecond(source.times.written);
  source.times = {m, m, m};
  FileStat entry;
  entry.isFile = true;
  entry.size = zs.size;
  entry.times = {zs.mtime, zs.mtime, zs.mtime};
  const bool known = extFileTime_ >= 0 && extFileTime_ <= 2;
  return orvKestrel::Qualifies(source, entry, static_cast<std::int16_t>(known ? extFileTime_ : -1),
                               selecter_);
}

std::int32_t ZipLibrary::Stage(const std::string& archive, const std::string& file,
                               bool compare) {
  lastRefusal_.clear();
  Session* s = OpenSession(archive);
  if (s == nullptr) return 0;
  const std::string name = zipnames::EntryName(file, base_);
  if (name.empty()) return 0;
  // Nothing this run wrote is replaced by this run: its source may be gone already.
  if (s->names.count(name) != 0 || entriesWritten_.count(s->key + "\n" + name) != 0) {
    lastRefusal_ = "The archive already holds an entry " + name + " written by this run";
    return 0;
  }
  // The file is read at the commit; a file that cannot be read fails now, while the caller
  // can still report it.
  time_t mtime = 0;
  try {
    const FileIdentity id = fs_.OpenToRead(file).Opened();
    mtime = static_cast<time_t>(id.modifiedNs / 1'000'000'000);
  } catch (const std::exception&) {
    return 0;
  }
  zip_t* za = s->za.get();
  const zip_int64_t existing = zip_name_locate(za, name.c_str(), ZIP_FL_ENC_RAW);
  const bool replaced = existing >= 0;
  if (replaced && compare && !Qualifies(file, za, static_cast<zip_uint64_t>(existing))) return 0;
  auto state = std::make_unique<zipsource::State>(fs_, file);
  // Workers deflate plain entries; encrypted ones go through libzip's own layers.
  state->level = password_.empty() ? rate_ : 0;
  zip_source_t* src = zipsource::Create(za, *state);
  if (src == nullptr) return 0;
  const zip_flags_t enc = IsValidUtf8(name) ? ZIP_FL_ENC_UTF_8 : ZIP_FL_ENC_RAW;
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
  s->staged.push_back({index, file, name, replaced, std::move(state)});
  s->names.insert(name);
  return 1;
}

std::int32_t ZipLibrary::ZipFile(const std::string& archive, const std::string& file,
                                 const std::string& password, std::int32_t mode, std::int32_t) {
  password_ = password;
  return Stage(archive, file, mode == 4);
}

std::int32_t ZipLibrary::ZipAddFile(const std::string& archive, const std::string& file,
                                    std::int32_t mode, std::int32_t) {
  return Stage(archive, file, mode == 4);
}

bool ZipLibrary::Flush(bool durable) { return Commit(durable); }

// Puts the committed staging file in the archive's place.
bool ZipLibrary::PlaceStaged(Session& s) {
  if (s.staging.empty()) return true;
  const auto staged = staging::Lookup(s.staging);
  if (!staged) {
    s.staging.clear();  // a new archive without entries: libzip writes no file
    return true;
  }
  const auto current = staging::Lookup(s.path);
  const bool unchanged = current && current->SameObject(*staged);
  if (!unchanged) {
    if (const int err = staging::Rename(s.staging, s.path)) {
      flushError_ = std::strerror(err);
      return false;  // the session's end removes the staging file: the archive stays as it was
    }
  }
  if (unchanged) staging::Remove(s.staging);
  s.staging.clear();
  return true;
}

// Takes the sources that could not be read, or changed while they were read, out of the
// archive; false when there was none (the failure has another cause).
bool ZipLibrary::DropFailed(Session& s) {
  bool dropped = false;
  for (auto& st : s.staged) {
    if (st.dropped || st.state->failure.empty()) continue;
    if (st.replaced) zip_unchange(s.za.get(), st.index);
    else zip_delete(s.za.get(), st.index);
    failedSources_.push_back({st.source, st.state->failure});
    st.dropped = true;
    dropped = true;
  }
  return dropped;
}

bool ZipLibrary::Commit(bool durable) {
  flushError_.clear();
  failedSources_.clear();
  writtenSources_.clear();
  lastCancelled_ = false;
  if (!session_) return true;
  std::unique_ptr<Session> s = std::move(session_);
  zip_t* za = s->za.get();
  // An injected fault stands for the commit's own writing failing: nothing is written.
  if (const int err = fs_.Injected(FaultOp::Write)) {
    flushError_ = std::strerror(err);
    return false;
  }
  for (;;) {
    const auto ahead = PackAheadFor(*s);
    const int closed = zip_close(za);
    for (auto& st : s->staged) st.state->Ahead(nullptr, 0);
    if (closed == 0) {
      (void)s->za.release();  // closed and freed by libzip
      break;
    }
    const zip_error_t* err = zip_get_error(za);
    if (zip_error_code_zip(err) == ZIP_ER_CANCELLED) lastCancelled_ = true;
    // A source that cannot be read, or changed while it was read, fails the whole commit:
    // leave it out and write the others.
    if (lastCancelled_ || !DropFailed(*s)) {
      flushError_ = ziphandle::ErrorText(err);
      return false;  // s->za discards: the archive stays as it was
    }
    zip_error_clear(za);
  }
  if (!PlaceStaged(*s)) return false;
  if (durable) {
    staging::Flush(s->path, ParentOf(s->path));
  }
  for (const auto& st : s->staged) {
    if (!st.dropped) entriesWritten_.insert(s->key + "\n" + st.name);
  }
  CountWritten(*s, durable);
  return true;
}

// The workers for the commit's deflated entries, each given its place in the order libzip
// writes them (by index); none with one worker, or when every entry is stored or encrypted.
std::unique_ptr<zipahead::PackAhead> ZipLibrary::PackAheadFor(Session& s) {
  std::vector<Session::Staged*> take;
  for (auto& st : s.staged) {
    // A replaced entry keeps libzip's own way: it deflates those at a level of its own.
    if (workers_ > 1 && !st.dropped && !st.replaced && st.state->level == rate_ && rate_ > 0) {
      take.push_back(&st);
    }
  }
  if (take.empty()) return nullptr;
  std::sort(take.begin(), take.end(),
            [](const Session::Staged* a, const Session::Staged* b) { return a->index < b->index; });
  std::vector<std::string> sources;
  sources.reserve(take.size());
  for (const auto* st : take) sources.push_back(st->source);
  auto ahead = std::make_unique<zipahead::PackAhead>(fs_, std::move(sources), rate_, workers_);
  for (std::size_t k = 0; k < take.size(); ++k) take[k]->state->Ahead(ahead.get(), k);
  return ahead;
}

// The sources whose entries the archive holds as they were read. Before sources are deleted
// the archive is read back: an entry that is not there at the length read does not count.
void ZipLibrary::CountWritten(Session& s, bool readBack) {
  int err = 0;
  ZipPtr za;
  if (readBack && fs_.Injected(FaultOp::Open) == 0) {
    za.reset(zip_open(s.path.c_str(), ZIP_RDONLY, &err));
  }
  for (const auto& st : s.staged) {
    if (st.dropped || !st.state->read) continue;
    zip_stat_t zs;
    if (readBack && (!za || zip_stat(za.get(), st.name.c_str(), ZIP_FL_ENC_RAW, &zs) != 0 ||
                     zs.size != st.state->read->size)) {
      failedSources_.push_back({st.source, "The archive does not hold the file as it was read"});
      continue;
    }
    writtenSources_.push_back({st.source, *st.state->read});
  }
}

std::int32_t ZipLibrary::CheckZipFile(const std::string& archive, const std::string& password) {
  switch (staging::KindOf(archive)) {
    case staging::Kind::Missing: return 2;
    case staging::Kind::Unknown: return 1;
    case staging::Kind::Other: return 3;
    case staging::Kind::File: break;
  }
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
