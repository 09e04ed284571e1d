// Copy, move and delete jobs in the places where a careless engine loses the only copy of a
// file: a destination that is the source under another name, links planted in the destination,
// a trash below the walked folder, a trash that cannot be made.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {


// A mount made for one test and undone when it ends: a bind mount of from at at, a tmpfs at at
// when from is empty. Never copied.
struct Mount {
  Mount(const fs::path& from, const fs::path& where)
      : at(where), ok(from.empty() ? ::mount("kestrel-test", at.c_str(), "tmpfs", 0, nullptr) == 0
                                   : ::mount(from.c_str(), at.c_str(), nullptr, MS_BIND, nullptr) == 0) {}
  ~Mount() { if (ok) ::umount2(at.c_str(), MNT_DETACH); }
  fs::path at;
  bool ok;
};

Lines Errors(const RunResult& r) {
  Lines out;
  for (const auto& j : LogEvents(r.out)) if (j["MsgID"] == 10) out.push_back(j["LogMsg"]);
  return out;
}

// True when a file below the roots holds each of the texts.
bool Kept(const std::vector<fs::path>& roots, const std::set<std::string>& texts) {
  std::set<std::string> found;
  for (const fs::path& root : roots) for (const auto& [rel, data] : Files(root)) found.insert(data);
  return std::includes(found.begin(), found.end(), texts.begin(), texts.end());
}

using Safety = JobFolderTest;

// To reaches From's own files under their own names: deleting or replacing "the other one"
// would destroy the only copy. Every policy that deletes or replaces refuses the file with an
// error line; the others act harmlessly. The preview names the same refusals.
TEST_F(Safety, ADestinationThatIsTheSourceItselfNeverCostsTheFile) {
  const struct {
    const char* keys;
    bool refused;
  } rows[] = {
      {"Action=0\nExist=0\n", false}, {"Action=0\nExist=1\n", true}, {"Action=0\nExist=2\nPickRenamer=1\n", false},
      {"Action=0\nExist=3\n", true}, {"Action=0\nExist=4\nEFSDelete=1\n", true},
      {"Action=0\nExist=4\nEFSDelete=0\n", false}, {"Action=1\nExist=0\n", false}, {"Action=1\nExist=1\n", true},
      {"Action=1\nExist=2\nPickRenamer=1\n", false}, {"Action=1\nExist=3\n", true},
      {"Action=1\nExist=4\nEFSDelete=1\n", true}, {"Action=5\nExist=3\n", true},
  };
  const fs::path to = dir_ / "to";
  for (const char* way : {"hard link", "linked folder", "bind mount"}) {
    for (const auto& row : rows) {
      for (const bool preview : {true, false}) {
        SCOPED_TRACE(std::string(row.keys) + way + (preview ? " preview" : ""));
        fs::remove_all(src());
        fs::remove_all(to);
        Put(src() / "a.txt", "the only copy", 1'600'000'000);
        std::optional<Mount> bind;
        if (way == std::string("linked folder")) {
          fs::create_directory_symlink(src(), to);
        } else if (fs::create_directories(to); way == std::string("hard link")) {
          fs::create_hard_link(src() / "a.txt", to / "a.txt");
        } else if (!bind.emplace(src(), to).ok) {
          GTEST_SKIP() << "no bind mount here: " << std::strerror(errno);
        }
        WriteJob(std::string(row.keys) + "Counter=1\nInterval=1\nDoPreview=" + (preview ? "1\n" : "0\n"), "a",
                 src(), to);
        const RunResult r = RunJobs({"--preview-jobs"});
        const auto errors = Errors(r);
        EXPECT_EQ(!errors.empty() && errors[0].find("same file") != std::string::npos &&
                      errors[0].find(S("a.txt")) != std::string::npos,
                  row.refused) << r.out;
        EXPECT_TRUE(preview || r.exitCode == (row.refused ? 1 : 0)) << r.exitCode;
        EXPECT_TRUE(Kept({src(), to}, {"the only copy"}));
        EXPECT_TRUE(!(preview || row.refused) || Get(src() / "a.txt") == "the only copy");
      }
    }
  }
}

// Without a home no trash is made (not even a home of its own): every file stays, is logged
// as deleted as it always was, then named by an error line, and the run exits 1.
TEST_F(Safety, ATrashThatCannotBeMadeIsReportedPerFile) {
  const std::string nowhere = (dir_ / "no home").string();
  for (const std::optional<std::string>& home : {std::optional<std::string>(), {""}, {"relative"}, {nowhere}}) {
    SCOPED_TRACE(home.value_or("unset"));
    const ScopedEnv noHome("HOME", home);
    for (int i = 0; i < 3; ++i) Put(src() / ("f" + std::to_string(i) + ".txt"), "keep me");
    WriteJob(std::string(kDue) + "Action=2\nDelType=1\n");
    const RunResult r = RunJobs({}, {.env = {{"XDG_DATA_HOME", ""}}});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Files(src()).size(), 3u);
    EXPECT_FALSE(fs::exists(nowhere));
    const auto errors = Errors(r);
    ASSERT_EQ(errors.size(), 3u) << r.out;
    for (const std::string& f : {S("f0.txt"), S("f1.txt"), S("f2.txt")}) {
      EXPECT_TRUE(Has(r.logs, "Quelle gelöscht (Datei existiert): " + f) && Count(errors, "", {" - " + f}) == 1) << f;
    }
  }
}

