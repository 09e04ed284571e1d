// Copy, move, delete and synchronisation jobs through `kestrel run`: the exact per-file lines,
// the trees afterwards, and previews that leave every byte where it was.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

constexpr std::time_t kOld = 1'600'000'000, kNew = 1'700'000'000;
const std::string kT92 = "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ... ";

class Actions : public JobFolderTest {
 protected:
  // The lines for the log file, without the job's start and end and the walk's.
  Lines Run(const std::vector<std::string>& options = {}) {
    const RunResult r = RunJobs(options);
    exit_ = r.exitCode;
    ids_.clear();
    Lines lines;
    for (const auto& j : LogEvents(r.out)) {
      const int id = j["MsgID"];
      ids_.insert(id);
      if (j["bFile"] && id != 3 && id != 6 && id != 28 && id != 16 && id != 17) lines.push_back(j["LogMsg"]);
    }
    return lines;
  }
  // A run that must change no byte of either folder, nor fail.
  Lines Preview() {
    const auto before = Listing(src(), true), beforeDst = Listing(dst(), true);
    auto lines = Run({"--preview-jobs"});
    EXPECT_EQ(exit_, 0);
    EXPECT_EQ(Listing(src(), true), before);
    EXPECT_EQ(Listing(dst(), true), beforeDst);
    return lines;
  }
  int exit_ = -1;
  std::set<int> ids_;  // of every line of the last run
};

