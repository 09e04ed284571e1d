// `kestrel run` on large copies, a move, a replacement and a zip job that deletes what it packed,
// killed with SIGKILL at random moments. After each kill no file under a destination name is
// partial, no source file is lost, the job file still reads; the next run completes the job and
// leaves no temporary file anywhere. KESTREL_KILL_SEED repeats a run.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

// One kind of job that is killed: its action and keys, and what a kill may leave.
// otherFileSystem: the destination lies on another file system, where a move copies;
// olderCopies: it holds an older version of every file to replace.
struct Scenario {
  const char* name;
  int action;
  const char* keys;
  bool otherFileSystem, olderCopies;
};

class Kill : public JobFolderTest, public ::testing::WithParamInterface<Scenario> {
 protected:
  Kill() {
    for (int n = 0; n < 1000; ++n) {  // 20 folders of 50 files of 16 to 64 KiB
      std::mt19937 rng(static_cast<unsigned>(n) * 7919u + 1);
      std::string data = "file " + std::to_string(n) + "\n";
      data.resize(16 * 1024 + rng() % (48 * 1024), static_cast<char>('a' + n % 26));
      for (std::size_t k = 0; k < data.size(); k += 61) data[k] = static_cast<char>(rng());
      originals_["d" + std::to_string(n / 50) + "/f" + std::to_string(n % 50) + ".bin"] = data;
    }
  }
  const Scenario& s() const { return GetParam(); }

