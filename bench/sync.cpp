// Synchronisation benchmark: a synchronisation job over two folders that already hold the same
// 100,000 files (100 folders of 1,000, same sizes and times), by the engine (Search with
// Action 5, policy 4 "newer", both passes) and by `rsync -a` from one folder to the other, which
// finds nothing to do either. One engine pass (up to the end-of-pass line) does what one rsync
// run does; the whole job, both directions, does what two do. The same job is also run by the
// `kestrel` host with its event stream to a pipe, as a script or a service sees it; and the
// floor (Floor.h): the status of every file on both sides, both ways, in two threads. Best of 3
// each, warm cache.
//   bench_sync [PARENT_DIR] [FILES]   (default: the system's temporary folder, 100000)
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
#include <optional>
#include <random>
#include <string>

namespace {

using namespace orvKestrel;
using Steady = std::chrono::steady_clock;
using PassEnd = std::optional<Steady::time_point>;

struct Counter : IKestrelEvents {
  void LogMessage(const std::string&, std::int16_t MsgID, bool, bool, bool, bool) override {
    if (MsgID == 92 && !firstPassEnd) firstPassEnd = Steady::now();
    if (MsgID == 45) ++kept;
    if (MsgID == 11 || MsgID == 44 || MsgID == 10) ++changed;
  }
  void CurrentJob(const std::string&, std::int32_t, std::int32_t, std::int16_t, std::int16_t,
                  std::int16_t, const std::string&, const std::string&, std::int16_t,
                  std::int16_t) override {}
  void KestrelCounter(std::int32_t, std::int32_t) override {}
  long kept = 0, changed = 0;
  PassEnd firstPassEnd;
};

void MakeTree(const std::string& root, int files) {
  for (int i = 0; i < files; ++i) {
    const std::string folder = root + "/d" + std::to_string(i / 1000);
    if (i % 1000 == 0) std::filesystem::create_directories(folder);
    const std::string path = folder + "/f" + std::to_string(i) + ".txt";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) continue;
    const std::string data = std::to_string(i);
    if (::write(fd, data.data(), data.size()) < 0) std::perror("write");
    ::close(fd);
  }
}

struct Times {
  double all = 1e9, firstPass = 1e9;
};

Times BestOf3(const std::function<PassEnd()>& run) {
  Times best;
  for (int i = 0; i < 3; ++i) {
    const auto start = Steady::now();
    const auto passEnd = run();
    const auto end = Steady::now();
    best.all = std::min(best.all, std::chrono::duration<double>(end - start).count());
    if (passEnd) {
      best.firstPass =
          std::min(best.firstPass, std::chrono::duration<double>(*passEnd - start).count());
    }
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string parent =
      argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
  const int files = argc > 2 ? std::atoi(argv[2]) : 100000;
  std::random_device rd;
  const std::string root = parent + "/kestrel-bench-sync-" + std::to_string(rd());
  const std::string primary = root + "/primary", secondary = root + "/secondary";
  std::printf("making %d files below %s and a copy of them ...\n", files, root.c_str());
  MakeTree(primary, files);
  if (std::system(("cp -a '" + primary + "' '" + secondary + "'").c_str()) != 0) return 1;
  ::sync();  // the new trees' write-back would otherwise run during the first measurements

  Counter events;
  Engine e{Host{}};
  e.svc.events = &events;
  e.LoadLogMessages("");
  e.SetMsgIDs();
  e.catalogueLoaded = true;
  const auto runEngine = [&](CheckState syncDelete) {
    job j;
    j.JobName = "bench";
    j.From = primary;
    j.To = secondary;
    j.Action = 5;
    j.SubFolder = 1;
    j.FStruct = 1;
    j.Exist = 4;
    j.EFSelect = 0;
    j.ExtFileTime = 1;
    j.SyncDelete = syncDelete;
    j.DoPreview = 0;
    JobRun run(j);
    Search(run, e.svc, true, false);
  };
  runEngine(0);  // warm the cache
  events = Counter{};
  const Times engine = BestOf3([&] {
    events.firstPassEnd.reset();
    runEngine(0);
    return events.firstPassEnd;
  });
  const long kept = events.kept / 3, changed = events.changed;
  const Times engineDelete = BestOf3([&] {
    runEngine(1);
    return PassEnd{};
  });
  const std::string rsync = "rsync -a '" + primary + "/' '" + secondary + "/'";
  const Times rsyncRun = BestOf3([&] {
    if (std::system(rsync.c_str()) != 0) std::fprintf(stderr, "rsync failed\n");
    return PassEnd{};
  });

  const std::string jobs = root + "/jobs";
  std::filesystem::create_directories(jobs);
  if (FILE* f = std::fopen((jobs + "/bench.kjb").c_str(), "w")) {
    std::fprintf(f, "[Job]\nName=bench\nAction=5\nFrom=%s\nTo=%s\nSubFolder=1\nFStruct=1\n"
                    "Exist=4\nEFSelect=0\nExtFileTime=1\nDoPreview=0\nCounter=1\nInterval=1\n",
                 primary.c_str(), secondary.c_str());
    std::fclose(f);
  }
  const auto host = [&](const char* events) {
    const std::string command = std::string(KESTREL_BIN) + " run '" + jobs + "' --events " +
                                events + " | cat >/dev/null";
    return BestOf3([&] {
      if (std::system(command.c_str()) != 0) std::fprintf(stderr, "kestrel failed\n");
      return PassEnd{};
    });
  };
  const Times hostJsonl = host("jsonl"), hostText = host("text");
  const Times floorRun = BestOf3([&] {
    floor_bench::StatBothSides(primary, secondary, 2);
    floor_bench::StatBothSides(secondary, primary, 2);
    return PassEnd{};
  });

  std::printf("engine sync, one pass:             %7.3f s   engine/rsync %.2f (target < 1.0)\n",
              engine.firstPass, engine.firstPass / rsyncRun.all);
  std::printf("engine sync, both passes:          %7.3f s   against rsync both ways %.2f\n",
              engine.all, engine.all / (2 * rsyncRun.all));
  std::printf("  (%ld files compared, %ld changed)\n", kept, changed);
  std::printf("engine sync, with removal step:    %7.3f s\n", engineDelete.all);
  std::printf("kestrel run, jsonl to a pipe:      %7.3f s   against rsync both ways %.2f\n",
              hostJsonl.all, hostJsonl.all / (2 * rsyncRun.all));
  std::printf("kestrel run, text to a pipe:       %7.3f s   against rsync both ways %.2f\n",
              hostText.all, hostText.all / (2 * rsyncRun.all));
  std::printf("rsync -a, one direction:           %7.3f s\n", rsyncRun.all);
  std::printf("floor, both ways, 2 threads:       %7.3f s   against rsync both ways %.2f\n",
              floorRun.all, floorRun.all / (2 * rsyncRun.all));
  std::filesystem::remove_all(root);
  return changed == 0 ? 0 : 1;
}
