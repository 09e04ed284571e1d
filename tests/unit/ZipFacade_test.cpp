// The zip facade, with one worker and with workers that deflate and inflate ahead: archives that
// other tools read, what it refuses, and how changed sources and a cancel end. That workers
// change nothing of an ordinary job is e2e (parallel_test), hostile archives too (unzip_safety).
#include "engine/Engine.h"
#include "unit/ZipTestSupport.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <mutex>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr std::time_t kT0 = 1700000000;  // an even second

// A test's fault points, safe for workers: runs an action before each call of one operation.
struct BeforeOp : FaultPoints {
  int Check(FaultOp at) override {
    std::lock_guard lock(m);
    if (at == op && action) action();
    return 0;
  }
  std::mutex m;
  FaultOp op = FaultOp::Read;
  std::function<void()> action;
};

// Whether this process holds path open (a worker reading it).
bool OpenHere(const std::string& path) {
  for (const auto& e : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ec;
    if (fs::read_symlink(e.path(), ec) == path) return true;
  }
  return false;
}

class ZipFacade : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    e.LoadLogMessages("");
    e.SetMsgIDs();
    e.svc.events = &ev;
    j.JobName = "job";
    j.From = dir / "in";
    j.To = dir / "out";
    j.DoPreview = 0;
    fs::create_directories(j.To);
  }
  std::string Put(const std::string& rel, const std::string& data, std::time_t t = kT0) {
    WriteFile(j.From + "/" + rel, data);
    SetModified(j.From + "/" + rel, t);
    return j.From + "/" + rel;
  }
  // Stages in/rel into archive under its path below in/.
  std::int32_t Add(const std::string& archive, const std::string& rel) {
    zip.SaveFolderLocation(j.From + "/");
    return zip.ZipAddFile(archive, j.From + "/" + rel, 3, 0);
  }
  // A compression run's events and counters, and which files are left.
  Lines Run(int workers, FileList files) {
    zip.SetWorkers(workers);
    ev = {};
    JobRun run(j);
    Zip_Files(run, e.svc, files);
    Lines out;
    for (const auto& l : ev.lines) out.push_back(std::to_string(l.id) + " " + l.text);
    for (const auto& [all, curr] : ev.counters) out.push_back(std::to_string(all) + "/" + std::to_string(curr));
    for (const auto& f : files) out.push_back(f + (Exists(f) ? " kept" : " gone"));
    return out;
  }

  TempDir dir;
  BeforeOp points;
  Engine e{Host{}, &points};
  ZipLibrary& zip = *e.svc.zip;
  RecordingEvents ev;
  job j;
};

// One archive of two commits, the second by workers: stored (the rate clamped to 0) and
// deflated (clamped to 9) entries, big and small, names beyond ASCII and not UTF-8.
TEST_F(ZipFacade, ArchivesMadeWithWorkersReadInOtherToolsAndComeBack) {
  const std::string archive = dir / "a.zip";
  Put("small.txt", "small");
  zip.SetCompressionRate(-5);
  ASSERT_EQ(Add(archive, "small.txt"), 1);
  EXPECT_FALSE(Exists(archive)) << "nothing is written before the commit";
  ASSERT_TRUE(zip.Flush());
  Put("big.bin", std::string(5 << 20, 'x') + "end", kT0 + 3600);  // too large to be held by a worker
  Put("sub/\xC3\xBC \xC3\xB1.txt", "umlaut", kT0 - 7200);
  Put("caf\xE9.txt", "latin");
  zip.SetWorkers(4);
  zip.SetCompressionRate(42);
  for (const char* rel : {"big.bin", "sub/\xC3\xBC \xC3\xB1.txt", "caf\xE9.txt"}) ASSERT_EQ(Add(archive, rel), 1);
  ASSERT_TRUE(zip.Flush());
  EXPECT_EQ(PyEntries(dir, archive),
            (Lines{"small.txt|5|0|1700000000", "big.bin|5242883|8|1700003600", "sub/\xC3\xBC \xC3\xB1.txt|6|8|1699992800",
                   "caf\xCE\x98.txt|5|8|1700000000"}));  // no UTF-8 flag: read as code page 437
  for (const std::string tool : {"unzip -tq ", "7z t "}) {
    if (!HaveTool(tool.substr(0, tool.find(' ')))) continue;
    const ToolResult t = RunTool(tool + Quote(archive));
    EXPECT_EQ(t.status, 0) << t.output;
  }
  EXPECT_EQ(zip.UnZipEx(archive, dir / "back", "*.*", 1, "", 0, 0), 4);
  for (const auto& f : fs::recursive_directory_iterator(j.From)) {
    if (!f.is_regular_file()) continue;
    const std::string back = dir / ("back/" + fs::relative(f.path(), j.From).string());
    EXPECT_EQ(ReadFile(back), ReadFile(f.path())) << back;
    EXPECT_EQ(WriteTime(back), WriteTime(f.path())) << back;
  }
}

