#include "platform/FolderReadAhead.h"

#include <cerrno>
#include <utility>

namespace orvKestrel {

FolderReadAhead::FolderReadAhead()
    : reader_([this](const std::stop_token& stop) { Read(stop); }) {}

FolderReadAhead::~FolderReadAhead() {
  reader_.request_stop();
  work_.notify_all();
}

void FolderReadAhead::Expect(const std::string& parent, const std::vector<std::string>& folders) {
  if (folders.empty()) return;
  {
    const std::lock_guard lock(m_);
    std::vector<std::shared_ptr<Item>>& below = below_[parent];
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
      auto item = std::make_shared<Item>();
      item->path = *folder;
      if (!items_.emplace(item->path, item).second) continue;  // expected already
      queue_.push_front(item);
      below.push_back(std::move(item));
    }
  }
  work_.notify_one();
}

std::optional<FolderListing> FolderReadAhead::Take(const std::string& folder) {
  std::unique_lock lock(m_);
  const auto found = items_.find(folder);
  if (found == items_.end()) return std::nullopt;
  const std::shared_ptr<Item> item = found->second;
  items_.erase(found);
  if (item->state == State::Waiting) {
    item->state = State::Dropped;  // the reader passes it by
    return std::nullopt;
  }
  read_.wait(lock, [&] { return item->state == State::Read; });
  item->state = State::Dropped;
  --held_;
  FolderListing listing = std::move(item->listing);
  lock.unlock();
  work_.notify_one();  // room for one more
  if (listing.unread) return std::nullopt;
  return listing;
}

void FolderReadAhead::Forget(const std::string& parent) {
  {
    const std::lock_guard lock(m_);
    const auto found = below_.find(parent);
    if (found == below_.end()) return;
    for (const std::shared_ptr<Item>& item : found->second) Drop(*item);
    below_.erase(found);
  }
  work_.notify_one();
}

void FolderReadAhead::Drop(Item& item) {
  if (item.state == State::Dropped) return;
  if (item.state == State::Read) --held_;
  item.state = State::Dropped;
  item.listing = FolderListing();
  items_.erase(item.path);
}

void FolderReadAhead::Read(const std::stop_token& stop) {
  std::unique_lock lock(m_);
  for (;;) {
    if (!work_.wait(lock, stop, [&] { return !queue_.empty() && held_ < kHeld; })) return;
    const std::shared_ptr<Item> item = std::move(queue_.front());
    queue_.pop_front();
    if (item->state == State::Dropped) continue;
    item->state = State::Reading;
    lock.unlock();
    FolderListing listing;
    try {
      listing.entries = ReadFolder(item->path);
      listing.err = listing.entries ? 0 : errno;
    } catch (...) {  // out of memory: the walk lists the folder itself
      listing.unread = true;
    }
    lock.lock();
    if (item->state == State::Dropped) continue;  // forgotten meanwhile
    item->listing = std::move(listing);
    item->state = State::Read;
    ++held_;
    read_.notify_all();
  }
}

}  // namespace orvKestrel
