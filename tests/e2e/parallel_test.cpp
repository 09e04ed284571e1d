// Copies made ahead by workers (--jobs) change nothing a run shows: the same jobs with one
// worker and with four give the same event stream, exit status and trees, for copy, move (on
// one file system and, where the tests have a second one, across) and synchronisation, their
// previews, every existing-destination policy and a folder whose files fail. A run stopped in
// the middle names no file it did not report and leaves no temporary.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

std::string Data(int i, std::size_t size) {
  std::string d = "file " + std::to_string(i) + "\n";
  d.resize(size, static_cast<char>('a' + i % 26));
  return d;
}

constexpr std::time_t kOld = 1'500'000'000, kSource = 1'600'000'000, kNew = 1'700'000'000;

struct Case {
  std::string keys;
  Lines options = {};
  std::function<void()> prepare = {};
};

struct Outcome {
  int exitCode = -1;
  Lines stream;  // without what depends on the clock (the summaries' seconds)
  Tree src, dst, elsewhere;
};

class Parallel : public JobFolderTest {
 protected:
  // The case's job over fresh trees: the source tree, a destination that holds older and newer
  // versions of some files, and a sub-folder "sub" of the destination that is a link: its files
  // fail (a link below To is never followed).
  Outcome Run(const Case& c, int jobs) {
    for (const fs::path& f : {src(), to_, elsewhere()}) fs::remove_all(f);
    for (int i = 0; i < 30; ++i) {
      const std::string folder = i < 12 ? "d0/" : i < 24 ? "d1/" : i < 27 ? "sub/" : "";
      Put(src() / (folder + "f" + std::to_string(i) + ".txt"), Data(i, 100 + 997 * i), kSource);
    }
    ::chmod((src() / "d0/f3.txt").c_str(), 0640);
    for (int i : {0, 1, 2}) Put(to_ / ("d0/f" + std::to_string(i) + ".txt"), "old", kOld);
    for (int i : {12, 13}) Put(to_ / ("d1/f" + std::to_string(i) + ".txt"), "newer", kNew);
    Put(to_ / "f28.txt", "old top", kOld);
    fs::create_directories(elsewhere());
    fs::create_directory_symlink(elsewhere(), to_ / "sub");
    if (c.prepare) c.prepare();
    const bool flat = c.keys.find("FStruct=0") != std::string::npos;
    WriteJob(std::string(flat ? "" : "FStruct=1\n") + "SubFolder=1\nInterval=1\nCounter=1\n" + c.keys,
             "a", src(), to_);
    Lines options{"--jobs", std::to_string(jobs)};
    options.insert(options.end(), c.options.begin(), c.options.end());
    const RunResult r = RunJobs(options);
    Outcome o{r.exitCode, {}, Listing(src(), true, false), Listing(to_, true, false),
              Listing(elsewhere(), true, false)};
    for (const std::string& line : SplitLines(r.out)) {
      auto event = nlohmann::ordered_json::parse(line, nullptr, false);
      if (event.is_object()) event.erase("seconds");
      o.stream.push_back(event.is_discarded() ? line : event.dump());
    }
    return o;
  }

  // Each case with one worker and with four: the same exit status, stream and trees. Real runs
  // (no options) must mean something: they wrote more than minDst entries, wrote nothing
  // through the link, and, when given, ended with realExit (the linked sub-folder's files fail).
  void ExpectSameWithFour(const std::vector<Case>& cases, std::size_t minDst, int realExit = -1) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.keys);
      const Outcome one = Run(c, 1), four = Run(c, 4);
      EXPECT_EQ(one.exitCode, four.exitCode);
      EXPECT_EQ(one.stream, four.stream);
      EXPECT_TRUE(one.dst == four.dst && one.src == four.src);
      EXPECT_EQ(one.elsewhere, Tree{}) << "written through the link";
      if (c.options.empty() && c.keys.find("OnlyCompare") == std::string::npos) {
        EXPECT_GT(one.dst.size(), minDst);
        EXPECT_TRUE(realExit < 0 || one.exitCode == realExit) << one.exitCode;
      }
    }
  }

  fs::path elsewhere() const { return dir_ / "elsewhere"; }
  fs::path to_ = dst();
};

