// The zip facade, with one worker and with workers that deflate and inflate ahead: archives that
// other tools read, what it refuses, how a cancel ends, and sources that change while, or after,
// compression reads them: the archive never holds an entry mixed of two states of a file, and a
// source is deleted only as it was read. That workers change nothing of an ordinary job is e2e
// (parallel_test), hostile archives too (unzip_safety).
#include "Rig.h"

#include <fcntl.h>
#include <unistd.h>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Entries = std::map<std::string, std::string>;

constexpr std::time_t kT0 = 1700000000;  // an even second

// Whether this process holds path open (a worker reading it).
bool OpenHere(const std::string& path) {
  for (const auto& e : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ec;
    if (fs::read_symlink(e.path(), ec) == path) return true;
  }
  return false;
}

class ZipFacade : public Rig {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
  }
  // Stages src/rel into archive under its path below src/.
  std::int32_t Add(const std::string& archive, const std::string& rel) {
    zip.SaveFolderLocation(src + "/");
    return zip.ZipAddFile(archive, Src(rel), 3, 0);
  }
  // A compression run of files, from a clean record.
  void RunZip(FileList files) {
    Next();
    Zip_Files(run, svc, files);
  }
  bool HasLine(const std::string& text) const { return std::ranges::count(rec.Texts(), text) == 1; }
  ZipLibrary& zip = *svc.zip;
  FileList files;
};

// One archive of two commits, the second by workers: stored (the rate clamped to 0) and
// deflated (clamped to 9) entries, big and small, names beyond ASCII and not UTF-8.
TEST_F(ZipFacade, ArchivesMadeWithWorkersReadInOtherToolsAndComeBack) {
  const std::string archive = tmp / "a.zip";
  Source("small.txt", "small", kT0);
  zip.SetCompressionRate(-5);
  ASSERT_EQ(Add(archive, "small.txt"), 1);
  EXPECT_FALSE(Exists(archive)) << "nothing is written before the commit";
  ASSERT_TRUE(zip.Flush());
  Source("big.bin", std::string(5 << 20, 'x') + "end", kT0 + 3600);  // too large to be held by a worker
  Source("sub/\xC3\xBC \xC3\xB1.txt", "umlaut", kT0 - 7200);
  Source("caf\xE9.txt", "latin", kT0);
  zip.SetWorkers(4);
  zip.SetCompressionRate(42);
  for (const char* rel : {"big.bin", "sub/\xC3\xBC \xC3\xB1.txt", "caf\xE9.txt"}) ASSERT_EQ(Add(archive, rel), 1);
  ASSERT_TRUE(zip.Flush());
  EXPECT_EQ(PyEntries(tmp, archive),
            (Strings{"small.txt|5|0|1700000000", "big.bin|5242883|8|1700003600", "sub/\xC3\xBC \xC3\xB1.txt|6|8|1699992800",
                   "caf\xCE\x98.txt|5|8|1700000000"}));  // no UTF-8 flag: read as code page 437
  for (const std::string tool : {"unzip -tq ", "7z t "}) {
    if (!HaveTool(tool.substr(0, tool.find(' ')))) continue;
    const ToolResult t = RunTool(tool + Quote(archive));
    EXPECT_EQ(t.status, 0) << t.output;
  }
  EXPECT_EQ(zip.UnZipEx(archive, tmp / "back", "*.*", 1, "", 0, 0), 4);
  for (const auto& f : fs::recursive_directory_iterator(src)) {
    if (!f.is_regular_file()) continue;
    const std::string back = tmp / ("back/" + fs::relative(f.path(), src).string());
    EXPECT_EQ(ReadFile(back), ReadFile(f.path())) << back;
    EXPECT_EQ(WriteTime(back), WriteTime(f.path())) << back;
  }
}

