// The workers' pool: tasks begun in order and no further ahead than allowed, dropped when
// passed or stopped. Copies made ahead: named only for the source they were made from, never
// over an existing file unless asked, and gone without a trace (no entry, no descriptor) when
// not used.
#include "platform/OrderedPool.h"
#include "platform/Prefetch.h"
#include "platform/SysError.h"

#include "Rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <latch>
#include <mutex>
#include <numeric>
#include <thread>

namespace orvKestrel::testing {
namespace {

std::size_t OpenDescriptors() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                std::filesystem::directory_iterator()));
}

using Prefetch = Rig;

TEST_F(Prefetch, PoolBeginsTasksInOrderAndNoFurtherAheadThanAllowed) {
  constexpr std::size_t kTasks = 24;
  std::vector<std::size_t> all(kTasks);
  std::iota(all.begin(), all.end(), 0);
  for (const unsigned workers : {1u, 3u}) {
    SCOPED_TRACE(workers);
    std::atomic<std::size_t> hand{0};
    std::mutex m;
    std::vector<std::size_t> begun;
    std::vector<char> finished(kTasks, 0);
    {
      OrderedPool pool(workers, [](std::size_t beyond) { return beyond < 2; });
      pool.Add(std::vector<OrderedPool::Task>(kTasks, [&](std::size_t k, unsigned worker) {
        EXPECT_LT(worker, workers);
        EXPECT_LE(k, hand.load() + 1) << "begun too far ahead";
        {
          const std::lock_guard lock(m);
          begun.push_back(k);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        finished[k] = 1;
      }));
      for (std::size_t k = 0; k < kTasks; ++k) {
        hand = k;
        EXPECT_TRUE(pool.Wait(k));
        EXPECT_TRUE(finished[k]) << k;
      }
    }
    if (workers > 1) std::sort(begun.begin(), begun.end());  // begun in order, noted in any
    EXPECT_EQ(begun, all);
  }
}

TEST_F(Prefetch, PoolDropsWhatNoWorkerBeganAndStopsAWaitingTask) {
  std::vector<char> ran(6, 0);
  std::promise<void> go;
  std::latch first(1), fourth(1);
  bool near = true;
  {
    OrderedPool pool(1);
    const auto note = [&](std::size_t k, unsigned) { ran[k] = 1; };
    pool.Add({[&, gate = go.get_future().share()](std::size_t k, unsigned) {
                ran[k] = 1;
                first.count_down();
                gate.wait();  // holds the only worker
              },
              note, note, note,
              [&](std::size_t k, unsigned) {
                ran[k] = 1;
                fourth.count_down();
                near = pool.Near(100, 1);  // the consumer never comes near: until the pool stops
              },
              note});
    first.wait();
    EXPECT_FALSE(pool.Wait(2, true)) << "not begun: the consumer does it";
    go.set_value();
    EXPECT_TRUE(pool.Wait(3));
    EXPECT_FALSE(pool.Wait(2)) << "passed";
    fourth.wait();
  }  // stops task 4's wait; task 5 is never begun
  EXPECT_EQ(ran, (std::vector<char>{1, 0, 0, 1, 1, 0}));
  EXPECT_FALSE(near);
}

TEST_F(Prefetch, ACopyMadeAheadIsNamedOnlyForTheSourceItWasMadeFrom) {
  struct Case {
    const char* name;
    bool changeSource;  // rewritten (same length) after the copy was made
    bool existing;
    bool overwrite;
    std::string expected;  // at Dest afterwards
    int error;
  };
  const Case cases[] = {
      {"unchanged", false, false, false, "contents", 0},
      {"rewritten after it was read", true, false, false, "CONTENTS", 0},
      {"replacing", false, true, true, "contents", 0},
      {"replacing a rewritten source", true, true, true, "CONTENTS", 0},
      {"an existing name is kept", false, true, false, "old", EEXIST},
  };
  const std::string a = Src("a.txt");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(dst);
    std::filesystem::create_directories(dst);
    Source("a.txt", "contents", kOld);
    ::chmod(a.c_str(), 0640);
    const auto into = svc.fs.OpenBeneath(dst, "", false);
    auto ready = PrepareCopy(nullptr, a, into->fd(), into->path(), false, 1 << 20);
    ASSERT_TRUE(ready.has_value());
    if (c.changeSource) {
      // Change times tick coarsely (a jiffy on some file systems): the rewrite comes later.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      Source("a.txt", "CONTENTS", kOld);  // the same length and time: only the change time tells
    }
    if (c.existing) WriteFile(Dst("a.txt"), "old");
    int error = 0;
    try {
      svc.fs.CopyFile(a, *into, "a.txt", c.overwrite, &*ready);
    } catch (const KestrelError& e) {
      error = e.Number();
    }
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(ReadFile(Dst("a.txt")), c.expected);
    EXPECT_EQ(Names(dst), std::vector<std::string>{"a.txt"});
    if (error == 0) {
      EXPECT_EQ(ModeOf(Dst("a.txt")), 0640u);
      EXPECT_EQ(WriteTime(Dst("a.txt")), kOld);
    }
  }
}