TEST_F(Parallel, OneWorkerAndFourGiveTheSameStreamAndTrees) {
  const std::string run = "DoPreview=0\n", preview = "DoPreview=1\n";
  std::vector<Case> cases, moves;
  for (const std::string action : {"Action=0\n", "Action=1\n"}) {
    for (const std::string exist :
         {"Exist=0\n", "Exist=1\n", "Exist=2\nPickRenamer=1\nRenameTxt=_\n", "Exist=3\n",
          "Exist=4\nExtFileTime=1\n", "Exist=3\nOnlyCompare=1\n", "Exist=4\nEFSDelete=1\n"}) {
      cases.push_back({action + exist + run});
    }
    cases.push_back({action + "Exist=3\n" + preview, {"--preview-jobs"}});
  }
  std::copy_if(cases.begin(), cases.end(), std::back_inserter(moves),
               [](const Case& c) { return c.keys.starts_with("Action=1"); });
  cases.push_back({"Action=0\nExist=0\n" + run, {"--dry-run"}});
  for (const std::string sync : {"Action=5\nExist=4\nExtFileTime=1\n",
                                  "Action=5\nExist=4\nExtFileTime=1\nSyncDelete=1\n",
                                  "Action=5\nExist=0\nSyncStart=1\n"}) {
    cases.push_back({sync + run});
    cases.push_back({sync + preview, {"--preview-jobs"}});
  }
  // Files alike on both sides, which the pass back knows from the first pass, between files it
  // copies: the workers copy only the latter, each for its own name.
  cases.push_back({"Action=5\nExist=4\nExtFileTime=1\n" + run, {}, [this] {
                     for (int i = 3; i < 24; i += 2) {
                       const std::string rel = (i < 12 ? "d0/f" : "d1/f") + std::to_string(i) + ".txt";
                       Put(to_ / rel, Data(i, 100 + 997 * i), kSource);
                       if (i % 3 == 0) Put(to_ / (rel + ".back"), Data(i, 50 + i), kNew);
                     }
                   }});
  ExpectSameWithFour(cases, 12, 1);
  // Flattened, two sources meet at one name: the second is judged by what the first left there,
  // not by what the workers found before it.
  const auto twins = [this] {
    for (int i : {0, 1, 2, 5}) Put(src() / ("d1/f" + std::to_string(i) + ".txt"), "twin", kNew);
  };
  std::vector<Case> flat;
  for (const std::string exist : {"Exist=0\n", "Exist=2\nPickRenamer=1\nRenameTxt=_\n",
                                  "Exist=3\n", "Exist=4\nExtFileTime=1\n"}) {
    flat.push_back({"Action=0\nFStruct=0\n" + exist + run, {}, twins});
  }
  ExpectSameWithFour(flat, 12);
  // Moves once more into another file system, where they copy and delete.
  const std::string other = OtherFileSystemThan(fs::temp_directory_path());
  if (other.empty()) return (void)std::printf("[ parallel ] no second file system: moves across not tested\n");
  const Scratch otherDir("parallel-dst", other);
  to_ = otherDir.root() / "dst";
  ExpectSameWithFour(moves, 12, 1);
}

// Archives packed and unpacked by workers that deflate and inflate ahead of the commit.
TEST_F(Parallel, ArchivesWithOneWorkerAndFourAreTheSame) {
  const std::string due = "DoPreview=0\n";
  // Archives of the source files, made before each unpacking run: two whole ones in sub-folders
  // and one that is damaged.
  const auto archives = [this] {
    const std::string cmd = "cd " + Quote(src().string()) +
                            " && zip -q -r -D d0/p.zip d1 && zip -q -r -D d1/q.zip d0 -x '*.zip' && "
                            "head -c 300 d0/p.zip > broken.zip";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
  };
  ExpectSameWithFour({{"Action=3\nZipAll=1\nZipIntStruct=1\n" + due},
                      {"Action=3\nZipAll=1\nZipGrade=9\nZipDelComp=1\n" + due},
                      {"Action=3\nZipAll=0\nZipGrade=1\n" + due},
                      {"Action=3\nZipAll=1\nDoPreview=1\n", {"--preview-jobs"}},
                      {"Action=4\nDestZipFolder=1\nZipDelDeComp=1\n" + due, {}, archives},
                      {"Action=4\nDestZipFolder=0\nDestZipExist=1\n" + due, {}, archives},
                      {"Action=4\nDoPreview=1\n", {"--preview-jobs"}, archives}},
                     1);
}

