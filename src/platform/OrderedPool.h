// Worker threads that run tasks in the order they are given, ahead of one consumer that takes
// their results in that order: the copy, deflate and inflate look-aheads each give it their own
// task and limit. Tasks the consumer has passed that no worker began are dropped.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orvKestrel {

class OrderedPool {
 public:
  // What a worker does with task index, with the tools of worker (0 .. workers-1); it reports
  // nothing and throws nothing.
  using Task = std::function<void(std::size_t index, unsigned worker)>;

  // mayRunAhead(n): whether a task n places beyond the one in hand may be begun (asked under
  // the pool's lock); without it any may.
  explicit OrderedPool(unsigned workers, std::function<bool(std::size_t)> mayRunAhead = {});
  ~OrderedPool();  // stops and joins the workers; tasks not begun are dropped

  // The next tasks, numbered from 0 in the order given; the workers are woken once per call.
  void Add(std::vector<Task> tasks);
  // The consumer has task index in hand (indexes only grow); also when the owner's limit eased.
  void Reach(std::size_t index) {
    const std::lock_guard lock(m_);
    Pass(index);
  }
  // Reach(index), then waits until task index is through; false when no worker began it, which
  // begunOnly makes the answer for a task not begun yet (it is dropped: the consumer does it).
  bool Wait(std::size_t index, bool begunOnly = false);
  // For a running task: waits until the consumer is within window of it; false when stopping.
  bool Near(std::size_t index, std::size_t window);
  bool Stopping() const { return stopping_.load(); }

 private:
  enum class State : unsigned char { Queued, Running, Done, Dropped };
  struct Entry {
    Task task;
    State state = State::Queued;
  };
  void Work(unsigned worker);
  void Pass(std::size_t index);
  Entry* Find(std::size_t index) {
    return index >= base_ && index - base_ < entries_.size() ? &entries_[index - base_] : nullptr;
  }

  const std::function<bool(std::size_t)> mayRunAhead_;
  std::mutex m_;
  std::condition_variable claimable_, done_, near_;
  std::deque<Entry> entries_;  // tasks base_ onwards
  std::size_t base_ = 0, next_ = 0;  // next_: the next task to begin
  std::size_t reached_ = 0;          // the task the consumer has in hand
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  std::size_t awaited_ = kNone;      // the task the consumer waits for, if any
  std::atomic<bool> stopping_{false};
  std::vector<std::jthread> threads_;  // last: joined before the rest goes
};

}  // namespace orvKestrel
