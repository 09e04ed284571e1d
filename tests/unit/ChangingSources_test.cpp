// Sources that change while, or after, compression reads them: the archive never holds an
// entry mixed of two states of a file, and a source is deleted only as it was read.
#include "Rig.h"
#include "unit/ZipTestSupport.h"

#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <optional>

#include <zip.h>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

constexpr std::size_t kBig = 3u << 20;  // read in several steps

// Overwrites the middle of a file in place, as an editor saving over it would.
void Scribble(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, "NEW!", 4, kBig / 2), 4);
  ::close(fd);
}

class ChangingSources : public Rig {
 protected:
  FileList files;
  bool HasLine(const std::string& text) const {
    const Strings t = rec.Texts();
    return std::find(t.begin(), t.end(), text) != t.end();
  }
};

// A file rewritten while the commit reads it is left out of the archive (which keeps what it
// held for it), named in an error line and kept; the other files are packed and deleted.
TEST_F(ChangingSources, AFileChangedWhileItIsReadIsNotStoredNorDeleted) {
  for (const CheckState zipAll : {0, 1}) {
    SCOPED_TRACE(zipAll);
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    j.ZipAll = zipAll;
    j.ZipExtStruct = 1;  // big.bin.zip in "Single" mode
    j.Exist = 4;
    j.EFSelect = 0;
    const std::string big = Source("big.bin", std::string(kBig, 'o'));
    SetModified(big, 1700000000);
    files = {big};
    Zip_Files(run, svc, files);  // an earlier run stored the old big.bin
    const std::string archive = Dst(zipAll == 0 ? "job.zip" : "big.bin.zip");
    const auto before = ArchiveEntries(archive);
    ASSERT_TRUE(before);

    WriteFile(big, std::string(kBig, 'n'));
    SetModified(big, 1700000010);  // newer than the entry; the scribble moves it to now
    const std::string other = Source("other.txt", "other");
    files = {big, other};
    j.ZipDelComp = 1;
    rec.lines.clear();
    run.jobError = false;
    faults.Before(FaultOp::Read, 2, [&] { Scribble(big); });  // the second step of the big file
    Zip_Files(run, svc, files);
    faults.Disarm();

    EXPECT_TRUE(HasLine("job: Fehler: The file changed while it was read - " + big))
        << ::testing::PrintToString(rec.Texts());
    EXPECT_TRUE(run.jobError);
    const auto after = ArchiveEntries(archive);
    ASSERT_TRUE(after);
    EXPECT_EQ(after->at("big.bin"), before->at("big.bin"));
    EXPECT_EQ(fs::file_size(big), kBig);
    EXPECT_FALSE(Exists(other));
    const std::string otherArchive = zipAll == 0 ? archive : Dst("other.txt.zip");
    EXPECT_EQ(ArchiveEntries(otherArchive).value_or(std::map<std::string, std::string>{})["other.txt"],
              "other");
  }
}

// A line appended after the commit read the file, before it is deleted: the file is kept.
TEST_F(ChangingSources, AFileChangedAfterItWasReadIsKept) {
  for (const CheckState zipAll : {0, 1}) {
    SCOPED_TRACE(zipAll);
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    j.ZipAll = zipAll;
    j.ZipDelComp = 1;
    const std::string a = Source("a.txt", "line 1\n");
    const std::string b = Source("b.txt", "b");
    files = {a, b};
    rec.lines.clear();
    faults.Before(FaultOp::Unlink, 1, [&] { WriteFile(a, "line 1\nline 2\n"); });
    Zip_Files(run, svc, files);
    faults.Disarm();
    EXPECT_EQ(ReadFile(a), "line 1\nline 2\n");
    EXPECT_TRUE(HasLine("Fehler: The file changed after it was read and was kept - " + a))
        << ::testing::PrintToString(rec.Texts());
    const std::string deleted = (zipAll == 0 ? "job: Gelöscht: " : "Gelöscht: ");
    EXPECT_FALSE(HasLine(deleted + a));
    EXPECT_TRUE(HasLine(deleted + b));
    EXPECT_FALSE(Exists(b));
  }
}

// The archive replaced between its commit and the deletion of its sources: they are kept.
TEST_F(ChangingSources, SourcesStayUnlessTheArchiveHoldsThemAsRead) {
  j.ZipAll = 1;
  j.ZipDelComp = 1;
  const std::string a = Source("a.txt", "a");
  files = {a};
  // Opens: the file when staged, when read, then the archive read back.
  faults.Before(FaultOp::Open, 3, [&] { WriteFile(Dst("a.zip"), "not an archive any more"); });
  Zip_Files(run, svc, files);
  faults.Disarm();
  EXPECT_TRUE(Exists(a));
  EXPECT_TRUE(HasLine("job: Fehler: The archive does not hold the file as it was read - " + a))
      << ::testing::PrintToString(rec.Texts());
}

// Policy 3 replaces an existing archive: a run whose archive cannot be written keeps the old
// one (its sources may be long gone) and its own sources.
TEST_F(ChangingSources, AFailedReplacementKeepsTheOldArchive) {
  for (const CheckState zipAll : {0, 1}) {
    SCOPED_TRACE(zipAll);
    j.ZipAll = zipAll;
    j.ZipDelComp = 1;
    const std::string archive = zipAll == 0 ? Dst("job.zip") : Dst("a.zip");
    j.Exist = 0;
    files = {Source("a.txt", "old")};
    Zip_Files(run, svc, files);
    const auto before = ArchiveEntries(archive);
    ASSERT_TRUE(before);
    j.Exist = 3;
    files = {Source("a.txt", "new")};
    faults.Arm(FaultOp::Write, 1, ENOSPC);  // the commit's writing
    Zip_Files(run, svc, files);
    faults.Disarm();
    EXPECT_EQ(ArchiveEntries(archive), before);
    EXPECT_EQ(ReadFile(files[0]), "new");
    EXPECT_TRUE(TempLeftovers(j.To).empty());
  }
}

}  // namespace
}  // namespace orvKestrel