// Copy, move, delete and synchronisation jobs: both trees afterwards, and the exact per-file
// lines or, for a synchronisation, which steps spoke (93: the pass back, 94: removal, 7: nothing
// found). A file whose contents begin with "old" is the older one. (Renaming past taken names,
// removal by the exact bytes of a relative path and a delete job's emptied folders: the unit tests.)
TEST_F(Actions, JobsByTheirOptions) {
  const std::string sync = "Action=5\nSubFolder=1\nFStruct=1\n", newer = sync + "Exist=4\nEFSelect=0\nExtFileTime=1\n",
                    there = "Keine Aktion (Datei vorhanden): ";
  const struct {
    std::string keys;
    Tree src, dst;
    Lines lines;  // empty: not compared
    Tree srcAfter, dstAfter;
    std::set<int> spoke = {}, silent = {};
  } cases[] = {
      {"Action=0\nExist=3\nSubFolder=1\nFStruct=1\n", {{"a.txt", "new a"}, {"sub/b.txt", "b"}}, {{"a.txt", "old a"}},
       {"Dateien gefunden: 2", "Von kopierter Datei überschrieben: " + S("a.txt") + " nach " + D("a.txt"),
        "Kopiert: " + S("sub/b.txt") + " nach " + D("sub/b.txt")},
       {{"a.txt", "new a"}, {"sub/", ""}, {"sub/b.txt", "b"}}, {{"a.txt", "new a"}, {"sub/", ""}, {"sub/b.txt", "b"}}},
      {"Action=1\nExist=0\nSubFolder=1\nFStruct=1\n", {{"a.txt", "a"}, {"sub/b.txt", "b"}}, {{"a.txt", "old"}},
       {"Dateien gefunden: 2", there + S("a.txt") + " nach " + D("a.txt"),
        "Verschoben: " + S("sub/b.txt") + " nach " + D("sub/b.txt")},
       {{"a.txt", "a"}, {"sub/", ""}}, {{"a.txt", "old"}, {"sub/", ""}, {"sub/b.txt", "b"}}},
      {"Action=2\nDelType=1\n", {{"a.txt", "a"}}, {},
       {"Datei gefunden: 1", "Quelle gelöscht (Datei existiert): " + S("a.txt")}, {}, {}},
      // Both directions, the newer file wins.
      {newer, {{"p.txt", "p"}, {"sub/both.txt", "new"}}, {{"s.txt", "s"}, {"sub/both.txt", "old"}}, {},
       {{"p.txt", "p"}, {"s.txt", "s"}, {"sub/", ""}, {"sub/both.txt", "new"}},
       {{"p.txt", "p"}, {"s.txt", "s"}, {"sub/", ""}, {"sub/both.txt", "new"}}, {93}, {7, 94}},
      // No removal when only comparing, nor when the primary is empty (the pass back still runs);
      // an empty second walk ends with nothing found.
      {"SyncDelete=1\nOnlyCompare=1\n" + newer, {{"a.txt", "a"}}, {{"b.txt", "b"}}, {}, {{"a.txt", "a"}},
       {{"b.txt", "b"}}, {}, {94}},
      {"SyncDelete=1\n" + sync, {}, {{"b.txt", "b"}}, {}, {{"b.txt", "b"}}, {{"b.txt", "b"}}, {7}, {94}},
      {"OnlyCompare=1\n" + newer, {{"a.txt", "a"}}, {}, {}, {{"a.txt", "a"}}, {}, {7}, {93}},
      // Starting with the destination: its files come first, then the pass back.
      {"SyncStart=1\nExist=0\n" + sync, {{"a.txt", "from"}}, {{"a.txt", "to"}},
       {"Datei gefunden: 1", there + D("a.txt") + " nach " + S("a.txt"), kT92, kT92, "Datei gefunden: 1",
        there + S("a.txt") + " nach " + D("a.txt"), "Synchronisation abgeschlossen! "},
       {{"a.txt", "from"}}, {{"a.txt", "to"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys);
    EmptyFolders();
    for (const auto& [root, tree] : {std::pair{src(), &c.src}, {dst(), &c.dst}}) {
      for (const auto& [rel, data] : *tree) Put(root / rel, data, data.starts_with("old") ? kOld : kNew);
    }
    WriteJob(kDue + c.keys);
    const Lines lines = Run();
    EXPECT_EQ(exit_, 0);
    EXPECT_TRUE(c.lines.empty() || lines == c.lines) << ::testing::PrintToString(lines);
    EXPECT_EQ(Listing(src()), c.srcAfter);
    EXPECT_EQ(Listing(dst()), c.dstAfter);
    for (int id : c.spoke) EXPECT_TRUE(ids_.count(id)) << id << ::testing::PrintToString(lines);
    for (int id : c.silent) EXPECT_FALSE(ids_.count(id)) << id << ::testing::PrintToString(lines);
  }
  // The recycle bin of XDG_DATA_HOME holds the deleted file and where it was. (That a copy keeps
  // the write time: the unit tests of the copy.)
  EXPECT_EQ(Get(dir_ / "xdg/Trash/files/a.txt"), "a");
  EXPECT_NE(Get(dir_ / "xdg/Trash/info/a.txt.trashinfo").find("Path=" + S("a.txt")), std::string::npos);
}

// A preview tells what the real run would do, line for line, and changes no byte: every policy
// for an existing destination, with and without one, for copy and move.
TEST_F(Actions, PreviewOfEachPolicy) {
  // a: the source; A, O, N: it and where it goes, where it would overwrite and the free name.
  const std::string copy = "Action=0\n", move = "Action=1\n", a = S("a.txt"), A = a + " nach " + D("a.txt"),
                    O = a + " überschreibt " + D("a.txt"), N = a + " nach " + D("a_1.txt"),
                    same = "a: Fehler: source and destination are the same file -  Move files " + a;
  const struct {
    std::string keys;
    bool destExists, toSource;
    Lines lines;  // after the head and the count
  } cases[] = {
      {copy + "Exist=0\n", true, false, {"Datei existiert: " + A}},
      {copy + "Exist=0\n", false, false, {"Würde kopiert: " + A}},
      {move + "Exist=0\n", false, false, {"Würde verschoben: " + A}},
      {copy + "Exist=1\n", true, false, {"Würde gelöscht: " + a}},
      {copy + "Exist=2\n", true, false, {"Kopierte Datei würde umbenannt: " + N}},
      {move + "Exist=2\n", true, false, {"Verschobene Datei würde umbenannt: " + N}},
      {move + "Exist=2\n", false, false, {"Würde verschoben: " + A}},
      {copy + "Exist=3\n", true, false, {"Würde von Kopie überschrieben: " + O}},
      {move + "Exist=3\n", true, false, {"Würde ersetzt: " + O}},
      {copy + "Exist=4\n", true, false, {"Würde von neu kopierter Datei überschrieben: " + O}},
      {move + "Exist=4\n", true, false, {"Würde von neu verschobener Datei überschrieben: " + O}},
      {copy + "Exist=4\nEFSelect=1\n", true, false, {"Quelldatei nicht älter: " + A}},
      {copy + "Exist=4\nEFSelect=5\n", true, false, {"Quelldatei nicht kleiner: " + A}},
      {move + "Exist=4\nEFSelect=7\n", true, false, {"Quelldatei nicht kleiner und älter: " + A}},
      {copy + "Exist=4\nEFSelect=8\n", true, false, {"Datei existiert: " + A}},
      {copy + "Exist=4\nEFSDelete=1\n", true, false,
       {"Würde von neu kopierter Datei überschrieben: " + O, "Würde gelöscht: " + a}},
      {move + "Exist=4\nEFSDelete=1\n", true, false, {"Würde von neu verschobener Datei überschrieben: " + O}},
      {move + "Exist=4\nEFSelect=1\nEFSDelete=1\n", true, false,
       {"Quelldatei nicht älter: " + A, "Würde gelöscht: " + a}},
      {copy + "Exist=5\n", true, false, {}},
      // Only comparing: nothing for a new file, except when renaming.
      {copy + "OnlyCompare=1\nExist=0\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=1\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=3\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=4\n", false, false, {}},
      {copy + "OnlyCompare=1\nExist=2\n", false, false, {"Würde kopiert: " + A}},
      // Failures the real run would have are shown without failing the preview; comparing a
      // file with itself refuses and deletes nothing, which is no failure.
      {copy + "Exist=1\n", false, true, {same}},
      {copy + "Exist=3\n", false, true, {same}},
      {copy + "Exist=4\n", false, true, {"Quelldatei nicht neuer: " + a + " nach " + a}},
      {copy + "Exist=4\nEFSDelete=1\n", false, true, {same}},
  };
  Put(src() / "a.txt", "bigger", kNew);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys + (c.toSource ? "into the source folder" : ""));
    fs::remove(dst() / "a.txt");
    if (c.destExists) Put(dst() / "a.txt", "old", kOld);
    WriteJob(c.keys + "Counter=1\nInterval=1\nPickRenamer=1\nExtFileTime=1\nDoPreview=1\n", "a", src(),
             c.toSource ? src() : dst());
    Lines expected{std::string("Vorschau - Dateien ") + (c.keys.starts_with(move) ? "verschieben" : "kopieren") +
                       " (keine Aktionen): " + src().string(),
                   std::string("Datei gefunden: 1") +
                       (c.keys.find("OnlyCompare") != std::string::npos ? " (Vergleiche nur existierende Dateien)"
                                                                        : "")};
    expected.insert(expected.end(), c.lines.begin(), c.lines.end());
    EXPECT_EQ(Preview(), expected);
  }
}

