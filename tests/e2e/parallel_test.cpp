// Copies made ahead by workers (--jobs) change nothing a run shows: the same jobs with one
// worker and with four give the same event stream, exit status and trees, for copy, move (on
// one file system and, where the tests have a second one, across) and synchronisation, their
// previews, every existing-destination policy and a folder whose files fail. A run stopped in
// the middle names no file it did not report and leaves no temporary.
#include "e2e/E2eSupport.h"

#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace e2e {
namespace {

// What python's zipfile reads of an archive: every entry's name, time, attributes, CRC, size,
// method, flag bits, versions and extra fields, but not how its data was deflated, which differs
// between the workers' deflate and the zip library's.
std::string Listing(const fs::path& archive) {
  const std::string cmd = "python3 -I -c 'import zipfile,sys\n"
                          "for i in zipfile.ZipFile(sys.argv[1]).infolist(): print(i.filename, "
                          "i.date_time, i.external_attr, i.CRC, i.file_size, i.compress_type, i.flag_bits, "
                          "i.create_system, i.create_version, i.extract_version, i.internal_attr, "
                          "i.extra.hex())' " +
                          orvKestrel::testing::Quote(archive.string()) + " 2>&1";
  std::string out;
  if (FILE* pipe = ::popen(cmd.c_str(), "r")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
    ::pclose(pipe);
  }
  EXPECT_EQ(out.find("Error"), std::string::npos) << archive << ": " << out;  // both fail alike
  return out;
}

// Every entry below root: kind and permission bits, for files also the write time to the
// nanosecond and the contents (an archive: its listing, since it was written now). Folders'
// times change with every entry made in them.
std::map<std::string, std::string> Tree(const fs::path& root) {
  std::map<std::string, std::string> out;
  if (!fs::exists(root)) return out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    struct stat st {};
    if (::lstat(e.path().c_str(), &st) != 0) continue;
    std::string v = std::to_string(st.st_mode);
    if (S_ISREG(st.st_mode) && e.path().extension() == ".zip") {
      v += " " + Listing(e.path());
    } else if (S_ISREG(st.st_mode)) {
      v += " " + std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) +
           " " + Get(e.path());
    }
    out[fs::relative(e.path(), root).string()] = v;
  }
  return out;
}

// The stream without what depends on the clock (the summaries' seconds).
std::vector<std::string> Stream(const std::string& out) {
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    auto event = nlohmann::ordered_json::parse(line, nullptr, false);
    if (event.is_discarded()) {
      lines.push_back(line);
      continue;
    }
    event.erase("seconds");
    lines.push_back(event.dump());
  }
  return lines;
}

std::string Data(int i, std::size_t size) {
  std::string d = "file " + std::to_string(i) + "\n";
  d.resize(size, static_cast<char>('a' + i % 26));
  return d;
}

constexpr std::time_t kOld = 1'500'000'000;
constexpr std::time_t kSource = 1'600'000'000;
constexpr std::time_t kNew = 1'700'000'000;

struct Outcome {
  int exitCode = -1;
  std::vector<std::string> stream;
  std::map<std::string, std::string> src, dst, elsewhere;
};

class Parallel : public ::testing::Test {
 public:
  Parallel() : dir_("parallel") {}

  // The source tree, a destination that holds older and newer versions of some files, and a
  // sub-folder "sub" of the destination that is a link: its files fail (a link below To is
  // never followed).
  void FreshTrees() const {
    for (const fs::path& f : {src(), dst_, elsewhere()}) fs::remove_all(f);
    for (int i = 0; i < 30; ++i) {
      const std::string folder = i < 12 ? "d0/" : i < 24 ? "d1/" : i < 27 ? "sub/" : "";
      Put(src() / (folder + "f" + std::to_string(i) + ".txt"), Data(i, 100 + 997 * i), kSource);
    }
    ::chmod((src() / "d0/f3.txt").c_str(), 0640);
    for (int i : {0, 1, 2}) Put(dst_ / ("d0/f" + std::to_string(i) + ".txt"), "old", kOld);
    for (int i : {12, 13}) Put(dst_ / ("d1/f" + std::to_string(i) + ".txt"), "newer", kNew);
    Put(dst_ / "f28.txt", "old top", kOld);
    fs::create_directories(elsewhere());
    fs::create_directory_symlink(elsewhere(), dst_ / "sub");
  }

  Outcome Run(const std::string& keys, const std::vector<std::string>& options, int jobs,
              const std::function<void()>& prepare = {}) {
    FreshTrees();
    if (prepare) prepare();
    Put(dir_ / "jobs/a.kjb", "[Job]\nName=a\nFrom=" + src().string() + "\nTo=" + dst_.string() +
                                 "\nSubFolder=1\nFStruct=1\nIntervalType=0\nInterval=1\nCounter=1\n" + keys);
    std::vector<std::string> args{"run", (dir_ / "jobs").string(), "--events", "jsonl",
                                  "--jobs", std::to_string(jobs)};
    args.insert(args.end(), options.begin(), options.end());
    const RunResult r = RunKestrel(args, dir_.root());
    return {r.exitCode, Stream(r.out), Tree(src()), Tree(dst_), Tree(elsewhere())};
  }

  fs::path src() const { return dir_ / "src"; }
  fs::path elsewhere() const { return dir_ / "elsewhere"; }

  Scratch dir_;
  fs::path dst_ = dir_ / "dst";
};

struct Case {
  std::string keys;
  std::vector<std::string> options = {};
  std::function<void()> prepare = {};
};

