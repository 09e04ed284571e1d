// The zip facade, with one worker and with workers that deflate and inflate ahead: archives that
// other tools read, what it refuses, how a cancel ends, and sources that change while, or after,
// compression reads them: the archive never holds an entry mixed of two states of a file, and a
// source is deleted only as it was read. That workers change nothing of an ordinary job is e2e
// (parallel_test), hostile archives too (unzip_safety).
#include "Rig.h"
#include "zip/ZipNames.h"

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Entries = std::map<std::string, std::string>;

constexpr std::time_t kT0 = 1700000000;  // an even second

// Whether this process holds path open (a worker reading it).
bool OpenHere(const std::string& path) {
  std::error_code ec;
  for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
    if (fs::read_symlink(fd.path(), ec) == path) return true;
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
            (Strings{"small.txt|5|0|1700000000", "big.bin|5242883|8|1700003600",
                     "sub/\xC3\xBC \xC3\xB1.txt|6|8|1699992800",
                     "caf\xCE\x98.txt|5|8|1700000000"}));  // no UTF-8 flag: read as code page 437
  for (const std::string tool : {"unzip -tq ", "7z t "}) {
    const ToolResult t = HaveTool(tool.substr(0, tool.find(' '))) ? RunTool(tool + Quote(archive)) : ToolResult{0, ""};
    EXPECT_EQ(t.status, 0) << t.output;
  }
  EXPECT_EQ(zip.UnZipEx(archive, tmp / "back", "*.*", 1, "", 0, 0), 4);
  for (const auto& f : fs::recursive_directory_iterator(src)) {
    const std::string back = tmp / ("back/" + fs::relative(f.path(), src).string());
    if (!f.is_regular_file()) continue;
    EXPECT_TRUE(ReadFile(back) == ReadFile(f.path()) && WriteTime(back) == WriteTime(f.path())) << back;
  }
}

// What CheckZipFile tells of a missing file, an archive with no file in it, and a folder. (A
// whole archive, one cut in the middle, foreign files: e2e zip_test, Extraction, and
// unzip_safety_test, UnreadableEntriesAreNamedAndKeepTheArchive.)
TEST_F(ZipFacade, CheckZipFileTellsMissingEmptyAndForeignFiles) {
  WriteFile(tmp / "empty.zip", std::string("PK\x05\x06", 4) + std::string(18, '\0'));  // the end record alone
  MakeArchive(tmp / "dirs.zip", {{"a/", ""}, {"a/b/", ""}});
  fs::create_directory(tmp / "folder.zip");
  for (const auto& [name, status] :
       {std::pair{"missing.zip", 2}, {"empty.zip", 1}, {"dirs.zip", 1}, {"folder.zip", 3}}) {
    EXPECT_EQ(zip.CheckZipFile(tmp / name, ""), status) << name;
  }
  EXPECT_EQ(zip.ZipFileCount(tmp / "dirs.zip"), 0);
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
  EXPECT_TRUE(zip.FailedSources().size() == 1 && zip.FailedSources()[0].source == Src("gone.txt"));
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
      EmptyFolder(dst);
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
        if (!OpenHere(big) || ++reads != 2) return;
        const int fd = ::open(big.c_str(), O_WRONLY);
        EXPECT_TRUE(::pwrite(fd, "NEW!", 4, kSize / 2) == 4 && ::close(fd) == 0);
      });
      RunZip({big, other});
      faults.Every(FaultOp::Read, nullptr);
      EXPECT_TRUE(reads >= 2 && run.jobError && fs::file_size(big) == kSize && !Exists(other));
      const std::string line = "job: Fehler: The file changed while it was read - " + big;
      EXPECT_TRUE(HasLine(line)) << ::testing::PrintToString(Lines());
      EXPECT_EQ(ArchiveEntries(archive).value_or(Entries{})["big.bin"], before->at("big.bin")) << "the entry changed";
      EXPECT_EQ(ArchiveEntries(zipAll == 0 ? archive : Dst("other.txt.zip")).value_or(Entries{})["other.txt"], "other");
      lines[workers / 4] = Lines();
    }
    EXPECT_EQ(lines[0], lines[1]);
  }
}

