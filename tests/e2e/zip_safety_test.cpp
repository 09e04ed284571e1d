// Compression jobs that could lose files: a job whose archive lies among its sources, two
// sources for one entry, and an older file for a newer entry.
#include "e2e/E2eSupport.h"

#include <atomic>
#include <thread>

namespace e2e {
namespace {

class ZipSafety : public ArchiveTest {
 protected:
  // The job z from src to `to` with `keys`.
  void Job(const fs::path& to, const std::string& keys) {
    Put(dir_ / "jobs/z.kjb", "[Job]\nName=z\nFrom=" + src().string() + "\nTo=" + to.string() +
                                 "\nDoPreview=0\nInterval=1\nCounter=1\nAction=3\n" + keys);
  }
  bool ErrorNames(const std::string& file) const {
    return std::any_of(logs.begin(), logs.end(), [&](const std::string& l) {
      return l.starts_with("z: Fehler: ") && l.ends_with(" - " + file);
    });
  }
};

// Run 1 packs a.txt and b.txt and deletes them; run 2 finds the archives among its sources
// beside c.txt. Each archive must keep what it holds and never be packed into itself.
TEST_F(ZipSafety, ARunNeverTakesItsOwnArchivesAsSources) {
  struct Case {
    const char* name;
    const char* to;  // below src; "=link" is a link to src itself
    const char* keys;
    std::map<std::string, std::string> archives;  // below src, after run 2
  };
  const Case cases[] = {
      {"one archive in From", "", "ZipAll=0\n",
       {{"z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"one archive below From", "out", "ZipAll=0\n",
       {{"out/z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"one archive through a link to From", "=link", "ZipAll=0\n",
       {{"z.zip", "a.txt=A;b.txt=B;c.txt=C;"}}},
      {"an archive per file in From", "", "ZipAll=1\n",
       {{"a.zip", "a.txt=A;"}, {"b.zip", "b.txt=B;"}, {"c.zip", "c.txt=C;"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(src());
    fs::remove_all(dir_ / "link");
    fs::create_directories(src());
    fs::path to = src() / c.to;
    if (std::string(c.to) == "=link") {
      fs::create_directory_symlink(src(), dir_ / "link");
      to = dir_ / "link";
    }
    fs::create_directories(to);
    Job(to, std::string("SubFolder=1\nZipDelComp=1\nExist=4\n") + c.keys);
    Put(src() / "a.txt", "A");
    Put(src() / "b.txt", "B");
    ASSERT_EQ(Run().exitCode, 0);
    Put(src() / "c.txt", "C");
    const RunResult preview = Run({"--dry-run"});
    EXPECT_TRUE(Has(logs, "Datei gefunden: 1")) << preview.out;
    const RunResult r = Run();
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_TRUE(Has(logs, "Datei gefunden: 1")) << r.out;
    std::map<std::string, std::string> got;
    for (const auto& [rel, data] : Files(src())) got[rel] = Entries(src() / rel);
    EXPECT_EQ(got, c.archives);
    // A third run has nothing to do.
    const RunResult idle = Run();
    EXPECT_EQ(idle.exitCode, 0) << idle.out;
    for (const auto& [rel, entries] : c.archives) EXPECT_EQ(Entries(src() / rel), entries) << rel;
  }
}

// a/f.txt and b/f.txt both make f.zip holding f.txt: whichever comes second would replace the
// entry of the first, whose source is gone already. It is refused, named, and kept.
TEST_F(ZipSafety, NothingThisRunWroteIsReplacedByThisRun) {
  for (const char* exist : {"1", "3", "4"}) {
    SCOPED_TRACE(std::string("Exist=") + exist);
    fs::remove_all(src());
    fs::remove_all(dst());
    fs::create_directories(dst());
    Put(src() / "a/f.txt", "first");
    Put(src() / "b/f.txt", "second");
    Job(dst(), std::string("SubFolder=1\nZipAll=1\nZipDelComp=1\nExist=") + exist + "\n");
    const RunResult r = Run();
    EXPECT_EQ(r.exitCode, 1) << r.out;
    const std::string entries = Entries(dst() / "f.zip");
    ASSERT_TRUE(entries == "f.txt=first;" || entries == "f.txt=second;") << entries;
    const bool firstPacked = entries == "f.txt=first;";
    const fs::path packed = src() / (firstPacked ? "a/f.txt" : "b/f.txt");
    const fs::path kept = src() / (firstPacked ? "b/f.txt" : "a/f.txt");
    EXPECT_FALSE(fs::exists(packed));
    EXPECT_EQ(Get(kept), firstPacked ? "second" : "first");
    EXPECT_TRUE(ErrorNames(kept.string())) << r.out;
  }
}

// Exist=4 with EFSelect=0 replaces an entry of an earlier run only with a newer file, in either
// layout; an older file is not added and not deleted.
TEST_F(ZipSafety, AnOlderFileDoesNotReplaceANewerEntry) {
  const std::time_t t0 = 1700000000;
  for (const char* zipAll : {"0", "1"}) {
    SCOPED_TRACE(std::string("ZipAll=") + zipAll);
    fs::remove_all(dst());
    fs::create_directories(dst());
    const fs::path archive = dst() / (std::string(zipAll) == "0" ? "z.zip" : "f.zip");
    Job(dst(), std::string("ZipAll=") + zipAll + "\nZipDelComp=1\nExist=4\nEFSelect=0\n");
    Put(src() / "f.txt", "newer", t0 + 100);
    ASSERT_EQ(Run().exitCode, 0);
    ASSERT_EQ(Entries(archive), "f.txt=newer;");
    Put(src() / "f.txt", "older", t0);
    Run();
    EXPECT_EQ(Entries(archive), "f.txt=newer;");
    EXPECT_EQ(Get(src() / "f.txt"), "older");
    Put(src() / "f.txt", "newest", t0 + 200);
    EXPECT_EQ(Run().exitCode, 0);
    EXPECT_EQ(Entries(archive), "f.txt=newest;");
    EXPECT_FALSE(fs::exists(src() / "f.txt"));
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
      const auto at = static_cast<off_t>((i * 7919 % 12000) * 4096);
      if (::pwrite(fd, block.data(), block.size(), at) < 0) break;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (fd >= 0) ::close(fd);
  });
  const RunResult r = Run();
  done = true;
  writer.join();
  EXPECT_EQ(r.exitCode, 1) << r.out;
  EXPECT_TRUE(ErrorNames(busy.string())) << r.out;
  EXPECT_TRUE(fs::exists(busy));
  EXPECT_EQ(Entries(dst() / "z.zip"), "quiet.txt=quiet;");
  EXPECT_FALSE(fs::exists(src() / "quiet.txt"));
}

// An archive per file in the mirrored sub-folder: a link planted there is never written
// through, and the file it would have held stays.
TEST_F(ZipSafety, AnArchiveIsNeverWrittenThroughALinkPlantedInItsDestination) {
  const fs::path elsewhere = dir_ / "elsewhere";
  Put(src() / "sub/a.txt", "a");
  fs::create_directories(elsewhere);
  fs::create_directory_symlink(elsewhere, dst() / "sub");
  Job(dst(), "SubFolder=1\nZipAll=1\nZipExtStruct=1\nZipDelComp=1\nExist=3\n");
  const RunResult r = Run();
  EXPECT_EQ(r.exitCode, 1) << r.out;
  EXPECT_TRUE(Files(elsewhere).empty());
  EXPECT_EQ(Get(src() / "sub/a.txt"), "a");
}

}  // namespace
}  // namespace e2e
