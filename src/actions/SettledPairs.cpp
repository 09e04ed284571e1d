#include "actions/SettledPairs.h"

#include "actions/modCheckExistingFiles.h"
#include "jobs/JobCodes.h"
#include "selection/Selection.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace orvKestrel::actions {
namespace {

constexpr std::int64_t kBillion = 1'000'000'000;
// Devices told apart, each searched for at every pair: the two folders and a few mounted below.
constexpr std::size_t kDevicesKept = 16;

std::time_t Seconds(std::int64_t ns) {
  return static_cast<std::time_t>(ns / kBillion - (ns % kBillion < 0 ? 1 : 0));
}

// A status that stands for the file itself (a regular file reached without a link), whose
// times the pair can give back exactly.
bool Plain(const PathStatus* status) {
  return status != nullptr && status->err == 0 && status->stat.isFile && !status->link &&
         status->stat.size == status->id.size &&
         status->stat.times.written == Seconds(status->id.modifiedNs);
}

std::size_t HashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }

}  // namespace

bool SettledPairs::Apply(const job& job) {
  return job.Action == action::kSync && job.Exist == 4 && job.EFSDelete != 1 &&
         !SetsFileTimes(job) && (job.FStruct == 1 || job.SubFolder == 0);
}

void SettledPairs::Note(FileSystem& fs, const job& job, std::string_view relative,
                        const std::string& source, const std::string& dest,
                        std::uint64_t changes) {
  if (relative.empty() || fs.Changes() != changes) return;
  if (pairs_.empty()) base_ = changes;
  const PathStatus* first = fs.Known(source);
  const PathStatus* second = fs.Known(dest);
  if (!Plain(first) || !Plain(second) ||
      Qualifies(second->stat, first->stat, static_cast<std::int16_t>(job.ExtFileTime),
                job.EFSelect)) {
    return;
  }
  // What does not fit a pair's fields is looked up again by the second pass.
  if (!std::in_range<std::uint32_t>(changes - base_) ||
      !std::in_range<std::uint32_t>(keys_.size()) ||
      !std::in_range<std::uint16_t>(relative.size()) ||
      !std::in_range<std::uint32_t>(pairs_.size() + 1)) {
    return;
  }
  const auto firstSide = SideOf(*first), secondSide = SideOf(*second);
  if (!firstSide || !secondSide) return;
  const auto firstDevice = Device(first->id.device), secondDevice = Device(second->id.device);
  if (!firstDevice || !secondDevice) return;
  pairs_.push_back({*firstSide, *secondSide, static_cast<std::uint32_t>(changes - base_),
                    static_cast<std::uint32_t>(keys_.size()),
                    static_cast<std::uint16_t>(relative.size()), *firstDevice, *secondDevice});
  keys_.append(relative);
}

void SettledPairs::Seed(FileSystem& fs, std::string_view relative, const std::string& source,
                        const std::string& dest) {
  const Pair* pair = Find(relative, inHand_);
  if (pair == nullptr) return;
  fs.Seed(base_ + pair->changes, StatusOf(source, pair->second, pair->secondDevice));
  fs.Seed(base_ + pair->changes, StatusOf(dest, pair->first, pair->firstDevice));
}

std::optional<SettledPairs::Side> SettledPairs::SideOf(const PathStatus& status) const {
  const std::time_t written = Seconds(status.id.modifiedNs);
  std::time_t created = 0, accessed = 0;
  if (__builtin_sub_overflow(status.stat.times.created, written, &created) ||
      __builtin_sub_overflow(status.stat.times.accessed, written, &accessed) ||
      !std::in_range<std::int32_t>(created) || !std::in_range<std::int32_t>(accessed)) {
    return std::nullopt;
  }
  return Side{status.id.size, status.id.inode, status.id.modifiedNs, status.id.changedNs,
              static_cast<std::int32_t>(created), static_cast<std::int32_t>(accessed)};
}

bool SettledPairs::Ahead(std::string_view relative, std::uint64_t datedFrom) {
  const Pair* pair = Find(relative, ahead_);
  return pair != nullptr && base_ + pair->changes >= datedFrom;
}

PathStatus SettledPairs::StatusOf(const std::string& path, const Side& side,
                                  std::uint16_t device) const {
  const std::time_t written = Seconds(side.modifiedNs);
  const FileTimes times{written + side.created, written + side.accessed, written};
  const FileIdentity id{devices_[device], side.inode, side.size, side.modifiedNs, side.changedNs};
  return PathStatus{path, 0, FileStat{false, true, side.size, times}, id, false};
}

std::optional<std::uint16_t> SettledPairs::Device(std::uint64_t device) {
  const auto known = std::find(devices_.begin(), devices_.end(), device);
  if (known != devices_.end()) return static_cast<std::uint16_t>(known - devices_.begin());
  if (devices_.size() == kDevicesKept) return std::nullopt;
  devices_.push_back(device);
  return static_cast<std::uint16_t>(devices_.size() - 1);
}

void SettledPairs::Reserve(const FileList& list, const std::string& root) {
  std::size_t text = 0;
  for (const std::string& file : list) text += file.size() - std::min(file.size(), root.size());
  keys_.reserve(text);
  pairs_.reserve(list.size());
}

// The second walk mostly lists the files in the first walk's order (one file system lists equal
// names in one order): the pair after the asker's last one is tried before any other.
const SettledPairs::Pair* SettledPairs::Find(std::string_view relative, std::size_t& cursor) {
  if (cursor < pairs_.size() && Key(pairs_[cursor]) == relative) return &pairs_[cursor++];
  if (pairs_.empty()) return nullptr;
  if (slots_.empty()) Index();
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t at = HashOf(relative) & mask; slots_[at] != 0; at = (at + 1) & mask) {
    const std::size_t index = slots_[at] - 1;
    if (Key(pairs_[index]) == relative) {
      cursor = index + 1;
      return &pairs_[index];
    }
  }
  return nullptr;
}

// At most half the slots are taken: a miss ends after a probe or two.
void SettledPairs::Index() {
  slots_.assign(std::bit_ceil(2 * pairs_.size()), 0);
  const std::size_t mask = slots_.size() - 1;
  for (std::uint32_t i = 0; i < pairs_.size(); ++i) {
    std::size_t at = HashOf(Key(pairs_[i])) & mask;
    while (slots_[at] != 0) at = (at + 1) & mask;
    slots_[at] = i + 1;
  }
}

}  // namespace orvKestrel::actions