// A delete job into the trash over a folder that holds its own trash: the second run leaves
// the trash alone (its restore records above all), and takes folders that only bear a trash's
// name elsewhere.
TEST_F(Safety, ARecyclingRunNeverWalksItsOwnTrash) {
  const std::string uid = std::to_string(::getuid());
  const fs::path home = dir_ / "home", mnt = dir_ / "mnt";
  for (const fs::path& d : {home, mnt}) fs::create_directories(d);
  const Mount tmpfs({}, mnt);
  if (!tmpfs.ok) GTEST_SKIP() << "no tmpfs mount here: " << std::strerror(errno);
  const struct {
    fs::path from;
    std::string trash, decoy;
  } rows[] = {{mnt, ".Trash-" + uid, "sub/.Trash-" + uid}, {home, ".local/share/Trash", "sub/Trash"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.trash);
    Plant(row.from, {{"a.txt", "a"}, {row.decoy + "/b.txt", "b"}});
    WriteJob(std::string(kDue) + "Action=2\nDelType=1\nSubFolder=1\n", "a", row.from);
    const StartOptions env{.env = {{"XDG_DATA_HOME", ""}, {"HOME", home.string()}}};
    ASSERT_EQ(RunJobs({}, env).exitCode, 0);
    const auto first = Files(row.from / row.trash);
    ASSERT_EQ(first.size(), 4u);  // two files and their restore records
    Put(row.from / "c.txt", "c");
    const RunResult r = RunJobs({}, env);
    EXPECT_EQ(r.exitCode, 0);
    const auto second = Files(row.from / row.trash);
    for (const auto& [rel, data] : first) EXPECT_EQ(second.count(rel) ? second.at(rel) : "", data) << rel;
    EXPECT_EQ(second.size(), 6u);
    EXPECT_EQ(Errors(r).size(), 0u) << r.out;
  }
}

