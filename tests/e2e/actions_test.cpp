// Copy, move, delete and synchronisation jobs through `kestrel run --events jsonl`: the exact
// per-file lines, the trees afterwards, and previews that leave every byte where it was.
#include "e2e/E2eSupport.h"

#include <set>

namespace e2e {
namespace {

constexpr std::time_t kOld = 1'600'000'000;
constexpr std::time_t kNew = 1'700'000'000;

// Every entry below root: contents, write time and permission bits.
std::map<std::string, std::string> Snapshot(const fs::path& root) {
  std::map<std::string, std::string> out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    struct stat st {};
    ::lstat(e.path().c_str(), &st);
    std::string value = e.is_directory() ? "<dir>" : Get(e.path());
    value += "@" + std::to_string(st.st_mtime) + "/" + std::to_string(st.st_mode);
    out[fs::relative(e.path(), root).string()] = value;
  }
  return out;
}

std::set<std::string> Tree(const fs::path& root) {
  std::set<std::string> out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    out.insert(fs::relative(e.path(), root).string() + (e.is_directory() ? "/" : ""));
  }
  return out;
}

class Actions : public JobFolderTest {
 protected:
  // A job due at every pass; extra lines go into its "Job" section.
  void WriteJob(const std::string& extra) {
    JobFolderTest::WriteJob("Counter=1\nInterval=1\n" + extra);
  }

  // The lines written to the log file, without the job's start and end lines and the walk's.
  std::vector<std::string> Run(const std::string& option = "") {
    const RunResult r = RunJobs(option.empty() ? std::vector<std::string>{}
                                               : std::vector<std::string>{option},
                                {"", "", {{"XDG_DATA_HOME", (dir_ / "xdg").string()}}});
    exit_ = r.exitCode;
    std::vector<std::string> lines;
    for (const auto& j : LogEvents(r.out)) {
      if (!j["bFile"].get<bool>()) continue;
      const int id = j["MsgID"];
      if (id == 3 || id == 6 || id == 28 || id == 16 || id == 17) continue;
      lines.push_back(j["LogMsg"]);
    }
    return lines;
  }

  int exit_ = -1;
};

TEST_F(Actions, CopyJobReplacesByPolicyAndKeepsTheFolderStructure) {
  Put(src() / "a.txt", "new a", kNew);
  Put(src() / "sub/b.txt", "b", kOld);
  Put(dst() / "a.txt", "old a", kOld);
  WriteJob("Action=0\nDoPreview=0\nExist=3\nSubFolder=1\nFStruct=1\n");
  EXPECT_EQ(Run(), (std::vector<std::string>{
                       "Dateien gefunden: 2",
                       "Von kopierter Datei überschrieben: " + S("a.txt") + " nach " + D("a.txt"),
                       "Kopiert: " + S("sub/b.txt") + " nach " + D("sub/b.txt")}));
  EXPECT_EQ(exit_, 0);
  EXPECT_EQ(Get(dst() / "a.txt"), "new a");
  EXPECT_EQ(Get(dst() / "sub/b.txt"), "b");
  EXPECT_EQ(fs::last_write_time(dst() / "sub/b.txt"), fs::last_write_time(src() / "sub/b.txt"));
  EXPECT_EQ(Tree(src()), (std::set<std::string>{"a.txt", "sub/", "sub/b.txt"}));
}

TEST_F(Actions, CopyJobRenamesWithACounter) {
  Put(src() / "a.txt", "new");
  Put(dst() / "a.txt", "0");
  Put(dst() / "a_1.txt", "1");
  WriteJob("Action=0\nDoPreview=0\nExist=2\nPickRenamer=1\nRenameTxt=_\n");
  EXPECT_EQ(Run(), (std::vector<std::string>{"Datei gefunden: 1",
                                             "Kopiert: " + S("a.txt") + " nach " + D("a_2.txt")}));
  EXPECT_EQ(Get(dst() / "a_2.txt"), "new");
}

TEST_F(Actions, MoveJobLeavesExistingDestinationsAndMovesTheRest) {
  Put(src() / "a.txt", "a");
  Put(src() / "sub/b.txt", "b");
  Put(dst() / "a.txt", "old");
  WriteJob("Action=1\nDoPreview=0\nExist=0\nSubFolder=1\nFStruct=1\n");
  EXPECT_EQ(Run(), (std::vector<std::string>{
                       "Dateien gefunden: 2",
                       "Keine Aktion (Datei vorhanden): " + S("a.txt") + " nach " + D("a.txt"),
                       "Verschoben: " + S("sub/b.txt") + " nach " + D("sub/b.txt")}));
  EXPECT_EQ(exit_, 0);
  EXPECT_EQ(Tree(src()), (std::set<std::string>{"a.txt", "sub/"}));
  EXPECT_EQ(Tree(dst()), (std::set<std::string>{"a.txt", "sub/", "sub/b.txt"}));
  EXPECT_EQ(Get(dst() / "a.txt"), "old");
}

TEST_F(Actions, DeleteJobRemovesFilesAndEmptiedFoldersButNotTheSourceFolder) {
  Put(src() / "a.txt", "a");
  Put(src() / "sub/deep/b.txt", "b");
  WriteJob("Action=2\nDoPreview=0\nSubFolder=1\nDelEFol=1\n");
  EXPECT_EQ(Run(), (std::vector<std::string>{
                       "Dateien gefunden: 2", "Quelle gelöscht (Datei existiert): " + S("a.txt"),
                       "Quelle gelöscht (Datei existiert): " + S("sub/deep/b.txt"),
                       "Verzeichnis gelöscht: " + S("sub/deep"), "Verzeichnis gelöscht: " + S("sub")}));
  EXPECT_EQ(exit_, 0);
  EXPECT_TRUE(fs::exists(src()));
  EXPECT_TRUE(fs::is_empty(src()));
}

