// Defects found by fuzzing, fault injection and hostile trees, each pinned by the smallest case
// that showed it.
#include "Rig.h"
#include "selection/Sync.h"

#include <atomic>

namespace orvKestrel::testing {
namespace {

class Regression : public Rig {};

// The removal pass of a synchronisation took a primary folder it could not list for an empty
// one, and deleted the secondary's copies of everything in it.
TEST_F(Regression, SyncRemovesNothingBelowAPrimaryFolderItCannotList) {
  for (const char* f : {"sub/kept.txt", "top.txt"}) Source(f), Dest(f, "data");
  Dest("only-here.txt", "o");
  j.Action = 5, j.SyncDelete = 1, j.SubFolder = 1, j.FStruct = 1, j.DoPreview = 0;
  faults.Arm(FaultOp::List, 2, EACCES);  // 1: the primary folder, 2: its "sub"
  FileCleanUp(run, svc, true);
  EXPECT_TRUE(faults.Fired());
  // What the listing did show still counts: only-here.txt goes.
  EXPECT_EQ(Tree(), "d/sub/kept.txt=data d/top.txt=data s/sub/kept.txt=data s/top.txt=data");
}

// A further file that could not be added to a new archive got its "Fehler" line, but the job
// still ended as a success.
TEST_F(Regression, AFileLeftOutOfANewArchiveFailsTheJob) {
  j.Action = 3;
  FileList files{Source("a.txt"), Source("b.txt")};
  faults.Arm(FaultOp::Open, 2, EACCES);  // the second file's opening
  Zip_Files(run, svc, files);
  EXPECT_EQ(rec.Texts().back(), "Fehler: " + Src("b.txt"));
  EXPECT_TRUE(faults.Fired() && run.jobError);
}

// The temporary file of an atomic write was named "." + name + a suffix: for a job file whose
// name is already 255 bytes long that is no valid name, and the run state was never written.
TEST_F(Regression, AFileWithALongestNameIsStillReplacedAtomically) {
  const std::string name = std::string(251, 'j') + ".kjb";
  svc.fs.WriteFileAtomic(Dest(name, "[Job]\nCounter=1\n"), "[Job]\nCounter=2\n");
  EXPECT_EQ(ReadFile(Dst(name)), "[Job]\nCounter=2\n");
  EXPECT_EQ(Names(dst), std::vector<std::string>{name});
}

// A source that grew while it was copied was copied as far as the copy read it, and that torn
// copy was put in place as if it were the file.
TEST_F(Regression, AFileThatChangesWhileItIsCopiedIsNotPutInPlace) {
  // Appended to between two steps of the copy, as a writer on another thread would: the hook
  // makes the timing certain on a busy machine.
  const std::string file = Source("growing.log", std::string(4 << 20, 'x'));
  faults.Before(FaultOp::Read, 2, [&] { std::ofstream(file, std::ios::app) << "y"; });
  EXPECT_THROW(svc.fs.CopyFile(file, Dst("growing.log"), false), KestrelError);
  faults.Disarm();
  EXPECT_TRUE(Names(dst).empty());  // neither the file nor its temporary
  svc.fs.CopyFile(file, Dst("growing.log"), false);  // at rest it copies
  EXPECT_EQ(ReadFile(Dst("growing.log")), ReadFile(file));
}

// libzip commits an archive through "<archive>.XXXXXX" beside it: a killed compression left a
// visible, partial file that looked like an archive. The archive is now written under a hidden
// staging name; whatever the commit does, the folder shows the archive or nothing.
TEST_F(Regression, AnArchiveFolderShowsOnlyTheArchiveBeforeDuringAndAfter) {
  const std::string a = Source("a.txt", "alpha"), archive = Dst("x.zip");
  std::string noise(12 << 20, '\0');
  std::mt19937_64 rng(7);
  for (char& c : noise) c = static_cast<char>(rng());
  const std::string big = Source("big.bin", noise);
  ZipLibrary& zip = *svc.zip;
  zip.SaveFolderLocation(j.From);
  ASSERT_EQ(zip.ZipFile(archive, a, "", 0, 0), 1);
  ASSERT_EQ(zip.ZipAddFile(archive, big, 3, 0), 1);
  // While the commit writes, every name in the folder is a hidden temporary.
  std::atomic<bool> done{false};
  std::set<std::string> seen;
  std::thread watcher([&] { while (!done) for (const std::string& n : Names(j.To)) seen.insert(n); });
  const bool flushed = zip.Flush();
  done = true;
  watcher.join();
  ASSERT_TRUE(flushed);
  for (const std::string& n : seen) EXPECT_TRUE(n == "x.zip" || IsEngineTemporary(n)) << n;
  EXPECT_FALSE(seen.empty());  // the watcher saw the commit at work
  EXPECT_EQ(Names(j.To), std::vector<std::string>{"x.zip"});
  // A commit that fails leaves the archive as it was and nothing beside it: ChangingSources,
  // AFailedReplacementKeepsTheOldArchive; adding to an archive: ZipSafety.ARunNeverTakesItsOwnArchivesAsSources.
}

}  // namespace
}  // namespace orvKestrel::testing