// A link planted below To (To/sub -> a folder elsewhere): copy, move, synchronisation and a
// compression job that mirrors the source's folders keep the folder structure without writing
// through it, at any depth below the link. Each file below it is refused with an error line
// that names the link (a compression job's through the error trap), its source stays, its
// preview announces nothing there, and the rest of the list goes on.
TEST_F(Safety, WritesStayInsideTheDestinationWhateverLinksWerePlantedThere) {
  const fs::path elsewhere = dir_ / "elsewhere";
  for (const std::string keys : {"Action=0\n", "Action=1\n", "Action=5\n", "Action=3\nZipAll=1\nZipExtStruct=1\n"}) {
    for (const bool preview : {true, false}) {
      SCOPED_TRACE(keys + (preview ? " preview" : ""));
      const std::string zip = keys.starts_with("Action=3") ? ".zip" : "";
      EmptyFolders();
      fs::remove_all(elsewhere);
      Plant(dir_.root(), {{"elsewhere/a.txt", "victim"}, {"src/sub/a.txt", "intruder"},
                          {"src/sub/deeper/b.txt", "intruder"}, {"src/other/c.txt", "c"}});
      fs::create_directory_symlink(elsewhere, dst() / "sub");
      WriteJob(keys + "Counter=1\nInterval=1\nExist=3\nSubFolder=1\nFStruct=1\nZipDelComp=1\nDoPreview=" +
               (preview ? "1\n" : "0\n"));
      const RunResult r = RunJobs({"--preview-jobs"});
      EXPECT_EQ(Files(elsewhere), (Tree{{"a.txt", "victim"}}));
      const Lines errors = zip.empty() ? Errors(r) : SplitLines(r.err);
      EXPECT_TRUE(errors.size() == 2 && Count(errors, "", {"goes through a link: " + D("sub")}) == 2) << r.out << r.err;
      EXPECT_EQ(Files(src() / "sub"), (Tree{{"a.txt", "intruder"}, {"deeper/b.txt", "intruder"}}));
      EXPECT_EQ(Count(r.logs, "", {D("sub/a.txt" + zip)}), 0) << r.out;
      EXPECT_GE(Count(r.logs, "", {D("other/c.txt" + zip)}), 1) << r.out;
      EXPECT_EQ(fs::exists(dst() / ("other/c.txt" + zip)), !preview);
      EXPECT_TRUE(preview || r.exitCode == 1) << r.exitCode;
    }
  }
}

// Two sources meet at one destination name when the structure is flattened: whatever the
// policy, the second never replaces the first (whose source a move has removed) nor is deleted
// because the first is there; it stays with an error line. So also when two jobs of one pass
// move a file of one name into one folder, the second through a link to it.
TEST_F(Safety, TwoSourcesOfOneRunForOneNameBothSurvive) {
  for (const char* keys : {"Action=0\nExist=1\n", "Action=1\nExist=1\n", "Action=1\nExist=3\n",
                           "Action=1\nExist=4\nEFSelect=0\n", "Action=0\nExist=4\nEFSelect=0\nEFSDelete=1\n"}) {
    SCOPED_TRACE(keys);
    EmptyFolders();
    Put(src() / "a/f.txt", "first", 1'600'000'000);
    Put(src() / "b/f.txt", "second", 1'700'000'000);  // newer: every comparison says replace
    WriteJob(std::string(kDue) + keys + "SubFolder=1\nFStruct=0\n");
    const RunResult r = RunJobs();
    EXPECT_TRUE(Kept({src(), dst()}, {"first", "second"})) << r.out;
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Errors(r).size(), 1u) << r.out;
  }
  EmptyFolders();
  fs::create_directory_symlink(dst(), dir_ / "alias");
  Plant(dir_.root(), {{"src/f.txt", "first"}, {"src2/f.txt", "second"}});
  WriteJob(std::string(kDue) + "Action=1\nExist=3\n");
  WriteJob(std::string(kDue) + "Action=1\nExist=3\n", "b", dir_ / "src2", dir_ / "alias");
  const RunResult r = RunJobs();
  EXPECT_TRUE(Kept({src(), dir_ / "src2", dst()}, {"first", "second"})) << r.out;
  EXPECT_EQ(Errors(r).size(), 1u) << r.out;
}

}  // namespace
}  // namespace e2e