// Runs each case with one worker and with four: the same exit status, stream and trees. Real
// runs (no options) must mean something: they wrote more than minDst entries and, when given,
// ended with realExit (the linked sub-folder's files fail).
void ExpectSameWithFour(Parallel& p, const std::vector<Case>& cases, std::size_t minDst, int realExit = -1) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.keys);
    const Outcome one = p.Run(c.keys, c.options, 1, c.prepare), four = p.Run(c.keys, c.options, 4, c.prepare);
    EXPECT_EQ(one.exitCode, four.exitCode);
    EXPECT_EQ(one.stream, four.stream);
    EXPECT_TRUE(one.dst == four.dst && one.src == four.src && one.elsewhere == four.elsewhere);
    if (c.options.empty() && c.keys.find("OnlyCompare") == std::string::npos) {
      EXPECT_GT(one.dst.size(), minDst);
      EXPECT_TRUE(realExit < 0 || one.exitCode == realExit) << one.exitCode;
    }
  }
}

TEST_F(Parallel, OneWorkerAndFourGiveTheSameStreamAndTrees) {
  const std::string run = "DoPreview=0\n", preview = "DoPreview=1\n";
  const std::vector<std::string> previewJobs{"--preview-jobs"};
  std::vector<Case> cases, moves;
  for (const std::string action : {"Action=0\n", "Action=1\n"}) {
    for (const std::string exist :
         {"Exist=0\n", "Exist=1\n", "Exist=2\nPickRenamer=1\nRenameTxt=_\n", "Exist=3\n",
          "Exist=4\nExtFileTime=1\n", "Exist=3\nOnlyCompare=1\n", "Exist=4\nEFSDelete=1\n"}) {
      cases.push_back({action + exist + run});
    }
    cases.push_back({action + "Exist=3\n" + preview, previewJobs});
  }
  std::copy_if(cases.begin(), cases.end(), std::back_inserter(moves),
               [](const Case& c) { return c.keys.starts_with("Action=1"); });
  cases.push_back({"Action=0\nExist=0\n" + run, {"--dry-run"}});
  for (const std::string sync : {"Action=5\nExist=4\nExtFileTime=1\n",
                                  "Action=5\nExist=4\nExtFileTime=1\nSyncDelete=1\n",
                                  "Action=5\nExist=0\nSyncStart=1\n"}) {
    cases.push_back({sync + run});
    cases.push_back({sync + preview, previewJobs});
  }
  ExpectSameWithFour(*this, cases, 12, 1);
  // Moves once more into another file system, where they copy and delete.
  const std::string other = orvKestrel::testing::OtherFileSystemThan(fs::temp_directory_path());
  if (other.empty()) return (void)std::printf("[ parallel ] no second file system: moves across not tested\n");
  const Scratch otherDir("parallel-dst", other);
  dst_ = otherDir.root() / "dst";
  ExpectSameWithFour(*this, moves, 12, 1);
}

// Archives packed and unpacked by workers that deflate and inflate ahead of the commit.
TEST_F(Parallel, ArchivesWithOneWorkerAndFourAreTheSame) {
  const std::string due = "DoPreview=0\n";
  // Archives of the source files, made before each unpacking run: two whole ones in sub-folders
  // and one that is damaged.
  const auto archives = [this] {
    const std::string cmd = "cd " + orvKestrel::testing::Quote(src().string()) +
                            " && zip -q -r -D d0/p.zip d1 && zip -q -r -D d1/q.zip d0 -x '*.zip' && "
                            "head -c 300 d0/p.zip > broken.zip";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
  };
  ExpectSameWithFour(*this, {{"Action=3\nZipAll=1\nZipIntStruct=1\n" + due},
                             {"Action=3\nZipAll=1\nZipGrade=9\nZipDelComp=1\n" + due},
                             {"Action=3\nZipAll=0\nZipGrade=1\n" + due},
                             {"Action=3\nZipAll=1\nDoPreview=1\n", {"--preview-jobs"}},
                             {"Action=4\nDestZipFolder=1\nZipDelDeComp=1\n" + due, {}, archives},
                             {"Action=4\nDestZipFolder=0\nDestZipExist=1\n" + due, {}, archives},
                             {"Action=4\nDoPreview=1\n", {"--preview-jobs"}, archives}},
                     1);
}

// Stopped after the k-th file: every file under a destination name is complete and was
// reported, and no temporary is left, with the copies made ahead of k closed unnamed.
TEST_F(Parallel, AStoppedRunNamesOnlyWhatItReportedAndLeavesNothing) {
  for (int i = 0; i < 3000; ++i) {
    Put(src() / ("d" + std::to_string(i % 10) + "/f" + std::to_string(i) + ".txt"),
        Data(i, 200 + i % 4096), kSource);
  }
  fs::create_directories(dst_);
  Put(dir_ / "jobs/a.kjb", "[Job]\nName=a\nFrom=" + src().string() + "\nTo=" + dst_.string() +
                               "\nSubFolder=1\nFStruct=1\nAction=0\nExist=0\nDoPreview=0\nIntervalType=0\nInterval=1\nCounter=1\n");
  const Scratch io("io");
  const StartOptions o{.outFile = (io / "out").string(), .errFile = (io / "err").string()};
  const pid_t pid = StartKestrel(
      {"run", (dir_ / "jobs").string(), "--events", "jsonl", "--jobs", "4"}, dir_.root(), o);
  ASSERT_TRUE(Eventually([&] { return Count(LogTexts(Get(o.outFile)), "Kopiert: ") >= 100; }))
      << Get(o.outFile);
  ::kill(pid, SIGTERM);
  EXPECT_EQ(WaitFor(pid, std::chrono::seconds(60)).exitCode, 130);
  const auto reported = Count(LogTexts(Get(o.outFile)), "Kopiert: ");
  const auto copied = Files(dst_);
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
