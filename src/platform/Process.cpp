#include "platform/Process.h"

#include "platform/SysError.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

extern char** environ;

namespace orvKestrel {
namespace {

// The spawn attributes and descriptor actions, released on every path.
class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attrs_);
  }
  ~SpawnSetup() {
    posix_spawnattr_destroy(&attrs_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  void Configure(bool stdoutToStderr) {
    if (stdoutToStderr) {
      Check(posix_spawn_file_actions_adddup2(&actions_, 2, 1), "posix_spawn_file_actions_adddup2");
    }
    // Descriptors that the host (or a library inside it) opened without close-on-exec stay home.
    Check(posix_spawn_file_actions_addclosefrom_np(&actions_, 3),
          "posix_spawn_file_actions_addclosefrom_np");
    // A host may block signals or ignore SIGPIPE; the program starts with the usual defaults.
    sigset_t none;
    sigemptyset(&none);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    Check(posix_spawnattr_setsigmask(&attrs_, &none), "posix_spawnattr_setsigmask");
    Check(posix_spawnattr_setsigdefault(&attrs_, &pipe), "posix_spawnattr_setsigdefault");
    Check(posix_spawnattr_setflags(&attrs_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
          "posix_spawnattr_setflags");
  }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attrs() const { return &attrs_; }

 private:
  static void Check(int err, const char* call) {
    if (err != 0) throw SysError(err, call, "");
  }
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attrs_;
};

int PidfdOpen(pid_t pid) { return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)); }

int StatusCode(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

}  // namespace

Process::Process(const std::string& commandLine, bool stdoutToStderr) {
  SpawnSetup setup;
  setup.Configure(stdoutToStderr);
  std::string sh = "sh";
  std::string dashC = "-c";
  std::string line = commandLine;
  char* argv[] = {sh.data(), dashC.data(), line.data(), nullptr};
  const int err = posix_spawn(&pid_, "/bin/sh", setup.actions(), setup.attrs(), argv, environ);
  if (err != 0) {
    pid_ = -1;
    throw SysError(err, "posix_spawn", "/bin/sh");
  }
  // pidfds are always close-on-exec, so later programs do not inherit this one.
  pidfd_ = PidfdOpen(pid_);
}

Process::~Process() {
  if (pidfd_ >= 0) ::close(pidfd_);
  if (pid_ < 0 || Reap()) return;
  const pid_t pid = pid_;
  try {
    std::thread([pid] {
      int status = 0;
      while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
    }).detach();
  } catch (const std::system_error&) {
    // No thread to be had: the program is reaped by init once this process ends.
  }
}

bool Process::WaitFor(std::chrono::milliseconds timeout) {
  if (exit_) return true;
  if (Reap()) return true;
  if (timeout.count() <= 0) return false;
  Block(timeout);
  return Reap();
}

void Process::Block(std::chrono::milliseconds timeout) {
  if (pidfd_ >= 0) {
    pollfd pfd{pidfd_, POLLIN, 0};
    // An interrupted poll only ends this pass early; the caller looks again.
    ::poll(&pfd, 1, static_cast<int>(timeout.count()));
    return;
  }
  constexpr auto kStep = std::chrono::milliseconds(5);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline && !Reap()) {
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(
        kStep, deadline - std::chrono::steady_clock::now()));
  }
}

bool Process::Reap() {
  if (exit_) return true;
  int status = 0;
  const pid_t r = ::waitpid(pid_, &status, WNOHANG);
  if (r == pid_) {
    exit_ = StatusCode(status);
  } else if (r < 0 && errno == ECHILD) {
    exit_ = -1;  // the host reaped it (a SIGCHLD handler of its own)
  }
  return exit_.has_value();
}

std::string OwnExecutable() {
  char buf[4096];
  const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf);
  if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buf) return {};
  return std::string(buf, static_cast<std::size_t>(n));
}

}  // namespace orvKestrel
