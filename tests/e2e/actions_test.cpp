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
  void WriteJob(const std::string& extra, bool intoSource = false) {
    const std::string keys = "Counter=1\nInterval=1\n" + extra;
    if (!intoSource) return JobFolderTest::WriteJob(keys);
    Put(dir_ / "jobs/a.kjb", "[Job]\nName=a\nFrom=" + src().string() + "\nTo=" + src().string() + "\n" + keys);
  }

  // The lines written to the log file, without the job's start and end lines and the walk's.
  std::vector<std::string> Run(const std::string& option = "") {
    const RunResult r = RunJobs(option.empty() ? std::vector<std::string>{}
                                               : std::vector<std::string>{option},
                                {"", "", {{"XDG_DATA_HOME", (dir_ / "xdg").string()}}});
    exit_ = r.exitCode;
    std::vector<std::string> lines;
    ids_.clear();
    for (const auto& j : LogEvents(r.out)) {
      ids_.insert(j["MsgID"].get<int>());
      if (!j["bFile"].get<bool>()) continue;
      const int id = j["MsgID"];
      if (id == 3 || id == 6 || id == 28 || id == 16 || id == 17) continue;
      lines.push_back(j["LogMsg"]);
    }
    return lines;
  }

  // A run that must change no byte of either folder; it must not fail either.
  std::vector<std::string> Preview(const std::string& option = "--preview-jobs") {
    const auto before = Snapshot(src()), beforeDst = Snapshot(dst());
    auto lines = Run(option);
    EXPECT_EQ(exit_, 0);
    EXPECT_EQ(Snapshot(src()), before);
    EXPECT_EQ(Snapshot(dst()), beforeDst);
    return lines;
  }

  int exit_ = -1;
  std::set<int> ids_;  // of every line of the last run
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

