#include "unit/ZipTestSupport.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class Compression : public ::testing::Test, public ZipEngine {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
  }
  // Entry names of an archive as python's zipfile reads them.
  Lines Names(const std::string& archive) {
    Lines names;
    for (const auto& e : PyEntries(dir, archive)) names.push_back(e.substr(0, e.find('|')));
    return names;
  }
};

TEST_F(Compression, OneFileInAllModeMakesTheArchiveWithoutAnAddLine) {
  files = {Src("a.txt")};
  e.Zip_Files(files, j);
  ASSERT_EQ(ev.Texts(), Lines{"Datei gefunden: 1"});
  EXPECT_EQ(ev.lines[0].id, 85);
  EXPECT_EQ(Names(Archive()), Lines{"a.txt"});
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(ev.counters.empty());
}

TEST_F(Compression, AllModeReportsEveryFurtherFileAndItsProgress) {
  files = {Src("a.txt"), Src("sub/b.txt"), Src("sub/deep/c.txt")};
  e.Zip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 3",
                               "Hinzufügen: " + files[1] + " nach " + Archive(),
                               "Hinzufügen: " + files[2] + " nach " + Archive()}));
  EXPECT_EQ(ev.counters, (std::vector<std::pair<std::int32_t, std::int32_t>>{{3, 2}, {3, 3}}));
  EXPECT_EQ(Names(Archive()), (Lines{"a.txt", "b.txt", "c.txt"}));
}

// ZipIntStruct keeps the source folder's own name, or the path below From when From ends in
// "/".
TEST_F(Compression, InternalStructureIsRelativeToTheParentOfFrom) {
  files = {Src("a.txt"), Src("sub/b.txt")};
  j.ZipIntStruct = 1;
  e.Zip_Files(files, j);
  EXPECT_EQ(Names(Archive()), (Lines{"in/a.txt", "in/sub/b.txt"}));
  fs::remove(Archive());
  j.From += "/";
  e.Zip_Files(files, j);
  EXPECT_EQ(Names(Archive()), (Lines{"a.txt", "sub/b.txt"}));
}

TEST_F(Compression, PolicyZeroWithAnExistingArchiveDoesNothing) {
  files = {Src("a.txt"), Src("b.txt")};
  WriteFile(Archive(), "not touched");
  j.ZipDelComp = 1;
  e.Zip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 2", Archive() + " existiert - Keine Aktion: "}));
  EXPECT_EQ(ev.lines[1].id, 86);
  EXPECT_EQ(ReadFile(Archive()), "not touched");
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(Exists(files[1]));
}

TEST_F(Compression, PolicyThreeReplacesAndPolicyFourAddsToAnExistingArchive) {
  files = {Src("old.txt")};
  e.Zip_Files(files, j);
  files = {Src("a.txt"), Src("b.txt")};
  j.Exist = 4;
  e.Zip_Files(files, j);
  EXPECT_EQ(Names(Archive()), (Lines{"old.txt", "a.txt", "b.txt"}));

  ev.lines.clear();
  j.Exist = 3;
  e.Zip_Files(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 2",
                               "Gelöscht: " + Archive() + " - Erstelle neue Zip Datei: " + Archive(),
                               "Hinzufügen: " + files[1] + " nach " + Archive()}));
  EXPECT_EQ(Names(Archive()), (Lines{"a.txt", "b.txt"}));
}

// A folder in the list stands for any path the library cannot read as a file.
TEST_F(Compression, AFileThatCannotBeAddedIsAnErrorInANewArchiveElseNotAdded) {
  fs::create_directories(dir / "in/folder.d");
  files = {Src("a.txt"), dir / "in/folder.d"};
  e.Zip_Files(files, j);
  EXPECT_EQ(ev.Texts().back(), "Fehler: " + files[1]);
  ev.lines.clear();
  j.Exist = 4;
  e.Zip_Files(files, j);
  EXPECT_EQ(ev.Texts().back(), "Nicht hinzugefügt: " + files[1]);
  EXPECT_EQ(Names(Archive()), Lines{"a.txt"});
}

// Sources go only once the archive that holds them is written, in file order.
TEST_F(Compression, SourcesAreDeletedAfterTheArchiveIsWritten) {
  files = {Src("a.txt", "A"), Src("b.txt", "B"), Src("c.txt", "C")};
  j.ZipDelComp = 1;
  bool sourcesKeptDuringTheRun = true;
  ev.onCounter = [&](std::int32_t, std::int32_t) {
    for (const auto& f : files) sourcesKeptDuringTheRun &= Exists(f);
  };
  e.Zip_Files(files, j);
  const Lines texts = ev.Texts();
  ASSERT_GE(texts.size(), 6u);
  EXPECT_EQ(texts[1], "Hinzufügen: " + files[1] + " nach " + Archive());
  Lines deleted;
  for (const auto& t : texts) {
    if (t.rfind("job: Gelöscht: ", 0) == 0) deleted.push_back(t);
  }
  EXPECT_EQ(deleted, (Lines{"job: Gelöscht: " + files[0], "job: Gelöscht: " + files[1],
                            "job: Gelöscht: " + files[2]}));
  for (const auto& f : files) EXPECT_FALSE(Exists(f)) << f;
  EXPECT_EQ(Names(Archive()), (Lines{"a.txt", "b.txt", "c.txt"}));
  EXPECT_TRUE(sourcesKeptDuringTheRun);
}

