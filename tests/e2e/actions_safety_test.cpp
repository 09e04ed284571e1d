// Copy, move and delete jobs in the places where a careless engine loses the only copy of a
// file: a destination that is the source under another name, links planted in the destination,
// a trash below the walked folder, a trash that cannot be made.
#include "e2e/E2eSupport.h"

#include <sys/mount.h>

#include <cstring>
#include <optional>
#include <set>

namespace e2e {
namespace {

using orvKestrel::testing::ScopedEnv;

// A mount made for one test and undone when it ends, whatever happened in between.
class Mount {
 public:
  // A bind mount of from at at (at must exist); a tmpfs at at when from is empty.
  Mount(const fs::path& from, const fs::path& at) : at_(at) {
    ok_ = from.empty() ? ::mount("kestrel-test", at.c_str(), "tmpfs", 0, nullptr) == 0
                       : ::mount(from.c_str(), at.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }
  ~Mount() {
    if (ok_) ::umount2(at_.c_str(), MNT_DETACH);
  }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;
  bool ok() const { return ok_; }

 private:
  fs::path at_;
  bool ok_ = false;
};

class Safety : public JobFolderTest {
 protected:
  // A job due at every pass from From to To (not the fixture's folders when given).
  void Job(const std::string& keys, const fs::path& from = {}, const fs::path& to = {}) {
    Put(dir_ / "jobs/a.kjb", "[Job]\nName=a\nFrom=" + (from.empty() ? src() : from).string() +
                                 "\nTo=" + (to.empty() ? dst() : to).string() +
                                 "\nCounter=1\nInterval=1\n" + keys + "DoPreview=0\n");
  }
  RunResult Run(std::vector<std::pair<std::string, std::string>> env = {}) {
    if (env.empty()) env = {{"XDG_DATA_HOME", (dir_ / "xdg").string()}};
    return RunJobs({}, {"", "", std::move(env)});
  }
  static std::vector<std::string> Errors(const RunResult& r) {
    std::vector<std::string> out;
    for (const auto& j : LogEvents(r.out)) {
      if (j["MsgID"] == 10) out.push_back(j["LogMsg"]);
    }
    return out;
  }
};

// To reaches From's own files under their own names: deleting or replacing "the other one"
// would destroy the only copy. Every policy that deletes or replaces refuses the file with an
// error line; the others act harmlessly. The preview names the same refusals.
TEST_F(Safety, ADestinationThatIsTheSourceItselfNeverCostsTheFile) {
  enum class Way { HardLink, LinkedFolder, BindMount };
  const struct {
    const char* keys;
    bool refused;
  } rows[] = {
      {"Action=0\nExist=0\n", false},          {"Action=0\nExist=1\n", true},
      {"Action=0\nExist=2\nPickRenamer=1\n", false}, {"Action=0\nExist=3\n", true},
      {"Action=0\nExist=4\nEFSDelete=1\n", true}, {"Action=0\nExist=4\nEFSDelete=0\n", false},
      {"Action=1\nExist=0\n", false},          {"Action=1\nExist=1\n", true},
      {"Action=1\nExist=2\nPickRenamer=1\n", false}, {"Action=1\nExist=3\n", true},
      {"Action=1\nExist=4\nEFSDelete=1\n", true}, {"Action=5\nExist=3\n", true},
  };
  for (const Way way : {Way::HardLink, Way::LinkedFolder, Way::BindMount}) {
    for (const auto& row : rows) {
      for (const bool preview : {true, false}) {
        SCOPED_TRACE(std::string(row.keys) + " way " + std::to_string(static_cast<int>(way)) +
                     (preview ? " preview" : ""));
        fs::remove_all(src());
        fs::remove_all(dir_ / "to");
        Put(src() / "a.txt", "the only copy", 1'600'000'000);
        fs::path to = dir_ / "to";
        std::optional<Mount> bind;
        if (way == Way::HardLink) {
          fs::create_directories(to);
          fs::create_hard_link(src() / "a.txt", to / "a.txt");
        } else if (way == Way::LinkedFolder) {
          fs::create_directory_symlink(src(), to);
        } else {
          fs::create_directories(to);
          bind.emplace(src(), to);
          if (!bind->ok()) GTEST_SKIP() << "no bind mount here: " << std::strerror(errno);
        }
        Job(std::string(row.keys) + (preview ? "DoPreview=1\n" : ""), src(), to);
        const RunResult r = RunJobs(preview ? std::vector<std::string>{"--preview-jobs"}
                                            : std::vector<std::string>{});
        const auto errors = Errors(r);
        const bool named = !errors.empty() &&
                           errors[0].find("same file") != std::string::npos &&
                           errors[0].find(S("a.txt")) != std::string::npos;
        EXPECT_EQ(named, row.refused) << r.out;
        if (!preview) {
          EXPECT_EQ(r.exitCode, row.refused ? 1 : 0);
        }
        bool kept = false;
        for (const auto& root : {src(), to}) {
          for (const auto& [rel, data] : Files(root)) kept = kept || data == "the only copy";
        }
        EXPECT_TRUE(kept);
        if (preview || row.refused) {
          EXPECT_EQ(Get(src() / "a.txt"), "the only copy");
        }
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
    const ScopedEnv noData("XDG_DATA_HOME", std::nullopt);
    const ScopedEnv noHome("HOME", home);
    for (int i = 0; i < 3; ++i) Put(src() / ("f" + std::to_string(i) + ".txt"), "keep me");
    Job("Action=2\nDelType=1\n");
    const RunResult r = RunJobs();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Files(src()).size(), 3u);
    EXPECT_FALSE(fs::exists(nowhere));
    const auto lines = LogTexts(r.out);
    const auto errors = Errors(r);
    ASSERT_EQ(errors.size(), 3u) << r.out;
    for (int i = 0; i < 3; ++i) {
      const std::string f = S("f" + std::to_string(i) + ".txt");
      EXPECT_TRUE(Has(lines, "Quelle gelöscht (Datei existiert): " + f));
      EXPECT_TRUE(std::any_of(errors.begin(), errors.end(),
                              [&](const std::string& e) { return e.ends_with(" - " + f); }));
    }
  }
}

// Every file below root/trash (links not followed), relative to root.
std::map<std::string, std::string> TrashFiles(const fs::path& root, const std::string& trash) {
  std::map<std::string, std::string> out;
  for (const auto& [rel, data] : Files(root / trash)) out[trash + "/" + rel] = data;
  return out;
}

// A delete job into the trash over a folder that holds its own trash: the second run leaves
// the trash alone (its restore records above all), and takes folders that only bear a trash's
// name elsewhere.
TEST_F(Safety, ARecyclingRunNeverWalksItsOwnTrash) {
  const std::string uid = std::to_string(::getuid());
  const fs::path home = dir_ / "home";
  const fs::path mnt = dir_ / "mnt";
  fs::create_directories(home);
  fs::create_directories(mnt);
  Mount tmpfs({}, mnt);
  if (!tmpfs.ok()) GTEST_SKIP() << "no tmpfs mount here: " << std::strerror(errno);
  const struct {
    const char* what;
    fs::path from;
    std::string trash, decoy;
  } rows[] = {
      {"top of a file system", mnt, ".Trash-" + uid, "sub/.Trash-" + uid},
      {"home", home, ".local/share/Trash", "sub/Trash"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Put(row.from / "a.txt", "a");
    Put(row.from / row.decoy / "b.txt", "b");
    Job("Action=2\nDelType=1\nSubFolder=1\n", row.from);
    const std::vector<std::pair<std::string, std::string>> env{{"HOME", home.string()}};
    const ScopedEnv noData("XDG_DATA_HOME", std::nullopt);
    ASSERT_EQ(Run(env).exitCode, 0);
    const auto first = TrashFiles(row.from, row.trash);
    ASSERT_EQ(first.size(), 4u);  // two files and their restore records
    Put(row.from / "c.txt", "c");
    const RunResult r = Run(env);
    EXPECT_EQ(r.exitCode, 0);
    const auto second = TrashFiles(row.from, row.trash);
    for (const auto& [rel, data] : first) EXPECT_EQ(second.count(rel) ? second.at(rel) : "", data) << rel;
    EXPECT_EQ(second.size(), 6u);
    EXPECT_EQ(Errors(r).size(), 0u) << r.out;
  }
}

// A link planted below To (To/sub -> a folder elsewhere): copy, move and synchronisation keep
// the folder structure without writing through it, at any depth below the link; the file is
// refused with an error line that names the link, its preview names it too, and the rest of
// the list goes on.
TEST_F(Safety, WritesStayInsideTheDestinationWhateverLinksWerePlantedThere) {
  const fs::path elsewhere = dir_ / "elsewhere";
  for (const char* keys : {"Action=0\n", "Action=1\n", "Action=5\n"}) {
    for (const bool preview : {true, false}) {
      SCOPED_TRACE(std::string(keys) + (preview ? " preview" : ""));
      fs::remove_all(src());
      fs::remove_all(dst());
      fs::remove_all(elsewhere);
      Put(elsewhere / "a.txt", "victim");
      Put(src() / "sub/a.txt", "intruder");
      Put(src() / "sub/deeper/b.txt", "intruder");
      Put(src() / "other/c.txt", "c");
      fs::create_directories(dst());
      fs::create_directory_symlink(elsewhere, dst() / "sub");
      Job(std::string(keys) + "Exist=3\nSubFolder=1\nFStruct=1\n" +
          (preview ? "DoPreview=1\n" : ""));
      const RunResult r =
          RunJobs(preview ? std::vector<std::string>{"--preview-jobs"} : std::vector<std::string>{});
      EXPECT_EQ(Files(elsewhere), (std::map<std::string, std::string>{{"a.txt", "victim"}}));
      const auto errors = Errors(r);
      ASSERT_EQ(errors.size(), 2u) << r.out;
      for (const auto& e : errors) {
        EXPECT_NE(e.find("goes through a link: " + D("sub")), std::string::npos) << e;
      }
      EXPECT_EQ(Get(src() / "sub/a.txt"), "intruder");
      EXPECT_EQ(Get(src() / "sub/deeper/b.txt"), "intruder");
      if (!preview) {
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(Get(dst() / "other/c.txt"), "c");
      }
    }
  }
}


// Two sources meet at one destination name when the structure is flattened: whatever the
// policy, the second never replaces the first (whose source a move has removed) nor is deleted
// because the first is there; it stays with an error line.
TEST_F(Safety, TwoSourcesOfOneRunForOneNameBothSurvive) {
  for (const char* keys : {"Action=0\nExist=1\n", "Action=1\nExist=1\n", "Action=1\nExist=3\n",
                           "Action=1\nExist=4\nEFSelect=0\n",
                           "Action=0\nExist=4\nEFSelect=0\nEFSDelete=1\n"}) {
    SCOPED_TRACE(keys);
    fs::remove_all(src());
    fs::remove_all(dst());
    fs::create_directories(dst());
    Put(src() / "a/f.txt", "first", 1'600'000'000);
    Put(src() / "b/f.txt", "second", 1'700'000'000);  // newer: every comparison says replace
    Job(std::string(keys) + "SubFolder=1\nFStruct=0\n");
    const RunResult r = Run();
    std::multiset<std::string> kept;
    for (const fs::path& root : {src(), dst()}) {
      for (const auto& [rel, data] : Files(root)) kept.insert(data);
    }
    EXPECT_TRUE(kept.contains("first") && kept.contains("second")) << r.out;
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(Errors(r).size(), 1u) << r.out;
  }
}

// Two jobs of one pass move a file of one name into one folder, the second through a link to
// it: the file is the one the first placed whatever path reaches it, so the second is refused.
TEST_F(Safety, TwoJobsOfOnePassIntoOneFolderByTwoPathsBothSurvive) {
  fs::create_directories(dst());
  fs::create_directory_symlink(dst(), dir_ / "alias");
  Put(src() / "f.txt", "first");
  Put(dir_ / "src2/f.txt", "second");
  Job("Action=1\nExist=3\n");
  Put(dir_ / "jobs/b.kjb", "[Job]\nName=b\nFrom=" + (dir_ / "src2").string() + "\nTo=" +
                               (dir_ / "alias").string() +
                               "\nCounter=1\nInterval=1\nAction=1\nExist=3\nDoPreview=0\n");
  const RunResult r = Run();
  std::multiset<std::string> kept;
  for (const fs::path& root : {src(), dir_ / "src2", dst()}) {
    for (const auto& [rel, data] : Files(root)) kept.insert(data);
  }
  EXPECT_TRUE(kept.contains("first") && kept.contains("second")) << r.out;
  EXPECT_EQ(Errors(r).size(), 1u) << r.out;
}

}  // namespace
}  // namespace e2e
