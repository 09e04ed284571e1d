// Fault injection: every call of every platform operation of a copy, a move, a synchronisation,
// a compression and an extraction is made to fail in turn, and after each run the trees must
// hold no partial file, lose no file, and a run whose result differs from a clean run must say so.
#include <orvKestrel/clsJobs.h>

#include "engine/Engine.h"
#include "support/Faults.h"
#include "unit/ZipTestSupport.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

namespace orvKestrel::testing {
namespace {

namespace fs = std::filesystem;
using Tree = std::map<std::string, std::string>;  // path -> contents

// Helpers: a small tree with one job, a run of the engine in this process with one armed fault,
// snapshots of the trees, and the invariants every run must keep.
struct Scenario {
  const char *name, *keys;  // keys: the job's own
  Tree files;     // below the root: "src/..." and "dst/..."
  std::map<std::string, std::time_t> times;     // write times other than the default
  // Archives to make below the root: path -> entries (name -> contents).
  std::map<std::string, Tree> archives = {};
  // Faults after which the job may do less without a message (beyond List, which never
  // reports): see CheckInvariants.
  std::set<FaultOp> silentLess = {};
};

// A scenario by its name in the test names ctest lists, not as bytes.
void PrintTo(const Scenario& s, std::ostream* os) { *os << s.name; }

// Every file below root/src and root/dst, relative to root, with its contents. An archive
// stands for its entries, each as "archive:name" with its contents: its bytes may differ
// between two runs that put the same files in it.
Tree TreeSnapshot(const std::string& root) {
  Tree out;
  for (const char* top : {"/src", "/dst"}) {
    if (!fs::exists(root + top)) continue;
    for (const auto& e : fs::recursive_directory_iterator(root + top)) {
      if (e.is_directory()) continue;
      const std::string path = e.path().string(), rel = path.substr(root.size() + 1);
      const auto entries = rel.ends_with(".zip") ? ArchiveEntries(path) : std::nullopt;
      out[rel] = !rel.ends_with(".zip") ? ReadFile(path) : entries ? "<archive>" : "<unreadable archive>";
      for (const auto& [name, data] : entries.value_or(Tree{})) out[rel + ":" + name] = data;
    }
  }
  return out;
}

// A line of the run; firedBefore: the armed fault had fired when the line was raised.
struct Line { std::string text; std::int16_t id; bool firedBefore; };

struct RunResult {
  FaultOp op = FaultOp::Count;
  int err = 0, jobs = 1, trapErrors = 0;  // trapErrors: reported by the error trap (error.log and the host)
  Tree before, after;
  std::vector<Line> lines;
  std::array<int, static_cast<std::size_t>(FaultOp::Count)> calls{};
  bool fired = false, firedInWorker = false;  // firedInWorker: on another thread than the run's
  std::string jobFileProblem;  // empty when the job file reads as written
  // The numbers of the lines "t10" (error), "t3" (start), "t6" (done), "t7" (no files), "t28".
  static constexpr std::int16_t idError = 10, idStart = 3, idDone = 6, idNoFiles = 7, idDoneWithError = 28;