TEST_F(Compression, AnArchiveThatCannotBeWrittenKeepsEverySource) {
  files = {Src("a.txt"), Src("b.txt")};
  j.Exist = 1;
  ev.onCounter = [&](std::int32_t, std::int32_t) { fs::remove_all(j.To); };
  e.Zip_Files(files, j);
  const Lines texts = ev.Texts();
  ASSERT_FALSE(texts.empty());
  EXPECT_EQ(texts.back().rfind("job: Fehler: ", 0), 0u) << texts.back();
  EXPECT_NE(texts.back().find(" - " + Archive()), std::string::npos);
  EXPECT_TRUE(e.jobError);
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_TRUE(Exists(files[1]));
}

TEST_F(Compression, AStopEndsTheRunAndKeepsWhatWasAdded) {
  files = {Src("a.txt"), Src("b.txt"), Src("c.txt"), Src("d.txt")};
  ev.onCounter = [&](std::int32_t, std::int32_t curr) {
    if (curr == 3) e.StopMsg(true);
  };
  e.Zip_Files(files, j);
  EXPECT_EQ(Names(Archive()), (Lines{"a.txt", "b.txt"}));
}

TEST_F(Compression, SingleModeNamesEachArchiveAfterItsFile) {
  files = {Src("report.txt"), Src("README"), Src("x.txt/a.txt")};
  j.ZipAll = 1;
  e.Zip_Files(files, j);
  EXPECT_EQ(ev.Texts(),
            (Lines{"Dateien gefunden: 3",
                   "Erstelle neue Zip Datei: " + files[0] + " nach " + Out("report.zip"),
                   "Erstelle neue Zip Datei: " + files[1] + " nach " + Out("README"),
                   "Erstelle neue Zip Datei: " + files[2] + " nach " + Out("a.zip")}));
  EXPECT_EQ(ev.counters.front(), (std::pair<std::int32_t, std::int32_t>{3, 1}));
  EXPECT_EQ(Names(Out("README")), Lines{"README"});
  EXPECT_EQ(Names(Out("a.zip")), Lines{"a.txt"});
}

TEST_F(Compression, SingleModeReportsAZeroResultAsReplacedAndKeepsTheSource) {
  fs::create_directories(dir / "in/folder.d");
  files = {dir / "in/folder.d", Src("b.txt")};
  j.ZipAll = 1;
  j.ZipDelComp = 1;
  e.Zip_Files(files, j);
  ASSERT_GE(ev.lines.size(), 3u);
  EXPECT_EQ(ev.Texts()[1], "Ersetzt: " + files[0] + " nach " + Out("folder.zip"));
  EXPECT_EQ(ev.Texts()[2], "Erstelle neue Zip Datei: " + files[1] + " nach " + Out("b.zip"));
  EXPECT_FALSE(Exists(files[1]));
  EXPECT_EQ(Names(Out("b.zip")), Lines{"b.txt"});
}

TEST_F(Compression, SingleModeWithTheFolderStructureKeepsTheExtension) {
  files = {Src("sub/report.txt")};
  j.ZipAll = 1;
  j.ZipExtStruct = 1;
  e.Zip_Files(files, j);
  EXPECT_EQ(Names(Out("sub/report.txt.zip")), Lines{"report.txt"});
}

TEST_F(Compression, PolicyTwoWritesAFreeName) {
  files = {Src("a.txt")};
  WriteFile(Archive(), "older archive");
  j.Exist = 2;
  j.PickRenamer = 1;
  e.Zip_Files(files, j);
  EXPECT_EQ(ReadFile(Archive()), "older archive");
  EXPECT_EQ(Names(Out("job_1.zip")), Lines{"a.txt"});
}

TEST_F(Compression, PasswordProtectsTheEntries) {
  files = {Src("a.txt")};
  j.ZipPwd = "geheim";
  e.Zip_Files(files, j);
  EXPECT_EQ(e.zip->CheckZipFile(Archive(), "geheim"), 0);
  EXPECT_EQ(e.zip->CheckZipFile(Archive(), "other"), 4);
}

// Only an exactly hidden file has its attributes cleared and given back around the call; the
// first file of "All" mode is never touched.
TEST_F(Compression, OnlyExactlyHiddenFilesAreUnhiddenForTheCall) {
  files = {Src(".first"), Src(".hidden"), Src("ro-hidden")};
  e.fs.SetAttributes(files[0], kAttrHidden);
  e.fs.SetAttributes(files[2], kAttrHidden | kAttrReadOnly);
  e.faults.Disarm();
  e.Zip_Files(files, j);
  EXPECT_EQ(e.faults.Calls(FaultOp::SetAttributes), 2);
  EXPECT_EQ(e.fs.GetAttributes(files[1]), kAttrHidden);
  EXPECT_EQ(e.fs.GetAttributes(files[2]), kAttrHidden | kAttrReadOnly);
  EXPECT_EQ(Names(Archive()), (Lines{".first", ".hidden", "ro-hidden"}));
}

TEST_F(Compression, ADryRunWritesNothing) {
  files = {Src("a.txt"), Src(".hidden")};
  j.Exist = 1;
  e.dryRun = true;
  e.faults.Disarm();
  e.Zip_Files(files, j);
  EXPECT_FALSE(Exists(Archive()));
  EXPECT_TRUE(Exists(files[0]));
  EXPECT_EQ(e.faults.Calls(FaultOp::SetAttributes), 0);
}

}  // namespace
}  // namespace orvKestrel
