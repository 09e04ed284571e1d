#include "zip/modZIP32vb.h"

#include "platform/FileSystem.h"
#include "unit/ZipTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

constexpr std::time_t kT0 = 1700000000;  // an even second

std::string RandomBytes(std::size_t n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::string s(n, '\0');
  for (std::size_t i = 0; i + 8 <= n; i += 8) {
    const auto v = rng();
    std::memcpy(&s[i], &v, 8);
  }
  return s;
}

class ZipFacade : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
  }
  // Writes files below d/src and stages them into archive with base d/src.
  void Put(const std::string& rel, const std::string& data, std::time_t t = kT0) {
    WriteFile(d / ("src/" + rel), data);
    SetModified(d / ("src/" + rel), t);
  }
  std::int32_t Add(const std::string& archive, const std::string& rel,
                   const std::string& password = "") {
    zl.SaveFolderLocation(d / "src");
    return zl.ZipFile(archive, d / ("src/" + rel), password, 0, 0);
  }
  // Waits (bounded) until a temporary file shows up below folder.
  static bool AwaitTemp(const std::string& folder) {
    for (int i = 0; i < 20000; ++i) {
      std::error_code ec;
      for (const auto& e : fs::recursive_directory_iterator(folder, ec)) {
        const std::string n = e.path().filename().string();
        if (n.find(".kestrel-") != std::string::npos || n.find(".zip.") != std::string::npos) {
          return true;
        }
      }
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    return false;
  }

  TempDir d;
  FileSystem fsys;
  ZipLibrary zl{fsys};
};

TEST_F(ZipFacade, WritesArchivesThatOtherToolsReadWithNamesAndTimes) {
  Put("in/a.txt", "alpha\n");
  Put("in/sub/b.bin", RandomBytes(70000, 1), kT0 + 3600);
  Put("in/\xC3\xBC \xC3\xB1.txt", "umlaut");
  const std::string zipPath = d / "out.zip";
  for (const char* f : {"in/a.txt", "in/sub/b.bin", "in/\xC3\xBC \xC3\xB1.txt"}) {
    ASSERT_EQ(Add(zipPath, f), 1) << f;
  }
  EXPECT_FALSE(Exists(zipPath)) << "nothing is written before the commit";
  ASSERT_TRUE(zl.Flush());
  EXPECT_EQ(zl.OpenArchive(), "");
  EXPECT_EQ(PyEntries(d, zipPath),
            (std::vector<std::string>{
                "in/a.txt|6|8|" + LocalStamp(kT0), "in/sub/b.bin|70000|8|" + LocalStamp(kT0 + 3600),
                "in/\xC3\xBC \xC3\xB1.txt|6|8|" + LocalStamp(kT0)}));
  if (!HaveTool("unzip")) GTEST_SKIP() << "unzip is not installed (scripts/setup.sh)";
  const ToolResult t = RunTool("unzip -t " + Quote(zipPath));
  EXPECT_EQ(t.status, 0) << t.output;
}

// A name that is not UTF-8 (a Latin-1 byte) comes back with the same bytes.
TEST_F(ZipFacade, ExtractsItsOwnArchiveWithFoldersOrFlat) {
  Put("in/a.txt", "alpha");
  Put("in/sub/b.bin", RandomBytes(300000, 2), kT0 - 7200);
  Put("in/caf\xE9.txt", "latin");
  const std::string zipPath = d / "out.zip";
  for (const char* f : {"in/a.txt", "in/sub/b.bin", "in/caf\xE9.txt"}) ASSERT_EQ(Add(zipPath, f), 1);
  ASSERT_TRUE(zl.Flush());
  EXPECT_EQ(zl.ZipFileCount(zipPath), 3);

  EXPECT_EQ(zl.UnZipEx(zipPath, d / "tree", "*.*", 1, "", 0, 0), 3);
  EXPECT_EQ(ReadFile(d / "tree/in/caf\xE9.txt"), "latin");
  EXPECT_EQ(ReadFile(d / "tree/in/sub/b.bin"), ReadFile(d / "src/in/sub/b.bin"));
  EXPECT_EQ(WriteTime(d / "tree/in/sub/b.bin"), kT0 - 7200);
  EXPECT_EQ(WriteTime(d / "tree/in/a.txt"), kT0);

  EXPECT_EQ(zl.UnZipEx(zipPath, d / "flat/x", "*.*", 0, "", 0, 0), 3);
  EXPECT_EQ(ReadFile(d / "flat/x/a.txt"), "alpha");
  EXPECT_TRUE(Exists(d / "flat/x/b.bin"));
  EXPECT_FALSE(Exists(d / "flat/x/in"));
  EXPECT_TRUE(zl.Failures().empty());
}