TEST_F(ZipFacade, CheckZipFileTellsMissingDamagedAndForeignFiles) {
  Put("a.txt", std::string(20000, 'a') + "tail");
  ASSERT_EQ(Add(dir / "good.zip", "a.txt"), 1);
  ASSERT_TRUE(zip.Flush());
  const std::string good = ReadFile(dir / "good.zip");
  WriteFile(dir / "cut.zip", good.substr(0, good.size() / 2));
  WriteFile(dir / "text.zip", "just some text");
  WriteFile(dir / "pkjunk.zip", "PKjunk that is not a record");
  ASSERT_EQ(Python(dir, "import zipfile\nzipfile.ZipFile(" + Quote(dir / "empty.zip") + ",'w').close()\n"
                        "z=zipfile.ZipFile(" + Quote(dir / "dirs.zip") + ",'w')\n"
                        "z.writestr('a/', '')\nz.writestr('a/b/', '')\nz.close()\n").status, 0);
  fs::create_directory(dir / "folder.zip");
  const std::vector<std::pair<std::string, std::int32_t>> cases = {
      {"good.zip", 0}, {"missing.zip", 2}, {"cut.zip", 1}, {"empty.zip", 1},
      {"dirs.zip", 1}, {"text.zip", 3},    {"pkjunk.zip", 3}, {"folder.zip", 3}};
  for (const auto& [name, status] : cases) EXPECT_EQ(zip.CheckZipFile(dir / name, ""), status) << name;
  EXPECT_EQ(zip.ZipFileCount(dir / "dirs.zip"), 0);
  EXPECT_EQ(zip.UnZipEx(dir / "cut.zip", dir / "cut", "*.*", 1, "", 0, 0), 0);
}

// Two sources for one entry name in one commit: the second is refused, the first stays. A
// source that vanishes before the commit is left out and named.
TEST_F(ZipFacade, OneCommitTakesOneSourcePerNameAndLeavesOutVanishedOnes) {
  Put("a/n.txt", "first");
  Put("b/n.txt", "second");
  Put("gone.txt", "gone");
  const std::string archive = dir / "flat.zip";
  zip.SaveFolderLocation(j.From + "/a/");
  ASSERT_EQ(zip.ZipFile(archive, j.From + "/a/n.txt", "", 0, 0), 1);
  zip.SaveFolderLocation(j.From + "/b/");
  EXPECT_EQ(zip.ZipAddFile(archive, j.From + "/b/n.txt", 3, 0), 0);
  ASSERT_EQ(Add(archive, "gone.txt"), 1);
  EXPECT_EQ(Add(archive, "never-there.txt"), 0);
  fs::remove(j.From + "/gone.txt");
  ASSERT_TRUE(zip.Flush());
  ASSERT_EQ(zip.FailedSources().size(), 1u);
  EXPECT_EQ(zip.FailedSources()[0].source, j.From + "/gone.txt");
  EXPECT_EQ(ArchiveEntries(archive), (std::map<std::string, std::string>{{"n.txt", "first"}}));
}

// A source changed while it is read (by a worker, too) is left out, named once and kept; the
// others are packed and deleted.
TEST_F(ZipFacade, ASourceChangedWhileItIsReadIsRefusedAndKept) {
  j.ZipDelComp = 1;
  Lines events[2];
  for (const int w : {0, 1}) {
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    FileList files;
    for (int i = 0; i < 8; ++i) files.push_back(Put("f" + std::to_string(i), std::string(40000 + i, 'a' + i)));
    bool changed = false;
    points.action = [&] {
      if (!changed && OpenHere(files[5])) changed = (AppendFile(files[5], "more"), true);
    };
    events[w] = Run(w == 0 ? 1 : 4, files);
    points.action = nullptr;
    EXPECT_TRUE(changed);
    EXPECT_TRUE(Exists(files[5]));
    EXPECT_FALSE(Exists(files[6]));
    EXPECT_EQ(ArchiveEntries(j.To + "/job.zip").value_or(std::map<std::string, std::string>{}).size(), 7u);
    const std::string line = "job: Fehler: The file changed while it was read - " + files[5];
    EXPECT_EQ(std::count_if(events[w].begin(), events[w].end(), [&](const std::string& l) { return l.ends_with(line); }), 1)
        << ::testing::PrintToString(events[w]);
  }
  EXPECT_EQ(events[0], events[1]);
}

// A commit or an extraction cancelled mid-way (with workers ahead or not) leaves the archive
// as it was, every extracted file whole and no temporary.
TEST_F(ZipFacade, ACancelLeavesTheArchiveAsItWasAndNoTemporaries) {
  for (const int workers : {1, 4}) {
    SCOPED_TRACE(workers);
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    const std::string archive = j.To + "/a.zip";
    zip.StartZipRun(1, 0);
    zip.SetWorkers(workers);
    zip.SetCompressionRate(6);
    Put("first.txt", "first");
    ASSERT_EQ(Add(archive, "first.txt"), 1);
    ASSERT_TRUE(zip.Flush());
    const std::string before = ReadFile(archive);
    FileList files;
    for (int i = 0; i < 24; ++i) files.push_back(Put("f" + std::to_string(i), std::string(300000, 'a' + i)));
    int calls = 0;
    const auto cancelAt = [&](FaultOp op) {
      calls = 0;
      points.op = op;
      points.action = [&] { if (++calls == 8) zip.CancelZip(); };
    };
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    cancelAt(FaultOp::Read);
    EXPECT_FALSE(zip.Flush());
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_TRUE(zip.WrittenSources().empty());
    EXPECT_EQ(ReadFile(archive), before);
    EXPECT_EQ(TempLeftovers(j.To), Lines{});

    points.action = nullptr;
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    ASSERT_TRUE(zip.Flush());
    fs::create_directories(j.To + "/x");
    cancelAt(FaultOp::Write);
    zip.StartUnzipRun({});
    const std::int32_t count = zip.UnZipEx(archive, j.To + "/x", "*", 1, "", 0, 0);
    points.action = nullptr;
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_LT(count, 20);
    EXPECT_EQ(TempLeftovers(j.To), Lines{});
    for (const auto& f : fs::directory_iterator(j.To + "/x")) {
      EXPECT_EQ(ReadFile(f.path()), ReadFile(j.From + "/" + f.path().filename().string())) << f.path();
    }
  }
}

}  // namespace
}  // namespace orvKestrel
