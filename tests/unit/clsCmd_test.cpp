#include <orvKestrel/clsCmd.h>

#include "errortrap/modFailSafeLITE.h"
#include "support/TestSupport.h"

#include <signal.h>

#include <gtest/gtest.h>

#include <chrono>

namespace orvKestrel {
namespace {

using namespace std::chrono_literals;
using namespace testing;  // the shared helpers

// A host that counts its yields and records its message boxes.
struct RecordingHost {
  int yields = 0;
  std::vector<MessageBoxRequest> boxes;
  Host Make() {
    Host h;
    h.yield = [this] { ++yields; };
    h.messageBox = [this](const MessageBoxRequest& r) { return boxes.push_back(r), BoxAnswer::Ok; };
    return h;
  }
};

job Program(const std::string& path, const std::string& param, int wait, int maxSec) {
  job j;
  std::tie(j.ExecPath, j.ExecParam, j.ExecWait, j.ExecMaxSec) = std::tuple(path, param, wait, maxSec);
  return j;
}

// How long the call waits is read from what happened in which order (the program still running
// when the call returned, its output already there, the host clock's seconds, the number of
// passes), never from a wall clock threshold that a busy machine could cross. (The program's
// stdout on stderr, where the host says so: e2e RunTest's external program.)
TEST(clsCmd, WaitsForTheWholeCommandLineUpToItsLimitAndNeverKillsIt) {
  // The sleeper records its pid and runs on past the call.
  const std::string sleeper = "$$ > pid; exec sleep 5", talker = "0.3; echo out; echo err >&2";
  // What the case shows, the program, ExecWait, ExecMaxSec, the passes (-1: at least one, and a few
  // per second waited: blocks between passes), whether a second boundary of the host clock has
  // passed, and the program's stdout and stderr.
  const std::tuple<const char*, std::string, std::string, int, int, int, bool, std::string, std::string> cases[] = {
      {"limit 0: one pass, the program keeps running", "echo", sleeper, 1, 0, 1, false, "", ""},
      {"a program ending at once takes one pass", "true", "", 1, 5, 1, false, "", ""},
      {"no wait: no pass, the program is reaped later", "echo", sleeper, 0, 5, 0, false, "", ""},
      {"outliving the limit: blocks between passes, then returns", "echo", sleeper, 1, 1, -1, true, "", ""},
      {"waits for the whole command line", "sleep", talker, 1, 30, -1, false, "out\n", "err\n"},
  };
  for (const auto& [name, path, param, wait, maxSec, yields, pastLimit, out, err] : cases) {
    SCOPED_TRACE(name);
    TempDir dir;
    testing::CurrentDir here(dir.str());
    RecordingHost rec;
    Host host = rec.Make();
    job j = Program(path, param, wait, maxSec);
    const std::time_t start = host.clock.Now();
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    clsCmd(host).ShellAndWait(j);
    const std::string stderrText = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::pair(::testing::internal::GetCapturedStdout(), stderrText), std::pair(out, err));
    const std::time_t took = host.clock.Now() - start;
    EXPECT_TRUE(yields < 0 ? rec.yields >= 1 && rec.yields <= 20 * (took + 1) : rec.yields == yields) << rec.yields;
    EXPECT_TRUE(!pastLimit || took >= 1);
    EXPECT_TRUE(rec.boxes.empty());
    if (param != sleeper) continue;
    pid_t pid = -1;  // the sleeper's, as it wrote it
    for (int i = 0; i < 200 && pid < 0; ++i, std::this_thread::sleep_for(5ms))
      if (const std::string text = ReadFile(dir / "pid"); text.ends_with('\n')) pid = std::stoi(text);
    const auto state = [pid] {  // its state letter ('Z' for a zombie), or 0 when it is gone
      const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
      const auto close = stat.rfind(')');
      return pid <= 0 || close == std::string::npos || close + 2 >= stat.size() ? '\0' : stat[close + 2];
    };
    ASSERT_NE(state(), 0);
    ASSERT_NE(state(), 'Z');
    ::kill(pid, SIGKILL);  // then it must vanish where the call reaps it: no zombie left
    if (wait != 0 && !pastLimit) continue;
    for (int i = 0; i < 200 && state() != 0; ++i) std::this_thread::sleep_for(5ms);
    EXPECT_EQ(state(), 0) << "left a zombie";
  }
}

// A path with a blank is split by the shell; a program that does not start shows one message
// and the call returns.
TEST(clsCmd, PathWithBlanksIsSplitAndAStartFailureShowsTheMessageOnce) {
  TempDir dir;
  // "DIR/my dir/prog" is read as the program "DIR/my" with the argument "dir/prog".
  WriteFile(dir / "my", "#!/bin/sh\necho \"$@\" > " + dir / "args\n");
  ::chmod((dir / "my").c_str(), 0755);
  RecordingHost split;
  job blank = Program(dir / "my dir/prog", "a  b", 1, 5);
  clsCmd(split.Make()).ShellAndWait(blank);
  EXPECT_EQ(ReadFile(dir / "args"), "dir/prog a b\n");
  EXPECT_TRUE(split.boxes.empty());
  WriteFile(dir / "plain.txt", "not a program\n");
  // (A missing program whose path holds a blank: e2e RunTest's external program.)
  const struct { std::string name, path, param; int wait; } cases[] = {
      {"missing", dir / "nothing-here", "", 1},        {"missing, no wait", dir / "nothing-here", "-x", 0},
      {"not executable", dir / "plain.txt", "", 1},    {"not executable, no wait", dir / "plain.txt", "", 0},
      {"a folder", dir.str(), "", 1},                  {"nothing to run", "", "", 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingHost rec;
    job j = Program(c.path, c.param, c.wait, 5);
    ::testing::internal::CaptureStderr();  // the shell's own complaint
    EXPECT_NO_THROW(clsCmd(rec.Make()).ShellAndWait(j));
    ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(rec.boxes.size(), 1u);
    EXPECT_EQ(std::tuple(rec.boxes[0].title, rec.boxes[0].text, rec.boxes[0].buttons),
              std::tuple("External program error", "Problems while executing\r\n" + c.path +
                         "\r\nProgram has not been started!", MessageBoxRequest::Buttons::OkOnly));
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
  EXPECT_EQ(ReadFile(dir / "fds"), "0\n1\n2\n3\n");  // and 3 for the folder that ls itself reads
}

// Given the engine's trap, the call nests inside the engine's trace, under its one header.
TEST(clsCmd, CallIsTracedInsideTheEngines) {
  std::vector<std::string> trace;
  Host host;
  host.traceSink = [&](const std::string& line) { trace.push_back(line); };
  job j = Program("true", "", 0, 1);
  FailSafe trap(host);
  trap.Enter("clsKestrel", "Sub ExecuteSingleJob", "()");
  clsCmd(host, trap).ShellAndWait(j);
  ASSERT_EQ(trace.size(), 4u);
  EXPECT_NE(trace[2].find("->\tclsCmd : Sub ShellAndWait : (job=<job>)"), std::string::npos) << trace[2];
  EXPECT_NE(trace[3].find("<-\tclsCmd : Sub ShellAndWait : (job=<job>)"), std::string::npos) << trace[3];
}

}  // namespace
}  // namespace orvKestrel
