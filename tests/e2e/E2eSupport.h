// Helpers of the end-to-end tests: a private folder, job files, kestrel started as a child, its
// jsonl event stream, and a tree read back. The names parallel tests rely on: WriteJobFile (a job
// file), RunKestrel (arguments in; exit code, stdout and stderr out) and Files (a tree with the
// contents of its files).
#pragma once

#include <nlohmann/json.hpp>

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/TestSupport.h"  // also the standard headers the tests share

#include <chrono>
#include <climits>

namespace e2e {

namespace fs = std::filesystem;
using namespace orvKestrel::testing;  // the helpers both levels share
using Tree = std::map<std::string, std::string>;  // relative path -> contents
using Lines = std::vector<std::string>;

// Writes each file of a tree below root.
inline void Plant(const fs::path& root, const std::map<std::string, std::string>& files, std::time_t written = 0) {
  for (const auto& [rel, data] : files) Put(root / rel, data, written);
}

inline std::string Get(const fs::path& p) { return ReadFile(p.string()); }

// A folder of its own below the temporary folder, removed with everything in it.
struct Scratch : TempDir {
  using TempDir::TempDir;
  fs::path operator/(const std::string& rel) const { return root() / rel; }
};

// How a child kestrel is started besides its arguments.
struct StartOptions {
  std::string outFile = {}, errFile = {};                     // empty: nowhere
  std::vector<std::pair<std::string, std::string>> env = {};  // set in the child only; "" unsets
  uid_t asUser = 0;  // non-zero: as that user (the tests run as root, whom permissions do not stop)
  std::string bin = KESTREL_BIN;  // another copy of kestrel, e.g. an installed one
};

// kestrel with args in the folder cwd (error.log lands there), its output into the files of `o`.
inline pid_t StartKestrel(const std::vector<std::string>& args, const fs::path& cwd, const StartOptions& o = {}) {
  std::vector<std::string> argv{o.bin};
  argv.insert(argv.end(), args.begin(), args.end());
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  const auto open = [](const std::string& file) {
    return ::open(file.empty() ? "/dev/null" : file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  };
  ::dup2(open(o.outFile), 1);
  ::dup2(open(o.errFile), 2);
  if (o.asUser != 0 && (::setgroups(0, nullptr) != 0 || ::setgid(o.asUser) != 0 || ::setuid(o.asUser) != 0)) {
    ::_exit(125);
  }
  for (const auto& [k, v] : o.env) v.empty() ? ::unsetenv(k.c_str()) : ::setenv(k.c_str(), v.c_str(), 1);
  if (::chdir(cwd.c_str()) != 0) ::_exit(126);
  std::vector<char*> cargv;
  for (std::string& a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);
  ::execv(cargv[0], cargv.data());
  ::_exit(127);
}

// Polls until done() holds; false after limit. Only a guard against a hang: what a test checks
// is the order of events, never how long they took.
inline bool Eventually(const std::function<bool()>& done, std::chrono::seconds limit = std::chrono::seconds(30)) {
  for (const auto until = std::chrono::steady_clock::now() + limit; !done();) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// Waits for the child, at most limit: then it is killed and the test fails. Its exit code, -1
// when a signal ended it.
inline int WaitFor(pid_t pid, std::chrono::seconds limit = std::chrono::seconds(300)) {
  int status = 0;
  if (!Eventually([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, limit)) {
    ADD_FAILURE() << "kestrel did not end within " << limit.count() << " s";
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// True while the process catches sig: its handler is installed (and, for a handler installed
// to run once, has not run yet).
inline bool Catches(pid_t pid, int sig) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigCgt:")) return ((std::stoull(line.substr(7), nullptr, 16) >> (sig - 1)) & 1) != 0;
  }
  return false;
}

// The LogMessage events of a jsonl stream; every line must be JSON.
inline std::vector<nlohmann::json> LogEvents(const std::string& stream) {
  std::vector<nlohmann::json> out;
  for (const std::string& line : SplitLines(stream)) {
    const auto event = nlohmann::json::parse(line, nullptr, false);
    if (event.is_discarded()) ADD_FAILURE() << "not JSON: " << line;
    else if (event.value("event", "") == "LogMessage") out.push_back(event);
  }
  return out;
}

// The texts of those events.
inline Lines LogTexts(const std::string& stream) {
  Lines out;
  for (const auto& event : LogEvents(stream)) out.push_back(event["LogMsg"].get<std::string>());
  return out;
}

struct RunResult {
  int exitCode = -1;
  std::string out, err;
  Lines logs = {};  // the texts of the LogMessage events, when out is a jsonl stream
};

// Runs kestrel to its end; its output goes through a folder of its own, never through cwd.
inline RunResult RunKestrel(const std::vector<std::string>& args, const fs::path& cwd, StartOptions o = {}) {
  const Scratch io("io");
  o.outFile = (io / "out").string();
  o.errFile = (io / "err").string();
  const int exitCode = WaitFor(StartKestrel(args, cwd, o));
  EXPECT_NE(exitCode, -1) << "kestrel died of a signal\n" << Get(o.errFile);
  return {exitCode, Get(o.outFile), Get(o.errFile)};
}

// Every file below root (links not followed), relative path -> contents.
inline Tree Files(const fs::path& root) {
  Tree out;
  if (!fs::exists(root)) return out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    std::error_code ec;
    if (e.is_regular_file(ec) && !e.is_symlink(ec)) out[fs::relative(e.path(), root).string()] = Get(e.path());
  }
  return out;
}

// What python's zipfile reads of each entry of an archive: name, time, attributes, CRC, size,
// method, flags, versions and extra fields, not how its data was deflated (which differs
// between the workers' deflate and the zip library's).
inline std::string ZipListing(const fs::path& archive) {
  const std::string cmd = "python3 -I -c 'import zipfile,sys\n"
                          "for i in zipfile.ZipFile(sys.argv[1]).infolist(): print(i.filename, "
                          "i.date_time, i.external_attr, i.CRC, i.file_size, i.compress_type, i.flag_bits, "
                          "i.create_system, i.create_version, i.extract_version, i.internal_attr, "
                          "i.extra.hex())' " + Quote(archive.string());
  const std::string out = RunTool(cmd).output;
  EXPECT_EQ(out.find("Error"), std::string::npos) << archive << ": " << out;  // both fail alike
  return out;
}

// Every entry below root (links not followed): folders as "dir/" -> "", files -> contents (an
// archive: its ZipListing). With `stat` also each entry's mode and the write time to the
// nanosecond, but not of an archive (written now) and of folders only with folderTimes (making
// an entry in a folder changes its time).
inline Tree Listing(const fs::path& root, bool stat = false, bool folderTimes = true) {
  Tree out;
  if (!fs::exists(root)) return out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    struct stat st {};
    ::lstat(e.path().c_str(), &st);
    const bool dir = S_ISDIR(st.st_mode), zip = S_ISREG(st.st_mode) && e.path().extension() == ".zip",
               file = S_ISREG(st.st_mode) && !zip;
    std::string v = file ? Get(e.path()) : zip ? ZipListing(e.path()) : "";
    if (stat) v += "@" + std::to_string(st.st_mode);
    if (stat && (file || (dir && folderTimes))) {
      v += " " + std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
    }
    out[fs::relative(e.path(), root).string() + (dir ? "/" : "")] = v;
  }
  return out;
}

// True when a component of the relative path begins with ".".
inline bool Hidden(const std::string& rel) { return rel.starts_with('.') || rel.find("/.") != std::string::npos; }

inline bool Has(const Lines& l, const std::string& line) { return std::find(l.begin(), l.end(), line) != l.end(); }

// Lines that begin with prefix and contain every one of parts.
inline int Count(const Lines& lines, const std::string& prefix, const Lines& parts = {}) {
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) {
    return l.starts_with(prefix) &&
           std::all_of(parts.begin(), parts.end(), [&](const auto& p) { return l.find(p) != std::string::npos; });
  }));
}

