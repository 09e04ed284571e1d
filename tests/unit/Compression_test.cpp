#include "Rig.h"
#include "unit/ZipTestSupport.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class Compression : public Rig {
 protected:
  FileList files;
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
  }
  // Entry names of an archive as python's zipfile reads them.
  Strings Names(const std::string& archive) {
    Strings names;
    for (const auto& e : PyEntries(tmp, archive)) names.push_back(e.substr(0, e.find('|')));
    return names;
  }
};

TEST_F(Compression, OneFileInAllModeMakesTheArchiveWithoutAnAddLine) {
  files = {Source("a.txt")};
  Zip_Files(run, svc, files);
  ASSERT_EQ(rec.Texts(), Strings{"Datei gefunden: 1"});
  EXPECT_EQ(rec.lines[0].id, 85);
  EXPECT_EQ(Names(Dst("job.zip")), Strings{"a.txt"});
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(rec.counters.empty());
}

TEST_F(Compression, AllModeReportsEveryFurtherFileAndItsProgress) {
  files = {Source("a.txt"), Source("sub/b.txt"), Source("sub/deep/c.txt")};
  Zip_Files(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 3",
                               "Hinzufügen: " + files[1] + " nach " + Dst("job.zip"),
                               "Hinzufügen: " + files[2] + " nach " + Dst("job.zip")}));
  EXPECT_EQ(rec.counters, (std::vector<std::pair<std::int32_t, std::int32_t>>{{3, 2}, {3, 3}}));
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"a.txt", "b.txt", "c.txt"}));
}

// ZipIntStruct keeps the source folder's own name, or the path below From when From ends in
// "/".
TEST_F(Compression, InternalStructureIsRelativeToTheParentOfFrom) {
  files = {Source("a.txt"), Source("sub/b.txt")};
  j.ZipIntStruct = 1;
  Zip_Files(run, svc, files);
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"src/a.txt", "src/sub/b.txt"}));
  fs::remove(Dst("job.zip"));
  j.From += "/";
  Zip_Files(run, svc, files);
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"a.txt", "sub/b.txt"}));
}

TEST_F(Compression, PolicyZeroWithAnExistingArchiveDoesNothing) {
  files = {Source("a.txt"), Source("b.txt")};
  WriteFile(Dst("job.zip"), "not touched");
  j.ZipDelComp = 1;
  Zip_Files(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 2", Dst("job.zip") + " existiert - Keine Aktion: "}));
  EXPECT_EQ(rec.lines[1].id, 86);
  EXPECT_EQ(ReadFile(Dst("job.zip")), "not touched");
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(Exists(files[1]));
}

TEST_F(Compression, PolicyThreeReplacesAndPolicyFourAddsToAnExistingArchive) {
  files = {Source("old.txt")};
  Zip_Files(run, svc, files);
  files = {Source("a.txt"), Source("b.txt")};
  j.Exist = 4;
  Zip_Files(run, svc, files);
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"old.txt", "a.txt", "b.txt"}));

  rec.lines.clear();
  j.Exist = 3;
  Zip_Files(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 2",
                               "Gelöscht: " + Dst("job.zip") + " - Erstelle neue Zip Datei: " + Dst("job.zip"),
                               "Hinzufügen: " + files[1] + " nach " + Dst("job.zip")}));
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"a.txt", "b.txt"}));
}

// A folder in the list stands for any path the library cannot read as a file.
TEST_F(Compression, AFileThatCannotBeAddedIsAnErrorInANewArchiveElseNotAdded) {
  fs::create_directories(Src("folder.d"));
  files = {Source("a.txt"), Src("folder.d")};
  Zip_Files(run, svc, files);
  EXPECT_EQ(rec.Texts().back(), "Fehler: " + files[1]);
  rec.lines.clear();
  j.Exist = 4;
  Zip_Files(run, svc, files);
  EXPECT_EQ(rec.Texts().back(), "Nicht hinzugefügt: " + files[1]);
  EXPECT_EQ(Names(Dst("job.zip")), Strings{"a.txt"});
}

// Sources go only once the archive that holds them is written, in file order.
TEST_F(Compression, SourcesAreDeletedAfterTheArchiveIsWritten) {
  files = {Source("a.txt", "A"), Source("b.txt", "B"), Source("c.txt", "C")};
  j.ZipDelComp = 1;
  bool sourcesKeptDuringTheRun = true;
  rec.onCounter = [&](std::int32_t, std::int32_t) {
    for (const auto& f : files) sourcesKeptDuringTheRun &= Exists(f);
  };
  Zip_Files(run, svc, files);
  const Strings texts = rec.Texts();
  ASSERT_GE(texts.size(), 6u);
  EXPECT_EQ(texts[1], "Hinzufügen: " + files[1] + " nach " + Dst("job.zip"));
  Strings deleted;
  for (const auto& t : texts) {
    if (t.rfind("job: Gelöscht: ", 0) == 0) deleted.push_back(t);
  }
  EXPECT_EQ(deleted, (Strings{"job: Gelöscht: " + files[0], "job: Gelöscht: " + files[1],
                            "job: Gelöscht: " + files[2]}));
  for (const auto& f : files) EXPECT_FALSE(Exists(f)) << f;
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"a.txt", "b.txt", "c.txt"}));
  EXPECT_TRUE(sourcesKeptDuringTheRun);
}

