// Walk and filter benchmark: the engine's selection of a job against `find DIR -name PATTERN`
// over the same tree of 200,000 files, warm cache, best of 3 each. Prints both times, their
// ratio and the peak memory of this process, then removes the tree.
//   bench_walk [PARENT_DIR]   (default: the system's temporary folder)
#include "engine/Engine.h"
#include "selection/RegExp.h"
#include "selection/Selection.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

namespace {

using namespace orvKestrel;
using Clock = std::chrono::steady_clock;

constexpr int kTop = 20, kSub = 10, kFilesPerFolder = 1000;  // 200,000 files in 220 folders

void MakeTree(const std::string& root) {
  for (int t = 0; t < kTop; ++t) {
    for (int s = 0; s < kSub; ++s) {
      const std::string folder = root + "/t" + std::to_string(t) + "/s" + std::to_string(s);
      std::filesystem::create_directories(folder);
      for (int f = 0; f < kFilesPerFolder; ++f) {
        char name[32];
        std::snprintf(name, sizeof name, "/f%06d.%s", t * 10000 + s * 1000 + f,
                      f % 3 == 0 ? "log" : "txt");
        const int fd = ::open((folder + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) ::close(fd);
      }
    }
  }
}

// Best of three runs; each run returns the number of files it found.
double BestOf3(const std::function<std::size_t()>& run, std::size_t& found) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    const auto start = Clock::now();
    found = run();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

std::size_t RunFind(const std::string& root, const char* pattern) {
  const std::string cmd = "find '" + root + "' -name '" + pattern + "'";
  FILE* pipe = ::popen(cmd.c_str(), "r");
  if (!pipe) return 0;
  std::size_t lines = 0;
  char buf[1 << 16];
  while (const std::size_t n = std::fread(buf, 1, sizeof buf, pipe)) {
    lines += static_cast<std::size_t>(std::count(buf, buf + n, '\n'));
  }
  ::pclose(pipe);
  return lines;
}

job WalkJob(const std::string& root) {
  job j;
  j.JobName = "bench";
  j.From = root;
  j.Action = 6;  // no action: selection alone
  j.DoPreview = 0;
  j.DoFileMatch = 2;
  j.Filename = "*7";  // the base name; the extension is the extension filter's
  j.ExtOpt = 2;
  j.Ext = "txt";
  return j;
}

// The selection as Search runs it: walk, then the filter chain.
std::size_t RunEngine(Services& s, const std::string& root) {
  job j = WalkJob(root);
  JobRun run(j);
  s.regex = std::make_unique<RegExpCache>();
  CleanFilePattern(s, j.Filename, false);
  FindFiles(run, s, j.From, "*.*", true);
  FileList list = std::move(run.files);
  list = FilterExtention(s, list, j);
  list = FilterFileSize(s, list, j);
  list = FilterAttributes(s, list, j);
  list = FilterDate(s, list, j);
  return list.size();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string parent =
      argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
  std::random_device rd;
  const std::string root = parent + "/kestrel-bench-walk-" + std::to_string(rd());
  std::printf("making %d files below %s ...\n", kTop * kSub * kFilesPerFolder, root.c_str());
  MakeTree(root);

  Engine e{Host{}};
  e.LoadLogMessages("");
  e.SetMsgIDs();
  e.catalogueLoaded = true;

  // Warm the cache, and check that both select the same files.
  std::size_t engineFound = RunEngine(e.svc, root), findFound = RunFind(root, "*7.txt");
  const double engineSec = BestOf3([&] { return RunEngine(e.svc, root); }, engineFound);
  const double findSec = BestOf3([&] { return RunFind(root, "*7.txt"); }, findFound);
  // The whole Search with a no-op action, for the record.
  std::size_t searched = 0;
  const double searchSec = BestOf3(
      [&] {
        job j = WalkJob(root);
        JobRun run(j);
        Search(run, e.svc, true, false);
        return std::size_t{0};
      },
      searched);

  rusage ru{};
  ::getrusage(RUSAGE_SELF, &ru);
  std::printf("engine walk+filters: %.3f s (%zu files)\n", engineSec, engineFound);
  std::printf("engine Search, action 6: %.3f s\n", searchSec);
  std::printf("find -name '*7.txt': %.3f s (%zu files)\n", findSec, findFound);
  std::printf("ratio engine/find: %.2f (target <= 1.3)%s\n", engineSec / findSec,
              engineFound == findFound ? "" : "  MISMATCH in file counts");
  std::printf("peak memory: %.1f MiB\n", static_cast<double>(ru.ru_maxrss) / 1024.0);

  std::filesystem::remove_all(root);
  return engineFound == findFound ? 0 : 1;
}
