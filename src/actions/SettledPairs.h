// The pairs of files that a synchronisation's first pass left as they were and that its second
// pass will leave too: both files exist, and the comparison keeps the destination either way
// round. The second pass takes their statuses from here instead of looking both files up again,
// while the run has changed nothing they depend on (StatusCache::Current). Only such pairs are
// kept because a kept status may be older than what another program did since: with it the
// second pass can keep a file, never replace one.
#pragma once

#include "engine/Services.h"
#include "platform/FileSystem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvKestrel::actions {

class SettledPairs {
 public:
  // Whether a job leaves a pair of existing files untouched whenever its comparison keeps the
  // destination: a synchronisation that compares (policy 4) without deleting the source,
  // writing times, or pairing files from different folders (a flattened structure).
  static bool Apply(const job& job);

  // First pass: source and dest, both looked up in fs's current scope, were passed over and
  // the run changed nothing since `changes`. Kept when the second pass, comparing dest as its
  // source with source as its destination, keeps them too.
  void Note(FileSystem& fs, const job& job, std::string_view relative, const std::string& source,
            const std::string& dest, std::uint64_t changes);
  // Second pass, for the files ahead of the one in hand, in list order: whether a pair is kept
  // for relative that was noted at datedFrom or later (FileSystem).
  bool Ahead(std::string_view relative, std::uint64_t datedFrom);
  // Second pass, for the file in hand, in list order: gives fs, inside its scope, the statuses
  // of source (the first pass's destination) and dest kept for relative.
  void Seed(FileSystem& fs, std::string_view relative, const std::string& source,
            const std::string& dest);
  // Room for the pairs of list, whose files lie below root.
  void Reserve(const FileList& list, const std::string& root);
  void Clear() { *this = SettledPairs(); }

 private:
  // A regular file's status without its path, which the second pass names, and its device
  // (kept once in devices_). Its times in seconds are those of modifiedNs, the creation and
  // access times as their distance from it.
  struct Side {
    std::uint64_t size = 0, inode = 0;
    std::int64_t modifiedNs = 0, changedNs = 0;
    std::int32_t created = 0, accessed = 0;
  };
  struct Pair {
    Side first, second;  // the first pass's source and destination
    std::uint32_t changes = 0;  // the run's change count, less base_
    std::uint32_t keyAt = 0;  // the relative path in keys_
    std::uint16_t keyLength = 0;
    std::uint16_t firstDevice = 0, secondDevice = 0;  // in devices_
  };
  // cursor: where the asker's last pair was found, plus one.
  const Pair* Find(std::string_view relative, std::size_t& cursor);
  std::string_view Key(const Pair& pair) const {
    return {keys_.data() + pair.keyAt, pair.keyLength};
  }
  std::optional<std::uint16_t> Device(std::uint64_t device);
  std::optional<Side> SideOf(const PathStatus& status) const;
  PathStatus StatusOf(const std::string& path, const Side& side, std::uint16_t device) const;
  void Index();  // slots_ for every pair

  // A million pairs take about 120 MB: no path is kept whole, and each pair is one record of
  // 96 bytes.
  std::string keys_;  // the relative paths, one after another
  std::vector<Pair> pairs_;
  // Open addressing: 1 + an index into pairs_, 0 when free; made when a file is asked about
  // out of the first pass's order.
  std::vector<std::uint32_t> slots_;
  std::vector<std::uint64_t> devices_;
  std::uint64_t base_ = 0;
  std::size_t ahead_ = 0, inHand_ = 0;  // the askers' cursors
};

}  // namespace orvKestrel::actions
