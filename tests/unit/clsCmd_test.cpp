#include <orvKestrel/clsCmd.h>

#include "errortrap/modFailSafeLITE.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <thread>

namespace orvKestrel {
namespace {

using namespace std::chrono_literals;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

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

// A program that records its pid in pidFile and then runs on for a while.
job Sleeper(const std::string& pidFile, int wait, int maxSec) {
  return Program("echo", "$$ > " + pidFile + "; exec sleep 5", wait, maxSec);
}

// The program whose pid a Sleeper wrote; killed when the test ends.
class LeftRunning {
 public:
  explicit LeftRunning(const std::string& pidFile) {
    for (int i = 0; i < 200 && pid_ < 0; ++i, std::this_thread::sleep_for(5ms)) {
      if (const std::string text = ReadFile(pidFile); text.ends_with('\n')) pid_ = std::stoi(text);
    }
  }
  ~LeftRunning() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }
  // Its state letter ('Z' for a zombie), or 0 when it is gone.
  char State() const {
    const std::string stat = ReadFile("/proc/" + std::to_string(pid_) + "/stat");
    const auto close = stat.rfind(')');
    return pid_ <= 0 || close == std::string::npos || close + 2 >= stat.size() ? 0 : stat[close + 2];
  }
  // Kills it and answers whether it then vanished, i.e. was reaped and left no zombie.
  bool KillAndVanish() {
    ::kill(pid_, SIGKILL);
    for (int i = 0; i < 200 && State() != 0; ++i) std::this_thread::sleep_for(5ms);
    return State() == 0;
  }

 private:
  pid_t pid_ = -1;
};

// How long the call waits is read from what happened in which order (the program still running
// when the call returned, the host clock's seconds, the number of passes), never from a wall
// clock threshold that a busy machine could cross.
TEST(clsCmd, WaitsForTheProgramUpToItsLimitAndNeverKillsIt) {
  struct Case {
    const char* name;
    bool sleeper;     // runs on past the call; else "true", ending at once
    int wait, maxSec;
    int minYields, maxYields;
    bool pastLimit;   // a second boundary of the host clock has passed
  };
  const Case cases[] = {
      {"limit 0: one pass, the program keeps running", true, 1, 0, 1, 1, false},
      {"a program ending at once takes one pass", false, 1, 5, 1, 1, false},
      {"no wait: no pass, the program is reaped later", true, 0, 5, 0, 0, false},
      {"outliving the limit: blocks between passes, then returns", true, 1, 1, 1, 30, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    RecordingHost rec;
    Host host = rec.Make();
    job j = c.sleeper ? Sleeper(dir / "pid", c.wait, c.maxSec) : Program("true", "", c.wait, c.maxSec);
    const std::time_t start = host.clock.Now();
    clsCmd(host).ShellAndWait(j);
    EXPECT_GE(rec.yields, c.minYields);
    EXPECT_LE(rec.yields, c.maxYields);
    if (c.pastLimit) {
      EXPECT_GE(host.clock.Now() - start, 1);
    }
    EXPECT_TRUE(rec.boxes.empty());
    if (!c.sleeper) continue;
    LeftRunning program(dir / "pid");
    ASSERT_NE(program.State(), 0);
    ASSERT_NE(program.State(), 'Z');
    if (c.wait == 0 || c.pastLimit) {
      EXPECT_TRUE(program.KillAndVanish()) << "left a zombie";
    }
  }
}

// The program's stdout goes to this process's stdout, or to stderr where the host says so.
TEST(clsCmd, WaitEndsWhenTheWholeCommandLineEndsAndOutputGoesWhereTheHostSays) {
  for (const bool toStderr : {false, true}) {
    SCOPED_TRACE(toStderr);
    RecordingHost rec;
    Host host = rec.Make();
    host.programStdoutToStderr = toStderr;
    job j = Program("sleep", "0.3; echo out; echo err >&2", 1, 30);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    const std::time_t start = host.clock.Now();
    clsCmd(host).ShellAndWait(j);
    const std::string errText = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), toStderr ? "" : "out\n");
    EXPECT_EQ(errText, toStderr ? "out\nerr\n" : "err\n");
    const std::time_t took = host.clock.Now() - start;
    EXPECT_LT(took, 30);  // not held to the limit
    EXPECT_GE(rec.yields, 1);
    // Blocks between passes instead of spinning: a few passes per second it waited, however
    // long a busy machine made that.
    EXPECT_LE(rec.yields, 20 * (took + 1));
  }
}

TEST(clsCmd, PathWithBlanksIsSplitByTheShell) {
  TempDir dir;
  // "DIR/my dir/prog" is read as the program "DIR/my" with the argument "dir/prog".
  WriteFile(dir / "my", "#!/bin/sh\necho \"$@\" > " + dir / "args\n");
  ::chmod((dir / "my").c_str(), 0755);
  RecordingHost rec;
  job j = Program(dir / "my dir/prog", "a  b", 1, 5);
  clsCmd(rec.Make()).ShellAndWait(j);
  EXPECT_EQ(ReadFile(dir / "args"), "dir/prog a b\n");
  EXPECT_TRUE(rec.boxes.empty());
}

TEST(clsCmd, StartFailureShowsTheMessageOnceAndReturns) {
  TempDir dir;
  WriteFile(dir / "plain.txt", "not a program\n");
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
    ::testing::internal::CaptureStderr();  // the shell's own complaint
    EXPECT_NO_THROW(clsCmd(rec.Make()).ShellAndWait(j));
    ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(rec.boxes.size(), 1u);
    EXPECT_EQ(rec.boxes[0].title, "External program error");
    EXPECT_EQ(rec.boxes[0].text,
              "Problems while executing\r\n" + c.path + "\r\nProgram has not been started!");
    EXPECT_EQ(rec.boxes[0].buttons, MessageBoxRequest::Buttons::OkOnly);
  }
}

TEST(clsCmd, ProgramInheritsNoDescriptorButTheStandardOnes) {
  TempDir dir;
  WriteFile(dir / "held", "x");
  const int fd = ::open((dir / "held").c_str(), O_RDONLY);  // deliberately not close-on-exec
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::dup2(fd, 57), 57);
  job j = Program("ls", "/proc/self/fd > " + dir / "fds", 1, 5);
  clsCmd().ShellAndWait(j);
  ::close(57);
  ::close(fd);
  std::set<std::string> fds;
  std::istringstream in(ReadFile(dir / "fds"));
  for (std::string name; in >> name;) fds.insert(name);
  // 0 to 2, and 3 for the folder that ls itself reads.
  EXPECT_EQ(fds, (std::set<std::string>{"0", "1", "2", "3"}));
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
