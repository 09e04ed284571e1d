#include <orvKestrel/clsCmd.h>

#include "errortrap/modFailSafeLITE.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <thread>

namespace orvKestrel {
namespace {

using namespace std::chrono_literals;
using testing::Exists;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;
using Clock = std::chrono::steady_clock;

void WriteScript(const std::string& path, const std::string& body) {
  WriteFile(path, "#!/bin/sh\n" + body);
  ::chmod(path.c_str(), 0755);
}

// A host that counts its yields and records its message boxes.
struct RecordingHost {
  int yields = 0;
  std::vector<MessageBoxRequest> boxes;
  Host Make() {
    Host h;
    h.yield = [this] { ++yields; };
    h.messageBox = [this](const MessageBoxRequest& r) {
      boxes.push_back(r);
      return BoxAnswer::Ok;
    };
    return h;
  }
};

job Program(const std::string& path, const std::string& param, int wait, int maxSec) {
  job j;
  j.ExecPath = path;
  j.ExecParam = param;
  j.ExecWait = wait;
  j.ExecMaxSec = static_cast<std::int16_t>(maxSec);
  return j;
}

// The state letter of a process ('Z' for a zombie), or 0 when it is gone.
char ProcState(pid_t pid) {
  const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const auto close = stat.rfind(')');
  return close == std::string::npos || close + 2 >= stat.size() ? 0 : stat[close + 2];
}

// The pid that a started program wrote into a file; kills it when the test ends.
class LeftRunning {
 public:
  explicit LeftRunning(const std::string& pidFile) {
    for (auto until = Clock::now() + 1s; Clock::now() < until; std::this_thread::sleep_for(5ms)) {
      const std::string text = ReadFile(pidFile);
      if (!text.empty() && text.back() == '\n') {
        pid_ = std::stoi(text);
        return;
      }
    }
  }
  ~LeftRunning() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }
  pid_t pid() const { return pid_; }
  bool Running() const {
    const char s = ProcState(pid_);
    return s != 0 && s != 'Z';
  }
  // Kills it and answers whether it then vanished, i.e. was reaped and left no zombie.
  bool KillAndVanish() {
    ::kill(pid_, SIGKILL);
    for (auto until = Clock::now() + 1s; Clock::now() < until; std::this_thread::sleep_for(5ms)) {
      if (ProcState(pid_) == 0) return true;
    }
    return false;
  }

 private:
  pid_t pid_ = -1;
};

// Sends one of this process's descriptors into a file while in scope.
class Capture {
 public:
  Capture(int fd, const std::string& file) : fd_(fd), file_(file) {
    std::fflush(nullptr);
    saved_ = ::dup(fd);
    const int out = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ::dup2(out, fd);
    ::close(out);
  }
  ~Capture() { Restore(); }
  std::string Text() {
    Restore();
    return ReadFile(file_);
  }

