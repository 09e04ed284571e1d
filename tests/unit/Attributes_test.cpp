// File attributes and times as the file system keeps them, and as a job sets them; the type of
// a file by its first bytes.
#include "platform/SysError.h"
#include "selection/modDetermineFileType.h"
#include "selection/modFilterAttribute.h"

#include "Rig.h"

#include <set>

namespace orvKestrel::testing {
namespace {

using namespace std::string_literals;

class Attributes : public Rig {
 protected:
  Attributes() { ::chmod(file.c_str(), 0664); }
  void RequireXattrs() {
    if (!UserXattrsWork(tmp.str())) GTEST_SKIP() << "no user extended attributes on " << tmp.str();
  }
  std::uint32_t Get(const std::string& path) { return svc.fs.GetAttributes(path); }
  std::string DosAttrib(const std::string& path) {
    char buf[64];
    const ssize_t n = ::getxattr(path.c_str(), "user.DOSATTRIB", buf, sizeof buf);
    return n < 0 ? std::string() : std::string(buf, static_cast<std::size_t>(n));
  }
  std::string file = Source("f.txt");
};

TEST_F(Attributes, ReadOnlyAndHiddenFromPermissionsNameAndKindWrittenOnlyWhenChanged) {
  EXPECT_EQ(Get(file), 0u);
  ::chmod(file.c_str(), 0464);  // group write alone does not make it writable for the owner
  EXPECT_EQ(Get(file), kAttrReadOnly);
  EXPECT_EQ(Get(Source(".dot")), kAttrHidden);
  EXPECT_EQ(Get(src), kAttrDirectory);
  EXPECT_THROW(Get(Src("missing")), KestrelError);
  // Read-only clears every write bit and gives the owner's back.
  ::chmod(file.c_str(), 0664);
  SetAttribute(svc, kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0444u);
  UnsetAttribute(svc, kAttrReadOnly, file);
  EXPECT_EQ(ModeOf(file), 0644u);
  // Nothing is written when the bit is already as asked; failures go to the trap.
  faults.Arm(FaultOp::SetAttributes, 1, EIO);
  UnsetAttribute(svc, kAttrReadOnly, file);
  ::chmod(file.c_str(), 0444);
  SetAttribute(svc, kAttrReadOnly, file);
  ::chmod(file.c_str(), 0644);
  EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), 0);
  EXPECT_EQ(svc.trap.ErrorCount(), 0);
  SetAttribute(svc, kAttrReadOnly, file);  // now a write is needed, and it fails
  EXPECT_EQ(svc.trap.ErrorCount(), 1);
  EXPECT_EQ(ModeOf(file), 0644u);
  SetAttribute(svc, kAttrReadOnly, Src("missing"));
  EXPECT_EQ(svc.trap.ErrorCount(), 2);
}

TEST_F(Attributes, HiddenSystemArchiveRoundTripThroughTheExtendedAttribute) {
  RequireXattrs();
  for (const auto& [bit, text] : {std::pair{kAttrHidden, "0x2"}, {kAttrSystem, "0x4"}, {kAttrArchive, "0x20"}}) {
    SetAttribute(svc, bit, file);
    EXPECT_EQ(Get(file), bit);
    EXPECT_EQ(DosAttrib(file), text);
    UnsetAttribute(svc, bit, file);
    EXPECT_EQ(Get(file), 0u);
  }
  for (const std::uint32_t bit : {kAttrHidden, kAttrArchive, kAttrReadOnly, kAttrSystem}) SetAttribute(svc, bit, file);
  EXPECT_EQ(Get(file), 39u);  // system set on a read-only file, which stays read-only
  EXPECT_EQ(ModeOf(file), 0444u);
  // A file server's value: text, then a NUL and a binary tail; unknown bits are kept.
  ::chmod(file.c_str(), 0644);
  SetDosAttrib(file, std::string("0x822\0\x03\x00", 7));
  EXPECT_EQ(Get(file), kAttrHidden | kAttrArchive | kAttrCompressed);
  UnsetAttribute(svc, kAttrHidden, file);
  EXPECT_EQ(DosAttrib(file), "0x820");
  SetDosAttrib(file, "garbage");
  EXPECT_EQ(Get(file), 0u);
  // A dot name is hidden without recording it.
  const std::string dot = Source(".dot");
  SetAttribute(svc, kAttrArchive, dot);
  EXPECT_EQ(DosAttrib(dot), "0x20");
  EXPECT_EQ(Get(dot), kAttrHidden | kAttrArchive);
}

TEST_F(Attributes, DestinationAndSourceChoicesByMode) {
  RequireXattrs();
  j.AttrHidden1 = j.AttrArchive1 = 1;
  j.AttrSystem1 = 2;  // only a checked box counts
  j.AttrSetDest = 2;  // neither set nor clear
  SetDestAttributes(svc, file, j);
  EXPECT_EQ(Get(file), 0u);
  j.AttrSetDest = 0;
  SetDestAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrHidden | kAttrArchive);
  j.AttrReadOnly2 = j.AttrHidden2 = j.AttrSetSource = 1;
  SetSourceAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrArchive);
  j.AttrSetSource = 0;
  SetSourceAttributes(svc, file, j);
  EXPECT_EQ(Get(file), kAttrArchive | kAttrHidden | kAttrReadOnly);
}