// A synchronisation over a few thousand files in nested folders, both sides alike: the folders
// listed ahead and a stream of many blocks written by the host's own thread change nothing. Every
// line is whole, and the counter of each pass runs up one by one.
TEST_F(Parallel, AStreamOfManyBlocksOverNestedFoldersIsWholeAndInOrder) {
  for (int i = 0; i < 3000; ++i) {
    const std::string rel = "d" + std::to_string(i % 7) + (i % 3 ? "/e" + std::to_string(i % 5) : "") +
                            (i % 11 == 0 ? "/g" : "") + "/f" + std::to_string(i) + ".txt";
    Put(src() / rel, Data(i, 10), kSource);
    Put(dst() / rel, Data(i, 10), kSource);
  }
  WriteJob(std::string(kDue) + "SubFolder=1\nFStruct=1\nAction=5\nExist=4\nExtFileTime=1\n");
  std::vector<Lines> streams;
  for (const char* jobs : {"1", "4"}) {
    const RunResult r = RunJobs({"--jobs", jobs});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_GT(r.out.size(), 8 * 64 * 1024u);
    Lines stream;
    int counted = 0, passes = 0;
    for (const std::string& line : SplitLines(r.out)) {
      auto event = nlohmann::json::parse(line, nullptr, false);
      ASSERT_TRUE(event.is_object()) << line;
      event.erase("seconds");
      if (event["event"] == "KestrelCounter") {
        const int current = event["lCurrFile"];
        if (current == 1) counted = 0, ++passes;
        EXPECT_EQ(current, ++counted) << line;
      }
      stream.push_back(event.dump());
    }
    EXPECT_EQ(passes, 2);
    EXPECT_EQ(Count(r.logs, "Keine Aktion"), 6000) << jobs;
    streams.push_back(std::move(stream));
  }
  EXPECT_TRUE(streams[0] == streams[1]);
}

// Stopped after the k-th file: every file under a destination name is complete and was
// reported, and no temporary is left, with the copies made ahead of k closed unnamed.
TEST_F(Parallel, AStoppedRunNamesOnlyWhatItReportedAndLeavesNothing) {
  for (int i = 0; i < 3000; ++i) {
    Put(src() / ("d" + std::to_string(i % 10) + "/f" + std::to_string(i) + ".txt"), Data(i, 200 + i % 4096), kSource);
  }
  WriteJob(std::string(kDue) + "SubFolder=1\nFStruct=1\nAction=0\nExist=0\n");
  const fs::path out = dir_ / "out";
  const pid_t pid = StartKestrel({"run", "jobs", "--events", "jsonl", "--jobs", "4"}, dir_.root(),
                                 {.outFile = out.string()});
  ASSERT_TRUE(Eventually([&] { return Count(LogTexts(Get(out)), "Kopiert: ") >= 100; })) << Get(out);
  ::kill(pid, SIGTERM);
  EXPECT_EQ(WaitFor(pid, std::chrono::seconds(60)), 130);
  const auto reported = Count(LogTexts(Get(out)), "Kopiert: ");
  const auto copied = Files(dst());
  EXPECT_LT(copied.size(), 3000u) << "the stop came too late to test anything";
  EXPECT_EQ(static_cast<int>(copied.size()), reported);
  const auto sources = Files(src());
  for (const auto& [rel, data] : copied) {
    EXPECT_FALSE(Hidden(rel)) << "a temporary was left: " << rel;
    EXPECT_TRUE(sources.contains(rel) && sources.at(rel) == data) << "partial: " << rel;
  }
}

}  // namespace
}  // namespace e2e
