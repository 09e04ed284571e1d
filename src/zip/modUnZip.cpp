// The reading half of the zip facade: extraction that never writes outside its destination,
// never replaces what the run wrote or the archive it reads, and never leaves a partial file
// under an entry's name.
#include "platform/SysError.h"
#include "zip/AesAuth.h"
#include "zip/Extractor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace orvKestrel::unzip {
namespace {

// The Unix file type and permission bits that an archive made on Unix keeps in the upper half
// of an entry's external attributes: values of the format, whatever this platform's are.
constexpr std::uint32_t kUnixTypeMask = 0170000;
constexpr std::uint32_t kUnixRegular = 0100000;
constexpr std::uint32_t kUnixLink = 0120000;

constexpr std::size_t kChunk = 1 << 18;
constexpr const char* kNotAuthentic =
    "the encrypted data is damaged or was changed (authentication failed)";

bool IsAes(const zip_stat_t& zs) {
  return (zs.valid & ZIP_STAT_ENCRYPTION_METHOD) && zs.encryption_method >= ZIP_EM_AES_128 &&
         zs.encryption_method <= ZIP_EM_AES_256;
}

// AES entries of the second version store a CRC of 0 and are checked by their code alone.
bool AesWithoutCrc(const zip_stat_t& zs) {
  return IsAes(zs) && (zs.valid & ZIP_STAT_CRC) && zs.crc == 0 && (zs.valid & ZIP_STAT_SIZE) &&
         zs.size > 0;
}

}  // namespace

std::int32_t Extractor::Run(bool& cancelled) {
  const zip_int64_t n = zip_get_num_entries(j_.za, 0);
  for (zip_int64_t i = 0; i < n && !cancelled_; ++i) {
    if (j_.cancel.load()) cancelled_ = true;
    else Entry(static_cast<zip_uint64_t>(i));
  }
  Drain();
  // Links come last, so that no file of this archive is written through one of them; each is
  // checked against all the others of the archive, whatever their order.
  for (const Link& link : links_) {
    if (cancelled_ || j_.cancel.load()) {
      cancelled_ = true;
      break;
    }
    MakeLink(link);
  }
  cancelled = cancelled_;
  return count_;
}

// The entry's levels below the destination; false when it is skipped (a folder, a name the
// filter does not take) or refused.
bool Extractor::Levels(zip_uint64_t index, const std::string& entry, bool unix,
                       std::vector<std::string>& parts) {
  std::string path = entry;
  if (!unix) std::replace(path.begin(), path.end(), '\\', '/');
  const bool isFolder = !path.empty() && path.back() == '/';
  zipnames::SplitPath split = zipnames::SplitEntryPath(path);
  if (!split.refused.empty()) {
    Fail(Kind::Unsafe, entry, split.refused);
    return false;
  }
  parts = std::move(split.parts);
  if (parts.empty()) {
    if (!isFolder) Fail(Kind::Damaged, "#" + std::to_string(index), "entry without a name");
    return false;
  }
  if (isFolder) {
    if (j_.keep && j_.filter.TakesAll()) Folder(parts, parts.size(), entry);
    return false;
  }
  if (!j_.filter.Matches(parts.back())) {
    Keep(Kept::Why::Filtered, entry, "");
    return false;
  }
  if (!j_.keep) parts.erase(parts.begin(), parts.end() - 1);
  return true;
}

void Extractor::Entry(zip_uint64_t index) {
  zip_uint8_t opsys = 0;
  zip_uint32_t attr = 0;
  zip_file_get_external_attributes(j_.za, index, 0, &opsys, &attr);
  const bool unix = opsys == ZIP_OPSYS_UNIX;
  // Names from Unix systems are bytes, as file names there are; others may be code page 437.
  zip_stat_t zs;
  if (zip_stat_index(j_.za, index, unix ? ZIP_FL_ENC_RAW : 0, &zs) != 0 ||
      !(zs.valid & ZIP_STAT_NAME)) {
    return Fail(Kind::Damaged, "#" + std::to_string(index),
                ziphandle::ErrorText(zip_get_error(j_.za)));
  }
  const std::string entry = zs.name;
  std::vector<std::string> parts;
  if (!Levels(index, entry, unix, parts)) return;
  const std::uint32_t umode = attr >> 16;
  const time_t when = (zs.valid & ZIP_STAT_MTIME) ? zs.mtime : time(nullptr);
  if (unix && (umode & kUnixTypeMask) == kUnixLink) {
    std::string target;
    if (!ReadLinkTarget(index, entry, target)) return;
    planned_[Join(parts, parts.size())] = target;
    links_.push_back({parts, target, entry, when});
    return;
  }
  const ContainedFolder* folder = Folder(parts, parts.size() - 1, entry);
  bool replace = false;
  if (folder == nullptr) return;
  Settle(parts, parts.size());
  if (!MayWrite(*folder, parts, when, entry, replace)) return;
  const std::uint32_t mode =
      (unix && (umode & kUnixTypeMask) == kUnixRegular) ? (umode & 0777) : 0666;
  if (Hand(index, zs, mode, folder, parts, replace, entry)) return;
  Drain();
  if (!cancelled_ && WriteFile(index, zs, mode, *folder, parts.back(), replace, entry)) ++count_;
}