TEST_F(ZipFacade, CheckZipFileTellsMissingDamagedAndForeignFiles) {
  Source("a.txt", std::string(20000, 'a') + "tail");
  ASSERT_EQ(Add(tmp / "good.zip", "a.txt"), 1);
  ASSERT_TRUE(zip.Flush());
  const std::string good = ReadFile(tmp / "good.zip");
  WriteFile(tmp / "cut.zip", good.substr(0, good.size() / 2));
  WriteFile(tmp / "text.zip", "just some text");
  WriteFile(tmp / "pkjunk.zip", "PKjunk that is not a record");
  ASSERT_EQ(Python(tmp, "import zipfile\nzipfile.ZipFile(" + Quote(tmp / "empty.zip") + ",'w').close()\n"
                        "z=zipfile.ZipFile(" + Quote(tmp / "dirs.zip") + ",'w')\n"
                        "z.writestr('a/', '')\nz.writestr('a/b/', '')\nz.close()\n").status, 0);
  fs::create_directory(tmp / "folder.zip");
  const std::vector<std::pair<std::string, std::int32_t>> cases = {
      {"good.zip", 0}, {"missing.zip", 2}, {"cut.zip", 1}, {"empty.zip", 1},
      {"dirs.zip", 1}, {"text.zip", 3},    {"pkjunk.zip", 3}, {"folder.zip", 3}};
  for (const auto& [name, status] : cases) EXPECT_EQ(zip.CheckZipFile(tmp / name, ""), status) << name;
  EXPECT_EQ(zip.ZipFileCount(tmp / "dirs.zip"), 0);
  EXPECT_EQ(zip.UnZipEx(tmp / "cut.zip", tmp / "cut", "*.*", 1, "", 0, 0), 0);
}

// Two sources for one entry name in one commit: the second is refused, the first stays. A
// source that vanishes before the commit is left out and named.
TEST_F(ZipFacade, OneCommitTakesOneSourcePerNameAndLeavesOutVanishedOnes) {
  Source("a/n.txt", "first");
  Source("b/n.txt", "second");
  Source("gone.txt", "gone");
  const std::string archive = tmp / "flat.zip";
  zip.SaveFolderLocation(Src("a/"));
  ASSERT_EQ(zip.ZipFile(archive, Src("a/n.txt"), "", 0, 0), 1);
  zip.SaveFolderLocation(Src("b/"));
  EXPECT_EQ(zip.ZipAddFile(archive, Src("b/n.txt"), 3, 0), 0);
  ASSERT_EQ(Add(archive, "gone.txt"), 1);
  EXPECT_EQ(Add(archive, "never-there.txt"), 0);
  fs::remove(Src("gone.txt"));
  ASSERT_TRUE(zip.Flush());
  ASSERT_EQ(zip.FailedSources().size(), 1u);
  EXPECT_EQ(zip.FailedSources()[0].source, Src("gone.txt"));
  EXPECT_EQ(ArchiveEntries(archive), (Entries{{"n.txt", "first"}}));
}