// Whole synchronisations: both folders afterwards, and which steps spoke (93: the pass back,
// 94: removal, 96: the removal's head, 7: nothing found).
TEST_F(Actions, SynchronisationsByTheirOptions) {
  using Tree = std::map<std::string, std::string>;
  struct Case {
    std::string name, keys;
    Tree src, dst, srcAfter, dstAfter;
    std::set<int> spoke, silent;
  };
  const std::string newer = "Exist=4\nEFSelect=0\nExtFileTime=1\n";
  const std::vector<Case> cases = {
      {"both directions, the newer file wins", newer,
       {{"p.txt", "p"}, {"sub/both.txt", "new"}}, {{"s.txt", "s"}, {"sub/both.txt", "old"}},
       {{"p.txt", "p"}, {"s.txt", "s"}, {"sub/both.txt", "new"}},
       {{"p.txt", "p"}, {"s.txt", "s"}, {"sub/both.txt", "new"}}, {93}, {7, 94}},
      {"removal goes by exact bytes of the relative path, before the pass back",
       "SyncDelete=1\n" + newer, {{"a.TXT", "a"}, {"sub/c.txt", "c"}},
       {{"A.txt", "case only"}, {"sub/b.txt", "b"}, {"sub/c.txt", "c"}, {"sub/sub/c.txt", "c"}},
       {{"a.TXT", "a"}, {"sub/c.txt", "c"}}, {{"a.TXT", "a"}, {"sub/c.txt", "c"}}, {94, 96}, {}},
      {"no removal when only comparing", "SyncDelete=1\nOnlyCompare=1\n" + newer,
       {{"a.txt", "a"}}, {{"b.txt", "b"}}, {{"a.txt", "a"}}, {{"b.txt", "b"}}, {}, {94}},
      {"no removal when the primary is empty; the pass back still runs", "SyncDelete=1\n", {},
       {{"b.txt", "b"}}, {{"b.txt", "b"}}, {{"b.txt", "b"}}, {7}, {94}},
      {"an empty second walk ends with nothing found", "OnlyCompare=1\n" + newer,
       {{"a.txt", "a"}}, {}, {{"a.txt", "a"}}, {}, {7}, {93}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EmptyFolders();
    for (const auto& [rel, data] : c.src) Put(src() / rel, data, data == "new" ? kNew : kOld);
    for (const auto& [rel, data] : c.dst) Put(dst() / rel, data, data == "new" ? kNew : kOld);
    WriteJob("Action=5\nDoPreview=0\nSubFolder=1\nFStruct=1\n" + c.keys);
    const auto lines = Run();
    EXPECT_EQ(exit_, 0);
    EXPECT_EQ(Files(src()), c.srcAfter);
    EXPECT_EQ(Files(dst()), c.dstAfter);
    for (int id : c.spoke) EXPECT_TRUE(ids_.count(id)) << id << ::testing::PrintToString(lines);
    for (int id : c.silent) EXPECT_FALSE(ids_.count(id)) << id << ::testing::PrintToString(lines);
  }
  // Starting with the destination: its files come first, then the pass back.
  fs::remove_all(dst());
  Put(src() / "a.txt", "from");
  Put(dst() / "a.txt", "to");
  Put(dst() / "b.txt", "b");
  WriteJob("Action=5\nDoPreview=0\nSyncStart=1\nExist=0\n");
  const auto lines = Run();
  EXPECT_EQ(Get(src() / "b.txt"), "b");
  const auto kept = std::find(lines.begin(), lines.end(),
                              "Keine Aktion (Datei vorhanden): " + D("a.txt") + " nach " + S("a.txt"));
  EXPECT_LT(kept, std::find(lines.begin(), lines.end(),
                            "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... "));
}

// A preview tells what the real run would do, line for line, and changes no byte: every policy
// for an existing destination, with and without one, for copy and move.
TEST_F(Actions, PreviewOfEachPolicy) {
  struct Case {
    std::string keys;
    bool destExists, toSource;
    std::vector<std::string> lines;  // after the head and the count; $A, $O, $N, $S stand for paths
  };
  const std::string copy = "Action=0\n", move = "Action=1\n", same = "a: Fehler: source and "
      "destination are the same file -  Move files $S";
  const std::vector<Case> cases = {
      {copy + "Exist=0\n", true, false, {"Datei existiert: $A"}},
      {copy + "Exist=0\n", false, false, {"Würde kopiert: $A"}},
      {move + "Exist=0\n", false, false, {"Würde verschoben: $A"}},
      {copy + "Exist=1\n", true, false, {"Würde gelöscht: $S"}},
      {copy + "Exist=2\n", true, false, {"Kopierte Datei würde umbenannt: $S nach $N"}},
      {move + "Exist=2\n", true, false, {"Verschobene Datei würde umbenannt: $S nach $N"}},
      {move + "Exist=2\n", false, false, {"Würde verschoben: $A"}},
      {copy + "Exist=3\n", true, false, {"Würde von Kopie überschrieben: $O"}},
      {move + "Exist=3\n", true, false, {"Würde ersetzt: $O"}},
      {copy + "Exist=4\n", true, false, {"Würde von neu kopierter Datei überschrieben: $O"}},
      {move + "Exist=4\n", true, false, {"Würde von neu verschobener Datei überschrieben: $O"}},
      {copy + "Exist=4\nEFSelect=1\n", true, false, {"Quelldatei nicht älter: $A"}},
      {copy + "Exist=4\nEFSelect=5\n", true, false, {"Quelldatei nicht kleiner: $A"}},
      {move + "Exist=4\nEFSelect=7\n", true, false, {"Quelldatei nicht kleiner und älter: $A"}},
      {copy + "Exist=4\nEFSelect=8\n", true, false, {"Datei existiert: $A"}},
      {copy + "Exist=4\nEFSDelete=1\n", true, false,
       {"Würde von neu kopierter Datei überschrieben: $O", "Würde gelöscht: $S"}},
      {move + "Exist=4\nEFSDelete=1\n", true, false,
       {"Würde von neu verschobener Datei überschrieben: $O"}},
      {move + "Exist=4\nEFSelect=1\nEFSDelete=1\n", true, false,
       {"Quelldatei nicht älter: $A", "Würde gelöscht: $S"}},
      {copy + "Exist=5\n", true, false, {}},
      // Only comparing: nothing for a new file, except when renaming.
      {copy + "OnlyCompare=1\nExist=0\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=1\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=3\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=4\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=2\n", false, false, {"Würde kopiert: $A"}},
      // Failures the real run would have are shown without failing the preview; comparing a
      // file with itself refuses and deletes nothing, which is no failure.
      {copy + "Exist=1\n", false, true, {same}},
      {copy + "Exist=3\n", false, true, {same}},
      {copy + "Exist=4\n", false, true, {"Quelldatei nicht neuer: $S nach $S"}},
      {copy + "Exist=4\nEFSDelete=1\n", false, true, {same}},
  };
  Put(src() / "a.txt", "bigger", kNew);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.keys + (c.toSource ? "into the source folder" : ""));
    fs::remove(dst() / "a.txt");
    if (c.destExists) Put(dst() / "a.txt", "old", kOld);
    WriteJob(c.keys + "PickRenamer=1\nExtFileTime=1\nDoPreview=1\n", c.toSource);
    const auto lines = Preview();
    const bool moves = c.keys.starts_with(move);
    const std::string to = c.toSource ? S("a.txt") : D("a.txt");
    std::vector<std::string> expected{
        std::string("Vorschau - Dateien ") + (moves ? "verschieben" : "kopieren") +
            " (keine Aktionen): " + src().string(),
        std::string("Datei gefunden: 1") +
            (c.keys.find("OnlyCompare") != std::string::npos
                 ? " (Vergleiche nur existierende Dateien)" : "")};
    for (std::string line : c.lines) {
      for (const auto& [token, path] : {std::pair{"$A", S("a.txt") + " nach " + to},
                                        {"$O", S("a.txt") + " überschreibt " + to},
                                        {"$N", D("a_1.txt")}, {"$S", S("a.txt")}}) {
        for (auto at = line.find(token); at != std::string::npos; at = line.find(token)) {
          line.replace(at, 2, path);
        }
      }
      expected.push_back(line);
    }
    EXPECT_EQ(lines, expected);
  }
}

