// `kestrel run` on large copies, a move, a replacement and a zip job that deletes what it packed,
// killed with SIGKILL at random moments. After each kill no file under a destination name is
// partial, no source file is lost, the job file still reads; the next run completes the job and
// leaves no temporary file anywhere. The seed is printed; KESTREL_KILL_SEED repeats a run.
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
constexpr int kKillsPerJob = 6;

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

// One kind of job that is killed: its keys after From and To, and what a kill may leave.
struct Scenario {
  const char* name;
  int action;
  const char* keys;
  bool otherFileSystem;  // the destination on another file system, where a move copies
  bool olderCopies;      // the destination holds an older version of every file to replace
};

// Replaced files and archives are written under a hidden name before they take their own: a
// kill may leave one, which the next run removes.
bool NamedTemporaries(const Scenario& s) { return s.olderCopies || s.action == 3; }

class Kill : public ::testing::TestWithParam<Scenario> {
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
                "temporary files left behind by a kill\n",
                kills_, Seed(), interrupted_, leftovers_);
  }

  const Scenario& scenario() const { return GetParam(); }
  bool Moves() const { return scenario().action == 1; }
  bool Zips() const { return scenario().action == 3; }

  void Prepare() {
    if (scenario().otherFileSystem) {
      const std::string other = OtherFileSystemThan(fs::temp_directory_path());
      if (!other.empty()) other_.emplace("kill-dst", other);
    }
    dst_ = other_ ? other_->root() / "dst" : dir_ / "dst";
    Put(dir_ / "jobs/big.kjb", "[Job]\nName=big\nFrom=" + (dir_ / "src").string() +
                                   "\nTo=" + dst_.string() +
                                   "\nAction=" + std::to_string(scenario().action) + "\n" +
                                   scenario().keys +
                                   "\nDoPreview=0\nIntervalType=0\nInterval=1\nCounter=1\n");
  }

  // A copy leaves its sources as they are (CheckAfterKill makes sure), so only a move or a zip
  // job that deletes them needs them written again.
  void FreshTrees() {
    std::error_code ec;
    fs::remove_all(dst_, ec);
    fs::create_directories(dst_);
    if (scenario().olderCopies) {
      for (const auto& [rel, data] : originals_) Put(dst_ / rel, "older " + rel, 1'500'000'000);
    }
    if (scenario().action == 0 && fs::exists(dir_ / "src")) return;
    fs::remove_all(dir_ / "src", ec);
    for (const auto& [rel, data] : originals_) Put(dir_ / "src" / rel, data, 1'600'000'000);
  }

  std::vector<std::string> RunArgs() const {
    return {"run", (dir_ / "jobs").string(), "--events", "jsonl"};
  }

  // The visible files of the destination: for a zip job, what its archive holds.
  std::map<std::string, std::string> Destination() {
    if (!Zips()) return Files(dst_);
    const fs::path archive = dst_ / "big.zip";
    if (!fs::exists(archive)) return {};
    const Scratch out("unzipped");
    const std::string cmd = "unzip -qq -o '" + archive.string() + "' -d '" + out.root().string() +
                            "' >/dev/null 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << "the archive does not read: " << archive;
    return Files(out / "src");
  }

  // Hidden files left in the folders a run touches.
  std::vector<std::string> Leftovers() {
    std::vector<std::string> found;
    for (const fs::path& root : {dir_ / "src", dst_, dir_ / "jobs"}) {
      for (const auto& [rel, data] : Files(root)) {
        if (Hidden(rel)) found.push_back((root / rel).string());
      }
    }
    return found;
  }

  // What holds at any moment of a run.
  void CheckAfterKill(const std::string& where) {
    SCOPED_TRACE(where);
    const auto src = Files(dir_ / "src");
    const auto dst = Destination();
    const auto hidden = Leftovers();
    leftovers_ += static_cast<int>(hidden.size());
    // A job file is replaced through a named temporary beside it, so a kill during that
    // write-back may leave one in the job folder; the next pass removes it (CheckComplete).
    const std::string jobs = (dir_ / "jobs").string() + "/";
    if (!NamedTemporaries(scenario())) {
      for (const std::string& h : hidden) {
        if (!h.starts_with(jobs)) ADD_FAILURE() << "a kill left a file behind: " << h;
      }
    }
    std::size_t done = 0;
    for (const auto& [rel, data] : dst) {
      if (Hidden(rel)) continue;
      const auto it = originals_.find(rel);
      ASSERT_NE(it, originals_.end()) << "unexpected file " << rel;
      const bool older = scenario().olderCopies && data == "older " + rel;
      EXPECT_TRUE(data == it->second || older) << "partial or wrong file under its name: " << rel;
      if (!older) ++done;
    }
    if (done > 0 && done < originals_.size()) ++interrupted_;
    for (const auto& [rel, data] : src) {
      const auto it = originals_.find(rel);
      ASSERT_NE(it, originals_.end()) << "unexpected source file " << rel;
      EXPECT_TRUE(data == it->second) << "source changed: " << rel;
    }
    for (const auto& [rel, data] : originals_) {
      if (scenario().action == 0) {
        EXPECT_TRUE(src.contains(rel)) << "the copy removed its source: " << rel;
      } else {
        EXPECT_TRUE(src.contains(rel) || (dst.contains(rel) && dst.at(rel) == data))
            << "lost: " << rel;
      }
    }
    const RunResult list =
        RunKestrel({"list", (dir_ / "jobs").string(), "--events", "jsonl"}, dir_.root());
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_NE(list.out.find("\"From\""), std::string::npos) << "the job file no longer reads";
  }

  void CheckComplete() {
    std::map<std::string, std::string> visible;
    for (const auto& [rel, data] : Destination()) {
      if (!Hidden(rel)) visible[rel] = data;
    }
    EXPECT_TRUE(visible == originals_) << "the job is not complete: " << visible.size() << " of "
                                       << originals_.size();
    if (Moves()) {
      EXPECT_TRUE(Files(dir_ / "src").empty()) << "the move left sources behind";
    }
    for (const std::string& h : Leftovers()) ADD_FAILURE() << "left behind for good: " << h;
    std::set<std::string> jobFiles;
    for (const auto& [rel, data] : Files(dir_ / "jobs")) jobFiles.insert(rel);
    EXPECT_EQ(jobFiles, std::set<std::string>{"big.kjb"});
  }

  void KillAtRandom() {
    Prepare();
    FreshTrees();
    const auto t0 = Clock::now();
    const RunResult clean = RunKestrel(RunArgs(), dir_.root());
    const auto fullUs =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - t0).count();
    ASSERT_EQ(clean.exitCode, 0) << clean.err << clean.out;
    CheckComplete();
    std::printf("[ kill     ] %s%s: a whole run takes %.3f s\n", scenario().name,
                other_ ? " to another file system" : "", static_cast<double>(fullUs) / 1e6);
    std::mt19937 rng(Seed() + static_cast<unsigned>(scenario().action));
    for (int k = 0; k < kKillsPerJob && !HasFailure(); ++k) {
      FreshTrees();
      const auto delay = std::chrono::microseconds(rng() % static_cast<unsigned>(fullUs + 1));
      const pid_t pid = StartKestrel(RunArgs(), dir_.root());
      std::this_thread::sleep_for(delay);
      ::kill(pid, SIGKILL);
      const ChildEnd end = WaitFor(pid);
      ++kills_;
      CheckAfterKill(std::string(scenario().name) + " killed after " +
                     std::to_string(delay.count()) + " us (seed " + std::to_string(Seed()) +
                     ", kill " + std::to_string(k) + ")" +
                     (end.signal == SIGKILL ? "" : ", but it had ended by itself"));
      const RunResult again = RunKestrel(RunArgs(), dir_.root());
      EXPECT_EQ(again.exitCode, 0) << again.err << again.out;
      CheckComplete();
    }
  }

  Scratch dir_;
  std::optional<Scratch> other_;
  fs::path dst_;
  std::map<std::string, std::string> originals_;
  int kills_ = 0, interrupted_ = 0, leftovers_ = 0;
};

TEST_P(Kill, AJobKilledAnywhereLosesNothingAndTheNextRunFinishesIt) { KillAtRandom(); }

// A copy keeps what is there (complete files stay complete); a move deletes a source whose
// destination exists: a copy between file systems may have been caught after its destination
// was in place and before its source went. A zip job adds to its archive and deletes what it
// packed.
INSTANTIATE_TEST_SUITE_P(
    Jobs, Kill,
    ::testing::Values(
        Scenario{"copy", 0, "SubFolder=1\nFStruct=1\nExist=0", false, false},
        Scenario{"move", 1, "SubFolder=1\nFStruct=1\nExist=1", true, false},
        Scenario{"replace", 0, "SubFolder=1\nFStruct=1\nExist=3", false, true},
        Scenario{"zip", 3, "SubFolder=1\nZipAll=0\nZipIntStruct=1\nZipDelComp=1\nExist=4",
                 false, false}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace e2e
