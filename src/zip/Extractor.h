// The extraction of one archive (ZipLibrary::UnZipEx): every entry decided and written in order
// on the calling thread (modUnZip.cpp); with workers, the entries they inflate meanwhile
// (ExtractAhead.cpp).
#pragma once

#include "platform/Contained.h"
#include "zip/UnpackAhead.h"
#include "zip/ZipHandle.h"
#include "zip/ZipNames.h"
#include "zip/modZIP32vb.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvKestrel::unzip {

using Failure = ZipLibrary::EntryFailure;
using Kind = Failure::Kind;
using Kept = ZipLibrary::EntryKept;
using Protected = std::map<std::pair<std::uint64_t, std::uint64_t>, bool>;  // true: an archive
using ziphandle::ZipFilePtr;

inline std::string Join(const std::vector<std::string>& parts, std::size_t count) {
  std::string out;
  for (std::size_t k = 0; k < count; ++k) out += (k == 0 ? "" : "/") + parts[k];
  return out;
}

inline std::pair<std::uint64_t, std::uint64_t> Key(const FileIdentity& id) {
  return {id.device, id.inode};
}

// What an extraction is asked to do, and where it reports.
struct Job {
  zip_t* za;
  const ContainedFolder& root;
  const std::string& dest;  // root's path, for the texts
  const zipnames::NameFilter& filter;
  bool keep;
  int overwrite;
  const std::string& password;
  FileIdentity archive;
  std::atomic<bool>& cancel;
  std::vector<Failure>& failures;
  std::vector<Kept>& kept;
  Protected& written;
  int workers;  // above 1: entries are inflated on that many threads
};

struct Link {
  std::vector<std::string> parts;  // where it goes, below the destination
  std::string target, entry;
  time_t when;
};

// An entry a worker inflates, with what naming it in its turn needs.
struct Pending {
  std::shared_ptr<const ContainedFolder> folder;  // first: it outlives the file made in it
  std::shared_ptr<zipahead::Unpack> item;
  zip_uint64_t index;
  zip_stat_t zs;
  std::uint32_t mode;
  std::string path, name, entry;
  bool replace;
  std::vector<std::function<void()>> after;  // what later entries report, in their order
};

class Extractor {
 public:
  explicit Extractor(const Job& job) : j_(job) {
    if (j_.workers > 1) ahead_.emplace(j_.workers);
  }
  // Files extracted; cancelled tells whether CancelZip ended it.
  std::int32_t Run(bool& cancelled);

 private:
  void Entry(zip_uint64_t index);
  bool Levels(zip_uint64_t index, const std::string& entry, bool unix,
              std::vector<std::string>& parts);
  const ContainedFolder* Folder(const std::vector<std::string>& parts, std::size_t count,
                                const std::string& entry);
  std::shared_ptr<const ContainedFolder> Handle(const ContainedFolder* folder) const;
  // Hands a file entry to the workers; false when it takes the usual way.
  bool Hand(zip_uint64_t index, const zip_stat_t& zs, std::uint32_t mode,
            const ContainedFolder* folder, const std::vector<std::string>& parts, bool replace,
            const std::string& entry);
  void Settle(const std::vector<std::string>& parts, std::size_t count);
  void CommitFront();
  void Drain() {
    while (!pending_.empty() && !cancelled_) CommitFront();
  }
  // What an entry reports comes after what the entries before it report.
  void Record(std::function<void()> report) {
    if (pending_.empty() || committing_) report();
    else pending_.back().after.push_back(std::move(report));
  }
  void Keep(Kept::Why why, const std::string& entry, const std::string& path) {
    Record([this, why, entry, path] { j_.kept.push_back({why, entry, path}); });
  }
  // Whether the entry may be written at name in folder; replace tells whether it replaces.
  bool MayWrite(const ContainedFolder& folder, const std::vector<std::string>& parts,
                time_t when, const std::string& entry, bool& replace);
  bool WriteFile(zip_uint64_t index, const zip_stat_t& zs, std::uint32_t mode,
                 const ContainedFolder& folder, const std::string& name, bool replace,
                 const std::string& entry);
  bool Copy(zip_file_t* zf, const zip_stat_t& zs, NewFile& out, const std::string& entry);
  bool ReadLinkTarget(zip_uint64_t index, const std::string& entry, std::string& target);
  bool LinkInside(const Link& link) const;
  void MakeLink(const Link& link);
  std::string PathOf(const std::vector<std::string>& parts) const {
    return j_.dest + (j_.dest.ends_with('/') ? "" : "/") + Join(parts, parts.size());
  }
  void Fail(Kind kind, const std::string& entry, const std::string& reason) {
    Record([this, kind, entry, reason] { j_.failures.push_back({kind, entry, reason}); });
  }

  const Job& j_;
  // The folder last used, by its levels below the destination.
  std::vector<std::string> openParts_;
  std::shared_ptr<const ContainedFolder> open_;
  std::vector<Link> links_;
  std::map<std::string, std::string> planned_;  // links of this archive: path -> target
  std::int32_t count_ = 0;
  bool cancelled_ = false;
  bool committing_ = false;
  std::deque<Pending> pending_;
  std::multiset<std::string> pendingPaths_;
  std::uint64_t pendingBytes_ = 0;
  std::optional<zipahead::UnpackAhead> ahead_;  // last: its workers stop before pending_ goes
};

}  // namespace orvKestrel::unzip
