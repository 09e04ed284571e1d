#include "unit/ZipTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;
class ZipPreview : public ::testing::Test, public ZipEngine {};

TEST_F(ZipPreview, AllModeReportsEveryFurtherFileAndChangesNothing) {
  files = {Src("a.txt"), Src("b.txt"), Src("c.txt")};
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 3",
                               "Würde zu Zip hinzugefügt: " + files[1] + " nach " + Archive(),
                               "Würde zu Zip hinzugefügt: " + files[2] + " nach " + Archive()}));
  EXPECT_EQ(ev.lines[1].id, 51);
  EXPECT_EQ(ev.counters.size(), 2u);
  EXPECT_TRUE(fs::is_empty(j.To));
}

// Only Exist 1 previews deletions; ZipDelComp alone does not, although the real run deletes.
TEST_F(ZipPreview, DeletionsArePreviewedForPolicyOneOnly) {
  files = {Src("a.txt"), Src("b.txt")};
  j.Exist = 1;
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 2", "Würde gelöscht: " + files[0],
                               "Würde zu Zip hinzugefügt: " + files[1] + " nach " + Archive(),
                               "Würde gelöscht: " + files[1]}));
  ev.lines.clear();
  j.Exist = 0;
  j.ZipDelComp = 1;
  e.Zip_Preview(files, j);
  for (const auto& t : ev.Texts()) EXPECT_EQ(t.find("Würde gelöscht"), std::string::npos) << t;
  EXPECT_TRUE(Exists(files[0]));
}

TEST_F(ZipPreview, AnExistingArchiveUnderPolicyZeroEndsThePreview) {
  files = {Src("a.txt"), Src("b.txt")};
  WriteFile(Archive(), "archive");
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 2", Archive() + "Datei existiert: "}));
  EXPECT_EQ(ev.lines[1].id, 59);
}

TEST_F(ZipPreview, PolicyThreeNamesTheArchiveItWouldDelete) {
  files = {Src("a.txt")};
  WriteFile(Archive(), "archive");
  j.Exist = 3;
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Datei gefunden: 1", "Würde gelöscht: " + Archive() +
                                                        " - Erstelle neue Zip Datei: " + Archive()}));
  EXPECT_EQ(ReadFile(Archive()), "archive");

  ev.lines.clear();
  j.ZipAll = 1;
  WriteFile(Out("a.zip"), "single");
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Datei gefunden: 1", "Würde gelöscht: " + Out("a.zip"),
                               "Zip würde erstellt: " + files[0] + " nach " + Out("a.zip")}));
  EXPECT_EQ(ReadFile(Out("a.zip")), "single");
}

TEST_F(ZipPreview, SingleModeNamesEachArchiveWithoutMakingFolders) {
  files = {Src("README"), Src("sub/r.txt")};
  j.ZipAll = 1;
  e.Zip_Preview(files, j);
  ASSERT_EQ(ev.Texts(), (Lines{"Dateien gefunden: 2",
                               "Zip würde erstellt: " + files[0] + " nach " + Out("README"),
                               "Zip würde erstellt: " + files[1] + " nach " + Out("r.zip")}));
  ev.lines.clear();
  j.ZipExtStruct = 1;
  e.Zip_Preview(files, j);
  EXPECT_EQ(ev.Texts().back(),
            "Zip würde erstellt: " + files[1] + " nach " + Out("sub/r.txt.zip"));
  EXPECT_TRUE(fs::is_empty(j.To));
}

TEST_F(ZipPreview, AHiddenFileIsUnhiddenBrieflyExceptInADryRun) {
  files = {Src("a.txt"), Src(".hidden")};
  e.faults.Disarm();
  e.Zip_Preview(files, j);
  EXPECT_EQ(e.faults.Calls(FaultOp::SetAttributes), 2);
  EXPECT_EQ(e.fs.GetAttributes(files[1]), kAttrHidden);
  e.faults.Disarm();
  e.dryRun = true;
  e.Zip_Preview(files, j);
  EXPECT_EQ(e.faults.Calls(FaultOp::SetAttributes), 0);
}

}  // namespace
}  // namespace orvKestrel