TEST_F(ZipFacade, PasswordWritesAesAndChecksItCheaply) {
  Put("a.txt", "secret text");
  const std::string zipPath = d / "pw.zip";
  ASSERT_EQ(Add(zipPath, "a.txt", "Pa55"), 1);
  ASSERT_TRUE(zl.Flush());
  EXPECT_EQ(zl.CheckZipFile(zipPath, "Pa55"), 0);
  EXPECT_EQ(zl.CheckZipFile(zipPath, "wrong"), 4);
  EXPECT_EQ(zl.CheckZipFile(zipPath, ""), 4);

  EXPECT_EQ(zl.UnZipEx(zipPath, d / "bad", "*.*", 1, "wrong", 0, 0), 0);
  ASSERT_EQ(zl.Failures().size(), 1u);
  EXPECT_EQ(zl.Failures()[0].kind, ZipLibrary::EntryFailure::Kind::Password);
  EXPECT_FALSE(Exists(d / "bad/a.txt"));
  EXPECT_TRUE(TempLeftovers(d / "bad").empty());
  EXPECT_EQ(zl.UnZipEx(zipPath, d / "good", "*.*", 1, "Pa55", 0, 0), 1);
  EXPECT_EQ(ReadFile(d / "good/a.txt"), "secret text");

  if (!HaveTool("7z")) GTEST_SKIP() << "7z is not installed (p7zip-full, scripts/setup.sh)";
  const ToolResult ok = RunTool("7z t -pPa55 " + Quote(zipPath));
  EXPECT_EQ(ok.status, 0) << ok.output;
  const ToolResult listing = RunTool("7z l -slt -pPa55 " + Quote(zipPath));
  EXPECT_NE(listing.output.find("Method = AES-256"), std::string::npos) << listing.output;
  EXPECT_NE(RunTool("7z t -pnope " + Quote(zipPath)).status, 0);
}

