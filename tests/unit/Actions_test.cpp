// Copy, move and delete of a file list, one row per case: the job's switches, the trees before,
// an armed fault, and the lines and trees afterwards.
#include "actions/SettledPairs.h"
#include "actions/modCheckExistingFiles.h"
#include "platform/DateText.h"
#include "platform/Paths.h"
#include "selection/Sync.h"

#include "Rig.h"

namespace orvKestrel::testing {
namespace {

using Act = void (*)(JobRun&, Services&, FileList&);  // CopyFiles, MoveFiles, DeleteFiles, DeleteSyncFiles
// A file: "s/..." below the source, "d/..." below the destination; "BIG": larger than one copy
// step; its write time (0: now). A fault: op's n-th call fails with err.
struct F { const char* path; const char* data; std::time_t t = 0; };
struct Fault { FaultOp op = FaultOp::Count; int n = 0, err = 0; };
struct Row {
  const char* name;
  Act act;
  std::function<void(job&)> set;
  std::vector<F> files;
  std::vector<std::string> lines;  // after the count line; {s} and {d} stand for the folders
  std::string after;               // the trees: "path=data" per file, "path/" per empty folder
  std::vector<std::string> list = {};  // handed over; empty: every "s/" file in order
  Fault fault = {};
};

constexpr std::time_t kMid = (kOld + kNew) / 2;
const auto kNone = [](job&) {};

class Actions : public Rig {
 protected:
  std::string Full(const std::string& p) const { return p.empty() ? p : (p[0] == 's' ? src : dst) + p.substr(1); }
  void Check(const Row& r) {
    SCOPED_TRACE(r.name);
    for (const std::string& root : {src, dst}) EmptyFolder(root);
    Fresh();
    Next();
    driver.BeginCall();
    r.set(j);
    FileList list;
    for (const F& f : r.files) {
      Put(Full(f.path), f.data == std::string("BIG") ? kBig : f.data, f.t);
      if (r.list.empty() && f.path[0] == 's') list.push_back(Full(f.path));
    }
    for (const auto& p : r.list) list.push_back(Full(p));
    faults.Arm(r.fault.op, r.fault.n, r.fault.err);
    r.act(run, svc, list);
    faults.Disarm();
    EXPECT_TRUE(list.empty());
    ExpectLines(r.lines, FileLines());
    EXPECT_EQ(Tree(), r.after);
    const auto isError = [](const std::string& t) { return t.find("Fehler: ") != std::string::npos; };
    EXPECT_EQ(run.jobError, std::ranges::any_of(Lines(), isError));
  }
};

const std::string kNewer = "Keine Aktion (Neuere Datei existiert): {s}a.txt nach {d}a.txt";
const std::string kSrcDeleted = "Quelle gelöscht (Datei existiert): {s}a.txt";
const auto Exist = [](std::int16_t e, std::int16_t sel = 0, CheckState del = 0) {
  return [=](job& j) {
    j.Exist = e, j.EFSelect = sel, j.ExtFileTime = 1, j.EFSDelete = del;
  };
};

// Copies and moves by the policy for an existing destination, their failures, and deletions.
// (A new file, policy 0 and policy 4 either way: e2e actions_test, JobsByTheirOptions and the
// synchronisations. A move that meets another file system: FileOpsTest's copy and move across.
// A stop between two files: e2e parallel_test, AStoppedRunNamesOnlyWhatItReportedAndLeavesNothing.)
TEST_F(Actions, CopyMoveAndDeleteByTheJobsSwitches) {
  const Row rows[] = {
      {"1 deletes the source, reported twice", CopyFiles, Exist(1),
       {{"s/a.txt", "new"}, {"d/a.txt", "old"}, {"s/b.txt", "b"}},
       {kSrcDeleted, kSrcDeleted, "Kopiert: {s}b.txt nach {d}b.txt"}, "d/a.txt=old d/b.txt=b s/b.txt=b"},
      {"4 older, selector 1", CopyFiles, Exist(4, 1), {{"s/a.txt", "new", kOld}, {"d/a.txt", "old", kMid}},
       {"Von kopierter Datei überschrieben: {s}a.txt nach {d}a.txt"}, "d/a.txt=new s/a.txt=new"},
      {"4, selector 8 never", CopyFiles, Exist(4, 8), {{"s/a.txt", "new", kNew}, {"d/a.txt", "old", kMid}},
       {kNewer}, "d/a.txt=old s/a.txt=new"},
      {"EFSDelete whatever the comparison said", CopyFiles, Exist(4, 0, 1),
       {{"s/a.txt", "older", kOld}, {"d/a.txt", "newer", kNew}, {"s/b.txt", "newer", kNew},
        {"d/b.txt", "older", kOld}},
       {kNewer, "Von kopierter Datei überschrieben: {s}b.txt nach {d}b.txt"}, "d/a.txt=newer d/b.txt=newer s/"},
      {"unknown policy skips silently", CopyFiles, Exist(5), {{"s/a.txt", "a"}}, {}, "d/ s/a.txt=a"},
      {"2 twice in one list counts on", CopyFiles,
       [](job& j) { j.Exist = 2, j.PickRenamer = 1, j.RenameType = 1, j.RenameTxt = "Kopie"; },
       {{"s/a.txt", "a"}, {"d/a.txt", "taken"}},
       {"Kopiert: {s}a.txt nach {d}Kopie1.txt", "Kopiert: {s}a.txt nach {d}Kopie2.txt"},
       "d/Kopie1.txt=a d/Kopie2.txt=a d/a.txt=taken s/a.txt=a", {"s/a.txt", "s/a.txt"}},
      {"refused comparison with EFSDelete deletes the source", MoveFiles, Exist(4, 0, 1),
       {{"s/a.txt", "older", kOld}, {"d/a.txt", "newer", kNew}, {"s/b.txt", "newer", kNew},
        {"d/b.txt", "older", kOld}},
       {kNewer, "Von verschobener Datei überschrieben: {s}b.txt nach {d}b.txt"}, "d/a.txt=newer d/b.txt=newer s/"},
      {"failed after the replacement's deletion: only the old destination is lost", MoveFiles, Exist(3),
       {{"s/a.txt", "new"}, {"d/a.txt", "old"}, {"s/b.txt", "b"}},
       {"job: Fehler: Permission denied - Func MoveFiles {s}a.txt", "Verschoben: {s}b.txt nach {d}b.txt"},
       "d/b.txt=b s/a.txt=new", {}, {FaultOp::Rename, 1, EACCES}},
      {"across file systems, vanished", MoveFiles, kNone, {{"s/hidden", "BIG"}},
       {"job: Fehler: No such file or directory - Func MoveFiles {s}a.txt"}, "d/ s/hidden=BIG", {"s/a.txt"},
       {FaultOp::Rename, 1, EXDEV}},
      {"3 with the structure removes the emptied folder", MoveFiles,
       [](job& j) { j.FStruct = 1, j.Exist = 3; }, {{"s/sub/a.txt", "new"}, {"d/sub/a.txt", "old"}},
       {"Von verschobener Datei überschrieben: {s}sub/a.txt nach {d}sub/a.txt"}, "d/sub/a.txt=new s/"},
      {"3 flat keeps it", MoveFiles, Exist(3), {{"s/sub/a.txt", "new"}, {"d/a.txt", "old"}},
       {"Von verschobener Datei überschrieben: {s}sub/a.txt nach {d}a.txt"}, "d/a.txt=new s/sub/"},
      // A file that fails gets its error line and leaves no partial file nor a temporary; the list
      // goes on, a failed replacement keeps the old destination (it was once deleted first), and a
      // source is never deleted after a failed replacement. (A destination that is
      // the source itself: the e2e safety rows, by hard link, linked folder and bind mount. A
      // source that cannot be read: e2e hostile_test, AnUnreadableFolderGivesNoFiles...)
      {"no space after the first step", CopyFiles, kNone, {{"s/a.txt", "BIG"}, {"s/b.txt", "b"}},
       {"job: Fehler: No space left on device -  Move files {s}a.txt", "Kopiert: {s}b.txt nach {d}b.txt"},
       "d/b.txt=b s/a.txt=BIG s/b.txt=b", {}, {FaultOp::Write, 2, ENOSPC}},
      {"vanished", CopyFiles, kNone, {{"s/b.txt", "b"}},
       {"job: Fehler: No such file or directory -  Move files {s}gone.txt", "Kopiert: {s}b.txt nach {d}b.txt"},
       "d/b.txt=b s/b.txt=b", {"s/gone.txt", "s/b.txt"}},
      {"3: a failed replacement keeps the old destination", CopyFiles, Exist(3),
       {{"s/a.txt", "BIG", kNew}, {"d/a.txt", "old", kOld}},
       {"job: Fehler: Input/output error -  Move files {s}a.txt"}, "d/a.txt=old s/a.txt=BIG", {},
       {FaultOp::Rename, 1, EIO}},
      {"4: a failed replacement keeps the source", CopyFiles, Exist(4, 0, 1),
       {{"s/a.txt", "BIG", kNew}, {"d/a.txt", "old", kOld}},
       {"job: Fehler: Input/output error -  Move files {s}a.txt"}, "d/a.txt=old s/a.txt=BIG", {},
       {FaultOp::Write, 2, EIO}},
      {"renaming finds no \".\" below the destination's root", CopyFiles,
       [](job& j) { j.Exist = 2, j.PickRenamer = 1; }, {{"s/README", "r"}, {"d/README", "taken"}, {"s/b.txt", "b"}},
       {"job: Fehler: Invalid procedure call or argument -  Move files {s}README", "Kopiert: {s}b.txt nach {d}b.txt"},
       "d/README=taken d/b.txt=b s/README=r s/b.txt=b"},
      // A recycle that fails is logged as deleted and as an error: e2e actions_safety_test
      // (ATrashThatCannotBeMadeIsReportedPerFile).
      {"files and emptied folders, never From", DeleteFiles, [](job& j) { j.DelEFol = 1; },
       {{"s/a.txt", "a"}, {"s/x/y/b.txt", "b"}, {"s/x/keep/.hidden", "h"}},
       {kSrcDeleted, "Quelle gelöscht (Datei existiert): {s}x/y/b.txt", "Verzeichnis gelöscht: {s}x/y"},
       "d/ s/x/keep/.hidden=h", {"s/a.txt", "", "s/x/y/b.txt"}},
      {"From with a trailing separator", DeleteFiles, [](job& j) { j.DelEFol = 1, j.From += "/"; },
       {{"s/a.txt", "a"}}, {kSrcDeleted}, "d/ s/"},
      {"emptied folders stay without DelEFol", DeleteFiles, kNone, {{"s/x/a.txt", "a"}},
       {"Quelle gelöscht (Datei existiert): {s}x/a.txt"}, "d/ s/x/"},
      {"a failure, and the list goes on", DeleteFiles, kNone, {{"s/b.txt", "b"}},
       {"Fehler: No such file or directory - {s}gone.txt", "Quelle gelöscht (Datei existiert): {s}b.txt"},
       "d/ s/", {"s/gone.txt", "s/b.txt"}},
      {"synchronisation keeps the secondary root", DeleteSyncFiles, [](job& j) { j.DelEFol = 1; },
       {{"d/sub/b.txt", "b"}},
       {"Datei gelöscht (Im primären Verzeichnis nicht vorhanden) {d}sub/b.txt", "Verzeichnis gelöscht: {d}sub"},
       "d/ s/", {"d/sub/b.txt"}},
  };
  // The renaming row without a "." needs a temporary folder without a dot in its path.
  const bool dotInTmp = tmp.str().find('.') != std::string::npos;
  for (const Row& r : rows) if (r.files[0].path != std::string("s/README") || !dotInTmp) Check(r);
  // Only comparing: a new file is left alone, except when renaming; the count line says so.
  for (const std::int16_t e : {0, 1, 2, 3, 4}) {
    Check({"only comparing", CopyFiles, [=](job& j) { j.OnlyCompare = j.PickRenamer = 1, j.Exist = e; },
           {{"s/a.txt", "a"}}, e == 2 ? Strings{"Kopiert: {s}a.txt nach {d}a.txt"} : Strings{},
           e == 2 ? "d/a.txt=a s/a.txt=a" : "d/ s/a.txt=a"});
    EXPECT_EQ(Lines().front(), "Datei gefunden: 1 (Vergleiche nur existierende Dateien)");
  }
}

// The ids of a copy's lines, and of a synchronisation's move, which keeps the time. (The progress
// of a copy: e2e operations_test, TheTerminalProgressLineSaysFilesBytesAndRate.)
TEST_F(Actions, CountLineAndIds) {
  FileList list{Source("a.txt", "a"), Source("b.txt", "b")};
  CopyFiles(run, svc, list);
  EXPECT_EQ(rec.Ids(), (std::vector<std::int16_t>{84, 11, 11}));
  Next();
  run.syncPass = 1;  // a synchronisation's move adds none of a copy's pass lines
  list = {Source("c.txt", "c", kOld)};
  MoveFiles(run, svc, list);
  EXPECT_EQ(rec.Ids(), (std::vector<std::int16_t>{85, 12}));
  EXPECT_EQ(WriteTime(Dst("c.txt")), kOld);
}

// A destination that does not exist keeps the free-space check's last answer; a new file under
// policy 0 asks the drive itself; a move within one drive needs no room.
TEST_F(Actions, FreeSpace) {
  svc.noSizeCheck = false;
  svc.lastNoRoom = true;
  j.Exist = 3;
  FileList list{Source("a.txt", "a")};
  CopyFiles(run, svc, list);
  const std::regex noRoom("Fehler: Zu wenig Speicherplatz auf Laufwerk (/[^ ]*)?/\\. Datei nicht kopiert: " +
                          Src("a.txt"));
  const Strings lines = FileLines();
  EXPECT_TRUE(lines.size() == 1 && std::regex_match(lines[0], noRoom)) << ::testing::PrintToString(lines);
  EXPECT_TRUE(run.jobError && !Exists(Dst("a.txt")));
  j.Exist = 0;
  list = {Src("a.txt")};
  CopyFiles(run, svc, list);
  EXPECT_TRUE(Exists(Dst("a.txt")) && !svc.lastNoRoom);
  svc.lastNoRoom = true;
  faults.Arm(FaultOp::Statvfs, 1, EIO);  // asking for free space would fail
  list = {Source("b.txt")};
  MoveFiles(run, svc, list);
  EXPECT_TRUE(!faults.Fired() && Exists(Dst("b.txt")) && !svc.lastNoRoom);
}

TEST_F(Actions, RenamingVariants) {
  j.Exist = 2;
  const std::string a = Source("a.txt", "a");
  Dest("a.txt", "taken");
  Dest("x.txt/a.txt", "taken");
  // Picker 3 makes a GUID, new each time: expected is then a pattern.
  struct Case { std::int16_t picker, type; std::string text, source, to, expected; };
  const std::string guid = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";
  const Case cases[] = {
      {1, 0, "_", a, dst + "/x.txt", dst + "/x_1.txt/a_1.txt"},  // the folder changes too
      {3, 0, "-", a, dst, Dst("a-" + guid + "\\.txt")},
      {3, 1, "", a, dst, Dst(guid + "\\.txt")},
      {0, 0, "_", a, dst, ""},
      {4, 0, "_", a, dst, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.picker) + " " + c.expected);
    j.PickRenamer = c.picker, j.RenameType = c.type, j.RenameTxt = c.text, j.To = c.to;
    const std::string name = GetValidPathName(svc, j, c.source, false);
    EXPECT_TRUE(c.picker == 3 ? std::regex_match(name, std::regex(c.expected)) : name == c.expected) << name;
    EXPECT_TRUE(c.picker != 3 || name != GetValidPathName(svc, j, c.source, false)) << name << " came again";
  }
  // Picker 2: the stamp, as the renaming writes it with the short date format's separators
  // replaced; a taken stamp counts on.
  j.PickRenamer = 2;
  svc.host.clock = Clock::FixedAt(1'794'760'205);
  const std::tm tm = datetext::Local(svc.host.clock.Now());
  const auto stamp = [&](const char* date) {
    char text[32];
    std::strftime(text, sizeof text, (date + std::string("_%H-%M-%S")).c_str(), &tm);
    return Dst("a_" + std::string(text) + ".txt");
  };
  EXPECT_EQ(GetValidPathName(svc, j, Src("a.txt"), false), stamp("%d.%m.%Y"));
  WriteFile(stamp("%d.%m.%Y"), "taken");
  EXPECT_EQ(GetValidPathName(svc, j, Src("a.txt"), false), paths::ReplaceAll(stamp("%d.%m.%Y"), ".txt", "(1).txt"));
  for (const auto& [format, date] : {std::pair{"%m/%d/%Y", "%m-%d-%Y"}, {"%d\\%m\\%Y", "%d-%m-%Y"}}) {
    svc.host.shortDateFormat = format;
    EXPECT_EQ(GetValidPathName(svc, j, Src("a.txt"), false), stamp(date));
  }
  // With the folder structure the new name stays in the sub-folder, unless for an archive.
  Fresh().Exist = 2;
  j.PickRenamer = j.FStruct = 1;
  Source("x/a.txt", "a");
  Dest("x/a.txt", "taken");
  std::filesystem::remove(Dst("a.txt"));
  EXPECT_EQ(GetValidPathName(svc, j, Src("x/a.txt"), false), Dst("x/a_1.txt"));
  EXPECT_EQ(GetValidPathName(svc, j, Src("x/a.txt"), true), Dst("a.txt"));
}

// Deleting one file: each caller reads its own recycle-bin and folder switches.
TEST_F(Actions, SingleFileDeletionsUseTheirOwnFieldsAndMessages) {
  using Del = void (*)(JobRun&, Services&, const std::string&);
  const std::tuple<Del, std::int16_t, const char*> cases[] = {
      {&DeleteSourceFile, 36, "Quelle gelöscht (Datei existiert): "},
      {&DeleteZipSourceFile, 87, "Quelle gelöscht (Nach Zip-Kompression): "},
      {&DeleteFile, 36, "Quelle gelöscht (Datei existiert): "}};
  j.DelTypeSource = j.ZipDelCompBin = j.DelType = 0;
  for (const auto& [del, id, text] : cases) {
    Next();
    const std::string a = Source("x/a.txt", "a");
    std::tie(j.DelEFolSource, j.ZipDelCompBinFolder, j.DelEFol) =
        std::tuple(del == &DeleteSourceFile, del == &DeleteZipSourceFile, del == &DeleteFile);
    del(run, svc, a);
    del(run, svc, "");  // nothing to do
    EXPECT_EQ(Lines(), (Strings{text + a, "Verzeichnis gelöscht: " + Src("x")}));
    EXPECT_EQ(rec.lines.front().id, id);
  }
}

TEST_F(Actions, CheckEmptyFolderGoesBySizeOneLevelAndNeverTakesFrom) {
  for (const char* rel : {"a/empty.txt", "a/sub/also-empty", "top.txt"}) Source(rel, "");
  Source("b/full.txt", "x");
  for (const char* moved : {"a/moved.txt", "b/moved.txt", "moved.txt"}) CheckEmptyFolder(svc, Src(moved), j);
  EXPECT_EQ(Names(src), (Strings{"b", "top.txt"}));  // "a" held only empty files
  EXPECT_TRUE(Lines().empty());
}

TEST_F(Actions, PreviewCreatesNoFolder) {
  j.Exist = 2;
  j.PickRenamer = j.FStruct = 1;
  FileList list{Source("x/y/a.txt", "a")};
  const std::string before = Tree();
  Preview(run, svc, list, "Move");
  EXPECT_EQ(Tree(), before);  // no folder made, no file changed
  EXPECT_EQ(Lines().back(), "Würde verschoben: " + Src("x/y/a.txt") + " nach " + Dst("x/y/a.txt"));
}

TEST(MissingInPrimary, ComparesRelativePathsByBytesInTheSecondarysOrder) {
  const FileList primary{"/p/a.TXT", "/p/sub/c.txt", "/p/d.txt"};
  const FileList secondary{"/s/z.txt", "/s/A.txt", "/s/a.TXT", "/s/sub/c.txt", "/s/c.txt",
                           "/s/sub/sub/c.txt"};
  EXPECT_EQ(MissingInPrimary(primary, "/p", secondary, "/s"),
            (FileList{"/s/z.txt", "/s/A.txt", "/s/c.txt", "/s/sub/sub/c.txt"}));
  // The roots' trailing separators do not matter.
  EXPECT_EQ(MissingInPrimary(primary, "/p/", secondary, "/s"),
            MissingInPrimary(primary, "/p", secondary, "/s/"));
  EXPECT_EQ(MissingInPrimary({}, "/p", secondary, "/s").size(), secondary.size());
}

// What a synchronisation's first pass keeps of a pair comes back to its second pass exactly, and
// only for a pair that the second pass keeps too: one it would replace, one reached through a
// link, or one whose times do not fit, is looked at anew.
TEST(SettledPairs, GiveBackExactlyAndOnlyWhatTheSecondPassKeeps) {
  job j;
  j.Action = 5, j.Exist = 4, j.EFSelect = 0, j.ExtFileTime = 1, j.FStruct = 1;
  ASSERT_TRUE(actions::SettledPairs::Apply(j));
  const auto status = [](const std::string& path, std::int64_t ns, std::time_t created, bool link) {
    const std::time_t written = ns / 1'000'000'000 - (ns % 1'000'000'000 < 0 ? 1 : 0);
    return PathStatus{path, 0, {.isFile = true, .size = 7, .times = {created, written + 9, written}},
                      {0x801, static_cast<std::uint64_t>(ns & 0xffff), 7, ns, ns + 3}, link};
  };
  const auto same = [](const PathStatus* a, const PathStatus& b) {
    return a && std::tie(a->err, a->stat.isFile, a->stat.isDir, a->stat.size, a->stat.times.created,
                         a->stat.times.accessed, a->stat.times.written, a->id, a->link) ==
                    std::tie(b.err, b.stat.isFile, b.stat.isDir, b.stat.size, b.stat.times.created,
                             b.stat.times.accessed, b.stat.times.written, b.id, b.link);
  };
  const struct {
    std::string rel;
    std::int64_t firstNs, secondNs;
    std::time_t created;
    bool link, kept;
  } rows[] = {{"equal.txt", 1'700'000'000'123'456'789, 1'700'000'000'123'456'789, 1'600'000'000, false, true},
              {"created-long-before.txt", 1'700'000'000'000'000'000, 1'700'000'000'000'000'000, -900'000'000, false, false},
              {"secondary-newer.txt", 1'700'000'000'999'999'999, 1'700'000'001'000'000'000, 0, false, false},
              {"before-1970.txt", -1'500'000'000, -1'500'000'000, -7, false, true},
              {"link.txt", 0, 0, 0, true, false}};
  FileSystem fs;
  actions::SettledPairs pairs;
  for (const auto& r : rows) {
    const FileSystem::StatusScope scope(fs);
    fs.Seed(fs.Changes(), status("/p/" + r.rel, r.firstNs, r.created, false));
    fs.Seed(fs.Changes(), status("/s/" + r.rel, r.secondNs, r.created, r.link));
    pairs.Note(fs, j, r.rel, "/p/" + r.rel, "/s/" + r.rel, fs.Changes());
  }
  for (const auto& r : rows) {
    SCOPED_TRACE(r.rel);
    const FileSystem::StatusScope scope(fs);
    pairs.Seed(fs, r.rel, "/s2/" + r.rel, "/p2/" + r.rel);
    EXPECT_EQ(pairs.Ahead(r.rel, fs.DatedFrom()), r.kept);
    EXPECT_EQ(same(fs.Known("/s2/" + r.rel), status("/s2/" + r.rel, r.secondNs, r.created, false)), r.kept);
    EXPECT_EQ(same(fs.Known("/p2/" + r.rel), status("/p2/" + r.rel, r.firstNs, r.created, false)), r.kept);
  }
  // Any change of the run other than a new file's name makes every pair stale.
  const TempDir dir;
  fs.WriteFileAtomic((dir.root() / "x").string(), "x");
  const FileSystem::StatusScope scope(fs);
  pairs.Seed(fs, "equal.txt", "/s2/equal.txt", "/p2/equal.txt");
  EXPECT_FALSE(pairs.Ahead("equal.txt", fs.DatedFrom()) || fs.Known("/s2/equal.txt"));
}

// The comparisons of the existing-destination policies, and the deletions of a source after its
// action, which remove only the file that the action saw.
class Policies : public Rig {
 protected:
  // Source and destination whose write time and size differ by the signs given (+1: the
  // source's is greater). The access times run the opposite way.
  void Pair(int time, int size) {
    const std::string base(10, 'x');
    a = Source("a.txt", base + std::string(size > 0 ? 1 : 0, 'x'));
    b = Dest("a.txt", base + std::string(size < 0 ? 1 : 0, 'x'));
    SetTimes(a, kNew - time * 100, kNew + time * 100);
    SetTimes(b, kNew, kNew);
  }
  bool Check(std::int16_t ext, std::int16_t selector) { return CheckExist(svc.fs, svc.trap, a, b, ext, selector); }
  // The answers of selectors 0..7, "1" for yes.
  std::string Answers(std::int16_t ext) {
    std::string out;
    for (std::int16_t sel = 0; sel < 8; ++sel) out += Check(ext, sel) ? '1' : '0';
    return out;
  }
  std::string a, b;
};

// For every combination of write time and size, the answers of selectors 0..7 in order:
// newer, older, bigger, bigger+newer, bigger+older, smaller, smaller+newer, smaller+older.
// Selectors outside the eight and an unknown time selector (for the date comparisons) say no.
TEST_F(Policies, EachComparisonIsStrictAndEvaluatesBothTests) {
  const std::tuple<int, int, const char*> cases[] = {
      {+1, +1, "10110000"}, {+1, 0, "10000000"}, {+1, -1, "10000110"},
      {0, +1, "00100000"},  {0, 0, "00000000"},  {0, -1, "00000100"},
      {-1, +1, "01101000"}, {-1, 0, "01000000"}, {-1, -1, "01000101"},
  };
  for (const auto& [time, size, answers] : cases) {
    SCOPED_TRACE("time " + std::to_string(time) + " size " + std::to_string(size));
    Pair(time, size);
    std::string bySize = std::string(answers).replace(0, 2, "00").replace(3, 2, "00").replace(6, 2, "00");
    EXPECT_EQ(answers, Answers(1));
    for (std::int16_t ext : {3, -1}) EXPECT_EQ(Answers(ext), bySize) << ext;
    for (std::int16_t sel : {8, -1, 100}) EXPECT_FALSE(Check(1, sel));
  }
  Pair(+1, 0);
  EXPECT_EQ(Answers(2).substr(0, 2), "01");  // ExtFileTime 2 compares the access times, which run the other way
  std::filesystem::remove(b);
  EXPECT_EQ(Answers(1), "00000000");  // a missing file answers no
}

TEST_F(Policies, CreationTimesAreComparedInWholeSeconds) {
  a = Source("a.txt", "x");
  b = Dest("a.txt", "x");
  EXPECT_EQ(Answers(0).substr(0, 2), "00");  // made within the same second: equal
  const std::time_t start = std::time(nullptr);
  while (std::time(nullptr) == start) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::filesystem::remove(a);
  a = Source("a.txt", "x");
  if (svc.fs.Stat(a).Value().times.created == svc.fs.Stat(b).Value().times.created) {
    GTEST_SKIP() << "no creation time on this file system";
  }
  EXPECT_EQ(Answers(0).substr(0, 2), "10");
}

// Each way in which a copy or a move deletes its source: untouched, the source goes; a line
// appended just before the unlink keeps it, and the file gets an error line.
TEST_F(Policies, ASourceWrittenToBeforeItsDeletionIsKept) {
  // A move or a copy; Exist, EFSelect (with EFSDelete), AttrSetSource; to another file system, else
  // over an older file.
  const std::tuple<bool, std::int16_t, std::int16_t, std::int16_t, bool> rows[] = {
      {false, 1, 0, 0, false}, {true, 1, 0, 0, false}, {false, 4, 0, 0, false}, {false, 4, 0, 2, false},
      {false, 4, 1, 0, false}, {true, 4, 1, 0, false}, {true, 0, 0, 0, true}};
  for (const auto& [move, exist, efsSelect, attrSetSource, across] : rows) {
    for (const bool appended : {false, true}) {
      SCOPED_TRACE(::testing::Message() << move << exist << efsSelect << attrSetSource << across << appended);
      const TempDir here;
      j.To = across ? Elsewhere() : here.str();
      if (j.To.empty()) continue;
      const std::string s = Source("a.txt", "first line\n", kNew);
      if (!across) Put(j.To + "/a.txt", "old", kOld);
      std::tie(j.Exist, j.EFSelect, j.AttrSetSource) = std::tuple(exist, efsSelect, attrSetSource);
      j.EFSDelete = j.ExtFileTime = j.AttrArchive2 = 1;
      Next();
      driver.BeginCall();  // each row is a run of its own: an inode may come again
      if (appended) faults.Before(FaultOp::Unlink, 1, [&] { std::ofstream(s, std::ios::app) << "last line\n"; });
      FileList list{s};
      move ? MoveFiles(run, svc, list) : CopyFiles(run, svc, list);
      faults.Disarm();
      EXPECT_EQ(ReadFile(s), appended ? "first line\nlast line\n" : "");
      const auto lines = Lines();
      const auto kept = [](const std::string& l) { return l.find("changed after it was read") != std::string::npos; };
      EXPECT_EQ(std::ranges::any_of(lines, kept), appended) << ::testing::PrintToString(lines);
      EXPECT_EQ(run.jobError, appended);
      EXPECT_TRUE(!across || Exists(j.To + "/a.txt") != appended);
      std::filesystem::remove(s);
    }
  }
}

}  // namespace
}  // namespace orvKestrel::testing