  bool HasError() const { return std::ranges::any_of(lines, [&](const Line& l) { return l.id == idError; }); }
  std::int16_t EndId() const { return lines.empty() ? 0 : lines.back().id; }
  enum class Phase { Before, InJob, After };
  // Where the fault fired: before the job's start line (reading the job folder and file),
  // between its start and end lines, or after its end line (writing the job's counter).
  Phase FiredIn() const {
    for (const Line& l : lines) {
      if (l.id == idStart && l.firedBefore) return Phase::Before;
      const bool end = l.id == idDone || l.id == idDoneWithError || l.id == idNoFiles;
      if (end) return l.firedBefore ? Phase::InJob : Phase::After;
    }
    return Phase::Before;
  }
  bool ok() const { return !HasError() && EndId() == idDone && jobFileProblem.empty(); }
  std::string Describe() const {
    std::string out = jobFileProblem.empty() ? "" : "  job file: " + jobFileProblem + "\n";
    for (const Line& l : lines) out += "  [" + std::to_string(l.id) + "] " + l.text + "\n";
    return out;
  }
};

// A run of a scenario's tree with its job, below a folder of its own (in memory where there is
// one: the engine flushes every file it writes, and the runs are many), with the n-th call of op
// made to fail with err. jobs: the run's workers (copies and archive entries made ahead); 1
// starts none.
RunResult RunScenario(const Scenario& s, FaultOp op, int n, int err, int jobs = 1) {
  const TempDir dir("faults", ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path());
  const std::string root = dir.str();
  for (const char* top : {"/src", "/dst"}) fs::create_directories(root + top);
  for (const auto& [rel, data] : s.files) WriteFile(root + "/" + rel, data);
  for (const auto& [rel, entries] : s.archives) MakeArchive(root + "/" + rel, entries);
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    const std::string rel = e.path().string().substr(root.size() + 1);
    if (e.is_regular_file()) SetModified(e.path().string(), s.times.contains(rel) ? s.times.at(rel) : 1700000000);
  }
  WriteFile(root + "/jobs/j.kjb", "[Job]\nName=j\nFrom=" + root + "/src\nTo=" + root +
             "/dst\nDoPreview=0\nIntervalType=0\nInterval=1\nCounter=1\n" + s.keys);
  RunResult r;
  std::tie(r.op, r.err, r.jobs, r.before) = std::tuple(op, err, jobs, TreeSnapshot(root));
  {
    CurrentDir here(root);  // error.log
    Faults faults;
    Engine e{Host{}, &faults};
    RecordingEvents rec;
    rec.onLine = [&](const LoggedLine& l) { r.lines.push_back({l.text, l.id, faults.Fired()}); };
    e.svc.events = &rec;
    e.svc.jobs = jobs;
    e.svc.zip->SetWorkers(jobs);
    faults.Arm(op, n, err);
    e.ExecuteAllJobs(root + "/jobs/", "", false, false, false);
    r.fired = faults.Fired();
    r.firedInWorker = r.fired && faults.FiredOn() != std::this_thread::get_id();
    r.trapErrors = e.svc.trap.ErrorCount();
    for (std::size_t i = 0; i < r.calls.size(); ++i) r.calls[i] = faults.Calls(static_cast<FaultOp>(i));
  }
  r.after = TreeSnapshot(root);
  // The job file still reads, with the job as it was written; nothing else in its folder.
  clsJobs reader;
  const std::vector<job> read = reader.GetJobs(root + "/jobs/", "j.kjb");
  if (read.size() != 1 || reader.LastReadFailed() || read[0].From != root + "/src" || read[0].To != root + "/dst" ||
      read[0].JobName != "j" || std::distance(fs::directory_iterator(root + "/jobs"), {}) != 1) {
    r.jobFileProblem = "does not read as written, or has a stray file beside it: " + ReadFile(root + "/jobs/j.kjb");
  }
  return r;
}

// What every run with a fault must keep, measured against a clean run of the same tree:
//  - no partial file: each file holds what it held before, what a clean run leaves there, or
//    the whole of some file of the trees (a file copied where a clean run would not copy it);
//    an archive reads and holds whole files, though perhaps not all of them (its entries are
//    files of the trees);
//    no hidden name (a temporary file) is left behind;
//  - nothing lost: a file that a clean run keeps somewhere is still where it was or where the
//    clean run keeps it, and no file that a clean run leaves in place is gone;
//  - a fault before the job starts (reading the job folder or file) changes nothing, and one
//    after it (writing the job's counter) leaves the result of a clean run;
//  - a folder that cannot be listed (List) gives no files, without a message, as the walk
//    treats an unreadable folder: the run does less than a clean run;
//  - any other fault inside the job that hits a file operation (open, read, write, rename,
//    unlink, copy, set times, set attributes, trash) is reported: either the job ends
//    "(mit Fehler)" after a "t10" error line (a per-file error), or the error trap reports it
//    (error.log, the host's question, kestrel's exit code) where a procedure-level statement
//    failed, such as reading an archive's head or deleting an extracted archive. Exceptions:
//    a statvfs fault (the free space is asked again of the mount point) and EXDEV from the
//    rename of a move (the move copies and deletes instead) leave the result of a clean run;
//    a scenario's silentLess faults may leave a file undone without a message; with workers, a
//    fault that met the work done ahead (in a worker, or the run's handing over of an entry,
//    such as creating its unnamed file) may leave the result of a clean run without a message:
//    that file is then made the usual way, which meets the fault no more;
//  - the job file still reads, as it was written.
std::vector<std::string> CheckInvariants(const Scenario& s, const RunResult& clean, const RunResult& r) {
  std::vector<std::string> out;
  std::set<std::string> whole = {"<archive>"};  // a readable archive: its entries are checked one by one
  for (const auto* tree : {&r.before, &clean.after}) for (const auto& [p, d] : *tree) whole.insert(d);
  const auto holds = [](const Tree& t, const std::string& p, const std::string& d) {
    return t.contains(p) && t.at(p) == d;
  };
  for (const auto& [path, data] : r.after) {
    const bool hidden = path.starts_with('.') || path.find("/.") != std::string::npos;
    if (hidden && !r.before.contains(path) && !clean.after.contains(path)) out.push_back(path + " is left behind");
    if (!whole.contains(data)) out.push_back(path + " is neither as it was nor complete");
  }
  for (const auto& [path, data] : r.before) {
    bool keptByClean = false, kept = holds(r.after, path, data);
    for (const auto& [p, d] : clean.after) {
      keptByClean = keptByClean || d == data;
      kept = kept || (d == data && holds(r.after, p, data));
    }
    if (keptByClean && !kept) out.push_back(path + " was lost");
    if (clean.after.contains(path) && !r.after.contains(path)) out.push_back(path + " was removed");
  }
  const bool reported = (r.HasError() && r.EndId() == r.idDoneWithError) || r.trapErrors > 0;
  const bool asClean = r.after == clean.after;
  const bool excused = r.op == FaultOp::Statvfs || (r.op == FaultOp::Rename && r.err == EXDEV) || r.jobs > 1;
  using enum RunResult::Phase;
  const RunResult::Phase phase = r.FiredIn();
  if (phase == Before && r.after != r.before) out.push_back("a fault before the job changed the trees");
  if (phase == After && !asClean) out.push_back("a fault after the job changed its result");
  if (phase == InJob && !reported && r.op != FaultOp::List && !s.silentLess.contains(r.op) && !(excused && asClean)) {
    out.push_back(std::string("a failed file operation is not reported (") +
                  (r.firedInWorker ? "in a worker" : "in the run") + (asClean ? ", as clean)" : ")"));
  }
  if (!r.jobFileProblem.empty()) out.push_back("job file " + r.jobFileProblem);
  return out;
}

// Deterministic bytes that do not compress to nothing.
std::string Bytes(std::size_t n, unsigned seed) {
  std::string out(n, '\0');
  std::minstd_rand next(seed);
  for (char& c : out) c = static_cast<char>('A' + next() % 61);
  return out;
}

// big.bin takes two copy steps: a fault can hit the second one.
const Tree kSourceTree = {{"src/a.txt", "alpha\n"}, {"src/big.bin", Bytes(1536 * 1024, 7)},
                          {"src/sub/c.txt", "gamma\n"}, {"src/sub/deep/d.txt", "delta\n"}};

// The source tree with more files; those of more win.
Tree With(Tree more) {
  more.insert(kSourceTree.begin(), kSourceTree.end());
  return more;
}

const Scenario kScenarios[] = {
    {"copy", "Action=0\nSubFolder=1\nFStruct=1\nExist=3\nAttrSetDest=1\nAttrArchive1=1\n",
     With({{"dst/a.txt", "old alpha\n"}}), {}},
    {"move", "Action=1\nSubFolder=1\nFStruct=1\nDelEFolSource=1\n", kSourceTree, {}},
    {"sync", "Action=5\nExist=4\nEFSelect=0\nExtFileTime=1\nSyncDelete=1\nSubFolder=1\nFStruct=1\n",
     // d.txt has been synchronised before: both sides hold it.
     With({{"dst/a.txt", "older alpha\n"}, {"dst/gone.txt", "only here\n"}, {"dst/sub/e.txt", "epsilon\n"},
           {"dst/sub/deep/d.txt", "delta\n"}}),
     {{"src/a.txt", 2000000000}, {"dst/a.txt", 1900000000}}},
    // The first file of an archive for the whole job that cannot be added is not reported
    // (only the further files are); it stays where it is.
    {"compress", "Action=3\nSubFolder=1\nZipAll=0\nZipIntStruct=1\nZipDelComp=1\nExist=3\n",
     kSourceTree, {}, {}, {FaultOp::Open}},
    // An archive per file, one of them added to under the newer-only policy: each source
    // goes only once its own archive is written, and only as it was read. A file that cannot
    // be opened gives a zero result, which this layout reports as "Ersetzt"; it stays.
    {"compress_single", "Action=3\nSubFolder=1\nZipAll=1\nZipExtStruct=1\nZipDelComp=1\nExist=4\nEFSelect=0\n"
     "ExtFileTime=1\n", kSourceTree, {{"src/a.txt", 1800000000}},
     {{"dst/a.txt.zip", {{"a.txt", "old alpha\n"}, {"keep.txt", "kept\n"}}}}, {FaultOp::Open}},
    {"extract", "Action=4\nDestZipFolder=1\nDestZipFilter=*.*\nDestZipExist=3\nZipDelDeComp=1\n",
     {{"dst/a.txt", "old alpha\n"}}, {},
     {{"src/pack.zip", {{"a.txt", "alpha\n"}, {"sub/b.txt", Bytes(300 * 1024, 3)}}},
      {"src/more.zip", {{"c.txt", "gamma\n"}}}}},
};

const std::tuple<FaultOp, const char*, std::vector<int>> kKinds[] = {
    {FaultOp::Open, "open", {ENOENT, EACCES}}, {FaultOp::Read, "read", {EIO}},
    {FaultOp::Write, "write", {ENOSPC, EIO}}, {FaultOp::Rename, "rename", {EXDEV, EACCES}},
    {FaultOp::Unlink, "unlink", {EACCES, EIO}}, {FaultOp::Copy, "copy", {EIO}}, {FaultOp::Statvfs, "statvfs", {EIO}},
    {FaultOp::SetTimes, "set times", {EPERM}}, {FaultOp::SetAttributes, "set attributes", {ENOTSUP}},
    {FaultOp::Trash, "trash", {EIO}}, {FaultOp::List, "list", {EACCES, EIO}}};

// With workers, which call is the n-th differs from run to run (a worker may make it): n runs
// over the calls of the clean run as with one, and the invariants must hold for each. (That a
// clean run with workers leaves what one with one worker leaves: e2e parallel_test.)
class FaultInjection : public ::testing::TestWithParam<std::tuple<Scenario, int>> {};

TEST_P(FaultInjection, EveryFaultLeavesCompleteFilesAndIsReported) {
  const auto& [s, jobs] = GetParam();
  const RunResult base = RunScenario(s, FaultOp::Count, 0, 0, jobs);
  ASSERT_TRUE(base.ok()) << s.name << " clean run:\n" << base.Describe();
  ASSERT_TRUE(base.after != base.before) << s.name << ": the clean run must change the trees";
  int injected = 0;
  std::string problems;
  for (const auto& [op, opName, errors] : kKinds) {
    for (int n = 1; n <= base.calls[static_cast<std::size_t>(op)]; ++n) {
      for (const int err : errors) {
        const RunResult r = RunScenario(s, op, n, err, jobs);
        injected += r.fired ? 1 : 0;
        for (const std::string& p : r.fired ? CheckInvariants(s, base, r) : std::vector<std::string>{}) {
          problems += std::string(opName) + " call " + std::to_string(n) + " " + std::strerror(err) + ": " + p +
                      "\n" + r.Describe();
        }
      }
    }
  }
  std::printf("[ faults   ] %s, %d jobs: %d faults injected\n", s.name, jobs, injected);
  EXPECT_GT(injected, 20);
  EXPECT_EQ(problems, "");
}

INSTANTIATE_TEST_SUITE_P(Jobs, FaultInjection,
                         ::testing::Combine(::testing::ValuesIn(kScenarios), ::testing::Values(1, 4)),
                         [](const auto& i) {
                           const Scenario& s = std::get<0>(i.param);
                           return std::string(s.name) + "_jobs" + std::to_string(std::get<1>(i.param));
                         });

}  // namespace
}  // namespace orvKestrel::testing