// A file rewritten while the commit reads it (by a worker, too; in either layout) is left out
// of the archive, which keeps what an earlier run stored for it; it is named once in an error
// line and kept; the other file is packed and deleted. Workers change none of the lines.
TEST_F(ZipFacade, AFileChangedWhileItIsReadIsNotStoredNorDeleted) {
  constexpr std::size_t kSize = 3u << 20;  // read in several steps
  for (const CheckState zipAll : {0, 1}) {
    Strings lines[2];
    for (const int workers : {1, 4}) {
      SCOPED_TRACE(::testing::Message() << "ZipAll " << zipAll << ", workers " << workers);
      fs::remove_all(dst);
      fs::create_directories(dst);
      zip.SetWorkers(workers);
      std::tie(j.ZipAll, j.ZipExtStruct, j.Exist, j.EFSelect, j.ZipDelComp) = std::tuple(zipAll, 1, 4, 0, 0);
      const std::string big = Source("big.bin", std::string(kSize, 'o'), kT0);
      RunZip({big});  // an earlier run stored the old big.bin
      const std::string archive = Dst(zipAll == 0 ? "job.zip" : "big.bin.zip");
      const auto before = ArchiveEntries(archive);
      ASSERT_TRUE(before);
      Source("big.bin", std::string(kSize, 'n'), kT0 + 10);  // newer than the entry
      const std::string other = Source("other.txt", "other");
      j.ZipDelComp = 1;
      int reads = 0;  // the second step of the big file overwrites its middle, as an editor would
      faults.Every(FaultOp::Read, [&] {
        if (OpenHere(big) && ++reads == 2) {
          const int fd = ::open(big.c_str(), O_WRONLY);
          EXPECT_EQ(::pwrite(fd, "NEW!", 4, kSize / 2), 4);
          ::close(fd);
        }
      });
      RunZip({big, other});
      faults.Every(FaultOp::Read, nullptr);
      EXPECT_GE(reads, 2);
      EXPECT_TRUE(HasLine("job: Fehler: The file changed while it was read - " + big)) << ::testing::PrintToString(Lines());
      EXPECT_TRUE(run.jobError);
      EXPECT_EQ(ArchiveEntries(archive).value_or(Entries{})["big.bin"], before->at("big.bin"));
      EXPECT_EQ(fs::file_size(big), kSize);
      EXPECT_FALSE(Exists(other));
      EXPECT_EQ(ArchiveEntries(zipAll == 0 ? archive : Dst("other.txt.zip")).value_or(Entries{})["other.txt"], "other");
      lines[workers / 4] = Lines();
    }
    EXPECT_EQ(lines[0], lines[1]);
  }
}

