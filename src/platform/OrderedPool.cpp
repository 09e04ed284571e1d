#include "platform/OrderedPool.h"

#include <algorithm>
#include <utility>

namespace orvKestrel {

OrderedPool::OrderedPool(unsigned workers, std::function<bool(std::size_t)> mayRunAhead)
    : mayRunAhead_(std::move(mayRunAhead)) {
  threads_.reserve(workers);
  for (unsigned w = 0; w < workers; ++w) threads_.emplace_back([this, w] { Work(w); });
}

OrderedPool::~OrderedPool() {
  {
    const std::lock_guard lock(m_);
    stopping_.store(true);
  }
  claimable_.notify_all();
  near_.notify_all();
  threads_.clear();  // joins
}

void OrderedPool::Add(std::vector<Task> tasks) {
  {
    const std::lock_guard lock(m_);
    for (Task& task : tasks) entries_.push_back({std::move(task)});
  }
  if (tasks.size() == 1) claimable_.notify_one();
  else claimable_.notify_all();
}

bool OrderedPool::Wait(std::size_t index, bool begunOnly) {
  std::unique_lock lock(m_);
  Pass(index);
  Entry* entry = Find(index);
  if (entry == nullptr || entry->state == State::Dropped) return false;
  if (begunOnly && entry->state == State::Queued) {  // then it is next_: see Pass
    *entry = {nullptr, State::Dropped};
    ++next_;
    return false;
  }
  awaited_ = index;
  done_.wait(lock, [&] { return Find(index)->state == State::Done; });
  awaited_ = kNone;
  return true;
}

bool OrderedPool::Near(std::size_t index, std::size_t window) {
  std::unique_lock lock(m_);
  near_.wait(lock, [&] { return stopping_.load() || index < reached_ + window; });
  return !stopping_.load();
}

// Drops the tasks before index (one still running finishes unseen) and moves the bound on.
void OrderedPool::Pass(std::size_t index) {
  for (; base_ < index && !entries_.empty(); ++base_) entries_.pop_front();
  next_ = std::max(next_, base_);
  if (index > reached_) {
    reached_ = index;
    near_.notify_all();
  }
  // Without a limit the bound never holds a worker back: no wake-up per task.
  if (mayRunAhead_) claimable_.notify_all();
}

void OrderedPool::Work(unsigned worker) {
  std::unique_lock lock(m_);
  for (;;) {
    claimable_.wait(lock, [&] {  // the task in hand is begun whatever the owner's limit
      return stopping_.load() ||
             (next_ < base_ + entries_.size() &&
              (next_ <= reached_ || !mayRunAhead_ || mayRunAhead_(next_ - reached_)));
    });
    if (stopping_.load()) return;
    const std::size_t index = next_++;
    Entry& entry = entries_[index - base_];
    entry.state = State::Running;
    Task task = std::move(entry.task);
    lock.unlock();
    task(index, worker);
    task = nullptr;  // what it holds goes outside the lock
    lock.lock();
    if (Entry* done = Find(index)) done->state = State::Done;
    // Only the task the consumer waits for wakes it: a wake-up per task finished would cost a
    // switch of threads per file once the consumer keeps up with the workers. It is woken
    // with the lock released, which it would otherwise wait for at once.
    if (index == awaited_) {
      lock.unlock();
      done_.notify_all();
      lock.lock();
    }
  }
}

}  // namespace orvKestrel