// Folders that a deletion would empty are named after the files, and only those; nothing is
// created or removed, also for a whole synchronisation, which then runs for real.
TEST_F(Actions, PreviewsOfTreesChangeNoByte) {
  for (const char* f : {"only-primary.txt", "x/y/a.txt", "x/y/b.txt", "z/c.txt"}) Put(src() / f, "p");
  Put(src() / "both.txt", "p", kNew);
  Put(src() / "z/keep.log", "kept by the filter");
  Put(dst() / "both.txt", "s", kOld);
  Put(dst() / "removed.txt", "s");
  const auto gone = [&](const std::string& rel) { return "Würde gelöscht: " + S(rel); };
  const auto before = [](const Lines& lines, const std::string& first, const std::string& second) {
    return std::find(lines.begin(), lines.end(), first) < std::find(lines.begin(), lines.end(), second);
  };
  // Copy with source deletion: x/y and x would be emptied, z keeps a file the filter keeps.
  WriteJob("Counter=1\nInterval=1\nAction=0\nExist=1\nDelEFolSource=1\nSubFolder=1\nDoPreview=1\nExtOpt=1\nExt=log\n");
  Plant(dst(), {{"a.txt", "a"}, {"b.txt", "b"}});
  auto lines = Preview();
  for (const char* rel : {"x/y/a.txt", "x/y/b.txt", "x/y", "x"}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), gone(rel)), 1) << rel;
  }
  EXPECT_TRUE(before(lines, gone("x/y/a.txt"), gone("x/y")) && before(lines, gone("x/y/b.txt"), gone("x/y")));
  EXPECT_TRUE(before(lines, gone("x/y"), gone("x")));
  EXPECT_FALSE(Has(lines, gone("z"))) << ::testing::PrintToString(lines);
  for (const char* f : {"a.txt", "b.txt"}) fs::remove(dst() / f);
  WriteJob("Counter=1\nInterval=1\nAction=2\nSubFolder=1\nDelEFol=1\nDoPreview=1\nExtOpt=1\nExt=log\n");
  lines = Preview();
  EXPECT_TRUE(Has(lines, gone("z/c.txt")) && !Has(lines, gone("z"))) << ::testing::PrintToString(lines);
  EXPECT_TRUE(before(lines, gone("x/y/a.txt"), gone("x")));
  // Synchronisation: each file once over both passes and the removal, so the pass back of the
  // preview has nothing left to report. Then the real run: pass 1 in the walk's order, the
  // removal, pass 2 in its walk's order, and both folders equal.
  const std::string sync = "Counter=1\nInterval=1\nAction=5\nExist=4\nExtFileTime=1\nSyncDelete=1\nDoPreview=";
  WriteJob(sync + "1\n");
  lines = Preview();
  Lines expected{"Vorschau - Dateien kopieren (keine Aktionen): " + src().string(), "Dateien gefunden: 2",
                 "Würde kopiert: " + S("only-primary.txt") + " nach " + D("only-primary.txt"),
                 "Würde von neu kopierter Datei überschrieben: " + S("both.txt") + " überschreibt " + D("both.txt"),
                 kT92, kT92, "Vorschau - Dateien löschen (keine Aktionen): " + dst().string(), "Datei gefunden: 1",
                 "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden) " + D("removed.txt"),
                 "Vorschau - Dateien kopieren (keine Aktionen): " + dst().string(), "Synchronisation abgeschlossen! "};
  // Lines of one step in the walk's order, which the file system decides, are compared as sets.
  const auto expect = [](Lines got, Lines want, const std::vector<std::pair<int, int>>& unordered) {
    ASSERT_EQ(got.size(), want.size()) << ::testing::PrintToString(got);
    for (const auto& [from, to] : unordered) {
      for (Lines* l : {&got, &want}) std::sort(l->begin() + from, l->begin() + to);
    }
    EXPECT_EQ(got, want);
  };
  expect(lines, expected, {{2, 4}});
  WriteJob(sync + "0\n");
  const std::string kept = "Keine Aktion (Neuere Datei existiert): ";
  expected = {"Dateien gefunden: 2", "Kopiert: " + S("only-primary.txt") + " nach " + D("only-primary.txt"),
              "Von kopierter Datei überschrieben: " + S("both.txt") + " nach " + D("both.txt"), kT92, kT92,
              "Datei gefunden: 1", "Datei gelöscht (Im primären Verzeichnis nicht vorhanden) " + D("removed.txt"),
              "Dateien gefunden: 2", kept + D("both.txt") + " nach " + S("both.txt"),
              kept + D("only-primary.txt") + " nach " + S("only-primary.txt"), "Synchronisation abgeschlossen! "};
  lines = Run();
  EXPECT_EQ(exit_, 0);
  expect(lines, expected, {{1, 3}, {8, 10}});
  EXPECT_EQ(Files(dst()), (Tree{{"both.txt", "p"}, {"only-primary.txt", "p"}}));
}