// A source changed, or its archive replaced, between the commit and the deletion of the
// source; an archive replaced after extraction read it, before its deletion: each is kept.
TEST_F(ZipFacade, WhatChangedAfterItWasReadIsKept) {
  const struct {
    const char* name;
    CheckState zipAll;
    FaultOp op;  // the change comes before its n-th call
    int n;
    const char *change, *kept, *line;  // change: below src, or below dst after a "~"
  } cases[] = {
      {"a source, all", 0, FaultOp::Unlink, 1, "a.txt", "a.txt", "Fehler: The file changed after it was read and was kept - "},
      {"a source, single", 1, FaultOp::Unlink, 1, "a.txt", "a.txt", "Fehler: The file changed after it was read and was kept - "},
      // Opens: the file when staged, when read, then the archive read back.
      {"its archive", 1, FaultOp::Open, 3, "~a.zip", "a.txt", "job: Fehler: The archive does not hold the file as it was read - "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(dst);
    fs::create_directories(dst);
    std::tie(j.ZipAll, j.ZipDelComp) = std::tuple(c.zipAll, 1);
    const std::string a = Source("a.txt", "line 1\n"), b = Source("b.txt", "b");
    const std::string changed = c.change[0] == '~' ? Dst(c.change + 1) : Src(c.change);
    faults.Before(c.op, c.n, [&] { WriteFile(changed, "changed\n"); });
    RunZip({a, b});
    faults.Disarm();
    EXPECT_EQ(ReadFile(Src(c.kept)), changed == Src(c.kept) ? "changed\n" : "line 1\n");
    EXPECT_TRUE(HasLine(c.line + Src(c.kept))) << ::testing::PrintToString(Lines());
    const std::string deleted = c.zipAll == 0 ? "job: Gelöscht: " : "Gelöscht: ";
    EXPECT_FALSE(HasLine(deleted + a));
    EXPECT_TRUE(c.op == FaultOp::Open || (HasLine(deleted + b) && !Exists(b)));
  }
  // Extraction deletes an archive only while its name leads to the file that was read.
  Fresh().Action = 4;
  j.ZipDelDeComp = 1;
  std::function<void()> action;
  rec.onLine = [&](const LoggedLine& l) {  // after the archive was read, before its deletion
    if ((l.id == 77 || l.id == 78) && action) std::exchange(action, nullptr)();
  };
  for (const std::int16_t bin : {0, 1}) {
    SCOPED_TRACE(bin);
    fs::remove(Dst("a.txt"));
    MakeArchive(Src("a.zip"), {{"a.txt", "data"}});
    MakeArchive(Src("other.zip"), {{"other.txt", "data"}});
    const std::string replacement = ReadFile(Src("other.zip"));
    action = [&] { fs::rename(Src("other.zip"), Src("a.zip")); };
    j.ZipDelDeCompBin = bin;
    Next();
    files = {Src("a.zip")};
    UnZip_Files(run, svc, files);
    EXPECT_EQ(ReadFile(Src("a.zip")), replacement);
    EXPECT_EQ(ReadFile(Dst("a.txt")), "data");
    EXPECT_TRUE(run.jobError);
    EXPECT_EQ(rec.Texts().back(), "job: Fehler: The file changed after it was read and was kept - " + Src("a.zip"));
  }
}

// Policy 3 replaces an existing archive: a run whose archive cannot be written keeps the old
// one (its sources may be long gone) and its own sources.
TEST_F(ZipFacade, AFailedReplacementKeepsTheOldArchive) {
  for (const CheckState zipAll : {0, 1}) {
    SCOPED_TRACE(zipAll);
    std::tie(j.ZipAll, j.ZipDelComp, j.Exist) = std::tuple(zipAll, 1, 0);
    const std::string archive = zipAll == 0 ? Dst("job.zip") : Dst("a.zip");
    RunZip({Source("a.txt", "old")});
    const auto before = ArchiveEntries(archive);
    ASSERT_TRUE(before);
    j.Exist = 3;
    faults.Arm(FaultOp::Write, 1, ENOSPC);  // the commit's writing
    RunZip({Source("a.txt", "new")});
    faults.Disarm();
    EXPECT_EQ(ArchiveEntries(archive), before);
    EXPECT_EQ(ReadFile(Src("a.txt")), "new");
    EXPECT_EQ(TempLeftovers(dst), Strings{});
  }
}

// A commit or an extraction cancelled mid-way (with workers ahead or not) leaves the archive
// as it was, every extracted file whole and no temporary.
TEST_F(ZipFacade, ACancelLeavesTheArchiveAsItWasAndNoTemporaries) {
  for (const int workers : {1, 4}) {
    SCOPED_TRACE(workers);
    fs::remove_all(dst);
    fs::create_directories(dst);
    const std::string archive = Dst("a.zip");
    zip.StartZipRun(1, 0);
    zip.SetWorkers(workers);
    zip.SetCompressionRate(6);
    Source("first.txt", "first");
    ASSERT_EQ(Add(archive, "first.txt"), 1);
    ASSERT_TRUE(zip.Flush());
    const std::string before = ReadFile(archive);
    files.clear();
    for (int i = 0; i < 24; ++i) files.push_back(Source("f" + std::to_string(i), std::string(300000, 'a' + i)));
    const auto cancel = [&] { zip.CancelZip(); };
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    faults.Before(FaultOp::Read, 8, cancel);
    EXPECT_FALSE(zip.Flush());
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_TRUE(zip.WrittenSources().empty());
    EXPECT_EQ(ReadFile(archive), before);
    EXPECT_EQ(TempLeftovers(dst), Strings{});

    faults.Disarm();
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    ASSERT_TRUE(zip.Flush());
    fs::create_directories(Dst("x"));
    faults.Before(FaultOp::Write, 8, cancel);
    zip.StartUnzipRun({});
    const std::int32_t count = zip.UnZipEx(archive, Dst("x"), "*", 1, "", 0, 0);
    faults.Disarm();
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_LT(count, 20);
    EXPECT_EQ(TempLeftovers(dst), Strings{});
    for (const auto& f : fs::directory_iterator(Dst("x"))) {
      EXPECT_EQ(ReadFile(f.path()), ReadFile(Src(f.path().filename().string()))) << f.path();
    }
  }
}

}  // namespace
}  // namespace orvKestrel