TEST(AttributeExists, OnlySumsOfTheFourKnownBitsAnswer) {
  const std::pair<std::int32_t, std::set<std::int32_t>> table[] = {
      {1, {1, 3, 5, 7, 33, 35, 37, 39}},
      {2, {2, 3, 6, 7, 34, 35, 38, 39}},
      {4, {4, 5, 6, 7, 36, 37, 38, 39}},
      {32, {32, 33, 34, 35, 36, 37, 38, 39}},
  };
  for (std::int32_t attr = -1; attr <= 4200; ++attr) {
    for (const auto& [sel, yes] : table) EXPECT_EQ(AttributeExists(attr, sel), yes.count(attr) == 1) << attr << " " << sel;
    for (const std::int32_t other : {0, 3, 16, 2048}) EXPECT_FALSE(AttributeExists(attr, other));
  }
}

// The job's time fields: 1 takes the source's time, 0 the destination's own, anything else
// keeps the stored source value; whole seconds; a failed write is not reported.
TEST_F(Attributes, FileTimesByTheJobsFields) {
  const std::string s = Source("s"), d = Dest("d", "d");
  const struct timespec st[2] = {{kNew, 123456789}, {kOld, 987654321}};
  ::utimensat(AT_FDCWD, s.c_str(), st, 0);
  SetTimes(d, kOld - 1000, kOld - 2000);
  j.DestTCreated = j.DestTModified = j.DestTAccess = 1;
  ASSERT_TRUE(ReadSourceFileTime(run, svc, s));
  ASSERT_TRUE(ReadDestFileTime(run, svc, d));
  EXPECT_TRUE(WriteFileTime(run, svc, d));
  EXPECT_EQ(svc.fs.GetTimes(d).accessed, kNew);
  EXPECT_EQ(svc.fs.GetTimes(d).written, kOld);
  struct stat buf {};
  ::stat(d.c_str(), &buf);
  EXPECT_EQ(buf.st_mtim.tv_nsec, 0);

  SetTimes(d, kOld - 1000, kOld - 2000);
  ASSERT_TRUE(ReadDestFileTime(run, svc, d));
  j.DestTAccess = 0;
  WriteFile(d, "new contents");  // the overwrite moves its times on
  WriteFileTime(run, svc, d);
  EXPECT_EQ(svc.fs.GetTimes(d).written, kOld);
  EXPECT_EQ(svc.fs.GetTimes(d).accessed, kOld - 1000);
  j.DestTModified = 0, j.DestTAccess = 2;
  ASSERT_TRUE(ReadSourceFileTime(run, svc, s));
  WriteFileTime(run, svc, d);
  EXPECT_EQ(svc.fs.GetTimes(d).written, kOld - 2000);
  EXPECT_EQ(svc.fs.GetTimes(d).accessed, kNew);

  ASSERT_TRUE(ReadSourceFileTime(run, svc, s));
  EXPECT_FALSE(ReadSourceFileTime(run, svc, Src("missing")));
  EXPECT_EQ(run.sourceTimes.written, kOld);  // the stored values stay
  EXPECT_FALSE(ReadDestFileTime(run, svc, Src("missing")));
  EXPECT_FALSE(WriteFileTime(run, svc, Src("missing")));
  faults.Arm(FaultOp::SetTimes, 1, EPERM);
  EXPECT_FALSE(WriteFileTime(run, svc, d));
  EXPECT_EQ(svc.trap.ErrorCount(), 0);
}

TEST_F(Attributes, FileTypeByTheFirstMatchingTest) {
  const std::pair<std::string, const char*> cases[] = {
      {"MZ\x90", "PE Executable"}, {"ZM", "PE Executable"}, {"[Job]\nFrom=x", "INI File"},
      {"[" + std::string(120, 'a') + "]", "Unknown text file"},  // "]" beyond 100
      {"RIFF\x10\0\0\0AVI LIST"s, "AVI Movie File"}, {"RIFF\x10\0\0\0WAVEfmt "s, "WAV Audio File"},
      {"\xD0\xCF\x11\xE0\xA1\xB1", "Microsoft Word Document"}, {"\0\1\0\0Standard Jet DB"s, "Microsoft Access Database"},
      {"GIF87a", "GIF Image File"}, {"xxxxGIF89", "GIF Image File"}, {"\xFF\xFB\x90\x44\0"s, "MP3 Audio File"},
      {"\xFF\xD8\xFF\xE0\0\x10JFIF"s, "MP3 Audio File"},  // test 8 first
      {"\xFF\xD8\xFF\xE1\x12" "Exif", "JPEG Image File"}, {"BM6\0\0\0", "BMP (Bitmap) Image File"},
      {"II*\0", "TIFF Image File"}, {"PK\x03\x04", "ZIP Archive File"}, {"  <HTML><body>", "HTML Document File"},
      {"<!DOCTYPE html>", "HTML Document File"}, {"rar!\x1a", "RAR Archive File"}, {"\x60\xEAxx", "ARJ Archive File"},
      {"Type=Exe\r\nReference=x", "Visual Basic Project File"}, {"VBGROUP 5.0", "Visual Basic Group Project File"},
      {"VERSION 5.00\r\nBegin VB.Form", "Visual Basic Form File"}, {"VERSION 5.00\nBegin", "Unknown text file"},
      {"text\x02more", "Unknown binary file"}, {"plain text\r\n", "Unknown text file"},
      {"", "Unknown text file"},  // the blank buffer passes no test
      {std::string(300, 'a') + "GIF89", "Unknown text file"},  // only the first 300 bytes count
  };
  int i = 0;
  for (const auto& [content, type] : cases) {
    EXPECT_EQ(GetFileType(svc.fs, Source("t" + std::to_string(i), content)), type) << i;
    ++i;
  }
  EXPECT_EQ(GetFileType(svc.fs, Src("missing")), "NOT FOUND");
}

}  // namespace
}  // namespace orvKestrel::testing