TEST_F(Compression, AnArchiveThatCannotBeWrittenKeepsEverySource) {
  files = {Source("a.txt"), Source("b.txt")};
  j.Exist = 1;
  rec.onCounter = [&](std::int32_t, std::int32_t) { fs::remove_all(j.To); };
  Zip_Files(run, svc, files);
  const Strings texts = rec.Texts();
  ASSERT_FALSE(texts.empty());
  EXPECT_EQ(texts.back().rfind("job: Fehler: ", 0), 0u) << texts.back();
  EXPECT_NE(texts.back().find(" - " + Dst("job.zip")), std::string::npos);
  EXPECT_TRUE(run.jobError);
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(Exists(files[1]));
}

TEST_F(Compression, AStopEndsTheRunAndKeepsWhatWasAdded) {
  files = {Source("a.txt"), Source("b.txt"), Source("c.txt"), Source("d.txt")};
  rec.onCounter = [&](std::int32_t, std::int32_t curr) {
    if (curr == 3) driver.StopMsg(true);
  };
  Zip_Files(run, svc, files);
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{"a.txt", "b.txt"}));
}

TEST_F(Compression, SingleModeNamesEachArchiveAfterItsFile) {
  files = {Source("report.txt"), Source("README"), Source("x.txt/a.txt")};
  j.ZipAll = 1;
  Zip_Files(run, svc, files);
  EXPECT_EQ(rec.Texts(),
            (Strings{"Dateien gefunden: 3",
                   "Erstelle neue Zip Datei: " + files[0] + " nach " + Dst("report.zip"),
                   "Erstelle neue Zip Datei: " + files[1] + " nach " + Dst("README"),
                   "Erstelle neue Zip Datei: " + files[2] + " nach " + Dst("a.zip")}));
  EXPECT_EQ(rec.counters.front(), (std::pair<std::int32_t, std::int32_t>{3, 1}));
  EXPECT_EQ(Names(Dst("README")), Strings{"README"});
  EXPECT_EQ(Names(Dst("a.zip")), Strings{"a.txt"});
}

TEST_F(Compression, SingleModeReportsAZeroResultAsReplacedAndKeepsTheSource) {
  fs::create_directories(Src("folder.d"));
  files = {Src("folder.d"), Source("b.txt")};
  j.ZipAll = 1;
  j.ZipDelComp = 1;
  Zip_Files(run, svc, files);
  ASSERT_GE(rec.lines.size(), 3u);
  EXPECT_EQ(rec.Texts()[1], "Ersetzt: " + files[0] + " nach " + Dst("folder.zip"));
  EXPECT_EQ(rec.Texts()[2], "Erstelle neue Zip Datei: " + files[1] + " nach " + Dst("b.zip"));
  EXPECT_FALSE(Exists(files[1]));
  EXPECT_EQ(Names(Dst("b.zip")), Strings{"b.txt"});
}

TEST_F(Compression, SingleModeWithTheFolderStructureKeepsTheExtension) {
  files = {Source("sub/report.txt")};
  j.ZipAll = 1;
  j.ZipExtStruct = 1;
  Zip_Files(run, svc, files);
  EXPECT_EQ(Names(Dst("sub/report.txt.zip")), Strings{"report.txt"});
}

TEST_F(Compression, PolicyTwoWritesAFreeName) {
  files = {Source("a.txt")};
  WriteFile(Dst("job.zip"), "older archive");
  j.Exist = 2;
  j.PickRenamer = 1;
  Zip_Files(run, svc, files);
  EXPECT_EQ(ReadFile(Dst("job.zip")), "older archive");
  EXPECT_EQ(Names(Dst("job_1.zip")), Strings{"a.txt"});
}

TEST_F(Compression, PasswordProtectsTheEntries) {
  files = {Source("a.txt")};
  j.ZipPwd = "geheim";
  Zip_Files(run, svc, files);
  EXPECT_EQ(svc.zip->CheckZipFile(Dst("job.zip"), "geheim"), 0);
  EXPECT_EQ(svc.zip->CheckZipFile(Dst("job.zip"), "other"), 4);
}