// The command line with the tests' clock and short date format after it.
inline std::vector<std::string> At(std::vector<std::string> args, const std::string& now = "2026-11-22 10:00:00") {
  for (std::string a : {"--now", now.c_str(), "--date-format", "%d.%m.%Y"}) args.push_back(a);
  return args;
}

// Keys of a job that runs at every pass.
inline constexpr const char* kDue = "DoPreview=0\nCounter=1\nInterval=1\n";

// A scratch folder with src, dst and jobs, and job files between src and dst.
class JobFolderTest : public ::testing::Test {
 protected:
  JobFolderTest() { for (const char* sub : {"src", "dst", "jobs"}) fs::create_directories(dir_ / sub); }
  fs::path src() const { return dir_ / "src"; }
  fs::path dst() const { return dir_ / "dst"; }
  fs::path jobs() const { return dir_ / "jobs"; }
  std::string S(const std::string& rel) const { return (src() / rel).string(); }
  std::string D(const std::string& rel) const { return (dst() / rel).string(); }
  // Empty source and destination folders, for the next row of a table.
  void EmptyFolders() const {
    for (const fs::path& f : {src(), dst()}) EmptyFolder(f);
  }
  void WriteJob(const std::string& keys, const std::string& name = "a", const fs::path& from = {},
                const fs::path& to = {}) const {
    const fs::path f = from.empty() ? src() : from, t = to.empty() ? dst() : to;
    Put(jobs() / (name + ".kjb"), "[Job]\nName=" + name + "\nFrom=" + f.string() + "\nTo=" + t.string() + "\n" + keys);
  }
  // kestrel with args, in the scratch folder.
  RunResult Kestrel(const std::vector<std::string>& args, StartOptions o = {}) const {
    return RunKestrel(args, dir_.root(), std::move(o));
  }
  // `kestrel run` over the job folder with the jsonl stream and more options; a recycle bin goes
  // to the scratch folder unless o.env says otherwise.
  RunResult RunJobs(const std::vector<std::string>& options = {}, StartOptions o = {}) const {
    std::vector<std::string> args{"run", jobs().string(), "--events", "jsonl"};
    args.insert(args.end(), options.begin(), options.end());
    o.env.insert(o.env.begin(), {"XDG_DATA_HOME", (dir_ / "xdg").string()});
    RunResult r = Kestrel(args, std::move(o));
    r.logs = LogTexts(r.out);
    return r;
  }