  void FreshTrees() {
    std::error_code ec;
    fs::remove_all(dst_, ec);
    fs::create_directories(dst_);
    for (const auto& [rel, data] : originals_) if (s().olderCopies) Put(dst_ / rel, "older " + rel, 1'500'000'000);
    // A copy leaves its sources as they are (CheckAfterKill makes sure).
    if (s().action == 0 && !fs::is_empty(dir_ / "src")) return;
    fs::remove_all(dir_ / "src", ec);
    Plant(dir_ / "src", originals_, 1'600'000'000);
  }

  // The visible files of the destination: for a zip job, what its archive holds.
  Tree Destination() const {
    if (s().action != 3) return Files(dst_);
    if (!fs::exists(dst_ / "big.zip")) return {};
    const Scratch out("unzipped");
    EXPECT_EQ(std::system(("unzip -qq -o " + Quote((dst_ / "big.zip").string()) + " -d " + Quote(out.root().string()) +
                           " >/dev/null 2>&1").c_str()), 0) << "the archive does not read";
    return Files(out / "src");
  }

  // Hidden files left in the folders a run touches.
  Lines Leftovers() const {
    Lines found;
    for (const fs::path& root : {dir_ / "src", dst_, dir_ / "jobs"}) {
      for (const auto& [rel, data] : Files(root)) if (Hidden(rel)) found.push_back((root / rel).string());
    }
    return found;
  }

  // What holds at any moment of a run.
  void CheckAfterKill() const {
    // Replaced files and archives are written under a hidden name before they take their own, and
    // so is the job file: a kill may leave one, which the next run removes (CheckComplete).
    for (const std::string& h : Leftovers()) {
      if (!s().olderCopies && s().action != 3 && !h.starts_with((dir_ / "jobs/").string())) {
        ADD_FAILURE() << "a kill left a file behind: " << h;
      }
    }
    const auto src = Files(dir_ / "src"), dst = Destination();
    for (const auto& [rel, data] : dst) {
      if (Hidden(rel)) continue;
      ASSERT_TRUE(originals_.contains(rel)) << "unexpected file " << rel;
      EXPECT_TRUE(data == originals_.at(rel) || (s().olderCopies && data == "older " + rel))
          << "partial or wrong file under its name: " << rel;
    }
    for (const auto& [rel, data] : src) {
      EXPECT_TRUE(originals_.contains(rel) && data == originals_.at(rel)) << "unexpected or changed source: " << rel;
    }
    for (const auto& [rel, data] : originals_) {
      EXPECT_TRUE(src.contains(rel) || (s().action != 0 && dst.contains(rel) && dst.at(rel) == data))
          << "lost: " << rel;
    }
    const RunResult list = RunKestrel({"list", "jobs", "--events", "jsonl"}, dir_.root());
    EXPECT_TRUE(list.exitCode == 0 && list.out.find("\"From\"") != std::string::npos)
        << "the job file no longer reads: " << list.err;
  }

  void CheckComplete() const {
    Tree visible;
    for (const auto& [rel, data] : Destination()) if (!Hidden(rel)) visible[rel] = data;
    EXPECT_TRUE(visible == originals_) << "the job is not complete: " << visible.size() << " of " << originals_.size();
    EXPECT_TRUE(s().action != 1 || Files(dir_ / "src").empty()) << "the move left sources behind";
    for (const std::string& h : Leftovers()) ADD_FAILURE() << "left behind for good: " << h;
    EXPECT_EQ(Files(dir_ / "jobs").size(), 1u);
  }

  std::optional<Scratch> other_;
  fs::path dst_;
  Tree originals_;
};

TEST_P(Kill, AJobKilledAnywhereLosesNothingAndTheNextRunFinishesIt) {
  if (const std::string other = OtherFileSystemThan(fs::temp_directory_path());
      s().otherFileSystem && !other.empty()) {
    other_.emplace("kill-dst", other);
  }
  dst_ = other_ ? other_->root() / "dst" : dir_ / "dst";
  WriteJob("Action=" + std::to_string(s().action) + "\n" + s().keys + "\n" + kDue, "big", {}, dst_);
  // Four workers, more than the cores: a kill meets copies and archive entries made ahead.
  const std::vector<std::string> run{"run", "jobs", "--events", "jsonl", "--jobs", "4"};
  FreshTrees();
  const auto t0 = std::chrono::steady_clock::now();
  const RunResult clean = RunKestrel(run, dir_.root());
  const auto fullUs = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0);
  ASSERT_EQ(clean.exitCode, 0) << clean.err << clean.out;
  CheckComplete();
  const char* seed = std::getenv("KESTREL_KILL_SEED");
  std::mt19937 rng((seed ? static_cast<unsigned>(std::stoul(seed)) : 20261122u) + static_cast<unsigned>(s().action));
  for (int k = 0; k < 6 && !HasFailure(); ++k) {
    FreshTrees();
    const auto delay = std::chrono::microseconds(rng() % static_cast<unsigned>(fullUs.count() + 1));
    SCOPED_TRACE("killed after " + std::to_string(delay.count()) + " us (kill " + std::to_string(k) + ")");
    const pid_t pid = StartKestrel(run, dir_.root());
    std::this_thread::sleep_for(delay);
    ::kill(pid, SIGKILL);
    WaitFor(pid);
    CheckAfterKill();
    const RunResult again = RunKestrel(run, dir_.root());
    EXPECT_EQ(again.exitCode, 0) << again.err << again.out;
    CheckComplete();
  }
}

// A copy keeps what is there (complete files stay complete); a move deletes a source whose
// destination exists: a copy between file systems may have been caught after its destination
// was in place and before its source went. A zip job adds to its archive and deletes what it
// packed.
INSTANTIATE_TEST_SUITE_P(
    Jobs, Kill,
    ::testing::Values(Scenario{"copy", 0, "SubFolder=1\nFStruct=1\nExist=0", false, false},
                      Scenario{"move", 1, "SubFolder=1\nFStruct=1\nExist=1", true, false},
                      Scenario{"replace", 0, "SubFolder=1\nFStruct=1\nExist=3", false, true},
                      Scenario{"zip", 3, "SubFolder=1\nZipAll=0\nZipIntStruct=1\nZipDelComp=1\nExist=4", false,
                               false}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace e2e
