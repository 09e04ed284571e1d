#include "platform/Contained.h"
#include "platform/FileSystem.h"
#include "platform/OrderedPool.h"
#include "platform/Paths.h"
#include "platform/Prefetch.h"
#include "platform/StatusCache.h"
#include "platform/SysError.h"

#include "Rig.h"

#include <future>
#include <latch>
#include <mutex>
#include <numeric>

namespace orvKestrel::testing {
namespace {

// The error that f throws as "number call path: description"; "" when it throws none.
std::string ErrorText(const std::function<void()>& f) {
  try {
    f();
  } catch (const KestrelError& e) {
    return std::to_string(e.Number()) + " " + e.Call() + " " + e.Path() + ": " + e.Description();
  }
  return "";
}
int ErrorOf(const std::function<void()>& f) { return std::atoi(ErrorText(f).c_str()); }

class FileOpsTest : public Rig {
 protected:
  FileSystem& fs = svc.fs;
  std::string trash = tmp / "xdg/Trash";
};

// What cannot be done is refused and changes nothing: an existing destination (copy unless told
// to overwrite), what is no file, a read-only file or folder content unless forced, a verified
// deletion of a file replaced under its name since it was read. (A folder that is not empty:
// ErrorsNameTheCallAndThePath.)
// Then told to, each does its work; a move renames within one file system, and a folder's
// deletion follows no link.
TEST_F(FileOpsTest, RefusalsChangeNothing) {
  const std::string a = Source("a.txt", "new", kNew), ro = Source("ro.txt", "r"), inside = Source("d/ro.txt", "r");
  Source("d/e/.hidden", "h");
  const FileIdentity asRead = fs.CopyFile(a, Dst("a.txt"), false).read;
  WriteFile(Src("a.new"), "new");  // the same contents under the same name, but another file
  std::filesystem::rename(Src("a.new"), a);
  std::filesystem::create_directory_symlink(dst, Src("d/link"));
  for (const auto& p : {ro, inside}) ::chmod(p.c_str(), 0444);
  const std::pair<std::function<void()>, int> cases[] = {
      {[&] { fs.CopyFile(a, Dst("a.txt"), false); }, EEXIST}, {[&] { fs.MoveFile(a, Dst("a.txt")); }, EEXIST},
      {[&] { fs.CopyFile(Src("none"), Dst("none"), true); }, ENOENT}, {[&] { fs.DeleteFile(ro, false); }, EACCES},
      {[&] { fs.CopyFile(Src("none"), "", true); }, kErrInvalidCall}, {[&] { fs.DeleteFile(src, true); }, EISDIR},
      {[&] { fs.DeleteFile(Src("none"), true); }, ENOENT}, {[&] { fs.CopyFile(src, Dst("x"), true); }, EISDIR},
      {[&] { fs.DeleteFolder(Src("d"), false); }, EACCES}, {[&] { fs.DeleteVerified(a, asRead, true); }, EAGAIN}};
  const std::string before = Tree();
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(ErrorOf(cases[i].first), cases[i].second) << i;
  EXPECT_EQ(Tree(), before);
  fs.CopyFile(a, Dst("a.txt"), true);
  fs.MoveFile(a, Dst("b.txt"));
  fs.DeleteFile(ro, true);
  fs.DeleteFolder(Src("d"), true);
  EXPECT_EQ(ErrorOf([&] { fs.RemoveFolder(src); }), 0);
  EXPECT_EQ(Tree(), "d/a.txt=new d/b.txt=new");
}

// A copy (over an old destination or not) or a move to another file system that fails at any
// step keeps the source and the old destination and leaves no partial file nor temporary.
TEST_F(FileOpsTest, AFailedCopyOrMoveLeavesBothSidesAsTheyWere) {
  const std::string a = Source("a.txt", kBig), other = Elsewhere();
  const std::tuple<FaultOp, int, bool> rows[] = {  // the n-th call fails; true: a move across
      {FaultOp::Open, 1, false}, {FaultOp::Write, 2, false},  {FaultOp::Read, 2, false}, {FaultOp::Rename, 1, false},
      {FaultOp::SetTimes, 1, false}, {FaultOp::Write, 2, true}, {FaultOp::Unlink, 1, true}};
  for (const auto& [op, n, across] : rows) {
    for (const bool overwrite : {false, true}) {
      if (across && (other.empty() || overwrite)) continue;
      SCOPED_TRACE(std::to_string(static_cast<int>(op)) + (across ? " across" : overwrite ? " overwrite" : ""));
      if (overwrite) Dest("a.txt", "old");
      faults.Arm(op, n, EIO);
      const std::string to = across ? other : dst;
      const auto act = [&] { across ? fs.MoveFile(a, to + "/a.txt") : void(fs.CopyFile(a, Dst("a.txt"), overwrite)); };
      EXPECT_EQ(ErrorOf(act), EIO);
      EXPECT_TRUE(faults.Fired());
      EXPECT_TRUE(ReadFile(a) == kBig) << "the source changed";
      EXPECT_EQ(Names(to), overwrite ? Strings{"a.txt"} : Strings{});
      EXPECT_TRUE(!overwrite || ReadFile(Dst("a.txt")) == "old");
      std::filesystem::remove(Dst("a.txt"));
    }
  }
  faults.Disarm();
}

// A copy keeps contents, permissions and times; so does a move across file systems, which then
// removes the source: really across where there is another one, by an injected EXDEV in any case.
TEST_F(FileOpsTest, CopyAndMoveAcrossFileSystemsKeepContentsPermissionsAndTimes) {
  const std::string other = Elsewhere();
  for (const std::string how : {"copy", "real", "simulated"}) {
    if (how == "real" && other.empty()) continue;
    SCOPED_TRACE(how);
    const std::string a = Source("a.txt", kBig), target = how == "real" ? other + "/a.txt" : Dst("a.txt");
    ::chmod(a.c_str(), 0604);
    SetTimes(a, kOld, kNew);
    if (how == "simulated") faults.Arm(FaultOp::Rename, 1, EXDEV);
    how == "copy" ? void(fs.CopyFile(a, target, false)) : fs.MoveFile(a, target);
    EXPECT_EQ(Exists(a), how == "copy");
    const FileTimes times = fs.Stat(target).Value().times;  // first: reading may touch the access time
    EXPECT_EQ(std::pair(times.written, times.accessed), std::pair(kNew, kOld));
    EXPECT_TRUE(ReadFile(target) == kBig && ModeOf(target) == 0604u);
    EXPECT_EQ(Names(paths::GetParentFolderName(target)), Strings{"a.txt"});
    std::filesystem::remove(target);
  }
  faults.Disarm();
}

// What the file-system object remembers (a file's status, a folder seen) must never hide a change
// it made itself, and outside a scope it remembers nothing.
TEST_F(FileOpsTest, RememberedStatusFollowsEveryChangeMadeThroughTheObject) {
  const std::string a = Source("a.txt", "one"), b = Dst("b.txt");
  {
    const FileSystem::StatusScope once(fs);
    EXPECT_FALSE(fs.FileExists(b));
    fs.CopyFile(a, b, false);
    EXPECT_TRUE(fs.FileExists(b) && fs.Stat(b).Value().size == 3u);
    WriteFile(b, "a longer text");  // a change behind the object's back stays unseen ...
    EXPECT_EQ(fs.Stat(b).Value().size, 3u);
    fs.SetTimes(b, kOld, kNew);  // ... until the object changes something itself
    EXPECT_EQ(std::pair(fs.Stat(b).Value().size, fs.Stat(b).Value().times.written), std::pair(std::uint64_t{13}, kNew));
    fs.DeleteFile(b, true);
    EXPECT_FALSE(fs.FileExists(b) || fs.Stat(b));
  }
  EXPECT_FALSE(fs.FileExists(b));
  WriteFile(b, "back");
  EXPECT_TRUE(fs.FileExists(b) && fs.Stat(b).Value().size == 4u);
  // A folder seen is forgotten when the object removes or renames it: after each step, the
  // one of the two folders that exists.
  const std::string sub = Dst("sub"), moved = Dst("moved");
  const std::pair<std::function<void()>, std::string> steps[] = {
      {[] {}, ""}, {[&] { fs.CreateFolder(sub); }, sub}, {[&] { fs.RemoveFolder(sub); }, ""},
      {[&] { fs.CreateFolder(sub); }, sub}, {[&] { fs.MoveFile(sub, moved); }, moved},
      {[&] { fs.DeleteFolder(moved, true); }, ""}};
  for (const auto& [step, there] : steps) {
    step();
    for (const auto& folder : {sub, moved}) {
      EXPECT_EQ(fs.FolderStillExists(folder), folder == there) << folder << " " << there;
    }
  }
}

// The free space is asked once and then kept up to date by the copies made meanwhile: a
// figure that ignored them would let the next file pass a check it should fail.
TEST_F(FileOpsTest, ANewCopyTakesItsLengthFromTheRememberedFreeSpace) {
  const std::string big = Source("big.bin", kBig);
  const std::int64_t before = fs.FreeBytes(dst).Value();
  fs.CopyFile(big, Dst("big.bin"), false);
  EXPECT_LE(fs.FreeBytes(dst).Value(), before - static_cast<std::int64_t>(kBig.size()));
}

// The home trash gets the file and its info entry; a name taken gets a new one, and a name too
// long for its ".trashinfo" is cut (that file could once not be recycled at all).
TEST_F(FileOpsTest, HomeTrashGetsTheFileAndItsInfoEntry) {
  const std::string a = Source("sub dir/grün & co.txt", "data");
  fs.Trash(a);
  EXPECT_TRUE(!Exists(a) && ReadFile(trash + "/files/grün & co.txt") == "data");
  const std::string info = ReadFile(trash + "/info/grün & co.txt.trashinfo");
  const std::string head =
      "[Trash Info]\nPath=" + paths::GetAbsolutePathName(src) + "/sub%20dir/gr%C3%BCn%20%26%20co.txt\nDeletionDate=";
  const std::regex date("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n");
  EXPECT_TRUE(info.starts_with(head) && std::regex_match(info.substr(head.size()), date)) << info;
  const std::string longest(255, 'n');
  for (const auto& [name, data] : {std::pair{"a.txt", "first"}, {"a.txt", "second"}, {"README", "third"},
                                   {"README", "fourth"}, {longest.c_str(), "long"}}) {
    fs.Trash(Source(name, data));
  }
  for (const auto& [name, data] : {std::pair{"a.txt", "first"}, {"a.2.txt", "second"}, {"README.2", "fourth"}}) {
    EXPECT_EQ(ReadFile(trash + "/files/" + name), data);
  }
  EXPECT_EQ(ReadFile(trash + "/files/" + longest.substr(0, 230)), "long");
  EXPECT_NE(ReadFile(trash + "/info/" + longest.substr(0, 230) + ".trashinfo").find(longest), std::string::npos);
  // A trash that fails, or of a file that is not there, leaves the file and no info entry.
  const std::string kept = Source("kept.txt", "k");
  faults.Arm(FaultOp::Trash, 1, EIO);
  EXPECT_THROW(fs.Trash(kept), KestrelError);
  faults.Disarm();
  EXPECT_THROW(fs.Trash(Src("none")), KestrelError);
  EXPECT_TRUE(Exists(kept));
  EXPECT_EQ(Names(trash + "/info").size(), 6u);
}

// A failing call names itself and the path it was about, also through a folder opened beneath
// a destination and for an injected fault; the description stays the one shown in log lines.
TEST_F(FileOpsTest, ErrorsNameTheCallAndThePath) {
  const std::string a = Source("a.txt");
  Dest("file.txt", "x");
  std::filesystem::create_directory_symlink(src, Dst("link"));
  const auto linkText = "The destination goes through a link: " + Dst("link");
  // The call, its error number, the call named with its path, and the description ("": the system's text).
  const std::tuple<std::function<void()>, int, std::string, std::string> cases[] = {
      {[&] { fs.OpenToRead(Src("none")); }, ENOENT, "open " + Src("none"), ""},
      {[&] { fs.MoveFile(a, Dst("file.txt/a.txt")); }, ENOTDIR, "renameat2 " + Dst("file.txt/a.txt"), ""},
      {[&] { fs.ReadHead(src, 4); }, EISDIR, "read " + src, ""},
      {[&] { fs.RemoveFolder(src); }, ENOTEMPTY, "rmdir " + src, ""},
      {[&] { fs.DeleteFile(*fs.OpenBeneath(dst, "", false), "none", true); }, ENOENT, "fstatat " + Dst("none"), ""},
      {[&] { fs.OpenBeneath(dst, "link/sub", true); }, ELOOP, "openat2 " + Dst("link"), linkText},
      {[&] { fs.OpenContained(dst).Sub("link"); }, ELOOP, "openat " + Dst("link"), ""},
      {[&] {
         faults.Arm(FaultOp::Unlink, 1, EIO);
         fs.DeleteFile(a, true);
       }, EIO, "unlink " + a, ""},
  };
  for (const auto& [op, number, callAndPath, description] : cases) {
    const std::string text = description.empty() ? std::strerror(number) : description;
    EXPECT_EQ(ErrorText(op), std::to_string(number) + " " + callAndPath + ": " + text);
  }
  EXPECT_TRUE(Exists(a));
}

// Clean absolute paths come back as they are; the rest are made absolute and clean.
TEST(AbsolutePath, CleansOnlyWhatNeedsIt) {
  const std::string cwd = std::filesystem::current_path().string();
  const std::pair<std::string, std::string> rows[] = {
      {"/a/b", "/a/b"},  {"/a//b/", "/a/b"}, {"/a/./b/../c", "/a/c"}, {"/a/..", "/"},
      {"/", "/"},        {"//", "/"},        {"/a/.b/..c", "/a/.b/..c"}, {"x/y", cwd + "/x/y"},
  };
  for (const auto& [in, out] : rows) EXPECT_EQ(paths::GetAbsolutePathName(in), out) << in;
}

// The workers' pool: tasks begun in order and no further ahead than allowed, dropped when
// passed or stopped. Copies made ahead: named only for the source they were made from, never
// over an existing file unless asked, and gone without a trace (no entry, no descriptor) when
// not used.
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
          const std::scoped_lock lock(m);
          begun.push_back(k);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        finished[k] = 1;
      }));
      for (std::size_t k = 0; k < kTasks; ++k) {
        hand = k;
        EXPECT_TRUE(pool.Wait(k) && finished[k]) << k;
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
    // Task 0 holds the only worker; task 4 waits for a consumer that never comes near, until the
    // pool stops.
    const auto holdsTheWorker = [&, gate = go.get_future().share()](std::size_t k, unsigned) {
      note(k, 0);
      first.count_down();
      gate.wait();
    };
    const auto waitsForAConsumer = [&](std::size_t k, unsigned) {
      note(k, 0);
      fourth.count_down();
      near = pool.Near(100, 1);
    };
    pool.Add({holdsTheWorker, note, note, note, waitsForAConsumer, note});
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
  // The source rewritten (same length) after the copy was made, a destination there, told to
  // overwrite it: what the destination holds afterwards, and the error.
  const std::tuple<bool, bool, bool, std::string, int> cases[] = {
      {false, false, false, "contents", 0}, {true, false, false, "CONTENTS", 0}, {false, true, true, "contents", 0},
      {true, true, true, "CONTENTS", 0},    {false, true, false, "old", EEXIST}};
  const std::string a = Src("a.txt");
  for (const auto& [changeSource, existing, overwrite, expected, error] : cases) {
    SCOPED_TRACE(::testing::Message() << changeSource << existing << overwrite);
    EmptyFolder(dst);
    Source("a.txt", "contents", kOld);
    ::chmod(a.c_str(), 0640);
    const auto into = svc.fs.OpenBeneath(dst, "", false);
    auto ready = PrepareCopy(nullptr, a, into->fd(), into->path(), false, [](std::uint64_t) { return true; });
    ASSERT_TRUE(ready.has_value());
    if (changeSource) {
      // Change times tick coarsely (a jiffy on some file systems): the rewrite comes later.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      Source("a.txt", "CONTENTS", kOld);  // the same length and time: only the change time tells
    }
    if (existing) WriteFile(Dst("a.txt"), "old");
    EXPECT_EQ(ErrorOf([&] { svc.fs.CopyFile(a, *into, "a.txt", overwrite, &*ready); }), error);
    EXPECT_EQ(ReadFile(Dst("a.txt")), expected);
    EXPECT_EQ(Names(dst), Strings{"a.txt"});
    EXPECT_TRUE(error != 0 || (ModeOf(Dst("a.txt")) == 0640u && WriteTime(Dst("a.txt")) == kOld));
  }
}