  Scratch dir_{"e2e"};
};

// An entry of a test archive: a file, or a link (target in data) as Unix tools store it.
struct Entry { std::string name, data; bool link = false; };

// Job folder tests around archives, which python writes and reads independently of kestrel.
class ArchiveTest : public JobFolderTest {
 protected:
  void SetUp() override { if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)"; }
  // Runs a shell command; what it says goes into the failure, and is returned.
  static std::string Shell(const std::string& cmd) {
    const auto [status, output] = RunTool(cmd);
    EXPECT_EQ(status, 0) << cmd << "\n" << output;
    return output;
  }
  // Runs a python script (zipfile, os, sys and struct imported); returns what it printed.
  std::string Python(const std::string& script) const {
    return Shell("python3 " + Quote(Put(dir_ / "script.py", "import zipfile, os, sys, struct\n" + script)));
  }
  // The local time that Archive stamps every entry with.
  static std::time_t EntryTime() { return LocalTime(2020, 1, 2, 3, 4, 6); }
  // An archive whose entries are stamped with EntryTime().
  void Archive(const fs::path& archive, const std::vector<Entry>& entries) const {
    fs::create_directories(archive.parent_path());
    std::string script = "z=zipfile.ZipFile(" + Quote(archive.string()) + ",'w')\n";
    for (const Entry& e : entries) {
      script += "i=zipfile.ZipInfo(" + Quote(e.name) + ",(2020,1,2,3,4,6))\n";
      if (e.link) script += "i.create_system=3; i.external_attr=(0o120777<<16)\n";
      script += "z.writestr(i," + Quote(e.data) + ")\n";
    }
    Python(script + "z.close()\n");
  }
  // "name=contents;" per entry of the archive, sorted by name.
  std::string Entries(const fs::path& archive) const {
    return Python("z=zipfile.ZipFile(" + Quote(archive.string()) + ")\n"
                  "print(''.join('%s=%s;' % (n, z.read(n).decode()) for n in sorted(z.namelist())), end='')\n");
  }
};

}  // namespace e2e