// Only an exactly hidden file has its attributes cleared and given back around the call; the
// first file of "All" mode is never touched.
TEST_F(Compression, OnlyExactlyHiddenFilesAreUnhiddenForTheCall) {
  files = {Source(".first"), Source(".hidden"), Source("ro-hidden")};
  svc.fs.SetAttributes(files[0], kAttrHidden);
  svc.fs.SetAttributes(files[2], kAttrHidden | kAttrReadOnly);
  faults.Disarm();
  Zip_Files(run, svc, files);
  EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), 2);
  EXPECT_EQ(svc.fs.GetAttributes(files[1]), kAttrHidden);
  EXPECT_EQ(svc.fs.GetAttributes(files[2]), kAttrHidden | kAttrReadOnly);
  EXPECT_EQ(Names(Dst("job.zip")), (Strings{".first", ".hidden", "ro-hidden"}));
}

TEST_F(Compression, ADryRunWritesNothing) {
  files = {Source("a.txt"), Source(".hidden")};
  j.Exist = 1;
  svc.dryRun = true;
  faults.Disarm();
  Zip_Files(run, svc, files);
  EXPECT_FALSE(Exists(Dst("job.zip")));
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), 0);
}

TEST_F(Compression, PreviewAllModeReportsEveryFurtherFileAndChangesNothing) {
  files = {Source("a.txt"), Source("b.txt"), Source("c.txt")};
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 3",
                               "Würde zu Zip hinzugefügt: " + files[1] + " nach " + Dst("job.zip"),
                               "Würde zu Zip hinzugefügt: " + files[2] + " nach " + Dst("job.zip")}));
  EXPECT_EQ(rec.lines[1].id, 51);
  EXPECT_EQ(rec.counters.size(), 2u);
  EXPECT_TRUE(fs::is_empty(j.To));
}

// Only Exist 1 previews deletions; ZipDelComp alone does not, although the real run deletes.
TEST_F(Compression, PreviewDeletionsArePreviewedForPolicyOneOnly) {
  files = {Source("a.txt"), Source("b.txt")};
  j.Exist = 1;
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 2", "Würde gelöscht: " + files[0],
                               "Würde zu Zip hinzugefügt: " + files[1] + " nach " + Dst("job.zip"),
                               "Würde gelöscht: " + files[1]}));
  rec.lines.clear();
  j.Exist = 0;
  j.ZipDelComp = 1;
  Zip_Preview(run, svc, files);
  for (const auto& t : rec.Texts()) EXPECT_EQ(t.find("Würde gelöscht"), std::string::npos) << t;
  EXPECT_TRUE(Exists(files[0]));
}

TEST_F(Compression, PreviewAnExistingArchiveUnderPolicyZeroEndsThePreview) {
  files = {Source("a.txt"), Source("b.txt")};
  WriteFile(Dst("job.zip"), "archive");
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 2", Dst("job.zip") + "Datei existiert: "}));
  EXPECT_EQ(rec.lines[1].id, 59);
}

TEST_F(Compression, PreviewPolicyThreeNamesTheArchiveItWouldDelete) {
  files = {Source("a.txt")};
  WriteFile(Dst("job.zip"), "archive");
  j.Exist = 3;
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Datei gefunden: 1", "Würde gelöscht: " + Dst("job.zip") +
                                                        " - Erstelle neue Zip Datei: " + Dst("job.zip")}));
  EXPECT_EQ(ReadFile(Dst("job.zip")), "archive");

  rec.lines.clear();
  j.ZipAll = 1;
  WriteFile(Dst("a.zip"), "single");
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Datei gefunden: 1", "Würde gelöscht: " + Dst("a.zip"),
                               "Zip würde erstellt: " + files[0] + " nach " + Dst("a.zip")}));
  EXPECT_EQ(ReadFile(Dst("a.zip")), "single");
}

TEST_F(Compression, PreviewSingleModeNamesEachArchiveWithoutMakingFolders) {
  files = {Source("README"), Source("sub/r.txt")};
  j.ZipAll = 1;
  Zip_Preview(run, svc, files);
  ASSERT_EQ(rec.Texts(), (Strings{"Dateien gefunden: 2",
                               "Zip würde erstellt: " + files[0] + " nach " + Dst("README"),
                               "Zip würde erstellt: " + files[1] + " nach " + Dst("r.zip")}));
  rec.lines.clear();
  j.ZipExtStruct = 1;
  Zip_Preview(run, svc, files);
  EXPECT_EQ(rec.Texts().back(),
            "Zip würde erstellt: " + files[1] + " nach " + Dst("sub/r.txt.zip"));
  EXPECT_TRUE(fs::is_empty(j.To));
}

TEST_F(Compression, PreviewAHiddenFileIsUnhiddenBrieflyExceptInADryRun) {
  files = {Source("a.txt"), Source(".hidden")};
  faults.Disarm();
  Zip_Preview(run, svc, files);
  EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), 2);
  EXPECT_EQ(svc.fs.GetAttributes(files[1]), kAttrHidden);
  faults.Disarm();
  svc.dryRun = true;
  Zip_Preview(run, svc, files);
  EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), 0);
}

}  // namespace
}  // namespace orvKestrel
