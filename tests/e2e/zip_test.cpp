// Compression and extraction jobs and their previews, seen through `kestrel run`.
#include "e2e/E2eSupport.h"

#include <functional>
#include <set>

namespace e2e {
namespace {

class ZipJobs : public ArchiveTest {
 protected:
  void WriteJob(const std::string& keys) {
    JobFolderTest::WriteJob("SubFolder=1\nCounter=1\n" + keys, "z");
  }
  // sub + "pw.zip" in the source folder, encrypted with password. The traditional encryption
  // checks a password by one byte, so one archive in 256 takes "wrong" too: such an archive is
  // made again (its header is random), lest the test fail by chance.
  void PasswordZip(const std::string& password, const std::string& sub = "") {
    if (!HaveTool("zip")) GTEST_SKIP() << "zip is not installed";
    const std::string zip = Quote(Src(sub + "pw.zip").string());
    fs::create_directories(Src(sub));
    Put(dir_ / "pw/secret.txt", "secret", EntryTime());
    for (int attempt = 0; attempt < 20; ++attempt) {
      fs::remove(Src(sub + "pw.zip"));
      ASSERT_EQ(std::system(("cd " + Quote((dir_ / "pw").string()) + " && zip -q -P " + password +
                             " " + zip + " secret.txt").c_str()), 0);
      if (Python("try:\n  zipfile.ZipFile(" + zip + ").read('secret.txt', "
                 "pwd=b'wrong')\nexcept RuntimeError:\n  print('refused')\n") == "refused\n") {
        return;
      }
    }
  }
};

TEST_F(ZipJobs, CompressesTheSelectedFilesIntoTheJobsArchive) {
  Put(Src("a.txt"), "alpha");
  Put(Src("sub/b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=0\nZipIntStruct=1\nZipDelComp=1\n");
  const RunResult r = Run();
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_TRUE(Has(logs, "Dateien gefunden: 2")) << r.out;
  EXPECT_EQ(Entries(Dst("z.zip")), "src/a.txt=alpha;src/sub/b.txt=beta;");
  EXPECT_FALSE(fs::exists(Src("a.txt")));
  EXPECT_FALSE(fs::exists(Src("sub/b.txt")));
  EXPECT_EQ(Count(logs, "z: Gelöscht: "), 2) << r.out;
}

TEST_F(ZipJobs, CompressionPreviewChangesNothing) {
  Put(Src("a.txt"), "alpha");
  Put(Src("b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=1\nExist=1\n");
  const RunResult r = Run({"--preview-jobs"});
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_EQ(Count(logs, "Würde zu Zip hinzugefügt: "), 1) << r.out;
  EXPECT_TRUE(Has(logs, "Würde gelöscht: " + Src("a.txt").string()) ||
              Has(logs, "Würde gelöscht: " + Src("b.txt").string()))
      << r.out;
  EXPECT_FALSE(fs::exists(Dst("z.zip")));
  EXPECT_TRUE(fs::exists(Src("a.txt")));
}

// A line of the run matching pattern, where "*" stands for any text.
bool Matches(const std::string& line, const std::string& pattern) {
  std::size_t at = 0, from = 0;
  for (std::size_t star; (star = pattern.find('*', from)) != std::string::npos; from = star + 1) {
    const std::string part = pattern.substr(from, star - from);
    const auto found = line.find(part, at);
    if (found == std::string::npos || (from == 0 && found != 0)) return false;
    at = found + part.size();
  }
  const std::string tail = pattern.substr(from);
  return from == 0 ? line == pattern : line.size() >= at + tail.size() && line.ends_with(tail);
}

// Extraction jobs, one row per case: what is in the source folder, the job's keys, the lines
// the run must say ($S, $D: the folders), the destination afterwards and the archives kept.
TEST_F(ZipJobs, Extraction) {
  using Entries = std::vector<Entry>;
  const std::time_t entryTime = EntryTime();
  struct Case {
    std::string name, keys, option;
    std::function<void()> setup;
    int exit;  // -1: either
    std::vector<std::string> lines;
    std::map<std::string, std::string> dstAfter;
    std::set<std::string> srcAfter;
    std::string absent = {};  // no line mentions it
  };
  const auto zip = [this](const std::string& rel, const Entries& entries) { Archive(Src(rel), entries); };
  const auto existing = [this](std::time_t t) { Put(Dst("old.txt"), "existing", t); };
  const Entries oldEntry{{"old.txt", "archive"}};
  const std::vector<Case> cases = {
      {"each archive extracted and counted", "DestZipFolder=1\n", "",
       [&] { zip("two.zip", {{"a.txt", "A"}, {"d/b.txt", "B"}}); zip("one.zip", {{"c.txt", "C"}}); }, 0,
       {"2  Zip Dateien gefunden. Starte Dekompression ...",
        "2 Dateien wurden dekomprimiert: $S/two.zip nach $D",
        "1 Datei wurde dekomprimiert: $S/one.zip nach $D"},
       {{"a.txt", "A"}, {"d/b.txt", "B"}, {"c.txt", "C"}}, {"one.zip", "two.zip"}},
      {"a file that is no archive by content goes silently", "", "",
       [&] { Put(Src("fake.zip"), "just text"); zip("real.zip", {{"r.txt", "R"}}); }, -1,
       {"2  Zip Dateien gefunden. Starte Dekompression ...",
        "1 Datei wurde dekomprimiert: $S/real.zip nach $D"},
       {{"r.txt", "R"}}, {"fake.zip", "real.zip"}, "fake.zip"},
      {"damaged and foreign archives are reported and skipped", "", "",
       [&] {
         zip("good.zip", {{"a.txt", std::string(3000, 'a')}});
         const std::string good = Get(Src("good.zip"));
         fs::remove(Src("good.zip"));
         Put(Src("cut.zip"), good.substr(0, good.size() / 2));
         Put(Src("pk.zip"), "PK but no zip");
       }, -1,
       {"Zip Datei ist beschädigt oder enthält keine Dateien: $S/cut.zip", "Ungültige Zip Datei: $S/pk.zip"},
       {}, {"cut.zip", "pk.zip"}},
      {"a wrong password keeps the archive", "DestZipPwd=wrong\nZipDelDeComp=1\n", "",
       [&] { PasswordZip("right"); }, -1,
       {"Undefinierbarer Fehler (fehlendes Passwort?): $S/pw.zip"}, {}, {"pw.zip"}},
      {"the right password extracts and deletes", "DestZipPwd=right\nZipDelDeComp=1\n", "",
       [&] { PasswordZip("right"); }, 0,
       {"Zip Datei wurde gelöscht: $S/pw.zip"}, {{"secret.txt", "secret"}}, {}},
      // The walk takes the files of a folder before its sub-folders: cut.zip comes first.
      {"a status the engine does not know keeps the skip decision before it", "DestZipPwd=wrong\n", "",
       [&] { Put(Src("cut.zip"), std::string("PK\x03\x04 cut short")); PasswordZip("right", "sub/"); }, -1,
       {"Zip Datei ist beschädigt oder enthält keine Dateien: $S/cut.zip"}, {}, {"cut.zip", "sub/pw.zip"},
       "Undefinierbarer"},
      {"policy 0 keeps an existing file", "DestZipExist=0\n", "",
       [&] { zip("a.zip", oldEntry); existing(entryTime - 100); }, 0, {}, {{"old.txt", "existing"}}, {"a.zip"}},
      {"policy 1 replaces it", "DestZipExist=1\n", "",
       [&] { zip("a.zip", oldEntry); existing(entryTime + 100); }, 0, {}, {{"old.txt", "archive"}}, {"a.zip"}},
      {"policy 2 replaces an older file", "DestZipExist=2\n", "",
       [&] { zip("a.zip", oldEntry); existing(entryTime - 100); }, 0, {}, {{"old.txt", "archive"}}, {"a.zip"}},
      {"policy 2 keeps a newer file", "DestZipExist=2\n", "",
       [&] { zip("a.zip", oldEntry); existing(entryTime + 100); }, 0, {}, {{"old.txt", "existing"}}, {"a.zip"}},
      {"an unknown policy keeps it", "DestZipExist=5\n", "",
       [&] { zip("a.zip", oldEntry); existing(entryTime - 100); }, -1, {}, {{"old.txt", "existing"}}, {"a.zip"}},
      {"filter and flat extraction", "DestZipFilter=*.txt\nDestZipFolder=0\n", "",
       [&] { zip("a.zip", {{"d/a.txt", "A"}, {"d/b.bin", "B"}, {"c.TXT", "C"}}); }, 0,
       {"2 Dateien wurden dekomprimiert: $S/a.zip nach $D"}, {{"a.txt", "A"}, {"c.TXT", "C"}}, {"a.zip"}},
      {"entries leaving the destination are refused, the archive kept", "ZipDelDeComp=1\n", "",
       [&] { zip("slip.zip", {{"../../escape.txt", "x"}, {"fine.txt", "fine"}}); }, 1,
       {"z: Fehler: *../../escape.txt*", "1 Datei wurde dekomprimiert: $S/slip.zip nach $D"},
       {{"fine.txt", "fine"}}, {"slip.zip"}},
      {"extracted archives are deleted when the job says so", "DestZipFolder=1\nZipDelDeComp=1\n", "",
       [&] { zip("pack.zip", {{"d/x.txt", "X"}, {"y.txt", "Y"}}); Put(Src("notes.txt"), "no archive"); }, 0,
       {"2 Dateien wurden dekomprimiert: $S/pack.zip nach $D", "Zip Datei wurde gelöscht: $S/pack.zip"},
       {{"d/x.txt", "X"}, {"y.txt", "Y"}}, {"notes.txt"}},
      {"the folder structure gives each archive its own folder", "FStruct=1\n", "",
       [&] { zip("sub/data.zip", {{"x.txt", "X"}}); }, 0,
       {"1 Datei wurde dekomprimiert: $S/sub/data.zip nach $D/sub/data"}, {{"sub/data/x.txt", "X"}},
       {"sub/data.zip"}},
      {"a preview counts and writes nothing", "DoPreview=1\nZipDelDeComp=1\nFStruct=1\n", "--preview-jobs",
       [&] { zip("a.zip", {{"a.txt", "A"}, {"b.txt", "B"}, {"d/", ""}}); zip("sub/one.zip", {{"c", "C"}}); }, 0,
       {"2  Zip Dateien gefunden. Starte Dekompressionsvorschau ...",
        "2 Dateien würden dekomprimiert: $S/a.zip nach $D/a",
        "Zip Datei würde bei erfolgreicher Aktion gelöscht  $S/a.zip nach $D/a",
        "1 Datei würde dekomprimiert: $S/sub/one.zip nach $D/sub/one",
        "Zip Datei würde bei erfolgreicher Aktion gelöscht  $S/sub/one.zip nach $D/sub/one"},
       {}, {"a.zip", "sub/one.zip"}},
      {"a dry run only previews", "ZipDelDeComp=1\n", "--dry-run", [&] { zip("a.zip", {{"a.txt", "A"}}); }, 0,
       {"1  Zip Dateien gefunden. Starte Dekompressionsvorschau ...",
        "1 Datei würde dekomprimiert: $S/a.zip nach $D"},
       {}, {"a.zip"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EmptyFolders();
    c.setup();
    const auto before = Files(dst());
    WriteJob(c.keys + "Action=4\nDoPreview=0\n");
    const RunResult r = Run(c.option.empty() ? std::vector<std::string>{} : std::vector{c.option});
    if (c.exit >= 0) {
      EXPECT_EQ(r.exitCode, c.exit) << r.out;
    }
    for (std::string pattern : c.lines) {
      for (const auto& [token, path] : {std::pair{"$S", src().string()}, {"$D", dst().string()}}) {
        for (auto at = pattern.find(token); at != std::string::npos; at = pattern.find(token)) {
          pattern.replace(at, 2, path);
        }
      }
      EXPECT_EQ(std::count_if(logs.begin(), logs.end(), [&](const std::string& l) { return Matches(l, pattern); }), 1)
          << pattern << "\n" << r.out;
    }
    if (!c.absent.empty()) {
      for (const auto& l : logs) EXPECT_EQ(l.find(c.absent), std::string::npos) << l;
    }
    EXPECT_EQ(Files(dst()), c.dstAfter);
    for (const auto& [rel, data] : Files(dst())) {
      if (!before.count(rel) || Get(dst() / rel) != before.at(rel)) {
        EXPECT_EQ(fs::last_write_time(dst() / rel), fs::file_time_type::clock::from_sys(
                      std::chrono::system_clock::from_time_t(entryTime))) << rel;
      }
    }
    std::set<std::string> kept;
    for (const auto& [rel, data] : Files(src())) kept.insert(rel);
    EXPECT_EQ(kept, c.srcAfter);
  }
  EXPECT_FALSE(fs::exists(dst() / "../../escape.txt"));
}

}  // namespace
}  // namespace e2e
