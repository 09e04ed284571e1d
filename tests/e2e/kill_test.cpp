// `kestrel run` on a large copy and a large move, killed with SIGKILL at random moments. After
// each kill no file under a destination name is partial, no source file is lost, the job file
// still reads; the next run completes the job. A new file is written without a name until it is
// complete, so a kill leaves nothing behind in the destination. The seed is printed;
// KESTREL_KILL_SEED repeats a run.
#include "e2e/E2eSupport.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <set>
#include <thread>

namespace e2e {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFolders = 20;
constexpr int kFilesPerFolder = 50;
constexpr int kKillsPerJob = 10;

std::string Contents(int i) {
  std::mt19937 rng(static_cast<unsigned>(i) * 7919u + 1);
  std::string data = "file " + std::to_string(i) + "\n";
  data.resize(16 * 1024 + rng() % (48 * 1024), static_cast<char>('a' + i % 26));
  for (std::size_t k = 0; k < data.size(); k += 61) data[k] = static_cast<char>(rng());
  return data;
}

unsigned Seed() {
  if (const char* s = std::getenv("KESTREL_KILL_SEED")) return static_cast<unsigned>(std::stoul(s));
  return 20261122u;
}

class Kill : public ::testing::Test {
 protected:
  Kill() : dir_("kill") {
    for (int f = 0; f < kFolders; ++f) {
      for (int i = 0; i < kFilesPerFolder; ++i) {
        const int n = f * kFilesPerFolder + i;
        originals_["d" + std::to_string(f) + "/f" + std::to_string(i) + ".bin"] = Contents(n);
      }
    }
  }

  ~Kill() override {
    std::printf("[ kill     ] %d kills (seed %u), %d in the middle of the file step, %d "
                "temporary files left behind\n",
                kills_, Seed(), interrupted_, leftovers_);
  }

  void Prepare(int action) {
    move_ = action == 1;
    if (move_) {
      // There a move copies and deletes, and can be caught half-way.
      const std::string other = OtherFileSystemThan(fs::temp_directory_path());
      if (!other.empty()) other_.emplace("kill-dst", other);
    }
    dst_ = other_ ? other_->root() / "dst" : dir_ / "dst";
    Put(dir_ / "jobs/big.kjb",
        "[Job]\nName=big\nFrom=" + (dir_ / "src").string() + "\nTo=" + dst_.string() +
            "\nAction=" + std::to_string(action) +
            // A copy keeps what is there (complete files stay complete); a move deletes a source
            // whose destination exists: a copy between file systems may have been caught after
            // its destination was in place and before its source went.
            "\nSubFolder=1\nFStruct=1\nExist=" + (move_ ? "1" : "0") +
            "\nDoPreview=0\nIntervalType=0\nInterval=1\nCounter=1\n");
  }

  // A copy leaves its sources as they are (CheckAfterKill makes sure), so only a move needs them
  // written again.
  void FreshTrees() {
    std::error_code ec;
    fs::remove_all(dst_, ec);
    fs::create_directories(dst_);
    if (!move_ && fs::exists(dir_ / "src")) return;
    fs::remove_all(dir_ / "src", ec);
    for (const auto& [rel, data] : originals_) Put(dir_ / "src" / rel, data);
  }

  std::vector<std::string> RunArgs() const {
    return {"run", (dir_ / "jobs").string(), "--events", "jsonl"};
  }

