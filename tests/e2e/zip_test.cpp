// Compression and extraction jobs and their previews, seen through `kestrel run`, and the
// compression jobs that could lose files: a job whose archive lies among its sources, two
// sources for one entry, an older file for a newer entry (a link planted in the destination:
// actions_safety_test; a file written while it is packed: the unit tests, which time the write).
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {


class ZipJobs : public ArchiveTest {
 protected:
  // The job "z" into `to` (empty: dst), walking sub-folders, due at every pass; more keys after.
  void Job(const std::string& keys, const fs::path& to = {}) const {
    WriteJob("SubFolder=1\nCounter=1\nInterval=1\n" + keys, "z", {}, to);
  }
  // sub + "pw.zip" in the source folder, encrypted with password. The traditional encryption
  // checks a password by one byte, so one archive in 256 takes "wrong" too: such an archive is
  // made again (its header is random), lest the test fail by chance.
  void PasswordZip(const std::string& password, const std::string& sub = "") const {
    const std::string zip = Quote(S(sub + "pw.zip"));
    fs::create_directories(S(sub));
    Put(dir_ / "pw/secret.txt", "secret", EntryTime());
    for (int attempt = 0; attempt < 20; ++attempt) {
      fs::remove(S(sub + "pw.zip"));
      Shell("cd " + Quote((dir_ / "pw").string()) + " && zip -q -P " + password + " " + zip + " secret.txt");
      if (Python("try:\n  zipfile.ZipFile(" + zip + ").read('secret.txt', pwd=b'wrong')\n"
                 "except RuntimeError:\n  print('refused')\n") == "refused\n") {
        return;
      }
    }
  }
};

TEST_F(ZipJobs, CompressesTheSelectedFilesIntoTheJobsArchiveAndPreviewsIt) {
  Plant(src(), {{"a.txt", "alpha"}, {"sub/b.txt", "beta"}});
  Job("Action=3\nDoPreview=1\nExist=1\n");
  const auto before = Listing(src(), true);
  RunResult r = RunJobs({"--preview-jobs"});
  EXPECT_TRUE(r.exitCode == 0 && Count(r.logs, "Würde zu Zip hinzugefügt: ") == 1 &&
              (Has(r.logs, "Würde gelöscht: " + S("a.txt")) || Has(r.logs, "Würde gelöscht: " + S("sub/b.txt"))))
      << r.err << r.out;
  EXPECT_TRUE(Listing(src(), true) == before && Files(dst()).empty());
  Job("Action=3\nDoPreview=0\nZipIntStruct=1\nZipDelComp=1\n");
  r = RunJobs();
  EXPECT_TRUE(r.exitCode == 0 && Has(r.logs, "Dateien gefunden: 2") && Count(r.logs, "z: Gelöscht: ") == 2) << r.out;
  EXPECT_EQ(Entries(D("z.zip")), "src/a.txt=alpha;src/sub/b.txt=beta;");
  EXPECT_EQ(Files(src()), Tree{});
}

// Extraction jobs, one row per case: what is in the source folder, the job's keys, the lines
// the run must say once each ($S, $D: the folders), the destination afterwards
// and the files kept in the source folder.
TEST_F(ZipJobs, Extraction) {
  if (!HaveTool("zip")) GTEST_SKIP() << "zip is not installed";
  const std::time_t entryTime = EntryTime();
  const auto zip = [this](const std::string& rel, const std::vector<Entry>& entries) { Archive(S(rel), entries); };
  // a.zip holds old.txt, which the destination holds already, older or newer than the entry.
  const auto existing = [&](std::time_t t) {
    zip("a.zip", {{"old.txt", "archive"}, {"x.txt", "x"}});
    Put(D("old.txt"), "existing", t);
  };
  const std::function<void()> older = [&] { existing(entryTime - 100); }, newer = [&] { existing(entryTime + 100); };
  const auto keptBy = [](const std::string& why) { return "Keine Aktion (" + why + "): $S/a.zip: old.txt nach $D/"; };
  const Tree kept{{"old.txt", "existing"}, {"x.txt", "x"}}, replaced{{"old.txt", "archive"}, {"x.txt", "x"}};
  const std::string found = "  Zip Dateien gefunden. Starte Dekompression",
                    damaged = "Zip Datei ist beschädigt oder enthält keine Dateien: $S/cut.zip",
                    cut = std::string("PK\x03\x04 cut short");  // a local header and no more
  const struct {
    std::string name, keys;  // DoPreview=1: the run previews
    std::function<void()> setup;
    int exit;  // -1: either
    Lines lines;
    Tree dstAfter;
    std::set<std::string> srcAfter;
    std::string absent = {};  // no line mentions it
  } cases[] = {
      {"each archive extracted and counted", "DestZipFolder=1\n",
       [&] { zip("two.zip", {{"a.txt", "A"}, {"d/b.txt", "B"}}); zip("one.zip", {{"c.txt", "C"}}); }, 0,
       {"2" + found + " ...", "2 Dateien wurden dekomprimiert: $S/two.zip nach $D",
        "1 Datei wurde dekomprimiert: $S/one.zip nach $D"},
       {{"a.txt", "A"}, {"d/b.txt", "B"}, {"c.txt", "C"}}, {"one.zip", "two.zip"}},
      // A file that is no archive by content goes silently; damaged and foreign ones are named.
      {"what is no archive is skipped", "",
       [&] {
         Plant(src(), {{"fake.zip", "just text"}, {"cut.zip", cut}, {"pk.zip", "PK but no zip"}});
         zip("real.zip", {{"r.txt", "R"}});
       }, -1,
       {"4" + found + " ...", "1 Datei wurde dekomprimiert: $S/real.zip nach $D", damaged,
        "Ungültige Zip Datei: $S/pk.zip"},
       {{"r.txt", "R"}}, {"fake.zip", "real.zip", "cut.zip", "pk.zip"}, "fake.zip"},
      {"a wrong password keeps the archive", "DestZipPwd=wrong\nZipDelDeComp=1\n",
       [&] { PasswordZip("right"); }, -1, {"Undefinierbarer Fehler (fehlendes Passwort?): $S/pw.zip"}, {}, {"pw.zip"}},
      {"the right password extracts and deletes", "DestZipPwd=right\nZipDelDeComp=1\n",
       [&] { PasswordZip("right"); }, 0, {"Zip Datei wurde gelöscht: $S/pw.zip"}, {{"secret.txt", "secret"}}, {}},
      // The walk takes the files of a folder before its sub-folders: cut.zip comes first.
      {"a status the engine does not know keeps the skip decision before it", "DestZipPwd=wrong\n",
       [&] { Put(S("cut.zip"), cut); PasswordZip("right", "sub/"); }, -1, {damaged}, {},
       {"cut.zip", "sub/pw.zip"}, "Undefinierbarer"},
      // An entry that the policy keeps is named, and its archive stays: it holds its only copy.
      {"policy 0 keeps it", "DestZipExist=0\nZipDelDeComp=1\n", older, 0, {keptBy("Datei vorhanden")}, kept, {"a.zip"}},
      {"policy 1 replaces it", "DestZipExist=1\n", newer, 0, {}, replaced, {"a.zip"}},
      {"policy 2 replaces an older file", "DestZipExist=2\n", older, 0, {}, replaced, {"a.zip"}},
      {"policy 2 keeps a newer file", "DestZipExist=2\nZipDelDeComp=1\n", newer, 0,
       {keptBy("Neuere Datei existiert")}, kept, {"a.zip"}},
      {"an unknown policy keeps it", "DestZipExist=5\n", older, -1, {}, kept, {"a.zip"}},
      {"filter and flat extraction", "DestZipFilter=*.txt; b?.bin\nDestZipFolder=0\n",
       [&] { zip("a.zip", {{"d/a.txt", "A"}, {"d/b1.bin", "B"}, {"b.bin", "no"}, {"c.TXT", "C"}, {"README", "no"}}); },
       0, {"3 Dateien wurden dekomprimiert: $S/a.zip nach $D"}, {{"a.txt", "A"}, {"b1.bin", "B"}, {"c.TXT", "C"}},
       {"a.zip"}},
      {"the folder structure gives each archive its own folder", "FStruct=1\n",
       [&] { zip("sub/data.zip", {{"x.txt", "X"}}); }, 0,
       {"1 Datei wurde dekomprimiert: $S/sub/data.zip nach $D/sub/data"}, {{"sub/data/x.txt", "X"}}, {"sub/data.zip"}},
      // (A dry run previews as this does: run_test, with the same check that nothing is written.)
      {"a preview counts and writes nothing", "DoPreview=1\nZipDelDeComp=1\nFStruct=1\n",
       [&] { zip("a.zip", {{"a.txt", "A"}, {"b.txt", "B"}, {"d/", ""}}); zip("sub/one.zip", {{"c", "C"}}); }, 0,
       {"2" + found + "svorschau ...", "2 Dateien würden dekomprimiert: $S/a.zip nach $D/a",
        "Zip Datei würde bei erfolgreicher Aktion gelöscht  $S/a.zip nach $D/a",
        "1 Datei würde dekomprimiert: $S/sub/one.zip nach $D/sub/one",
        "Zip Datei würde bei erfolgreicher Aktion gelöscht  $S/sub/one.zip nach $D/sub/one"},
       {}, {"a.zip", "sub/one.zip"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EmptyFolders();
    c.setup();
    const auto before = Files(dst());
    Job(c.keys + "Action=4\nDoPreview=0\n");
    const RunResult r = RunJobs(c.keys.starts_with("DoPreview=1") ? Lines{"--preview-jobs"} : Lines{});
    EXPECT_TRUE(c.exit < 0 || r.exitCode == c.exit) << r.exitCode << r.out;
    for (const std::string& row : c.lines) {
      const std::string line = std::regex_replace(std::regex_replace(row, std::regex("\\$S"), src().string()),
                                                  std::regex("\\$D"), dst().string());
      EXPECT_EQ(Count(r.logs, line), 1) << line << "\n" << r.out;
    }
    EXPECT_TRUE(c.absent.empty() || Count(r.logs, "", {c.absent}) == 0) << r.out;
    EXPECT_EQ(Files(dst()), c.dstAfter);
    for (const auto& [rel, data] : Files(dst())) {  // what was extracted bears the entry's time
      const bool untouched = before.contains(rel) && data == before.at(rel);
      EXPECT_TRUE(untouched || WriteTime(D(rel)) == entryTime) << rel << " written at " << WriteTime(D(rel));
    }
    std::set<std::string> kept;
    for (const auto& [rel, data] : Files(src())) kept.insert(rel);
    EXPECT_EQ(kept, c.srcAfter);
  }
}

using ZipSafety = ZipJobs;

// Run 1 packs a.txt and b.txt and deletes them; run 2 finds the archives among its sources
// beside c.txt. Each archive must keep what it holds and never be packed into itself.
TEST_F(ZipSafety, ARunNeverTakesItsOwnArchivesAsSources) {
  const struct {
    const char* to;  // below src; "=link" is a link to src itself
    const char* keys;
    Tree archives;  // below src, after run 2
  } cases[] = {
      {"", "ZipAll=0\n", {{"z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"out", "ZipAll=0\n", {{"out/z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"=link", "ZipAll=0\n", {{"z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"", "ZipAll=1\n", {{"a.zip", "a.txt=A;"}, {"b.zip", "b.txt=B;"}, {"c.zip", "c.txt=C;"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.to) + c.keys);
    EmptyFolders();
    fs::remove_all(dir_ / "link");
    fs::path to = src() / c.to;
    if (std::string(c.to) == "=link") fs::create_directory_symlink(src(), to = dir_ / "link");
    fs::create_directories(to);
    Job(std::string("Action=3\nDoPreview=0\nZipDelComp=1\nExist=4\n") + c.keys, to);
    Plant(src(), {{"a.txt", "A"}, {"b.txt", "B"}});
    ASSERT_EQ(RunJobs().exitCode, 0);
    Put(src() / "c.txt", "C");
    EXPECT_TRUE(Has(RunJobs({"--dry-run"}).logs, "Datei gefunden: 1"));
    const RunResult r = RunJobs();
    EXPECT_TRUE(r.exitCode == 0 && Has(r.logs, "Datei gefunden: 1")) << r.out;
    for (const bool again : {true, false}) {  // a third run has nothing to do
      Tree got;
      for (const auto& [rel, data] : Files(src())) got[rel] = Entries(src() / rel);
      EXPECT_EQ(got, c.archives);
      EXPECT_TRUE(!again || RunJobs().exitCode == 0);
    }
  }
}

// a/f.txt and b/f.txt both make f.zip holding f.txt: whichever comes second would replace the
// entry of the first, whose source is gone already. It is refused, named, and kept.
TEST_F(ZipSafety, NothingThisRunWroteIsReplacedByThisRun) {
  for (const char* exist : {"1", "3", "4"}) {
    SCOPED_TRACE(exist);
    EmptyFolders();
    Plant(src(), {{"a/f.txt", "first"}, {"b/f.txt", "second"}});
    Job(std::string("Action=3\nDoPreview=0\nZipAll=1\nZipDelComp=1\nExist=") + exist + "\n");
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 1) << r.out;
    const std::string entries = Entries(dst() / "f.zip");
    ASSERT_TRUE(entries == "f.txt=first;" || entries == "f.txt=second;") << entries;
    const bool firstPacked = entries == "f.txt=first;";
    EXPECT_EQ(Files(src()), (firstPacked ? Tree{{"b/f.txt", "second"}} : Tree{{"a/f.txt", "first"}}));
    EXPECT_EQ(Count(r.logs, "z: Fehler: ", {" - " + S(firstPacked ? "b/f.txt" : "a/f.txt")}), 1) << r.out;
  }
}

// Exist=4 with EFSelect=0 replaces an entry of an earlier run only with a newer file, in either
// layout and with workers or not; an older file is not added and not deleted.
TEST_F(ZipSafety, AnOlderFileDoesNotReplaceANewerEntry) {
  for (const char* zipAll : {"0", "1"}) for (const std::string jobs : {"1", "4"}) {
    SCOPED_TRACE(zipAll + (" --jobs " + jobs));
    EmptyFolders();
    const fs::path archive = dst() / (std::string(zipAll) == "0" ? "z.zip" : "f.zip");
    Job(std::string("Action=3\nDoPreview=0\nZipAll=") + zipAll + "\nZipDelComp=1\nExist=4\nEFSelect=0\n");
    for (const auto& [data, time, entries] : {std::tuple{"newer", 100, "f.txt=newer;"}, {"older", 0, "f.txt=newer;"},
                                              {"newest", 200, "f.txt=newest;"}}) {
      Put(src() / "f.txt", data, 1'700'000'000 + time);
      EXPECT_EQ(RunJobs({"--jobs", jobs}).exitCode, 0);
      EXPECT_EQ(Entries(archive), entries);
      EXPECT_EQ(fs::exists(src() / "f.txt"), std::string(data) == "older");
    }
  }
}

}  // namespace
}  // namespace e2e
