#include "platform/FileSystem.h"
#include "platform/Prefetch.h"
#include "platform/StatusCache.h"

#include "Rig.h"

namespace orvKestrel::testing {
namespace {

PathStatus Look(std::string path, bool link = false) { return {std::move(path), 0, {}, {}, link}; }

// A look a worker took stays current across new files given free names, except where that name
// may be what it looked at: the name itself, a path through it, a path ending in a link.
TEST(StatusCache, ALookStaysCurrentOnlyAcrossNamesThatCannotHaveChangedIt) {
  struct Row {
    const char* looked;
    bool link;
    const char* named;
    bool current;
  };
  const Row rows[] = {
      {"/d/a.txt", false, "b.txt", true},   {"/d/a.txt", false, "a.txt", false},
      {"/d/A.TXT", false, "a.txt", false},  // capitals some file systems fold
      {"/d/a.txt/x", false, "a.txt", false}, {"/d/a.txt", true, "b.txt", false},
  };
  for (const Row& row : rows) {
    StatusCache cache;
    const std::uint64_t before = cache.Changes();
    { const StatusCache::Change naming(cache, std::string_view(row.named)); }
    EXPECT_EQ(cache.Current(before, Look(row.looked, row.link)), row.current)
        << row.looked << " after naming " << row.named;
  }
  // Any other change, or more names than are remembered, leaves no older look current.
  StatusCache cache;
  const std::uint64_t first = cache.Changes();
  { const StatusCache::Change change(cache); }
  EXPECT_FALSE(cache.Current(first, Look("/d/a.txt")));
  const std::uint64_t second = cache.Changes();
  for (int i = 0; i < 5000; ++i) {
    const std::string name = "n" + std::to_string(i);
    const StatusCache::Change naming(cache, std::string_view(name));
  }
  EXPECT_FALSE(cache.Current(second, Look("/d/a.txt")));
  EXPECT_FALSE(cache.FolderChanges() == 0) << "what may change a folder is counted apart";
}

// Only a copy made ahead that gets a free name in a folder that compares names by their bytes
// is such a naming; a replacement is a change like any other.
TEST_F(Rig, ACopyMadeAheadIsANamingOnlyWhereItReplacesNothing) {
  for (const bool overwrite : {false, true}) {
    SCOPED_TRACE(overwrite);
    EmptyFolder(dst);
    const std::string source = Source("a.txt", "contents");
    FileSystem fs;
    const auto into = fs.OpenBeneath(dst, "", false);
    if (!into->ExactNames()) GTEST_SKIP() << "names may be folded on " << dst;
    const FileSystem::StatusScope scope(fs);
    auto ready = PrepareCopy(nullptr, source, into->fd(), into->path(), false,
                             [](std::uint64_t) { return true; });
    ASSERT_TRUE(ready.has_value());
    const std::uint64_t before = fs.Changes();
    fs.CopyFile(source, *into, "a.txt", overwrite, &*ready);
    // A worker's word, older than the copy, for a file that is not there: taken only while the
    // copy counts as a naming.
    PathStatus claim = Look(Dst("other.txt"));
    claim.stat.isFile = true;
    fs.Seed(before, claim);
    EXPECT_EQ(fs.FileExists(Dst("other.txt")), !overwrite);
    EXPECT_EQ(ReadFile(Dst("a.txt")), "contents");
  }
}

}  // namespace
}  // namespace orvKestrel::testing