  // What holds at any moment of a run.
  void CheckAfterKill(const std::string& where) {
    SCOPED_TRACE(where);
    const auto src = Files(dir_ / "src");
    const auto dst = Files(dst_);
    std::size_t visible = 0;
    for (const auto& [rel, data] : dst) {
      if (Hidden(rel)) {
        ADD_FAILURE() << "a kill left a file behind: " << rel;
        ++leftovers_;
        continue;
      }
      ++visible;
      const auto it = originals_.find(rel);
      ASSERT_NE(it, originals_.end()) << "unexpected file " << rel;
      EXPECT_EQ(data.size(), it->second.size()) << "partial file under its name: " << rel;
      EXPECT_TRUE(data == it->second) << "wrong contents under its name: " << rel;
    }
    if (visible > 0 && visible < originals_.size()) ++interrupted_;
    for (const auto& [rel, data] : src) {
      const auto it = originals_.find(rel);
      ASSERT_NE(it, originals_.end()) << "unexpected source file " << rel;
      EXPECT_TRUE(data == it->second) << "source changed: " << rel;
    }
    for (const auto& [rel, data] : originals_) {
      if (move_) {
        EXPECT_TRUE(src.contains(rel) || dst.contains(rel)) << "lost: " << rel;
      } else {
        EXPECT_TRUE(src.contains(rel)) << "the copy removed its source: " << rel;
      }
    }
    const RunResult list =
        RunKestrel({"list", (dir_ / "jobs").string(), "--events", "jsonl"}, dir_.root());
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_NE(list.out.find("\"From\""), std::string::npos) << "the job file no longer reads";
    std::set<std::string> jobFiles;
    for (const auto& [rel, data] : Files(dir_ / "jobs")) {
      if (!Hidden(rel)) jobFiles.insert(rel);
    }
    EXPECT_EQ(jobFiles, std::set<std::string>{"big.kjb"});
  }

  void CheckComplete() {
    std::map<std::string, std::string> visible;
    for (const auto& [rel, data] : Files(dst_)) {
      if (!Hidden(rel)) visible[rel] = data;
    }
    EXPECT_TRUE(visible == originals_) << "the job is not complete: " << visible.size() << " of "
                                       << originals_.size();
    if (move_) {
      EXPECT_TRUE(Files(dir_ / "src").empty()) << "the move left sources behind";
    }
  }

  void KillAtRandom(int action) {
    Prepare(action);
    FreshTrees();
    const auto t0 = Clock::now();
    const RunResult clean = RunKestrel(RunArgs(), dir_.root());
    const auto fullUs =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - t0).count();
    ASSERT_EQ(clean.exitCode, 0) << clean.err;
    CheckComplete();
    std::printf("[ kill     ] %s%s: a whole run takes %.3f s\n", move_ ? "move" : "copy",
                other_ ? " to another file system" : "", static_cast<double>(fullUs) / 1e6);
    std::mt19937 rng(Seed() + static_cast<unsigned>(action));
    for (int k = 0; k < kKillsPerJob && !HasFailure(); ++k) {
      FreshTrees();
      const auto delay = std::chrono::microseconds(rng() % static_cast<unsigned>(fullUs + 1));
      const pid_t pid = StartKestrel(RunArgs(), dir_.root());
      std::this_thread::sleep_for(delay);
      ::kill(pid, SIGKILL);
      const ChildEnd end = WaitFor(pid);
      ++kills_;
      CheckAfterKill(std::string(move_ ? "move" : "copy") + " killed after " +
                     std::to_string(delay.count()) + " us (seed " + std::to_string(Seed()) +
                     ", kill " + std::to_string(k) + ")" +
                     (end.signal == SIGKILL ? "" : ", but it had ended by itself"));
      const RunResult again = RunKestrel(RunArgs(), dir_.root());
      EXPECT_EQ(again.exitCode, 0) << again.err;
      CheckComplete();
    }
  }

  Scratch dir_;
  std::optional<Scratch> other_;
  fs::path dst_;
  bool move_ = false;
  std::map<std::string, std::string> originals_;
  int kills_ = 0, interrupted_ = 0, leftovers_ = 0;
};

TEST_F(Kill, ACopyKilledAnywhereLeavesCompleteFilesAndTheNextRunFinishesIt) { KillAtRandom(0); }

TEST_F(Kill, AMoveKilledAnywhereLosesNothingAndTheNextRunFinishesIt) { KillAtRandom(1); }

}  // namespace
}  // namespace e2e