// A source changed, or its archive replaced, between the commit and the deletion of the
// source; an archive replaced after extraction read it, before its deletion: each is kept.
TEST_F(ZipFacade, WhatChangedAfterItWasReadIsKept) {
  // ZipAll; what changes just before the n-th call of op: a.txt, or the archive (the opens:
  // a.txt staged, read, then the archive read back); the line that keeps a.txt.
  const std::tuple<CheckState, FaultOp, int, std::string, std::string> cases[] = {
      {0, FaultOp::Unlink, 1, Src("a.txt"), "Fehler: The file changed after it was read and was kept - "},
      {1, FaultOp::Unlink, 1, Src("a.txt"), "Fehler: The file changed after it was read and was kept - "},
      {1, FaultOp::Open, 3, Dst("a.zip"), "job: Fehler: The archive does not hold the file as it was read - "}};
  for (const auto& [zipAll, op, n, changed, line] : cases) {
    SCOPED_TRACE(changed + " " + std::to_string(zipAll));
    EmptyFolder(dst);
    std::tie(j.ZipAll, j.ZipDelComp) = std::tuple(zipAll, 1);
    const std::string a = Source("a.txt", "line 1\n"), b = Source("b.txt", "b");
    faults.Before(op, n, [&] { WriteFile(changed, "changed\n"); });
    RunZip({a, b});
    faults.Disarm();
    EXPECT_EQ(ReadFile(a), changed == a ? "changed\n" : "line 1\n");
    EXPECT_TRUE(HasLine(line + a)) << ::testing::PrintToString(Lines());
    const std::string deleted = zipAll == 0 ? "job: Gelöscht: " : "Gelöscht: ";
    EXPECT_TRUE(!HasLine(deleted + a) && (op == FaultOp::Open || (HasLine(deleted + b) && !Exists(b))));
  }
  // Extraction deletes an archive only while its name leads to the file that was read.
  Fresh().Action = 4;
  j.ZipDelDeComp = 1;
  std::function<void()> action;  // runs after the archive was read, before its deletion
  rec.onLine = [&](const LoggedLine& l) {
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
    EXPECT_TRUE(ReadFile(Src("a.zip")) == replacement && ReadFile(Dst("a.txt")) == "data" && run.jobError);
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
    const Strings names = Names(dst);
    ASSERT_TRUE(before);
    j.Exist = 3;
    faults.Arm(FaultOp::Write, 1, ENOSPC);  // the commit's writing
    RunZip({Source("a.txt", "new")});
    faults.Disarm();
    EXPECT_TRUE(ArchiveEntries(archive) == before && ReadFile(Src("a.txt")) == "new");
    EXPECT_EQ(Names(dst), names) << "a temporary was left";
  }
}

// A commit or an extraction cancelled mid-way (with workers ahead or not) leaves the archive
// as it was, every extracted file whole and no temporary.
TEST_F(ZipFacade, ACancelLeavesTheArchiveAsItWasAndNoTemporaries) {
  for (const int workers : {1, 4}) {
    SCOPED_TRACE(workers);
    EmptyFolder(dst);
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
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    faults.Before(FaultOp::Read, 8, [&] { zip.CancelZip(); });
    EXPECT_TRUE(!zip.Flush() && zip.LastCancelled() && zip.WrittenSources().empty() && ReadFile(archive) == before);
    EXPECT_EQ(Names(dst), Strings{"a.zip"}) << "a temporary was left";

    faults.Disarm();
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(archive, f, 3, 0), 1);
    ASSERT_TRUE(zip.Flush());
    fs::create_directories(Dst("x"));
    faults.Before(FaultOp::Write, 8, [&] { zip.CancelZip(); });
    zip.StartUnzipRun({});
    const std::int32_t count = zip.UnZipEx(archive, Dst("x"), "*", 1, "", 0, 0);
    faults.Disarm();
    EXPECT_TRUE(zip.LastCancelled() && count < 20) << count;
    EXPECT_EQ(Names(dst), (Strings{"a.zip", "x"}));
    for (const std::string& name : Names(Dst("x"))) {  // a temporary would bear no source's name
      EXPECT_TRUE(Exists(Src(name)) && ReadFile(Dst("x/" + name)) == ReadFile(Src(name))) << name;
    }
  }
}

