#include <fcntl.h>
#include <orvKestrel/signals.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace orvKestrel {
namespace {

// A signal handler can reach nothing but process-wide state.
std::atomic<int> g_wakeFd{-1};
std::atomic<int> g_signalled{0};
std::atomic<int> g_hangups{0};
static_assert(std::atomic<int>::is_always_lock_free, "used from a signal handler");

constexpr char kSignal = 's';
constexpr char kQuit = 'q';
constexpr char kHangup = 'h';

void Wake(char c) {
  const int fd = g_wakeFd.load();
  if (fd >= 0) {
    [[maybe_unused]] const auto n = ::write(fd, &c, 1);
  }
}

extern "C" void OnStopSignal(int) {
  const int saved = errno;
  g_signalled.store(1);
  Wake(kSignal);
  errno = saved;
}

extern "C" void OnHangup(int) {
  const int saved = errno;
  g_hangups.fetch_add(1);
  Wake(kHangup);
  errno = saved;
}

void Install(int sig, void (*handler)(int), int flags) {
  struct sigaction sa {};
  sa.sa_handler = handler;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = flags;
  ::sigaction(sig, &sa, nullptr);
}

}  // namespace

StopSignals::StopSignals(bool hangup) : owner_(std::this_thread::get_id()), hangup_(hangup) {
  if (::pipe2(pipe_, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe");
  g_signalled.store(0);
  g_hangups.store(0);
  g_wakeFd.store(pipe_[1]);
  watcher_ = std::thread([this] { Watch(); });
  // SA_RESTART: a signal must not make a file operation of the run fail with EINTR.
  // SA_RESETHAND: a second signal ends the process even if the run is slow to stop.
  Install(SIGINT, OnStopSignal, SA_RESTART | SA_RESETHAND);
  Install(SIGTERM, OnStopSignal, SA_RESTART | SA_RESETHAND);
  if (hangup_) Install(SIGHUP, OnHangup, SA_RESTART);
}

StopSignals::~StopSignals() {
  Install(SIGINT, SIG_DFL, 0);
  Install(SIGTERM, SIG_DFL, 0);
  if (hangup_) Install(SIGHUP, SIG_DFL, 0);
  g_wakeFd.store(-1);
  const char c = kQuit;
  [[maybe_unused]] const auto n = ::write(pipe_[1], &c, 1);
  watcher_.join();
  ::close(pipe_[0]);
  ::close(pipe_[1]);
}

void StopSignals::Watch() {
  for (;;) {
    char c = 0;
    const auto n = ::read(pipe_[0], &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || c == kQuit) return;
    std::lock_guard lock(mutex_);
    if (c == kSignal && kestrel_ != nullptr) kestrel_->StopMsg(true);
    woken_.notify_all();
  }
}

void StopSignals::Attach(clsKestrel* kestrel) {
  std::lock_guard lock(mutex_);
  kestrel_ = kestrel;
}

bool StopSignals::Signalled() const { return g_signalled.load() != 0; }

void StopSignals::OnYield() {
  // StopMsg yields itself, and the watcher's StopMsg yields on the watcher's thread: only the
  // run's own thread goes on (and only it touches inYield_).
  if (std::this_thread::get_id() != owner_ || g_signalled.load() == 0 || inYield_) return;
  if (kestrel_ == nullptr) return;
  inYield_ = true;
  kestrel_->StopMsg(true);
  inYield_ = false;
}

bool StopSignals::WaitUntil(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  woken_.wait_until(lock, deadline,
                    [] { return g_signalled.load() != 0 || g_hangups.load() != 0; });
  return g_signalled.load() != 0;
}

bool StopSignals::TakeHangup() {
  int pending = g_hangups.load();
  while (pending > 0 && !g_hangups.compare_exchange_weak(pending, 0)) {
  }
  return pending > 0;
}

}  // namespace orvKestrel
