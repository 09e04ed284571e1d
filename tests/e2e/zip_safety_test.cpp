// Compression jobs that could lose files: a job whose archive lies among its sources, two
// sources for one entry, an older file for a newer entry, a file written while it is packed, a
// link planted in the destination.
#include "e2e/E2eSupport.h"

#include <atomic>

namespace e2e {
namespace {

class ZipSafety : public ArchiveTest {
 protected:
  void Job(const fs::path& to, const std::string& keys) const {
    WriteJob(kDue + ("Action=3\n" + keys), "z", src(), to);
  }
  // True when an error line of the run names file.
  static bool ErrorNames(const RunResult& r, const fs::path& file) {
    return std::any_of(r.logs.begin(), r.logs.end(), [&](const std::string& l) {
      return l.starts_with("z: Fehler: ") && l.ends_with(" - " + file.string());
    });
  }
};

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
    Job(to, std::string("SubFolder=1\nZipDelComp=1\nExist=4\n") + c.keys);
    Put(src() / "a.txt", "A");
    Put(src() / "b.txt", "B");
    ASSERT_EQ(RunJobs().exitCode, 0);
    Put(src() / "c.txt", "C");
    EXPECT_TRUE(Has(RunJobs({"--dry-run"}).logs, "Datei gefunden: 1"));
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_TRUE(Has(r.logs, "Datei gefunden: 1")) << r.out;
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
    Put(src() / "a/f.txt", "first");
    Put(src() / "b/f.txt", "second");
    Job(dst(), std::string("SubFolder=1\nZipAll=1\nZipDelComp=1\nExist=") + exist + "\n");
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 1) << r.out;
    const std::string entries = Entries(dst() / "f.zip");
    ASSERT_TRUE(entries == "f.txt=first;" || entries == "f.txt=second;") << entries;
    const bool firstPacked = entries == "f.txt=first;";
    EXPECT_EQ(Files(src()), (firstPacked ? Tree{{"b/f.txt", "second"}} : Tree{{"a/f.txt", "first"}}));
    EXPECT_TRUE(ErrorNames(r, src() / (firstPacked ? "b/f.txt" : "a/f.txt"))) << r.out;
  }
}

// Exist=4 with EFSelect=0 replaces an entry of an earlier run only with a newer file, in either
// layout; an older file is not added and not deleted.
TEST_F(ZipSafety, AnOlderFileDoesNotReplaceANewerEntry) {
  for (const char* zipAll : {"0", "1"}) {
    SCOPED_TRACE(zipAll);
    EmptyFolders();
    const fs::path archive = dst() / (std::string(zipAll) == "0" ? "z.zip" : "f.zip");
    Job(dst(), std::string("ZipAll=") + zipAll + "\nZipDelComp=1\nExist=4\nEFSelect=0\n");
    for (const auto& [data, time, entries] : {std::tuple{"newer", 100, "f.txt=newer;"}, {"older", 0, "f.txt=newer;"},
                                              {"newest", 200, "f.txt=newest;"}}) {
      Put(src() / "f.txt", data, 1'700'000'000 + time);
      EXPECT_EQ(RunJobs().exitCode, 0);
      EXPECT_EQ(Entries(archive), entries);
      EXPECT_EQ(fs::exists(src() / "f.txt"), std::string(data) == "older");
    }
  }
}

// A file written to all the time the job reads it: it is not stored (never torn), not deleted,
// and named; the other file of the run is packed and deleted.
TEST_F(ZipSafety, AFileWrittenWhileItIsZippedIsRefused) {
  const fs::path busy = src() / "busy.log";
  Put(busy, std::string(48 << 20, 'a'));
  Put(src() / "quiet.txt", "quiet");
  Job(dst(), "ZipAll=0\nZipDelComp=1\nZipGrade=9\n");
  std::atomic<bool> done{false};
  std::thread writer([&] {
    const int fd = ::open(busy.c_str(), O_WRONLY);
    for (std::uint64_t i = 0; !done.load() && fd >= 0; ++i) {
      const std::string block(4096, static_cast<char>('b' + i % 20));
      if (::pwrite(fd, block.data(), block.size(), static_cast<off_t>((i * 7919 % 12000) * 4096)) < 0) break;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (fd >= 0) ::close(fd);
  });
  const RunResult r = RunJobs();
  done = true;
  writer.join();
  EXPECT_EQ(r.exitCode, 1) << r.out;
  EXPECT_TRUE(ErrorNames(r, busy)) << r.out;
  EXPECT_EQ(Entries(dst() / "z.zip"), "quiet.txt=quiet;");
  EXPECT_EQ(Files(src()).size(), 1u);  // busy.log only
}

// An archive per file in the mirrored sub-folder: a link planted there is never written
// through, and the file it would have held stays.
TEST_F(ZipSafety, AnArchiveIsNeverWrittenThroughALinkPlantedInItsDestination) {
  Put(src() / "sub/a.txt", "a");
  fs::create_directories(dir_ / "elsewhere");
  fs::create_directory_symlink(dir_ / "elsewhere", dst() / "sub");
  Job(dst(), "SubFolder=1\nZipAll=1\nZipExtStruct=1\nZipDelComp=1\nExist=3\n");
  EXPECT_EQ(RunJobs().exitCode, 1);
  EXPECT_EQ(Files(dir_ / "elsewhere"), Tree{});
  EXPECT_EQ(Get(src() / "sub/a.txt"), "a");
}

}  // namespace
}  // namespace e2e