// Compression jobs through the steps the driver calls: messages, trees and previews.
class Compression : public ZipFacade {
 protected:
  struct Row {
    bool preview;
    const char* name;
    std::function<void(job&)> set;
    // "s/..." and "d/..." files: "DIR" a folder, "zip:a" an archive of the entry a.
    std::vector<std::pair<const char*, const char*>> files;
    Strings lines;          // {s} and {d} stand for the folders; see ExpectLines
    std::string after;      // the trees afterwards; a preview must leave them as they were
    const char* counters = nullptr;  // "{ (all, current), ... }", nullptr: not looked at
  };
  void Check(const Row& r) {
    SCOPED_TRACE(r.name);
    for (const std::string& root : {src, dst}) EmptyFolder(root);
    Fresh();
    Next();
    r.set(j);
    files.clear();
    for (const auto& [rel, data] : r.files) {
      const std::string path = (rel[0] == 's' ? src : dst) + std::string(rel).substr(1), text = data;
      if (text == "DIR") {
        fs::create_directories(path);
      } else if (text.starts_with("zip:")) {
        MakeArchive(path, {{text.substr(4), text.substr(4)}});
      } else {
        WriteFile(path, text);
      }
      if (rel[0] == 's') files.push_back(path);
    }
    const std::string before = Tree();
    r.preview ? Zip_Preview(run, svc, files) : Zip_Files(run, svc, files);
    ExpectLines(r.lines, Lines());
    EXPECT_EQ(Tree(), r.preview ? before : r.after);
    const std::string counters = ::testing::PrintToString(rec.counters);
    EXPECT_TRUE(r.counters == nullptr || counters == r.counters) << counters;
  }
};

const auto kAll = [](job&) {};
const auto kExist = [](std::int16_t e) { return [=](job& j) { j.Exist = e; }; };
const auto kSingle = [](std::int16_t e) { return [=](job& j) { j.ZipAll = 1, j.Exist = e; }; };