// Folders that a deletion would empty are named after the files, and only those; nothing is
// created or removed, also for a whole synchronisation, and a dry run previews a real job.
TEST_F(Actions, PreviewsOfTreesChangeNoByte) {
  Put(src() / "both.txt", "p", kNew);
  Put(src() / "only-primary.txt", "p");
  Put(src() / "x/y/a.txt", "a");
  Put(src() / "x/y/b.txt", "b");
  Put(src() / "z/keep.log", "kept by the filter");
  Put(src() / "z/c.txt", "c");
  Put(dst() / "both.txt", "s", kOld);
  Put(dst() / "removed.txt", "s");
  const auto has = [](const std::vector<std::string>& lines, const std::string& line) {
    return std::count(lines.begin(), lines.end(), line);
  };
  const auto after = [](const std::vector<std::string>& lines, const std::string& first,
                        const std::string& second) {
    return std::find(lines.begin(), lines.end(), first) < std::find(lines.begin(), lines.end(), second);
  };
  // Copy with source deletion: x/y and x would be emptied.
  WriteJob("Action=0\nExist=1\nDelEFolSource=1\nSubFolder=1\nDoPreview=1\nExtOpt=1\nExt=log\n");
  Put(dst() / "a.txt", "a");
  Put(dst() / "b.txt", "b");
  auto lines = Preview();
  for (const char* gone : {"x/y/a.txt", "x/y/b.txt", "x/y", "x"}) {
    EXPECT_EQ(has(lines, "Würde gelöscht: " + S(gone)), 1) << gone << ::testing::PrintToString(lines);
  }
  EXPECT_TRUE(after(lines, "Würde gelöscht: " + S("x/y/b.txt"), "Würde gelöscht: " + S("x/y")));
  EXPECT_TRUE(after(lines, "Würde gelöscht: " + S("x/y/a.txt"), "Würde gelöscht: " + S("x/y")));
  EXPECT_TRUE(after(lines, "Würde gelöscht: " + S("x/y"), "Würde gelöscht: " + S("x")));
  EXPECT_EQ(has(lines, "Würde gelöscht: " + S("z")), 0);
  fs::remove(dst() / "a.txt");
  fs::remove(dst() / "b.txt");
  // Deletion: a folder left with a file the filter keeps is not named.
  WriteJob("Action=2\nSubFolder=1\nDelEFol=1\nDoPreview=1\nExtOpt=1\nExt=log\n");
  lines = Preview();
  EXPECT_EQ(has(lines, "Würde gelöscht: " + S("z/c.txt")), 1) << ::testing::PrintToString(lines);
  EXPECT_EQ(has(lines, "Würde gelöscht: " + S("z")), 0);
  EXPECT_TRUE(after(lines, "Würde gelöscht: " + S("x/y/a.txt"), "Würde gelöscht: " + S("x")));
  // Synchronisation: each file once over both passes and the removal, so the pass back has
  // nothing left to report.
  WriteJob("Action=5\nExist=4\nExtFileTime=1\nSyncDelete=1\nDoPreview=1\n");
  lines = Preview();
  const std::string t92 = "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Vorschau - Dateien kopieren (keine Aktionen): " + src().string(),
                       "Dateien gefunden: 2",
                       lines.size() > 2 ? lines[2] : "", lines.size() > 3 ? lines[3] : "", t92, t92,
                       "Vorschau - Dateien löschen (keine Aktionen): " + dst().string(),
                       "Datei gefunden: 1",
                       "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden) " + D("removed.txt"),
                       "Vorschau - Dateien kopieren (keine Aktionen): " + dst().string(),
                       "Synchronisation abgeschlossen! "}));
  EXPECT_EQ(std::set<std::string>(lines.begin() + 2, lines.begin() + 4),
            (std::set<std::string>{"Würde von neu kopierter Datei überschrieben: " + S("both.txt") +
                                       " überschreibt " + D("both.txt"),
                                   "Würde kopiert: " + S("only-primary.txt") + " nach " +
                                       D("only-primary.txt")}));
  // A dry run turns a real job into a preview as well.
  WriteJob("Action=2\nDoPreview=0\nSubFolder=1\n");
  lines = Preview("--dry-run");
  EXPECT_EQ(has(lines, "Würde gelöscht: " + S("both.txt")), 1);
}

}  // namespace
}  // namespace e2e