TEST_F(Actions, DeleteJobToTheRecycleBin) {
  Put(src() / "a.txt", "a");
  WriteJob("Action=2\nDoPreview=0\nDelType=1\n");
  EXPECT_EQ(Run(), (std::vector<std::string>{"Datei gefunden: 1",
                                             "Quelle gelöscht (Datei existiert): " + S("a.txt")}));
  EXPECT_FALSE(fs::exists(src() / "a.txt"));
  EXPECT_EQ(Get(dir_ / "xdg/Trash/files/a.txt"), "a");
  EXPECT_NE(Get(dir_ / "xdg/Trash/info/a.txt.trashinfo").find("Path=" + S("a.txt")),
            std::string::npos);
}

TEST_F(Actions, SynchronisationJobMakesBothFoldersEqualAndRemovesWhatThePrimaryLacks) {
  Put(src() / "a.txt", "newer", kNew);
  Put(src() / "p.txt", "p");
  Put(dst() / "a.txt", "older", kOld);
  Put(dst() / "gone.txt", "g");
  WriteJob(
      "Action=5\nDoPreview=0\nExist=4\nEFSelect=0\nExtFileTime=1\nSyncDelete=1\nSubFolder=1\n"
      "FStruct=1\n");
  const auto lines = Run();
  const std::string t92 =
      "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";
  const std::string kept = "Keine Aktion (Neuere Datei existiert): ";
  // Pass 1 in the walk's order, then the removal, then pass 2 in its walk's order.
  ASSERT_EQ(lines.size(), 11u) << ::testing::PrintToString(lines);
  EXPECT_EQ(lines[0], "Dateien gefunden: 2");
  const std::set<std::string> pass1{lines[1], lines[2]};
  EXPECT_EQ(pass1, (std::set<std::string>{
                       "Von kopierter Datei überschrieben: " + S("a.txt") + " nach " + D("a.txt"),
                       "Kopiert: " + S("p.txt") + " nach " + D("p.txt")}));
  EXPECT_EQ(lines[3], t92);
  EXPECT_EQ(lines[4], t92);
  EXPECT_EQ(lines[5], "Datei gefunden: 1");
  EXPECT_EQ(lines[6], "Datei gelöscht (Im primären Verzeichnis nicht vorhanden) " + D("gone.txt"));
  EXPECT_EQ(lines[7], "Dateien gefunden: 2");
  const std::set<std::string> pass2{lines[8], lines[9]};
  EXPECT_EQ(pass2, (std::set<std::string>{kept + D("a.txt") + " nach " + S("a.txt"),
                                          kept + D("p.txt") + " nach " + S("p.txt")}));
  EXPECT_EQ(lines[10], "Synchronisation abgeschlossen! ");
  EXPECT_EQ(exit_, 0);
  EXPECT_EQ(Tree(src()), (std::set<std::string>{"a.txt", "p.txt"}));
  EXPECT_EQ(Tree(dst()), (std::set<std::string>{"a.txt", "p.txt"}));
  EXPECT_EQ(Get(dst() / "a.txt"), "newer");
}

TEST_F(Actions, PreviewsChangeNoByte) {
  Put(src() / "a.txt", "new", kNew);
  Put(src() / "sub/b.txt", "b");
  Put(dst() / "a.txt", "old", kOld);
  Put(dst() / "gone.txt", "g");
  struct Case {
    std::string job;
    std::string line;  // one line the preview must show
  };
  const Case cases[] = {
      {"Action=0\nExist=3\nSubFolder=1\nFStruct=1\n",
       "Würde von Kopie überschrieben: " + S("a.txt") + " überschreibt " + D("a.txt")},
      {"Action=1\nExist=2\nPickRenamer=1\nSubFolder=1\nFStruct=1\n",
       "Verschobene Datei würde umbenannt: " + S("a.txt") + " nach " + D("a_1.txt")},
      {"Action=1\nExist=4\nEFSelect=1\nExtFileTime=1\n",
       "Quelldatei nicht älter: " + S("a.txt") + " nach " + D("a.txt")},
      {"Action=2\nSubFolder=1\nDelEFol=1\n", "Würde gelöscht: " + S("sub")},
      {"Action=5\nSyncDelete=1\nExist=4\nExtFileTime=1\nSubFolder=1\nFStruct=1\n",
       "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden) " + D("gone.txt")},
  };
  const auto before = Snapshot(src());
  const auto beforeDst = Snapshot(dst());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.job);
    WriteJob(c.job + "DoPreview=1\n");
    const auto lines = Run("--preview-jobs");
    EXPECT_EQ(exit_, 0);
    EXPECT_NE(std::find(lines.begin(), lines.end(), c.line), lines.end())
        << ::testing::PrintToString(lines);
    EXPECT_EQ(Snapshot(src()), before);
    EXPECT_EQ(Snapshot(dst()), beforeDst);
  }
  // A dry run turns a real job into a preview as well.
  WriteJob("Action=2\nDoPreview=0\nSubFolder=1\n");
  const auto lines = Run("--dry-run");
  EXPECT_NE(std::find(lines.begin(), lines.end(), "Würde gelöscht: " + S("a.txt")), lines.end());
  EXPECT_EQ(Snapshot(src()), before);
}

}  // namespace
}  // namespace e2e
