// Copy benchmark: a copy job of 20,000 small files (20 folders of 1,000, 1 to 4 KiB, folder
// structure kept) into an empty folder, by the engine (Search with Action 0) and by `cp -a` and
// `rsync -a` on the same tree; `rsync -a --fsync` for reference, since the engine flushes every
// copy before it puts it in place. The engine runs with one job (every copy in turn) and with
// JOBS workers copying ahead (default: the number of cores), and the floor (Floor.h): the same
// durable copies with nothing else, in one thread and in JOBS. Best of 3 each, everything flushed
// to disk before each run.
//   bench_copy [PARENT_DIR] [FILES] [JOBS]   (default: the system's temporary folder, 20000)
#include "engine/Engine.h"
#include "selection/Selection.h"

#include "Floor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>

namespace {

using namespace orvKestrel;
using Clock = std::chrono::steady_clock;

struct Counter : IKestrelEvents {
  void LogMessage(const std::string&, std::int16_t MsgID, bool, bool, bool, bool) override {
    if (MsgID == 11) ++copied;
    if (MsgID == 10) ++errors;
  }
  void CurrentJob(const std::string&, std::int32_t, std::int32_t, std::int16_t, std::int16_t,
                  std::int16_t, const std::string&, const std::string&, std::int16_t,
                  std::int16_t) override {}
  void KestrelCounter(std::int32_t, std::int32_t) override {}
  long copied = 0, errors = 0;
};

void MakeTree(const std::string& root, int files) {
  std::mt19937 rng(7);
  std::string data(4096, 'x');
  for (char& c : data) c = static_cast<char>('a' + rng() % 26);
  for (int i = 0; i < files; ++i) {
    const std::string folder = root + "/d" + std::to_string(i / 1000);
    if (i % 1000 == 0) std::filesystem::create_directories(folder);
    const std::string path = folder + "/f" + std::to_string(i) + ".txt";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) continue;
    const std::size_t len = 1024 + rng() % 3073;
    if (::write(fd, data.data(), len) < 0) std::perror("write");
    ::close(fd);
  }
}

std::size_t CountFiles(const std::string& root) {
  std::size_t n = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(root)) {
    n += e.is_regular_file() ? 1 : 0;
  }
  return n;
}

// Best of three; the destination is emptied and everything flushed before each run.
double BestOf3(const std::string& dest, const std::function<void()>& run) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    std::filesystem::remove_all(dest);
    std::filesystem::create_directories(dest);
    ::sync();
    const auto start = Clock::now();
    run();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

void Shell(const std::string& cmd) {
  if (std::system(cmd.c_str()) != 0) std::fprintf(stderr, "failed: %s\n", cmd.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string parent =
      argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
  const int files = argc > 2 ? std::atoi(argv[2]) : 20000;
  const unsigned jobs = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3]))
                                 : std::max(1u, std::thread::hardware_concurrency());
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::random_device rd;
  const std::string root = parent + "/kestrel-bench-copy-" + std::to_string(rd());
  const std::string src = root + "/src", dst = root + "/dst";
  std::printf("making %d files below %s ...\n", files, src.c_str());
  MakeTree(src, files);

  Counter events;
  Engine e{Host{}};
  e.svc.events = &events;
  e.LoadLogMessages("");
  e.SetMsgIDs();
  e.catalogueLoaded = true;
  const auto runEngine = [&] {
    job j;
    j.JobName = "bench";
    j.From = src;
    j.To = dst;
    j.Action = 0;
    j.SubFolder = 1;
    j.FStruct = 1;
    j.DoPreview = 0;
    JobRun run(j);
    Search(run, e.svc, true, false);
  };
  e.svc.jobs = 1;
  const double engineSec = BestOf3(dst, runEngine);
  const std::size_t engineCopies = CountFiles(dst);
  std::printf("engine, 1 job:     %7.3f s (%zu files copied, %ld errors)\n", engineSec,
              engineCopies, events.errors);
  e.svc.jobs = jobs;
  const double parallelSec = BestOf3(dst, runEngine);
  const std::size_t parallelCopies = CountFiles(dst);
  std::printf("engine, %2u jobs:   %7.3f s (%zu files copied, %ld lines in all)\n", jobs,
              parallelSec, parallelCopies, events.copied);
  const double floorSec = BestOf3(dst, [&] { floor_bench::CopyTree(src, dst, 1); });
  const double floorParallelSec = BestOf3(dst, [&] { floor_bench::CopyTree(src, dst, jobs); });
  const bool floorComplete = CountFiles(dst) == static_cast<std::size_t>(files);
  std::printf("floor, 1 thread:   %7.3f s   engine/floor %.2f\n", floorSec, engineSec / floorSec);
  std::printf("floor, %2u threads: %7.3f s   engine/floor %.2f%s\n", jobs, floorParallelSec,
              parallelSec / floorParallelSec, floorComplete ? "" : " (incomplete: ignore)");
  // Each peer's line as soon as it is measured: the flushing peer can take long on a busy disk.
  const auto peer = [&](const char* name, const std::string& cmd, const char* goal) {
    const double sec = BestOf3(dst, [&] { Shell(cmd); });
    std::printf("%-18s %7.3f s   engine/peer  1 job %.2f, %u jobs %.2f%s; floor/peer %.2f\n",
                name, sec, engineSec / sec, jobs, parallelSec / sec, goal, floorParallelSec / sec);
  };
  peer("cp -a:", "cp -a '" + src + "/.' '" + dst + "/'", " (goal <= 0.8)");
  peer("rsync -a:", "rsync -a '" + src + "/' '" + dst + "/'", " (goal <= 0.7)");
  peer("rsync -a --fsync:", "rsync -a --fsync '" + src + "/' '" + dst + "/'", "");
  std::filesystem::remove_all(root);
  const auto all = static_cast<std::size_t>(files);
  return engineCopies == all && parallelCopies == all ? 0 : 1;
}