// Archives of other tools: Info-ZIP with and without a traditional password, python's zipfile.
TEST_F(ZipFacade, ExtractsArchivesOfOtherTools) {
  if (!HaveTool("zip")) GTEST_SKIP() << "zip is not installed (scripts/setup.sh)";
  Put("tree/a.txt", std::string(50000, 'a'));
  Put("tree/deep/b.bin", RandomBytes(9000, 3));
  const std::string src = Quote(d / "src");
  ASSERT_EQ(RunTool("cd " + src + " && zip -q -r ../plain.zip tree").status, 0);
  ASSERT_EQ(RunTool("cd " + src + " && zip -q -r -P trad ../trad.zip tree").status, 0);
  const ToolResult py = Python(d, "import zipfile\n"
      "z=zipfile.ZipFile(" + Quote(d / "py.zip") + ",'w')\n"
      "z.writestr('stored.txt', 'plain bytes', compress_type=zipfile.ZIP_STORED)\n"
      "z.writestr('dir/', '')\n"
      "z.writestr('dir/deflated.txt', 'x'*10000, compress_type=zipfile.ZIP_DEFLATED)\n"
      "z.writestr('\\u00e9t\\u00e9.txt', 'summer', compress_type=zipfile.ZIP_DEFLATED)\n"
      "z.close()\n");
  ASSERT_EQ(py.status, 0) << py.output;

  struct Case { std::string archive, password; std::int32_t files; };
  for (const Case& c : {Case{"plain.zip", "", 2}, Case{"trad.zip", "trad", 2}, Case{"py.zip", "", 3}}) {
    SCOPED_TRACE(c.archive);
    EXPECT_EQ(zl.CheckZipFile(d / c.archive, c.password), 0);
    const std::string out = d / ("x-" + c.archive);
    EXPECT_EQ(zl.UnZipEx(d / c.archive, out, "*.*", 1, c.password, 0, 0), c.files);
    EXPECT_TRUE(zl.Failures().empty());
  }
  EXPECT_EQ(ReadFile(d / "x-trad.zip/tree/deep/b.bin"), ReadFile(d / "src/tree/deep/b.bin"));
  EXPECT_EQ(ReadFile(d / "x-plain.zip/tree/a.txt"), std::string(50000, 'a'));
  EXPECT_EQ(WriteTime(d / "x-plain.zip/tree/a.txt"), kT0);
  EXPECT_EQ(ReadFile(d / "x-py.zip/dir/deflated.txt"), std::string(10000, 'x'));
  EXPECT_EQ(ReadFile(d / "x-py.zip/\xC3\xA9t\xC3\xA9.txt"), "summer");
  EXPECT_EQ(zl.CheckZipFile(d / "trad.zip", "wrong"), 4);
  EXPECT_EQ(zl.UnZipEx(d / "trad.zip", d / "x-wrong", "*.*", 1, "wrong", 0, 0), 0);
  EXPECT_FALSE(Exists(d / "x-wrong/tree/a.txt"));
}

TEST_F(ZipFacade, CheckZipFileTellsMissingDamagedAndForeignFiles) {
  Put("a.txt", RandomBytes(20000, 4));
  ASSERT_EQ(Add(d / "good.zip", "a.txt"), 1);
  ASSERT_TRUE(zl.Flush());
  const std::string good = ReadFile(d / "good.zip");
  WriteFile(d / "cut.zip", good.substr(0, good.size() / 2));
  WriteFile(d / "text.zip", "just some text");
  WriteFile(d / "pkjunk.zip", "PKjunk that is not a record");
  ASSERT_EQ(Python(d, "import zipfile\n"
                      "zipfile.ZipFile(" + Quote(d / "empty.zip") + ",'w').close()\n"
                      "z=zipfile.ZipFile(" + Quote(d / "dirs.zip") + ",'w')\n"
                      "z.writestr('a/', '')\nz.writestr('a/b/', '')\nz.close()\n").status, 0);
  fs::create_directory(d / "folder.zip");
  const std::vector<std::pair<std::string, std::int32_t>> cases = {
      {"good.zip", 0}, {"missing.zip", 2}, {"cut.zip", 1}, {"empty.zip", 1},
      {"dirs.zip", 1}, {"text.zip", 3},    {"pkjunk.zip", 3}, {"folder.zip", 3}};
  for (const auto& [name, status] : cases) {
    EXPECT_EQ(zl.CheckZipFile(d / name, ""), status) << name;
  }
  EXPECT_EQ(zl.ZipFileCount(d / "dirs.zip"), 0);
  EXPECT_EQ(zl.ZipFileCount(d / "good.zip"), 1);
  EXPECT_EQ(zl.UnZipEx(d / "cut.zip", d / "cut", "*.*", 1, "", 0, 0), 0);
}