TEST_F(Prefetch, UnusedCopiesLeaveNothingAndGuessesSkipWhatWillNotBeCopied) {
  const auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  const auto before = descriptors();
  Dest("s3", "there");
  {
    CopyAhead ahead(3, dst);
    std::vector<CopyOrder> orders;
    for (int i = 0; i < 8; ++i) {
      const std::string name = "s" + std::to_string(i);
      orders.push_back({Source(name, "file " + std::to_string(i)), Dst(name), true, false, i == 5});
    }
    ahead.Add(std::move(orders));
    for (int i : {1, 3, 5, 6}) {
      // Not begun yet is left to the caller; an existing destination (3) or a move within one
      // file system (5) is never copied ahead.
      auto copy = ahead.Take(static_cast<std::size_t>(i));
      EXPECT_TRUE(i == 3 || i == 5 ? !copy.has_value() : !copy || copy->Read().size == 6u) << i;
    }
    EXPECT_FALSE(ahead.Take(2).has_value()) << "an earlier file was dropped";
  }  // files 7 and the copies not taken are closed here
  EXPECT_EQ(Names(dst), Strings{"s3"});
  EXPECT_EQ(descriptors(), before);
}

// What the workers looked up stands in for the run's own look while it is current: the run
// changed nothing since, or only gave new files free names that are no part of its path (a path
// ending in a link may lead to any name).
TEST_F(Prefetch, LookedUpStatusesCountOnlyWhileCurrent) {
  const auto look = [](std::string path, bool link = false) { return PathStatus{path, 0, {}, {}, link}; };
  const std::tuple<const char*, bool, const char*, bool> rows[] = {
      {"/d/a.txt", false, "b.txt", true},    {"/d/a.txt", false, "a.txt", false},
      {"/d/A.TXT", false, "a.txt", false},   // capitals some file systems fold
      {"/d/a.txt/x", false, "a.txt", false}, {"/d/a.txt", true, "b.txt", false}};
  for (const auto& [looked, link, named, current] : rows) {
    StatusCache cache;
    const std::uint64_t before = cache.Changes();
    { const StatusCache::Change naming(cache, std::string_view(named)); }
    EXPECT_EQ(cache.Current(before, look(looked, link)), current) << looked << " after " << named;
  }
  StatusCache cache;  // more names than are remembered leave no older look current
  const std::uint64_t before = cache.Changes();
  for (int i = 0; i < 5000; ++i) cache.Named("n" + std::to_string(i));
  EXPECT_FALSE(cache.Current(before, look("/d/a.txt")));

  // A worker's word for a file that is not there: taken after a copy made ahead got a free name,
  // not after it replaced a file, nor after any other change.
  for (const int change : {0, 1, 2}) {
    SCOPED_TRACE(change);
    EmptyFolder(dst);
    FileSystem fs;
    const auto into = fs.OpenBeneath(dst, "", false);
    if (!into->ExactNames()) GTEST_SKIP() << "names may be folded in " << dst;
    const FileSystem::StatusScope scope(fs);
    const std::string source = Source("a.txt", "contents");
    auto ready = PrepareCopy(nullptr, source, into->fd(), into->path(), false, [](std::uint64_t) { return true; });
    ASSERT_TRUE(ready.has_value());
    const std::uint64_t before = fs.Changes();
    if (change == 2) fs.WriteFileAtomic(Dst("made.txt"), "x");
    if (change < 2) fs.CopyFile(source, *into, "a.txt", change == 1, &*ready);
    fs.Seed(before, PathStatus{Dst("absent.txt"), 0, {.isFile = true, .times = {}}, {}, false});
    EXPECT_EQ(fs.FileExists(Dst("absent.txt")), change == 0);
  }

  // A worker's open folder is used only while the run changed no folder since it was opened: the
  // run may have put another folder in its place.
  Dest("sub/f.txt", "old");
  FolderStatuses worker;
  std::uint64_t changes = 7;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(worker.Of(Dst("sub/f.txt"), 1, changes).stat.size, 3u);
  std::filesystem::rename(Dst("sub"), Dst("gone"));
  Dest("sub/f.txt", "newer");
  EXPECT_EQ(worker.Of(Dst("sub/f.txt"), 2, changes).stat.size, 5u);

  // A folder where a name was missing is listed: a name it lacked is missing as of the listing
  // (dated then), a name it held is looked up.
  FolderStatuses lister(true);
  for (const std::uint64_t at : {3, 4}) EXPECT_EQ(lister.Of(Dst("sub/none.txt"), 2, changes = at).err, ENOENT);
  Dest("sub/late.txt", "late");
  std::filesystem::remove(Dst("sub/f.txt"));
  changes = 9;
  EXPECT_EQ(lister.Of(Dst("sub/late.txt"), 2, changes).err, ENOENT);
  EXPECT_EQ(changes, 4u);
  changes = 9;
  EXPECT_EQ(lister.Of(Dst("sub/f.txt"), 2, changes).err, ENOENT);
  EXPECT_EQ(changes, 9u) << "looked up";
  EXPECT_EQ(lister.Of(Dst("sub/late.txt"), 3, changes).stat.size, 4u) << "a folder change forgets the listing";
}

}  // namespace
}  // namespace orvKestrel::testing