// File selection seen through `kestrel run`: the walk's progress lines, the check line before
// the filters, and the report of a selection that ends empty.
class Selection : public JobFolderTest {
 protected:
  Selection() {
    for (const char* f : {"a.txt", "b.log", "sub/c.txt", "sub/deeper/d.txt", ".hid/e.txt", "skip/f.txt"}) {
      Put(src() / f, "x");
    }
  }
};

TEST_F(Selection, WalkLinesComeBeforeTheCheckLine) {
  WriteJob(kDue + std::string("Action=6\nSubFolder=1\nNoHidenFolderScan=1\n"));
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 0);
  const auto events = LogEvents(r.out);
  std::vector<int> ids;
  for (const auto& e : events) ids.push_back(e["MsgID"]);
  // start, search, four sub-folders (the hidden one is logged, then skipped), check, done
  ASSERT_EQ(ids, (std::vector<int>{3, 16, 16, 16, 16, 16, 17, 6}));
  EXPECT_EQ(events[1]["LogMsg"], "Suche Dateien ...");
  EXPECT_TRUE(events[1]["bFile"] && !events[1]["bSameView"]);
  // One status line per folder (in the walk's order, which the unit tests of the search check).
  std::set<std::string> folders;
  for (std::size_t i = 2; i < 6; ++i) {
    EXPECT_TRUE(!events[i]["bFile"] && events[i]["bSameView"]);
    folders.insert(events[i]["LogMsg"].get<std::string>().substr(("Suche Dateien ... " + S("")).size()));
  }
  EXPECT_EQ(folders, (std::set<std::string>{".hid", "skip", "sub", "sub/deeper"}));
  EXPECT_EQ(events[6]["LogMsg"], "a: Überprüfe Dateien ...");
}

