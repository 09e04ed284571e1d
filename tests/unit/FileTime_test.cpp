#include "SelectionSupport.h"

#include <cerrno>

namespace orvKestrel::testing {
namespace {

class FileTime : public SelectionTest {
 protected:
  void SetUp() override {
    src = In("src");
    dst = In("dst");
    WriteFile(src, "s");
    WriteFile(dst, "d");
    const struct timespec s[2] = {{kSrcAccess, 123456789}, {kSrcWrite, 987654321}};
    ::utimensat(AT_FDCWD, src.c_str(), s, 0);
    const struct timespec d[2] = {{kDstAccess, 0}, {kDstWrite, 0}};
    ::utimensat(AT_FDCWD, dst.c_str(), d, 0);
  }
  static constexpr std::time_t kSrcAccess = 1600000000, kSrcWrite = 1500000000;
  static constexpr std::time_t kDstAccess = 1400000000, kDstWrite = 1300000000;
  std::string src, dst;
};

TEST_F(FileTime, TimesRoundTripToTheSecond) {
  const FileTimes t = e.fs.GetTimes(src);
  EXPECT_EQ(t.accessed, kSrcAccess);
  EXPECT_EQ(t.written, kSrcWrite);
  EXPECT_GT(t.created, 0);
  e.fs.SetTimes(dst, t.accessed, t.written);
  const FileTimes back = e.fs.GetTimes(dst);
  EXPECT_EQ(back.accessed, kSrcAccess);
  EXPECT_EQ(back.written, kSrcWrite);
}

TEST_F(FileTime, AllThreeFromTheSource) {
  job j = MakeJob();
  j.DestTCreated = j.DestTModified = j.DestTAccess = 1;
  ASSERT_TRUE(e.ReadSourceFileTime(src));
  ASSERT_TRUE(e.ReadDestFileTime(dst));
  EXPECT_TRUE(e.WriteFileTime(dst, j));
  const FileTimes t = e.fs.GetTimes(dst);
  EXPECT_EQ(t.accessed, kSrcAccess);
  EXPECT_EQ(t.written, kSrcWrite);
  struct stat st {};
  ::stat(dst.c_str(), &st);
  EXPECT_EQ(st.st_mtim.tv_nsec, 0);  // whole seconds
}

TEST_F(FileTime, FieldsNotOneKeepTheDestinationsOwnTimes) {
  job j = MakeJob();
  j.DestTModified = 1;
  j.DestTAccess = 0;
  ASSERT_TRUE(e.ReadSourceFileTime(src));
  ASSERT_TRUE(e.ReadDestFileTime(dst));
  WriteFile(dst, "new contents");  // the overwrite moves its times on
  e.WriteFileTime(dst, j);
  FileTimes t = e.fs.GetTimes(dst);
  EXPECT_EQ(t.written, kSrcWrite);
  EXPECT_EQ(t.accessed, kDstAccess);

  j.DestTModified = 0;
  j.DestTAccess = 2;  // only 0 takes the destination's value; 2 keeps the stored source value
  ASSERT_TRUE(e.ReadSourceFileTime(src));
  e.WriteFileTime(dst, j);
  t = e.fs.GetTimes(dst);
  EXPECT_EQ(t.written, kDstWrite);
  EXPECT_EQ(t.accessed, kSrcAccess);
}

TEST_F(FileTime, UnreadableFilesLeaveTheStoredValues) {
  ASSERT_TRUE(e.ReadSourceFileTime(src));
  EXPECT_FALSE(e.ReadSourceFileTime(In("missing")));
  EXPECT_EQ(e.sourceTimes.written, kSrcWrite);
  EXPECT_FALSE(e.ReadDestFileTime(In("missing")));
}

TEST_F(FileTime, AFailedWriteIsNotReported) {
  job j = MakeJob();
  ASSERT_TRUE(e.ReadSourceFileTime(src));
  EXPECT_FALSE(e.WriteFileTime(In("missing"), j));
  e.faults.Arm(FaultOp::SetTimes, 1, EPERM);
  EXPECT_FALSE(e.WriteFileTime(dst, j));
  EXPECT_EQ(e.trap.ErrorCount(), 0);
}

}  // namespace
}  // namespace orvKestrel::testing