// Each row: the files, the job's keys, the lines, the trees afterwards (a preview must leave
// them as they were).
TEST_F(Compression, ByModePolicyAndPreview) {
  const Row rows[] = {
      // "All" mode: one archive named after the job; its first file gets no line of its own.
      {false, "further files", kAll, {{"s/a.txt", "a"}, {"s/sub/b.txt", "b"}, {"s/sub/deep/c.txt", "c"}},
       {"Dateien gefunden: 3", "Hinzufügen: {s}sub/b.txt nach {d}job.zip",
        "Hinzufügen: {s}sub/deep/c.txt nach {d}job.zip"},
       "d/job.zip=[a.txt,b.txt,c.txt] s/a.txt=a s/sub/b.txt=b s/sub/deep/c.txt=c", "{ (3, 2), (3, 3) }"},
      // The inner structure is taken from the parent of From (e2e), or below From when it ends in "/".
      {false, "inner structure below From", [](job& j) { j.ZipIntStruct = 1, j.From += "/"; },
       {{"s/a.txt", "a"}, {"s/sub/b.txt", "b"}}, {"..."}, "d/job.zip=[a.txt,sub/b.txt] s/a.txt=a s/sub/b.txt=b"},
      {false, "0 with an archive does nothing", [](job& j) { j.ZipDelComp = 1; },
       {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "not touched"}},
       {"Dateien gefunden: 2", "{d}job.zip existiert - Keine Aktion: "}, "d/job.zip=not touched s/a.txt=a s/b.txt=b"},
      {false, "3 replaces", kExist(3), {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "zip:old.txt"}},
       {"Dateien gefunden: 2", "Gelöscht: {d}job.zip - Erstelle neue Zip Datei: {d}job.zip",
        "Hinzufügen: {s}b.txt nach {d}job.zip"}, "d/job.zip=[a.txt,b.txt] s/a.txt=a s/b.txt=b"},
      {false, "2 writes a free name", [](job& j) { j.Exist = 2, j.PickRenamer = 1; },
       {{"s/a.txt", "a"}, {"d/job.zip", "older"}}, {"..."}, "d/job.zip=older d/job_1.zip=[a.txt] s/a.txt=a"},
      // A folder stands for any path the library cannot read as a file. (In a new archive such a
      // file is an error: Regression, AFileLeftOutOfANewArchiveFailsTheJob.)
      {false, "left out of old zips", kExist(4), {{"s/a.txt", "a"}, {"s/folder.d", "DIR"}, {"d/job.zip", "zip:a.txt"}},
       {"...", "Nicht hinzugefügt: {s}folder.d"}, "d/job.zip=[a.txt] s/a.txt=a s/folder.d/"},
      // "Single" mode: an archive per file, named after it.
      {false, "names", kSingle(0), {{"s/report.txt", "r"}, {"s/README", "R"}, {"s/x.txt/a.txt", "a"}},
       {"Dateien gefunden: 3", "Erstelle neue Zip Datei: {s}report.txt nach {d}report.zip",
        "Erstelle neue Zip Datei: {s}README nach {d}README", "Erstelle neue Zip Datei: {s}x.txt/a.txt nach {d}a.zip"},
       "d/README=[README] d/a.zip=[a.txt] d/report.zip=[report.txt] s/README=R s/report.txt=r s/x.txt/a.txt=a",
       "{ (3, 1), (3, 2), (3, 3) }"},
      {false, "a zero result reads as replaced and keeps the source", [](job& j) { j.ZipAll = j.ZipDelComp = 1; },
       {{"s/folder.d", "DIR"}, {"s/b.txt", "b"}}, {"Dateien gefunden: 2", "Ersetzt: {s}folder.d nach {d}folder.zip",
        "Erstelle neue Zip Datei: {s}b.txt nach {d}b.zip", "..."}, "d/b.zip=[b.txt] s/folder.d/"},
      {false, "the folder structure keeps the extension", [](job& j) { j.ZipAll = j.ZipExtStruct = 1; },
       {{"s/sub/report.txt", "r"}}, {"..."}, "d/sub/report.txt.zip=[report.txt] s/sub/report.txt=r"},
      // Previews change nothing; only Exist 1 previews deletions (ZipDelComp alone does not,
      // although the run deletes).
      {true, "ZipDelComp does not", [](job& j) { j.ZipDelComp = 1; }, {{"s/a.txt", "a"}, {"s/b.txt", "b"}},
       {"Dateien gefunden: 2", "Würde zu Zip hinzugefügt: {s}b.txt nach {d}job.zip"}, ""},
      {true, "0 with an archive ends the preview", kAll, {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "x"}},
       {"Dateien gefunden: 2", "{d}job.zipDatei existiert: "}, ""},
      {true, "3 names the archive it would delete", kExist(3), {{"s/a.txt", "a"}, {"d/job.zip", "x"}},
       {"Datei gefunden: 1", "Würde gelöscht: {d}job.zip - Erstelle neue Zip Datei: {d}job.zip"}, ""},
      {true, "single, 3", kSingle(3), {{"s/a.txt", "a"}, {"d/a.zip", "x"}},
       {"Datei gefunden: 1", "Würde gelöscht: {d}a.zip", "Zip würde erstellt: {s}a.txt nach {d}a.zip"}, ""},
      {true, "single names, making no folder", kSingle(0), {{"s/README", "R"}, {"s/sub/r.txt", "r"}},
       {"Dateien gefunden: 2", "Zip würde erstellt: {s}README nach {d}README",
        "Zip würde erstellt: {s}sub/r.txt nach {d}r.zip"}, ""},
      {true, "single with the structure", [](job& j) { j.ZipAll = j.ZipExtStruct = 1; }, {{"s/sub/r.txt", "r"}},
       {"...", "Zip würde erstellt: {s}sub/r.txt nach {d}sub/r.txt.zip"}, ""},
  };
  for (const Row& r : rows) Check(r);
}

TEST_F(Compression, AStopEndsTheRunAndKeepsWhatWasAdded) {
  files = {Source("a.txt"), Source("b.txt"), Source("c.txt"), Source("d.txt")};
  rec.onCounter = [&](std::int32_t, std::int32_t curr) { if (curr == 3) driver.StopMsg(true); };
  Zip_Files(run, svc, files);
  EXPECT_EQ(Tree(), "d/job.zip=[a.txt,b.txt] s/a.txt=data s/b.txt=data s/c.txt=data s/d.txt=data");
}