// Which steps speak (16: search, 17: check, 18: the action's head, 7: no files, 6: done) and
// what is copied. --regex hands a folder expression over as it is: "^sub", tested against the
// whole path, then names no folder and excludes nothing; without it "^" stands for the start of
// a folder's name.
TEST_F(Selection, OnlyTheSelectedFilesReachTheAction) {
  const std::string check = "a: Überprüfe Dateien ...", none = "a: Keine Dateien gefunden",
                    regex = "Action=0\nSubFolder=1\nFStruct=1\nDoFolderMatch=1\nUseFolderRegEx=1\nFolderMatch=^sub\n";
  const Tree outsideSub{{"a.txt", "x"}, {"b.log", "x"}, {".hid/e.txt", "x"}, {"skip/f.txt", "x"}};
  Tree all = outsideSub;
  all.insert({{"sub/c.txt", "x"}, {"sub/deeper/d.txt", "x"}});
  const struct {
    std::string keys;
    std::map<int, Lines> texts;
    Tree dst;
    Lines options = {};
  } cases[] = {
      {"Action=6\nSubFolder=0\n", {{16, {"Suche Dateien ..."}}, {17, {check}}}, {}},
      {"Action=0\nSubFolder=1\nExtOpt=2\nExt=doc, *.pdf\n", {{17, {check}}, {18, {}}, {7, {none}}, {6, {}}}, {}},
      {"Action=0\nSubFolder=1\nDoFileMatch=2\nFileName=zz*\n", {{17, {}}, {7, {none}}}, {}},
      {"Action=0\nSubFolder=1\nFStruct=1\nNoHidenFolderScan=1\nDoFolderMatch=1\nFolderMatch=skip\nExtOpt=2\nExt=TXT\n",
       {{18, {"a: Kopiere Dateien ..."}}}, {{"a.txt", "x"}, {"sub/c.txt", "x"}, {"sub/deeper/d.txt", "x"}}},
      {regex, {}, outsideSub},
      {regex, {}, all, {"--regex"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys + ::testing::PrintToString(c.options));
    fs::remove_all(dst());
    fs::create_directories(dst());
    WriteJob(kDue + c.keys);
    const RunResult r = RunJobs(c.options);
    EXPECT_EQ(r.exitCode, 0);
    std::map<int, Lines> texts;
    for (const auto& e : LogEvents(r.out)) texts[e["MsgID"]].push_back(e["LogMsg"]);
    for (const auto& [id, lines] : c.texts) EXPECT_EQ(texts[id], lines) << id;
    EXPECT_EQ(Files(dst()), c.dst);
  }
}

}  // namespace
}  // namespace e2e
