// The entries of an extraction that workers inflate: handed over in order, named in order.
#include "platform/SysError.h"
#include "zip/Ahead.h"
#include "zip/Extractor.h"

namespace orvKestrel::unzip {

std::shared_ptr<const ContainedFolder> Extractor::Handle(const ContainedFolder* folder) const {
  if (folder == open_.get()) return open_;
  return {std::shared_ptr<const ContainedFolder>(), folder};  // the root outlives the extraction
}

// An entry whose name, or a folder on its way, is still to be named by a worker's entry waits
// for it: the decision must see what the entries before it left.
void Extractor::Settle(const std::vector<std::string>& parts, std::size_t count) {
  for (std::size_t k = 1; k <= count && !pendingPaths_.empty(); ++k) {
    if (pendingPaths_.count(Join(parts, k)) != 0) return Drain();
  }
}

bool Extractor::Hand(zip_uint64_t index, const zip_stat_t& zs, std::uint32_t mode,
                     const ContainedFolder* folder, const std::vector<std::string>& parts,
                     bool replace, const std::string& entry) {
  constexpr auto kNeeded = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC | ZIP_STAT_COMP_METHOD;
  if (!ahead_ || (zs.valid & kNeeded) != kNeeded || zs.size > zipahead::kWholeLimit ||
      zs.comp_size > zipahead::kWholeLimit ||
      (zs.comp_method != ZIP_CM_DEFLATE && zs.comp_method != ZIP_CM_STORE) ||
      ((zs.valid & ZIP_STAT_ENCRYPTION_METHOD) && zs.encryption_method != ZIP_EM_NONE)) {
    return false;
  }
  auto item = std::make_shared<zipahead::Unpack>();
  item->stored = zs.comp_method == ZIP_CM_STORE;
  item->size = zs.size;
  item->crc = zs.crc;
  if (zs.valid & ZIP_STAT_MTIME) item->modified = zs.mtime;
  // The raw data; anything unusual is left to the usual way, which reports it.
  ZipFilePtr zf(zip_fopen_index(j_.za, index, ZIP_FL_COMPRESSED));
  item->packed.resize(static_cast<std::size_t>(zs.comp_size));
  if (!zf || zip_fread(zf.get(), item->packed.data(), zs.comp_size) !=
                 static_cast<zip_int64_t>(zs.comp_size)) {
    return false;
  }
  try {
    item->out.emplace(folder->Create(mode));
  } catch (const KestrelError&) {
    return false;
  }
  const std::string path = Join(parts, parts.size());
  pendingBytes_ += zs.size + zs.comp_size;
  pendingPaths_.insert(path);
  ahead_->Submit(item);
  pending_.push_back({Handle(folder), std::move(item), index, zs, mode, path, parts.back(), entry,
                      replace, {}});
  constexpr std::uint64_t kHeldCap = std::uint64_t{32} << 20;
  while (!cancelled_ && (pending_.size() > 4 * static_cast<std::size_t>(j_.workers) ||
                         pendingBytes_ > kHeldCap)) {
    CommitFront();
  }
  return true;
}

// Names the earliest entry the workers have, as the usual way would have: its line, its
// failure and then what the entries after it reported while it was inflated.
void Extractor::CommitFront() {
  Pending p = std::move(pending_.front());
  pending_.pop_front();
  pendingPaths_.erase(pendingPaths_.find(p.path));
  pendingBytes_ -= p.zs.size + p.zs.comp_size;
  ahead_->Wait(*p.item);
  if (j_.cancel.load()) {
    cancelled_ = true;
    ahead_.reset();  // its workers may still write into the files dropped here
    pending_.clear();
    return;
  }
  committing_ = true;
  using Result = zipahead::Unpack::Result;
  if (p.item->result == Result::Retry) {
    p.item->out.reset();
    if (WriteFile(p.index, p.zs, p.mode, *p.folder, p.name, p.replace, p.entry)) ++count_;
  } else if (p.item->result == Result::WriteFailed) {
    Fail(Kind::Write, p.entry, p.item->why + ": " + j_.dest);
  } else {
    try {
      const FileIdentity placed = p.item->out->Identify();
      p.item->out->Place(p.name, p.replace);
      j_.written[Key(placed)] = false;
      ++count_;
    } catch (const KestrelError& e) {
      Fail(Kind::Write, p.entry, e.Description() + ": " + j_.dest);
    }
  }
  for (auto& report : p.after) report();
  committing_ = false;
}

}  // namespace orvKestrel::unzip