const ContainedFolder* Extractor::Folder(const std::vector<std::string>& parts,
                                         std::size_t count, const std::string& entry) {
  const std::vector<std::string> want(parts.begin(), parts.begin() + static_cast<long>(count));
  if (open_ && openParts_ == want) return open_.get();
  Settle(parts, count);
  open_.reset();
  std::optional<ContainedFolder> level;
  for (std::size_t k = 0; k < count; ++k) {
    try {
      level.emplace((k == 0 ? j_.root : *level).Sub(parts[k]));
    } catch (const KestrelError& e) {
      const std::vector<std::string> at(parts.begin(), parts.begin() + static_cast<long>(k) + 1);
      if (e.Number() == ELOOP) Fail(Kind::Unsafe, entry, "folder is a link: " + PathOf(at));
      else Fail(Kind::Write, entry, e.Description() + ": " + PathOf(at));
      return nullptr;
    }
  }
  if (count == 0) return &j_.root;
  open_ = std::make_shared<const ContainedFolder>(std::move(*level));
  openParts_ = want;
  return open_.get();
}

bool Extractor::MayWrite(const ContainedFolder& folder, const std::vector<std::string>& parts,
                         time_t when, const std::string& entry, bool& replace) {
  const std::string path = PathOf(parts);
  std::optional<Node> node;
  try {
    node = folder.Look(parts.back());
  } catch (const KestrelError& e) {
    Fail(Kind::Write, entry, e.Description() + ": " + path);
    return false;
  }
  replace = node.has_value();
  if (!node) return true;
  if (node->isDir) {
    Fail(Kind::Write, entry, "a folder of that name exists: " + path);
    return false;
  }
  if (node->identity.SameObject(j_.archive)) {
    Fail(Kind::Write, entry, "that is the archive being extracted: " + path);
    return false;
  }
  if (const auto it = j_.written.find(Key(node->identity)); it != j_.written.end()) {
    Fail(Kind::Write, entry,
         (it->second ? "that is an archive of this run: " : "extracted by this run already: ") +
             path);
    return false;
  }
  if (j_.overwrite == 3 || (j_.overwrite == 4 && when > node->modified)) return true;
  Keep(j_.overwrite == 4 ? Kept::Why::NotNewer : Kept::Why::Exists, entry, path);
  return false;
}

bool Extractor::WriteFile(zip_uint64_t index, const zip_stat_t& zs, std::uint32_t mode,
                          const ContainedFolder& folder, const std::string& name, bool replace,
                          const std::string& entry) {
  ZipFilePtr zf(zip_fopen_index(j_.za, index, 0));
  if (!zf) {
    const int code = zip_error_code_zip(zip_get_error(j_.za));
    const bool pw = code == ZIP_ER_NOPASSWD || code == ZIP_ER_WRONGPASSWD;
    Fail(pw ? Kind::Password : Kind::Damaged, entry, ziphandle::ErrorText(zip_get_error(j_.za)));
    return false;
  }
  if (AesWithoutCrc(zs) && !aesauth::Authentic(j_.za, index, zs, j_.password)) {
    Fail(Kind::Damaged, entry, kNotAuthentic);
    return false;
  }
  try {
    NewFile out = folder.Create(mode);
    if (!Copy(zf.get(), zs, out, entry) || cancelled_) return false;
    if (zs.valid & ZIP_STAT_MTIME) out.SetTimes({zs.mtime, 0}, {zs.mtime, 0});
    const FileIdentity placed = out.Identify();
    out.Place(name, replace);
    j_.written[Key(placed)] = false;
    return true;
  } catch (const KestrelError& e) {
    Fail(Kind::Write, entry, e.Description() + ": " + j_.dest);
    return false;
  }
}

// Copies the entry's data; false when reading it failed (reported) or a cancel came.
bool Extractor::Copy(zip_file_t* zf, const zip_stat_t& zs, NewFile& out,
                     const std::string& entry) {
  std::vector<char> buf(kChunk);
  std::uint64_t total = 0;
  const bool encrypted = (zs.valid & ZIP_STAT_ENCRYPTION_METHOD) && zs.encryption_method != 0;
  for (;;) {
    if (j_.cancel.load()) {
      cancelled_ = true;
      return false;
    }
    const zip_int64_t got = zip_fread(zf, buf.data(), buf.size());
    if (got == 0) return true;
    if (got < 0) {
      const zip_error_t* err = zip_file_get_error(zf);
      // Authenticated above; the library's CRC check of such an entry compares with 0.
      if (AesWithoutCrc(zs) && zip_error_code_zip(err) == ZIP_ER_CRC && total == zs.size) {
        return true;
      }
      // A wrong traditional password can pass the header check and end in garbage; AES checks
      // the password apart from the data, so a failure there is the data's own.
      if (IsAes(zs)) Fail(Kind::Damaged, entry, kNotAuthentic);
      else Fail(encrypted ? Kind::Password : Kind::Damaged, entry, ziphandle::ErrorText(err));
      return false;
    }
    out.Write(buf.data(), static_cast<std::size_t>(got));
    total += static_cast<std::uint64_t>(got);
  }
}

