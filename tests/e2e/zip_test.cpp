// Compression and extraction jobs and their previews, seen through `kestrel run`.
#include "e2e/E2eSupport.h"

#include <set>

namespace e2e {
namespace {

class ZipJobs : public ArchiveTest {
 protected:
  void WriteJob(const std::string& keys) const { JobFolderTest::WriteJob("SubFolder=1\nCounter=1\n" + keys, "z"); }
  // sub + "pw.zip" in the source folder, encrypted with password. The traditional encryption
  // checks a password by one byte, so one archive in 256 takes "wrong" too: such an archive is
  // made again (its header is random), lest the test fail by chance.
  void PasswordZip(const std::string& password, const std::string& sub = "") const {
    const std::string zip = Quote(Src(sub + "pw.zip").string());
    fs::create_directories(Src(sub));
    Put(dir_ / "pw/secret.txt", "secret", EntryTime());
    for (int attempt = 0; attempt < 20; ++attempt) {
      fs::remove(Src(sub + "pw.zip"));
      Shell("cd " + Quote((dir_ / "pw").string()) + " && zip -q -P " + password + " " + zip + " secret.txt");
      if (Python("try:\n  zipfile.ZipFile(" + zip + ").read('secret.txt', pwd=b'wrong')\n"
                 "except RuntimeError:\n  print('refused')\n") == "refused\n") {
        return;
      }
    }
  }
};

TEST_F(ZipJobs, CompressesTheSelectedFilesIntoTheJobsArchiveAndPreviewsIt) {
  Put(Src("a.txt"), "alpha");
  Put(Src("sub/b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=1\nExist=1\n");
  RunResult r = RunJobs({"--preview-jobs"});
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_EQ(Count(r.logs, "Würde zu Zip hinzugefügt: "), 1) << r.out;
  EXPECT_TRUE(Has(r.logs, "Würde gelöscht: " + S("a.txt")) || Has(r.logs, "Würde gelöscht: " + S("sub/b.txt")));
  EXPECT_EQ(Files(dst()), Tree{});
  EXPECT_EQ(Files(src()).size(), 2u);
  WriteJob("Action=3\nDoPreview=0\nZipIntStruct=1\nZipDelComp=1\n");
  r = RunJobs();
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_TRUE(Has(r.logs, "Dateien gefunden: 2")) << r.out;
  EXPECT_EQ(Entries(Dst("z.zip")), "src/a.txt=alpha;src/sub/b.txt=beta;");
  EXPECT_EQ(Files(src()), Tree{});
  EXPECT_EQ(Count(r.logs, "z: Gelöscht: "), 2) << r.out;
}

// Extraction jobs, one row per case: what is in the source folder, the job's keys, the lines
// the run must say once each ($S, $D: the folders; "*": any text), the destination afterwards
// and the files kept in the source folder.
TEST_F(ZipJobs, Extraction) {
  if (!HaveTool("zip")) GTEST_SKIP() << "zip is not installed";
  const std::time_t entryTime = EntryTime();
  const auto zip = [this](const std::string& rel, const std::vector<Entry>& entries) { Archive(Src(rel), entries); };
  const auto existing = [&](std::time_t t) {
    zip("a.zip", {{"old.txt", "archive"}});
    Put(Dst("old.txt"), "existing", t);
  };
  const struct {
    std::string name, keys, option;
    std::function<void()> setup;
    int exit;  // -1: either
    Lines lines;
    Tree dstAfter;
    std::set<std::string> srcAfter;
    std::string absent = {};  // no line mentions it
  } cases[] = {
      {"each archive extracted and counted", "DestZipFolder=1\n", "",
       [&] { zip("two.zip", {{"a.txt", "A"}, {"d/b.txt", "B"}}); zip("one.zip", {{"c.txt", "C"}}); }, 0,
       {"2  Zip Dateien gefunden. Starte Dekompression ...", "2 Dateien wurden dekomprimiert: $S/two.zip nach $D",
        "1 Datei wurde dekomprimiert: $S/one.zip nach $D"},
       {{"a.txt", "A"}, {"d/b.txt", "B"}, {"c.txt", "C"}}, {"one.zip", "two.zip"}},
      {"a file that is no archive by content goes silently", "", "",
       [&] { Put(Src("fake.zip"), "just text"); zip("real.zip", {{"r.txt", "R"}}); }, -1,
       {"2  Zip Dateien gefunden. Starte Dekompression ...", "1 Datei wurde dekomprimiert: $S/real.zip nach $D"},
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
      {"a wrong password keeps the archive", "DestZipPwd=wrong\nZipDelDeComp=1\n", "", [&] { PasswordZip("right"); },
       -1, {"Undefinierbarer Fehler (fehlendes Passwort?): $S/pw.zip"}, {}, {"pw.zip"}},
      {"the right password extracts and deletes", "DestZipPwd=right\nZipDelDeComp=1\n", "",
       [&] { PasswordZip("right"); }, 0, {"Zip Datei wurde gelöscht: $S/pw.zip"}, {{"secret.txt", "secret"}}, {}},
      // The walk takes the files of a folder before its sub-folders: cut.zip comes first.
      {"a status the engine does not know keeps the skip decision before it", "DestZipPwd=wrong\n", "",
       [&] { Put(Src("cut.zip"), std::string("PK\x03\x04 cut short")); PasswordZip("right", "sub/"); }, -1,
       {"Zip Datei ist beschädigt oder enthält keine Dateien: $S/cut.zip"}, {}, {"cut.zip", "sub/pw.zip"},
       "Undefinierbarer"},
      {"policy 0 keeps an existing file", "DestZipExist=0\n", "", [&] { existing(entryTime - 100); }, 0, {},
       {{"old.txt", "existing"}}, {"a.zip"}},
      {"policy 1 replaces it", "DestZipExist=1\n", "", [&] { existing(entryTime + 100); }, 0, {},
       {{"old.txt", "archive"}}, {"a.zip"}},
      {"policy 2 replaces an older file", "DestZipExist=2\n", "", [&] { existing(entryTime - 100); }, 0, {},
       {{"old.txt", "archive"}}, {"a.zip"}},
      {"policy 2 keeps a newer file", "DestZipExist=2\n", "", [&] { existing(entryTime + 100); }, 0, {},
       {{"old.txt", "existing"}}, {"a.zip"}},
      {"an unknown policy keeps it", "DestZipExist=5\n", "", [&] { existing(entryTime - 100); }, -1, {},
       {{"old.txt", "existing"}}, {"a.zip"}},
      {"filter and flat extraction", "DestZipFilter=*.txt\nDestZipFolder=0\n", "",
       [&] { zip("a.zip", {{"d/a.txt", "A"}, {"d/b.bin", "B"}, {"c.TXT", "C"}}); }, 0,
       {"2 Dateien wurden dekomprimiert: $S/a.zip nach $D"}, {{"a.txt", "A"}, {"c.TXT", "C"}}, {"a.zip"}},
      {"entries leaving the destination are refused, the archive kept", "ZipDelDeComp=1\n", "",
       [&] { zip("slip.zip", {{"../../escape.txt", "x"}, {"fine.txt", "fine"}}); }, 1,
       {"z: Fehler: *../../escape.txt", "1 Datei wurde dekomprimiert: $S/slip.zip nach $D"}, {{"fine.txt", "fine"}},
       {"slip.zip"}},
      {"extracted archives are deleted when the job says so", "DestZipFolder=1\nZipDelDeComp=1\n", "",
       [&] { zip("pack.zip", {{"d/x.txt", "X"}, {"y.txt", "Y"}}); Put(Src("notes.txt"), "no archive"); }, 0,
       {"2 Dateien wurden dekomprimiert: $S/pack.zip nach $D", "Zip Datei wurde gelöscht: $S/pack.zip"},
       {{"d/x.txt", "X"}, {"y.txt", "Y"}}, {"notes.txt"}},
      {"the folder structure gives each archive its own folder", "FStruct=1\n", "",
       [&] { zip("sub/data.zip", {{"x.txt", "X"}}); }, 0,
       {"1 Datei wurde dekomprimiert: $S/sub/data.zip nach $D/sub/data"}, {{"sub/data/x.txt", "X"}}, {"sub/data.zip"}},
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EmptyFolders();
    c.setup();
    const auto before = Files(dst());
    WriteJob(c.keys + "Action=4\nDoPreview=0\n");
    const RunResult r = RunJobs(c.option.empty() ? Lines{} : Lines{c.option});
    EXPECT_TRUE(c.exit < 0 || r.exitCode == c.exit) << r.exitCode << r.out;
    for (std::string line : c.lines) {
      for (const auto& [token, path] : {std::pair{"$S", src().string()}, {"$D", dst().string()}}) {
        for (auto at = line.find(token); at != std::string::npos; at = line.find(token)) line.replace(at, 2, path);
      }
      const auto star = line.find('*');
      EXPECT_EQ(Count(r.logs, line.substr(0, star), {star == std::string::npos ? "" : line.substr(star + 1)}), 1)
          << line << "\n" << r.out;
    }
    EXPECT_TRUE(c.absent.empty() || Count(r.logs, "", {c.absent}) == 0) << r.out;
    EXPECT_EQ(Files(dst()), c.dstAfter);
    for (const auto& [rel, data] : Files(dst())) {  // what was extracted bears the entry's time
      if (!before.contains(rel) || data != before.at(rel)) {
        EXPECT_EQ(fs::last_write_time(dst() / rel),
                  fs::file_time_type::clock::from_sys(std::chrono::system_clock::from_time_t(entryTime))) << rel;
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