 private:
  void Restore() {
    if (saved_ < 0) return;
    std::fflush(nullptr);
    ::dup2(saved_, fd_);
    ::close(saved_);
    saved_ = -1;
  }
  int fd_;
  std::string file_;
  int saved_;
};

double CpuSeconds() {
  rusage ru{};
  ::getrusage(RUSAGE_SELF, &ru);
  return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
         static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

// A shell line that records the shell's pid and then runs for a while.
std::string RecordPidThen(const std::string& pidFile, const std::string& rest) {
  return "$$ > " + pidFile + "; " + rest;
}

TEST(clsCmd, ReturnsAtOnceWithoutWaitingForAProgramLeftRunning) {
  struct Case {
    const char* name;
    bool sleeper;  // the program runs on (and records its pid), or ends at once
    int wait, maxSec, yields;
  };
  const Case cases[] = {
      {"limit 0: one pass, the program keeps running", true, 1, 0, 1},
      {"a program ending at once takes one pass", false, 1, 5, 1},
      {"no wait: no pass, the program is reaped later", true, 0, 5, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    RecordingHost rec;
    job j = c.sleeper ? Program("echo", RecordPidThen(dir / "pid", "exec sleep 5"), c.wait, c.maxSec)
                      : Program("true", "", c.wait, c.maxSec);
    const auto t0 = Clock::now();
    clsCmd(rec.Make()).ShellAndWait(j);
    EXPECT_LT(Clock::now() - t0, 700ms);
    EXPECT_EQ(rec.yields, c.yields);
    EXPECT_TRUE(rec.boxes.empty());
    if (!c.sleeper) continue;
    LeftRunning program(dir / "pid");
    ASSERT_TRUE(program.Running());
    if (c.wait == 0) {
      EXPECT_TRUE(program.KillAndVanish()) << "left a zombie";
    }
  }
}

TEST(clsCmd, WaitEndsWhenTheProgramEnds) {
  TempDir dir;
  RecordingHost rec;
  job j = Program("sleep", "0.3; echo done > " + dir / "out", 1, 10);
  const auto t0 = Clock::now();
  clsCmd(rec.Make()).ShellAndWait(j);
  const auto took = Clock::now() - t0;
  EXPECT_EQ(ReadFile(dir / "out"), "done\n");  // waited for the whole command line
  EXPECT_LT(took, 900ms);
  EXPECT_GE(rec.yields, 2);
  EXPECT_LE(rec.yields, 10);  // blocks between passes instead of spinning
}

TEST(clsCmd, ProgramOutlivingTheLimitKeepsRunning) {
  TempDir dir;
  RecordingHost rec;
  Host host = rec.Make();
  job j = Program("echo", RecordPidThen(dir / "pid", "exec sleep 5"), 1, 1);
  const std::time_t start = host.clock.Now();
  const auto t0 = Clock::now();
  const double cpu0 = CpuSeconds();
  clsCmd(host).ShellAndWait(j);
  const auto took = Clock::now() - t0;
  EXPECT_GE(host.clock.Now() - start, 1);  // a second boundary has passed
  EXPECT_LT(took, 1300ms);
  EXPECT_LT(CpuSeconds() - cpu0, 0.2);
  EXPECT_GE(rec.yields, 1);
  EXPECT_LE(rec.yields, 30);
  LeftRunning program(dir / "pid");
  EXPECT_TRUE(program.Running());
  EXPECT_TRUE(program.KillAndVanish()) << "left a zombie";
}

TEST(clsCmd, PathWithBlanksIsSplitByTheShell) {
  TempDir dir;
  // "DIR/my dir/prog" is read as the program "DIR/my" with the argument "dir/prog".
  WriteScript(dir / "my", "echo \"$@\" > " + dir / "args\n");
  RecordingHost rec;
  job j = Program(dir / "my dir/prog", "a  b", 1, 5);
  clsCmd(rec.Make()).ShellAndWait(j);
  EXPECT_EQ(ReadFile(dir / "args"), "dir/prog a b\n");
  EXPECT_TRUE(rec.boxes.empty());
}

TEST(clsCmd, StartFailureShowsTheMessageOnceAndReturns) {
  TempDir dir;
  WriteFile(dir / "plain.txt", "not a program\n");
  WriteScript(dir / "prog", "true\n");
  struct Case {
    std::string name, path, param;
    int wait;
  };
  const std::vector<Case> cases = {
      {"missing", dir / "nothing-here", "", 1},
      {"missing, no wait", dir / "nothing-here", "-x", 0},
      {"not executable", dir / "plain.txt", "", 1},
      {"not executable, no wait", dir / "plain.txt", "", 0},
      {"a folder", dir.str(), "", 1},
      {"blank in the path", dir / "pro g", "", 1},
      {"nothing to run", "", "", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingHost rec;
    job j = Program(c.path, c.param, c.wait, 5);
    const auto t0 = Clock::now();
    {
      Capture shellSays(2, dir / "stderr");  // the shell's own complaint
      EXPECT_NO_THROW(clsCmd(rec.Make()).ShellAndWait(j));
    }
    EXPECT_LT(Clock::now() - t0, 700ms);
    ASSERT_EQ(rec.boxes.size(), 1u);
    EXPECT_EQ(rec.boxes[0].title, "External program error");
    EXPECT_EQ(rec.boxes[0].text,
              "Problems while executing\r\n" + c.path + "\r\nProgram has not been started!");
    EXPECT_EQ(rec.boxes[0].buttons, MessageBoxRequest::Buttons::OkOnly);
  }
}

TEST(clsCmd, StartFailureWithoutMessageBoxGoesToStandardError) {
  TempDir dir;
  job j = Program(dir / "nothing-here", "", 1, 5);
  Capture err(2, dir / "stderr");
  clsCmd().ShellAndWait(j);
  const std::string text = err.Text();
  const std::string line = "kestrel: External program error: Problems while executing / " +
                           dir / "nothing-here" + " / Program has not been started!\n";
  EXPECT_NE(text.find(line), std::string::npos) << text;
}

TEST(clsCmd, ProgramInheritsNoDescriptorButTheStandardOnes) {
  TempDir dir;
  WriteFile(dir / "held", "x");
  const int fd = ::open((dir / "held").c_str(), O_RDONLY);  // deliberately not close-on-exec
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::dup2(fd, 57), 57);
  RecordingHost rec;
  job j = Program("ls", "/proc/self/fd > " + dir / "fds", 1, 5);
  clsCmd(rec.Make()).ShellAndWait(j);
  ::close(57);
  ::close(fd);
  std::set<std::string> fds;
  std::istringstream in(ReadFile(dir / "fds"));
  for (std::string name; in >> name;) fds.insert(name);
  // 0 to 2, and 3 for the folder that ls itself reads.
  EXPECT_EQ(fds, (std::set<std::string>{"0", "1", "2", "3"}));
}

TEST(clsCmd, ProgramOutputGoesWhereTheHostSays) {
  TempDir dir;
  for (const bool toStderr : {false, true}) {
    SCOPED_TRACE(toStderr);
    Host host;
    host.programStdoutToStderr = toStderr;
    job j = Program("echo", "out; echo err >&2", 1, 5);
    Capture out(1, dir / "stdout");
    Capture err(2, dir / "stderr");
    clsCmd(host).ShellAndWait(j);
    const std::string errText = err.Text();
    const std::string outText = out.Text();
    EXPECT_EQ(outText, toStderr ? "" : "out\n");
    EXPECT_EQ(errText, toStderr ? "out\nerr\n" : "err\n");
  }
}

TEST(clsCmd, CallIsTraced) {
  std::vector<std::string> trace;
  Host host;
  host.traceSink = [&](const std::string& line) { trace.push_back(line); };
  job j = Program("true", "", 0, 1);
  clsCmd(host).ShellAndWait(j);
  ASSERT_EQ(trace.size(), 3u);  // header, enter, leave
  EXPECT_NE(trace[1].find("->clsCmd : Sub ShellAndWait : (job=<job>)"), std::string::npos);
  EXPECT_NE(trace[2].find("<-clsCmd : Sub ShellAndWait : (job=<job>)"), std::string::npos);

  // Given the engine's trap, the call nests inside the engine's trace.
  trace.clear();
  FailSafe trap(host);
  trap.Enter("clsKestrel", "Sub ExecuteSingleJob", "()");
  clsCmd(host, trap).ShellAndWait(j);
  ASSERT_EQ(trace.size(), 4u);  // one header only
  EXPECT_NE(trace[2].find("->\tclsCmd : Sub ShellAndWait"), std::string::npos) << trace[2];
}

}  // namespace
}  // namespace orvKestrel