bool Extractor::ReadLinkTarget(zip_uint64_t index, const std::string& entry,
                               std::string& target) {
  ZipFilePtr zf(zip_fopen_index(j_.za, index, 0));
  char buf[4096];
  const zip_int64_t got = zf ? zip_fread(zf.get(), buf, sizeof buf) : -1;
  if (got < 0 || static_cast<std::size_t>(got) == sizeof buf) {
    Fail(Kind::Damaged, entry, "link target cannot be read");
    return false;
  }
  target.assign(buf, static_cast<std::size_t>(got));
  return true;
}

// Resolves the link's target through the links of this archive and those already below the
// destination, as the system will once they all exist.
bool Extractor::LinkInside(const Link& link) const {
  const std::vector<std::string> at(link.parts.begin(), link.parts.end() - 1);
  return zipnames::LinkResolvesInside(
      at, link.target, [this](const std::vector<std::string>& parts) -> std::optional<std::string> {
        const auto it = planned_.find(Join(parts, parts.size()));
        if (it != planned_.end()) return it->second;
        return j_.root.LinkBelow(parts);
      });
}

void Extractor::MakeLink(const Link& link) {
  if (!LinkInside(link)) {
    return Fail(Kind::Unsafe, link.entry, "link points outside the destination: " + link.target);
  }
  const ContainedFolder* folder = Folder(link.parts, link.parts.size() - 1, link.entry);
  bool replace = false;
  if (folder == nullptr || !MayWrite(*folder, link.parts, link.when, link.entry, replace)) return;
  try {
    j_.written[Key(folder->MakeLink(link.target, link.parts.back(), replace))] = false;
    ++count_;
  } catch (const KestrelError& e) {
    Fail(Kind::Write, link.entry, e.Description() + ": " + PathOf(link.parts));
  }
}

}  // namespace orvKestrel::unzip

namespace orvKestrel {

using unzip::Extractor;
using unzip::Failure;
using unzip::Key;

std::int32_t ZipLibrary::UnZipEx(const std::string& archive, const std::string& destination,
                                 const std::string& filter, std::int32_t keepFolders,
                                 const std::string& password, std::int32_t overwriteMode,
                                 std::int32_t) {
  failures_.clear();
  kept_.clear();
  archiveRead_ = {};
  lastCancelled_ = false;
  cancel_.store(false);
  lastDestination_ = destination;
  // The archive is read through this one descriptor; its identity is what may be deleted later.
  OpenedFile file;
  try {
    file = OpenIdentified(archive);
  } catch (const KestrelError& e) {
    failures_.push_back({Failure::Kind::Damaged, archive, e.Description()});
    return 0;
  }
  archiveRead_ = file.identity;
  int err = 0;
  ziphandle::ZipPtr za(zip_fdopen(file.fd.get(), ZIP_RDONLY, &err));
  if (!za) {
    failures_.push_back({Failure::Kind::Damaged, archive, ziphandle::ErrorText(err)});
    return 0;
  }
  file.fd.release();  // libzip closes it with the archive
  if (!password.empty()) zip_set_default_password(za.get(), password.c_str());
  std::optional<ContainedFolder> root;
  try {
    root.emplace(fs_.OpenContained(destination));
  } catch (const KestrelError& e) {
    failures_.push_back({Failure::Kind::Write, destination, e.Description()});
    return 0;
  }
  const zipnames::NameFilter names(filter);
  const unzip::Job job{za.get(), *root,    destination, names,  keepFolders != 0,
                       overwriteMode, password, archiveRead_, cancel_, failures_,
                       kept_,     written_, workers_};
  Extractor x(job);
  bool cancelled = false;
  const std::int32_t count = x.Run(cancelled);
  lastCancelled_ = cancelled;
  return count;
}

void ZipLibrary::StartUnzipRun(const std::vector<FileIdentity>& sources) {
  written_.clear();
  for (const FileIdentity& id : sources) written_[Key(id)] = true;
}

void ZipLibrary::SyncExtracted() {
  if (lastDestination_.empty()) return;
  try {
    fs_.OpenContained(lastDestination_).SyncFileSystem();
  } catch (const KestrelError&) {
  }
}

}  // namespace orvKestrel