TEST_F(ZipFacade, AddingKeepsOtherEntriesAndReplacesTheSameName) {
  Put("x.txt", "old x");
  Put("y.txt", "y");
  const std::string zipPath = d / "a.zip";
  ASSERT_EQ(Add(zipPath, "x.txt"), 1);
  ASSERT_EQ(Add(zipPath, "y.txt"), 1);
  ASSERT_TRUE(zl.Flush());
  std::time_t t = kT0;
  for (std::int32_t mode : {0, 3, 4}) {
    Put("x.txt", "new x", t += 2);  // mode 4 replaces an older entry only
    zl.StartZipRun(1, 0);           // each its own run
    zl.SaveFolderLocation(d / "src");
    ASSERT_EQ(zl.ZipAddFile(zipPath, d / "src/x.txt", mode, 0), 1);
    ASSERT_TRUE(zl.Flush());
    EXPECT_EQ(zl.ZipFileCount(zipPath), 2) << mode;
  }
  ASSERT_EQ(zl.UnZipEx(zipPath, d / "out", "*.*", 1, "", 0, 0), 2);
  EXPECT_EQ(ReadFile(d / "out/x.txt"), "new x");
  EXPECT_EQ(ReadFile(d / "out/y.txt"), "y");
}

TEST_F(ZipFacade, TheSameEntryNameTwiceBeforeACommitIsRefused) {
  Put("a/n.txt", "first");
  Put("b/n.txt", "second");
  const std::string zipPath = d / "flat.zip";
  zl.SaveFolderLocation(d / "src/a/");
  ASSERT_EQ(zl.ZipFile(zipPath, d / "src/a/n.txt", "", 0, 0), 1);
  zl.SaveFolderLocation(d / "src/b/");
  EXPECT_EQ(zl.ZipAddFile(zipPath, d / "src/b/n.txt", 3, 0), 0);
  ASSERT_TRUE(zl.Flush());
  ASSERT_EQ(zl.UnZipEx(zipPath, d / "out", "*.*", 1, "", 0, 0), 1);
  EXPECT_EQ(ReadFile(d / "out/n.txt"), "first");
}

TEST_F(ZipFacade, CompressionRateIsTheDeflateLevelClamped) {
  Put("t.txt", std::string(100000, 'k'));
  std::string script = "import zipfile\n";
  for (std::int32_t rate : {0, -5, 1, 9, 42}) {
    const std::string zipPath = d / ("r" + std::to_string(rate) + ".zip");
    zl.SetCompressionRate(rate);
    ASSERT_EQ(Add(zipPath, "t.txt"), 1);
    ASSERT_TRUE(zl.Flush());
    script += "print(zipfile.ZipFile(" + Quote(zipPath) + ").infolist()[0].compress_type)\n";
  }
  EXPECT_EQ(Python(d, script).output, "0\n0\n8\n8\n8\n");  // stored, stored, deflated...
}

TEST_F(ZipFacade, ASourceThatVanishesBeforeTheCommitIsLeftOut) {
  Put("keep.txt", "keep");
  Put("gone.txt", "gone");
  const std::string zipPath = d / "v.zip";
  ASSERT_EQ(Add(zipPath, "keep.txt"), 1);
  ASSERT_EQ(Add(zipPath, "gone.txt"), 1);
  EXPECT_EQ(Add(zipPath, "never-there.txt"), 0);
  fs::remove(d / "src/gone.txt");
  ASSERT_TRUE(zl.Flush());
  ASSERT_EQ(zl.FailedSources().size(), 1u);
  EXPECT_EQ(zl.FailedSources()[0].source, d / "src/gone.txt");
  EXPECT_EQ(PyEntries(d, zipPath), std::vector<std::string>{"keep.txt|4|8|" + LocalStamp(kT0)});
}

TEST_F(ZipFacade, AFailedCommitLeavesNoArchiveAndSaysWhy) {
  Put("a.txt", "a");
  fs::create_directory(d / "dest");
  ASSERT_EQ(Add(d / "dest/a.zip", "a.txt"), 1);
  fs::remove(d / "dest");
  EXPECT_FALSE(zl.Flush());
  EXPECT_FALSE(zl.FlushError().empty());
  EXPECT_FALSE(zl.LastCancelled());
  EXPECT_EQ(Add(d / "nofolder/a.zip", "a.txt"), 0) << "a folder that cannot take the archive";
}