TEST_F(Prefetch, UnusedCopiesLeaveNothingAndGuessesSkipWhatWillNotBeCopied) {
  const std::size_t before = OpenDescriptors();
  for (int i = 0; i < 8; ++i) Source("s" + std::to_string(i), "file " + std::to_string(i));
  Dest("s3", "there");
  {
    CopyAhead ahead(3, dst);
    std::vector<CopyOrder> orders;
    for (int i = 0; i < 8; ++i) {
      orders.push_back({Src("s" + std::to_string(i)), Dst("s" + std::to_string(i)), true, false, i == 5});
    }
    ahead.Add(std::move(orders));
    for (int i : {1, 3, 5, 6}) {
      auto copy = ahead.Take(static_cast<std::size_t>(i));
      // Not begun yet is left to the caller; an existing destination (3) or a move within one
      // file system (5) is never copied ahead.
      if (i == 3 || i == 5) {
        EXPECT_FALSE(copy.has_value()) << i;
      } else if (copy) {
        EXPECT_EQ(copy->Read().size, 6u) << i;
      }
    }
    EXPECT_FALSE(ahead.Take(2).has_value()) << "an earlier file was dropped";
  }  // files 7 and the copies not taken are closed here
  EXPECT_EQ(Names(dst), std::vector<std::string>{"s3"});
  EXPECT_EQ(OpenDescriptors(), before);
}

// What the workers looked up stands in for the run's own look only while the run has changed
// nothing since: a file it wrote meanwhile is never judged by the older look.
TEST_F(Prefetch, LookedUpStatusesCountOnlyWhileTheRunChangedNothing) {
  FileSystem fs;
  const FileSystem::StatusScope scope(fs);
  const std::string made = Dst("made.txt"), absent = Dst("absent.txt");
  const std::uint64_t before = fs.Changes();
  const PathStatus stale = StatusOf(made);
  PathStatus claimed{absent, 0, {}, 0};  // a worker's word for a file that is not there
  claimed.stat.isFile = true;
  fs.Seed(before, claimed);
  EXPECT_TRUE(fs.FileExists(absent)) << "a current look is taken as it is";
  fs.WriteFileAtomic(made, "x");
  fs.Seed(before, stale);
  EXPECT_TRUE(fs.FileExists(made)) << "a look older than the run's change is not";

  // A worker's open folder is used only while the run changed nothing since it was opened: the
  // run may have put another folder in its place.
  Dest("sub/f.txt", "old");
  FolderStatuses worker;
  EXPECT_EQ(worker.Of(Dst("sub/f.txt"), 1).stat.size, 3u);
  std::filesystem::rename(Dst("sub"), Dst("gone"));
  Dest("sub/f.txt", "newer");
  EXPECT_EQ(worker.Of(Dst("sub/f.txt"), 2).stat.size, 5u);
}

}  // namespace
}  // namespace orvKestrel::testing
