#include "SelectionSupport.h"
#include "platform/SysError.h"

#include <cerrno>

namespace orvKestrel::testing {
namespace {

class Attributes : public SelectionTest {
 protected:
  void SetUp() override {
    file = In("f.txt");
    WriteFile(file, "data");
    Chmod(file, 0664);
  }
  void RequireXattrs() {
    if (!UserXattrsWork(dir.str())) GTEST_SKIP() << "no user extended attributes on " << dir.str();
  }
  std::string file;
};

TEST_F(Attributes, BitsFromPermissionsNameAndKind) {
  EXPECT_EQ(e.fs.GetAttributes(file), 0u);
  Chmod(file, 0464);  // group write alone does not make it writable for the owner
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrReadOnly);
  WriteFile(In(".dot"), "");
  EXPECT_EQ(e.fs.GetAttributes(In(".dot")), kAttrHidden);
  EXPECT_EQ(e.fs.GetAttributes(In("")), kAttrDirectory);
  EXPECT_THROW(e.fs.GetAttributes(In("missing")), KestrelError);
}

TEST_F(Attributes, ReadOnlyClearsEveryWriteBitAndGivesTheOwnerWriteBack) {
  e.SetAttribute(kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0444u);
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrReadOnly);
  e.UnsetAttribute(kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0644u);
  EXPECT_EQ(e.fs.GetAttributes(file), 0u);
}

TEST_F(Attributes, NothingIsWrittenWhenTheBitIsAlreadyAsAsked) {
  CurrentDir cwd(dir.str());
  Chmod(file, 0444);
  e.faults.Arm(FaultOp::SetAttributes, 1, EIO);
  e.SetAttribute(kAttrReadOnly, file);
  Chmod(file, 0644);
  e.UnsetAttribute(kAttrReadOnly, file);
  EXPECT_EQ(e.faults.Calls(FaultOp::SetAttributes), 0);
  EXPECT_EQ(e.trap.ErrorCount(), 0);
  e.SetAttribute(kAttrReadOnly, file);  // now a write is needed, and it fails
  EXPECT_EQ(e.trap.ErrorCount(), 1);
  EXPECT_EQ(ModeOf(file), 0644u);
}

TEST_F(Attributes, HiddenSystemArchiveRoundTripThroughTheExtendedAttribute) {
  RequireXattrs();
  const std::pair<std::uint32_t, const char*> bits[] = {
      {kAttrHidden, "0x2"}, {kAttrSystem, "0x4"}, {kAttrArchive, "0x20"}};
  for (const auto& [bit, text] : bits) {
    e.SetAttribute(bit, file);
    EXPECT_EQ(e.fs.GetAttributes(file), bit);
    EXPECT_EQ(DosAttrib(file), text);
    e.UnsetAttribute(bit, file);
    EXPECT_EQ(e.fs.GetAttributes(file), 0u);
  }
  e.SetAttribute(kAttrHidden, file);
  e.SetAttribute(kAttrArchive, file);
  e.SetAttribute(kAttrReadOnly, file);
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrHidden | kAttrArchive | kAttrReadOnly);
  e.SetAttribute(kAttrSystem, file);  // on a read-only file, which stays read-only
  EXPECT_EQ(e.fs.GetAttributes(file), 39u);
  EXPECT_EQ(ModeOf(file), 0444u);
}

TEST_F(Attributes, ValuesWrittenByAFileServerAreRead) {
  RequireXattrs();
  // The text form may be followed by a NUL and a binary tail; unknown bits are kept.
  SetDosAttrib(file, std::string("0x822\0\x03\x00", 7));
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrHidden | kAttrArchive | kAttrCompressed);
  e.UnsetAttribute(kAttrHidden, file);
  EXPECT_EQ(DosAttrib(file), "0x820");
  SetDosAttrib(file, "garbage");
  EXPECT_EQ(e.fs.GetAttributes(file), 0u);
}

TEST_F(Attributes, ADotNameIsHiddenWithoutRecordingIt) {
  RequireXattrs();
  const std::string dot = In(".dot");
  WriteFile(dot, "");
  e.SetAttribute(kAttrArchive, dot);
  EXPECT_EQ(DosAttrib(dot), "0x20");
  EXPECT_EQ(e.fs.GetAttributes(dot), kAttrHidden | kAttrArchive);
}

TEST_F(Attributes, DestinationAndSourceChoicesByMode) {
  RequireXattrs();
  job j = MakeJob();
  j.AttrHidden1 = 1;
  j.AttrArchive1 = 1;
  j.AttrSystem1 = 2;  // only a checked box counts
  j.AttrSetDest = 2;  // neither set nor clear
  e.SetDestAttributes(file, j);
  EXPECT_EQ(e.fs.GetAttributes(file), 0u);
  j.AttrSetDest = 0;
  e.SetDestAttributes(file, j);
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrHidden | kAttrArchive);
  j.AttrReadOnly2 = 1;
  j.AttrHidden2 = 1;
  j.AttrSetSource = 1;
  e.SetSourceAttributes(file, j);
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrArchive);
  j.AttrSetSource = 0;
  e.SetSourceAttributes(file, j);
  EXPECT_EQ(e.fs.GetAttributes(file), kAttrArchive | kAttrHidden | kAttrReadOnly);
}

TEST_F(Attributes, AMissingFileGoesToTheTrap) {
  CurrentDir cwd(dir.str());
  e.SetAttribute(kAttrReadOnly, In("missing"));
  EXPECT_EQ(e.trap.ErrorCount(), 1);
}

}  // namespace
}  // namespace orvKestrel::testing