// The job's password makes AES entries, which a wrong password does not open: nothing is
// written for them, not even a temporary.
TEST_F(Compression, PasswordProtectsTheEntries) {
  files = {Source("a.txt", "secret text")};
  j.ZipPwd = "Pa55";
  Zip_Files(run, svc, files);
  const std::string archive = Dst("job.zip");
  const auto check = [&](const char* password) { return svc.zip->CheckZipFile(archive, password); };
  EXPECT_EQ((std::vector{check("Pa55"), check("wrong"), check("")}), (std::vector{0, 4, 4}));
  EXPECT_EQ(svc.zip->UnZipEx(archive, tmp / "bad", "*.*", 1, "wrong", 0, 0), 0);
  const auto& failures = svc.zip->Failures();
  EXPECT_TRUE(failures.size() == 1 && failures[0].kind == ZipLibrary::EntryFailure::Kind::Password);
  EXPECT_EQ(Names(tmp / "bad"), Strings{});  // not even a temporary
  EXPECT_EQ(svc.zip->UnZipEx(archive, tmp / "good", "*.*", 1, "Pa55", 0, 0), 1);
  EXPECT_EQ(ReadFile(tmp / "good/a.txt"), "secret text");
  if (!HaveTool("7z")) GTEST_SKIP() << "7z is not installed (p7zip-full, scripts/setup.sh)";
  EXPECT_EQ(RunTool("7z t -pPa55 " + Quote(archive)).status, 0);
  EXPECT_NE(RunTool("7z l -slt -pPa55 " + Quote(archive)).output.find("Method = AES-256"), std::string::npos);
  EXPECT_NE(RunTool("7z t -pnope " + Quote(archive)).status, 0);
}

// Only an exactly hidden file has its attributes cleared and given back around the call (the
// first file of "All" mode never), in a run and in a preview; a dry run touches none.
TEST_F(Compression, OnlyExactlyHiddenFilesAreUnhiddenForTheCall) {
  const struct { bool preview, dryRun; int calls; } cases[] = {
      {true, false, 2}, {false, true, 0}, {true, true, 0}, {false, false, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.preview << c.dryRun);
    EmptyFolder(dst);
    files = {Source(".first"), Source(".hidden"), Source("ro-hidden")};
    svc.fs.SetAttributes(files[0], kAttrHidden);
    svc.fs.SetAttributes(files[2], kAttrHidden | kAttrReadOnly);
    svc.dryRun = c.dryRun;
    j.Exist = c.dryRun ? 1 : 0;  // 1 would delete the sources
    faults.Disarm();
    c.preview ? Zip_Preview(run, svc, files) : Zip_Files(run, svc, files);
    EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), c.calls);
    EXPECT_EQ(svc.fs.GetAttributes(files[1]), kAttrHidden);
    EXPECT_EQ(svc.fs.GetAttributes(files[2]), kAttrHidden | kAttrReadOnly);
    EXPECT_TRUE(Exists(Dst("job.zip")) == (!c.preview && !c.dryRun) && Exists(files[0]));
  }
  // The run, last.
  EXPECT_EQ(Tree(), "d/job.zip=[.first,.hidden,ro-hidden] s/.first=data s/.hidden=data s/ro-hidden=data");
}

// A link is judged by where it leads once the other links on its way are followed.
TEST(LinkResolution, FollowsTheLinksOnTheWay) {
  using Parts = std::vector<std::string>;
  const std::map<std::string, std::string> links = {
      {"a/l", ".."}, {"a/b/l1", "../.."}, {"up", "/"}, {"loop1", "loop2"}, {"loop2", "loop1"}};
  const zipnames::LinkLookup lookup = [&](const Parts& parts) -> std::optional<std::string> {
    std::string key;
    for (const auto& p : parts) key += (key.empty() ? "" : "/") + p;
    const auto it = links.find(key);
    return it == links.end() ? std::nullopt : std::optional<std::string>(it->second);
  };
  struct Case { Parts at; std::string target; bool inside; };
  for (const Case& c : {Case{{}, "a/l/a/l/../..", false}, {{}, "a/l/..", false}, {{"a"}, "b/l1/..", false},
                        {{}, "a/l/x", true}, {{}, "a/b/l1/a/l", true}, {{}, "up/etc", false}, {{}, "loop1", false},
                        {{"a"}, "../x", true}, {{"a"}, "../../x", false}, {{}, "/etc", false}, {{}, "", false},
                        {{"a", "b"}, "l1/a/l/../c", false}, {{}, std::string("..\0/x", 5), false}}) {
    EXPECT_EQ(zipnames::LinkResolvesInside(c.at, c.target, lookup), c.inside) << c.target;
  }
}

}  // namespace
}  // namespace orvKestrel
