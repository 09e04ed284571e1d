#include "unit/ZipTestSupport.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <map>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// The local time that the test archives give their entries.
std::time_t ZipEntryTime() { return LocalTime(2020, 1, 2, 3, 4, 6); }

class Decompression : public ::testing::Test, public ZipEngine {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    j.Action = 4;
  }
  // An archive below From written by python's zipfile; entries stamped 2020-01-02 03:04:06.
  std::string Zip(const std::string& rel, const std::map<std::string, std::string>& entries) {
    const std::string path = dir / ("in/" + rel);
    fs::create_directories(fs::path(path).parent_path());
    std::string script = "import zipfile\nz=zipfile.ZipFile(" + Quote(path) + ",'w')\n";
    for (const auto& [name, data] : entries) {
      script += "z.writestr(zipfile.ZipInfo(" + Quote(name) + ",(2020,1,2,3,4,6))," +
                Quote(data) + ")\n";
    }
    script += "z.close()\n";
    const ToolResult r = Python(dir, script);
    EXPECT_EQ(r.status, 0) << r.output;
    return path;
  }
  // An archive encrypted with password that "wrong" does not open. The traditional encryption
  // checks a password by one byte, so one archive in 256 takes "wrong" too: such an archive is
  // made again (its header is random), lest the test fail by chance.
  std::string PasswordZip(const std::string& password) {
    if (!HaveTool("zip")) return {};
    const std::string zip = dir / "in/pw.zip";
    for (int attempt = 0; attempt < 20; ++attempt) {
      fs::remove(zip);
      Src("pw/secret.txt", "secret");
      EXPECT_EQ(RunTool("cd " + Quote(dir / "in/pw") + " && zip -q -P " + password +
                        " ../pw.zip secret.txt").status, 0);
      fs::remove_all(dir / "in/pw");
      const ToolResult check = Python(dir, "import zipfile\ntry:\n  zipfile.ZipFile(" +
                                               Quote(zip) + ").read('secret.txt', pwd=b'wrong')\n"
                                               "except RuntimeError:\n  exit(0)\nexit(1)\n");
      if (check.status == 0) break;
    }
    return zip;
  }
};

TEST_F(Decompression, ExtractsEachArchiveAndCountsItsFiles) {
  files = {Zip("two.zip", {{"a.txt", "A"}, {"d/b.txt", "B"}}), Zip("one.zip", {{"c.txt", "C"}})};
  j.DestZipFolder = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts(),
            (Lines{"2  Zip Dateien gefunden. Starte Dekompression ...",
                   "2 Dateien wurden dekomprimiert: " + files[0] + " nach " + j.To,
                   "1 Datei wurde dekomprimiert: " + files[1] + " nach " + j.To}));
  EXPECT_EQ(ev.lines[1].id, 78);
  EXPECT_EQ(ev.lines[2].id, 77);
  EXPECT_EQ(ReadFile(Out("d/b.txt")), "B");
  EXPECT_EQ(LocalStamp(WriteTime(Out("c.txt"))), "2020-01-02 03:04:06");
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_FALSE(e.jobError);
}

// The count names every selected file; files that are no archives by content go silently.
TEST_F(Decompression, FilesThatAreNoArchivesAreSkippedSilently) {
  files = {Src("fake.zip", "just text"), Zip("real.dat", {{"r.txt", "R"}})};
  e.UnZip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"2  Zip Dateien gefunden. Starte Dekompression ...",
                               "1 Datei wurde dekomprimiert: " + files[1] + " nach " + j.To}));
}

TEST_F(Decompression, DamagedAndForeignArchivesAreReportedAndSkipped) {
  const std::string good = ReadFile(Zip("good.zip", {{"a.txt", std::string(3000, 'a')}}));
  files = {Src("cut.zip", good.substr(0, good.size() / 2)), Src("pk.zip", "PK but no zip")};
  e.UnZip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"2  Zip Dateien gefunden. Starte Dekompression ...",
                               "Zip Datei ist beschädigt oder enthält keine Dateien: " + files[0],
                               "Ungültige Zip Datei: " + files[1]}));
  EXPECT_FALSE(Exists(Out("a.txt")));
}

TEST_F(Decompression, AWrongPasswordKeepsTheArchive) {
  files = {PasswordZip("right")};
  if (files[0].empty()) GTEST_SKIP() << "zip is not installed (scripts/setup.sh)";
  j.DestZipPwd = "wrong";
  j.ZipDelDeComp = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts().back(), "Undefinierbarer Fehler (fehlendes Passwort?): " + files[0]);
  EXPECT_EQ(ev.lines.back().id, 83);
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_FALSE(Exists(Out("secret.txt")));

  ev.lines.clear();
  j.DestZipPwd = "right";
  e.UnZip_Files(files, j);
  EXPECT_EQ(ReadFile(Out("secret.txt")), "secret");
  EXPECT_EQ(ev.Texts().back(), "Zip Datei wurde gelöscht: " + files[0]);
  EXPECT_FALSE(Exists(files[0]));
}