TEST_F(ZipFacade, CancelDuringACommitLeavesTheArchiveAsItWas) {
  Put("small.txt", "small");
  const std::string zipPath = d / "c.zip";
  ASSERT_EQ(Add(zipPath, "small.txt"), 1);
  ASSERT_TRUE(zl.Flush());
  const std::string before = ReadFile(zipPath);
  Put("big.bin", RandomBytes(48 << 20, 5));
  zl.SetCompressionRate(9);
  ASSERT_EQ(Add(zipPath, "big.bin"), 1);
  std::thread canceller([&] {
    if (AwaitTemp(d.str())) zl.CancelZip();
  });
  const bool committed = zl.Flush();
  canceller.join();
  EXPECT_FALSE(committed);
  EXPECT_TRUE(zl.LastCancelled());
  EXPECT_EQ(ReadFile(zipPath), before);
  EXPECT_TRUE(TempLeftovers(d.str()).empty());
}

TEST_F(ZipFacade, CancelDuringExtractionLeavesNoPartialFile) {
  zl.SetCompressionRate(0);
  for (int i = 0; i < 6; ++i) {
    const std::string name = "f" + std::to_string(i) + ".bin";
    Put(name, RandomBytes(8 << 20, 10 + static_cast<unsigned>(i)));
    ASSERT_EQ(Add(d / "big.zip", name), 1);
  }
  ASSERT_TRUE(zl.Flush());
  std::thread canceller([&] {
    if (AwaitTemp(d / "out")) zl.CancelZip();
  });
  const std::int32_t count = zl.UnZipEx(d / "big.zip", d / "out", "*.*", 1, "", 0, 0);
  canceller.join();
  EXPECT_TRUE(zl.LastCancelled());
  EXPECT_LT(count, 6);
  EXPECT_TRUE(TempLeftovers(d / "out").empty());
  for (int i = 0; i < count; ++i) {
    const std::string name = "f" + std::to_string(i) + ".bin";
    EXPECT_EQ(ReadFile(d / ("out/" + name)), ReadFile(d / ("src/" + name)));
  }
}

TEST_F(ZipFacade, ExtractionNeverWritesOutsideItsDestination) {
  const std::string dest = d / "root/dest";
  fs::create_directories(dest);
  fs::create_directories(d / "root/outside");
  fs::create_directory_symlink(d / "root/outside", dest + "/linked");
  const ToolResult py = Python(d, "import zipfile\n"
      "z=zipfile.ZipFile(" + Quote(d / "evil.zip") + ",'w')\n"
      "def link(name, target):\n"
      "  i=zipfile.ZipInfo(name); i.create_system=3; i.external_attr=(0o120777<<16)\n"
      "  z.writestr(i, target)\n"
      "z.writestr('../evil.txt', 'x')\n"
      "z.writestr('/abs.txt', 'x')\n"
      "z.writestr('ok/../../evil2.txt', 'x')\n"
      "z.writestr('ok/fine.txt', 'fine')\n"
      "link('ok/out', '../../outside')\n"
      "link('ok/in', 'fine.txt')\n"
      "z.writestr('linked/through.txt', 'x')\n"
      "z.close()\n");
  ASSERT_EQ(py.status, 0) << py.output;
  EXPECT_EQ(zl.UnZipEx(d / "evil.zip", dest, "*.*", 1, "", 0, 0), 2);
  std::vector<std::string> refused;
  for (const auto& f : zl.Failures()) {
    EXPECT_EQ(f.kind, ZipLibrary::EntryFailure::Kind::Unsafe) << f.entry;
    refused.push_back(f.entry);
  }
  std::sort(refused.begin(), refused.end());
  EXPECT_EQ(refused, (std::vector<std::string>{"../evil.txt", "/abs.txt", "linked/through.txt",
                                               "ok/../../evil2.txt", "ok/out"}));
  EXPECT_EQ(ReadFile(dest + "/ok/fine.txt"), "fine");
  EXPECT_EQ(fs::read_symlink(dest + "/ok/in"), "fine.txt");
  EXPECT_FALSE(Exists(d / "root/evil.txt"));
  EXPECT_FALSE(Exists(d / "root/evil2.txt"));
  EXPECT_TRUE(fs::is_empty(d / "root/outside"));
}