// A status the engine does not know keeps the skip decision of the archive before it.
TEST_F(Decompression, AnUnknownStatusCarriesTheLastSkipDecisionOver) {
  const std::string pw = PasswordZip("right");
  if (pw.empty()) GTEST_SKIP() << "zip is not installed (scripts/setup.sh)";
  files = {Src("cut.zip", "PK\x03\x04 cut short"), pw};
  j.DestZipPwd = "wrong";
  e.UnZip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"2  Zip Dateien gefunden. Starte Dekompression ...",
                               "Zip Datei ist beschädigt oder enthält keine Dateien: " + files[0]}));
}

TEST_F(Decompression, ExistingDestinationPolicyMapsToTheOverwriteMode) {
  files = {Zip("a.zip", {{"old.txt", "archive"}})};
  struct Case { std::int16_t exist; std::time_t fileTime; bool replaced; };
  const std::time_t entryTime = ZipEntryTime();
  for (const Case& c : {Case{0, entryTime - 100, false}, Case{1, entryTime + 100, true},
                        Case{2, entryTime - 100, true}, Case{2, entryTime + 100, false},
                        Case{5, entryTime - 100, false}}) {
    SCOPED_TRACE(c.exist);
    WriteFile(Out("old.txt"), "existing");
    SetModified(Out("old.txt"), c.fileTime);
    j.DestZipExist = c.exist;
    e.UnZip_Files(files, j);
    EXPECT_EQ(ReadFile(Out("old.txt")), c.replaced ? "archive" : "existing");
  }
}

TEST_F(Decompression, FilterAndFlatExtraction) {
  files = {Zip("a.zip", {{"d/a.txt", "A"}, {"d/b.bin", "B"}, {"c.TXT", "C"}})};
  j.DestZipFilter = "*.txt";
  j.DestZipFolder = 0;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts().back(), "2 Dateien wurden dekomprimiert: " + files[0] + " nach " + j.To);
  EXPECT_TRUE(Exists(Out("a.txt")));
  EXPECT_TRUE(Exists(Out("c.TXT")));
  EXPECT_FALSE(Exists(Out("b.bin")));
  EXPECT_FALSE(Exists(Out("d")));
}

TEST_F(Decompression, EntriesLeavingTheDestinationAreRefusedAndTheArchiveKept) {
  files = {Zip("slip.zip", {{"../../escape.txt", "x"}, {"fine.txt", "fine"}})};
  j.ZipDelDeComp = 1;
  e.UnZip_Files(files, j);
  const Lines texts = ev.Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[1].rfind("job: Fehler: ", 0), 0u) << texts[1];
  EXPECT_NE(texts[1].find("../../escape.txt"), std::string::npos) << texts[1];
  EXPECT_EQ(texts[2], "1 Datei wurde dekomprimiert: " + files[0] + " nach " + j.To);
  EXPECT_TRUE(e.jobError);
  EXPECT_EQ(ReadFile(Out("fine.txt")), "fine");
  EXPECT_FALSE(Exists(dir / "escape.txt"));
  EXPECT_TRUE(Exists(files[0]));
}

TEST_F(Decompression, ExtractedArchivesAreDeletedWhenTheJobSaysSo) {
  files = {Zip("a.zip", {{"a.txt", "A"}})};
  j.ZipDelDeComp = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts().back(), "Zip Datei wurde gelöscht: " + files[0]);
  EXPECT_EQ(ev.lines.back().id, 81);
  EXPECT_FALSE(Exists(files[0]));
  EXPECT_EQ(ReadFile(Out("a.txt")), "A");
}

TEST_F(Decompression, FolderStructureGivesEachArchiveItsOwnFolder) {
  files = {Zip("sub/data.zip", {{"x.txt", "X"}})};
  j.FStruct = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ReadFile(Out("sub/data/x.txt")), "X");
  EXPECT_EQ(ev.Texts().back(),
            "1 Datei wurde dekomprimiert: " + files[0] + " nach " + Out("sub/data"));
}

TEST_F(Decompression, PreviewCountsAndWritesNothing) {
  files = {Zip("a.zip", {{"a.txt", "A"}, {"b.txt", "B"}, {"d/", ""}}), Zip("one.zip", {{"c", "C"}})};
  j.DoPreview = 1;
  j.ZipDelDeComp = 1;
  j.FStruct = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts(),
            (Lines{"2  Zip Dateien gefunden. Starte Dekompressionsvorschau ...",
                   "2 Dateien würden dekomprimiert: " + files[0] + " nach " + Out("a"),
                   "Zip Datei würde bei erfolgreicher Aktion gelöscht  " + files[0] + " nach " + Out("a"),
                   "1 Datei würde dekomprimiert: " + files[1] + " nach " + Out("one"),
                   "Zip Datei würde bei erfolgreicher Aktion gelöscht  " + files[1] + " nach " + Out("one")}));
  EXPECT_TRUE(fs::is_empty(j.To));
  EXPECT_TRUE(Exists(files[0]));
}

TEST_F(Decompression, ADryRunOnlyPreviews) {
  files = {Zip("a.zip", {{"a.txt", "A"}})};
  e.dryRun = true;
  j.ZipDelDeComp = 1;
  e.UnZip_Files(files, j);
  EXPECT_EQ(ev.Texts().front(), "1  Zip Dateien gefunden. Starte Dekompressionsvorschau ...");
  EXPECT_TRUE(fs::is_empty(j.To));
  EXPECT_TRUE(Exists(files[0]));
}

}  // namespace
}  // namespace orvKestrel