TEST_F(ZipFacade, DamagedDataLeavesNoFileUnderTheEntryName) {
  ASSERT_EQ(Python(d, "import zipfile\n"
                      "z=zipfile.ZipFile(" + Quote(d / "bad.zip") + ",'w')\n"
                      "z.writestr('good.txt', 'good')\n"
                      "z.writestr('bad.txt', 'B'*5000)\n"
                      "z.close()\n"
                      "b=bytearray(open(" + Quote(d / "bad.zip") + ",'rb').read())\n"
                      "i=b.index(b'BBBB'); b[i+100]=ord('C')\n"
                      "open(" + Quote(d / "bad.zip") + ",'wb').write(b)\n").status, 0);
  EXPECT_EQ(zl.CheckZipFile(d / "bad.zip", ""), 0) << "only the data is damaged";
  EXPECT_EQ(zl.UnZipEx(d / "bad.zip", d / "out", "*.*", 1, "", 0, 0), 1);
  ASSERT_EQ(zl.Failures().size(), 1u);
  EXPECT_EQ(zl.Failures()[0].kind, ZipLibrary::EntryFailure::Kind::Damaged);
  EXPECT_EQ(zl.Failures()[0].entry, "bad.txt");
  EXPECT_FALSE(Exists(d / "out/bad.txt"));
  EXPECT_EQ(ReadFile(d / "out/good.txt"), "good");
  EXPECT_TRUE(TempLeftovers(d / "out").empty());
}

TEST_F(ZipFacade, OverwriteModesDecideAboutExistingFiles) {
  Put("older.txt", "archive", kT0 - 1000);
  Put("newer.txt", "archive", kT0 + 1000);
  ASSERT_EQ(Add(d / "o.zip", "older.txt"), 1);
  ASSERT_EQ(Add(d / "o.zip", "newer.txt"), 1);
  ASSERT_TRUE(zl.Flush());
  struct Case { std::int32_t mode; bool olderReplaced, newerReplaced; };
  for (const Case& c : {Case{0, false, false}, Case{2, false, false}, Case{3, true, true},
                        Case{4, false, true}}) {
    SCOPED_TRACE(c.mode);
    const std::string out = d / ("out" + std::to_string(c.mode));
    for (const char* n : {"older.txt", "newer.txt"}) {
      WriteFile(out + "/" + n, "existing");
      SetModified(out + "/" + n, kT0);
    }
    EXPECT_EQ(zl.UnZipEx(d / "o.zip", out, "*.*", 1, "", c.mode, 0),
              static_cast<std::int32_t>(c.olderReplaced) + static_cast<std::int32_t>(c.newerReplaced));
    EXPECT_EQ(ReadFile(out + "/older.txt"), c.olderReplaced ? "archive" : "existing");
    EXPECT_EQ(ReadFile(out + "/newer.txt"), c.newerReplaced ? "archive" : "existing");
  }
}

TEST_F(ZipFacade, FilterTakesMatchingFileNames) {
  for (const char* n : {"a1.txt", "b.TXT", "README", "x/c.bin"}) Put(n, n);
  for (const char* n : {"a1.txt", "b.TXT", "README", "x/c.bin"}) ASSERT_EQ(Add(d / "f.zip", n), 1);
  ASSERT_TRUE(zl.Flush());
  const std::vector<std::pair<std::string, std::int32_t>> cases = {
      {"*.*", 4}, {"*", 4}, {"*.txt", 2}, {"a?.txt; *.bin", 2}, {"README", 1}, {"*.doc", 0}};
  int k = 0;
  for (const auto& [filter, files] : cases) {
    EXPECT_EQ(zl.UnZipEx(d / "f.zip", d / ("o" + std::to_string(k++)), filter, 1, "", 0, 0), files)
        << filter;
  }
}

}  // namespace
}  // namespace orvKestrel
