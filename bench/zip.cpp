// Compression and extraction of 2,000 files (half text, half incompressible, about 200 MB)
// through the engine's zip procedures against Info-ZIP zip and unzip at the same level.
// Usage: bench_zip [level] [jobs]   (default 6, and the number of cores). The engine runs with
// one worker and with jobs workers. Prints times and engine/tool ratios (< 1: faster).
#include "engine/Engine.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include <unistd.h>

namespace fs = std::filesystem;
using orvKestrel::Engine;
using orvKestrel::JobRun;
using orvKestrel::FileList;

namespace {

constexpr int kFiles = 2000;
constexpr std::size_t kFileSize = 100 * 1000;

std::string Quote(const std::string& s) { return "'" + s + "'"; }

void Generate(const fs::path& root, FileList& files) {
  std::mt19937_64 rng(42);
  const char* words[] = {"kestrel", "archive", "folder", "engine", "job",   "copy",
                         "move",    "delete",  "zip",    "unzip",  "file",  "selection",
                         "pattern", "filter",  "date",   "size",   "hello", "world"};
  std::string text, bin(kFileSize, '\0');
  for (int i = 0; i < kFiles; ++i) {
    const fs::path dir = root / ("d" + std::to_string(i % 40)) / ("s" + std::to_string(i % 7));
    fs::create_directories(dir);
    const bool binary = i % 2 == 1;
    const fs::path file = dir / ((binary ? "b" : "t") + std::to_string(i) + (binary ? ".bin" : ".txt"));
    if (binary) {
      for (std::size_t k = 0; k + 8 <= bin.size(); k += 8) {
        const auto v = rng();
        std::memcpy(&bin[k], &v, 8);
      }
    } else {
      text.clear();
      while (text.size() < kFileSize) {
        text += words[rng() % (sizeof words / sizeof *words)];
        text += (rng() % 12 == 0) ? '\n' : ' ';
      }
    }
    std::ofstream(file, std::ios::binary) << (binary ? bin : text);
    files.push_back(file.string());
  }
}

double Seconds(const std::function<void()>& f) {
  const auto t0 = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double Tool(const std::string& command, bool& ok) {
  return Seconds([&] {
    if (std::system(command.c_str()) != 0) {
      std::fprintf(stderr, "failed: %s\n", command.c_str());
      ok = false;
    }
  });
}

std::uintmax_t SizeOf(const fs::path& p) {
  std::error_code ec;
  const auto n = fs::file_size(p, ec);
  return ec ? 0 : n;
}

std::uintmax_t TreeSize(const fs::path& root) {
  std::uintmax_t n = 0;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    if (e.is_regular_file()) n += e.file_size();
  }
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string level = argc > 1 ? argv[1] : "6";
  const int jobs = argc > 2 ? std::max(1, std::atoi(argv[2]))
                            : static_cast<int>(std::max(2u, std::thread::hardware_concurrency()));
  const fs::path root = fs::temp_directory_path() / ("kestrel-bench-zip-" + std::to_string(::getpid()));
  FileList files;
  Generate(root / "src" / "data", files);
  fs::create_directories(root / "engine");
  fs::create_directories(root / "tool");
  std::printf("%d files, %.1f MB, deflate level %s\n", kFiles,
              static_cast<double>(TreeSize(root / "src")) / 1e6, level.c_str());

  Engine e{orvKestrel::Host{}};
  e.LoadLogMessages("");
  e.SetMsgIDs();
  orvKestrel::job j;
  j.JobName = "bench";
  j.From = (root / "src" / "data").string();
  j.To = (root / "engine").string();
  j.ZipIntStruct = 1;
  j.ZipGrade = level;
  j.DoPreview = 0;

  bool ok = true;
  JobRun run(j);
  double zipEngine[2] = {0, 0};
  for (const int k : {0, 1}) {
    fs::remove(root / "engine" / "bench.zip");
    e.svc.zip->SetWorkers(k == 0 ? 1 : jobs);
    FileList list = files;
    zipEngine[k] = Seconds([&] { orvKestrel::Zip_Files(run, e.svc, list); });
  }
  // zip's -N (file notes) exists only on Amiga and MacOS builds; -r -q at the level is the rest.
  const double zipTool = Tool("cd " + Quote((root / "src").string()) + " && zip -r -q -" + level +
                              " " + Quote((root / "tool" / "ref.zip").string()) + " data", ok);
  std::printf("compress: engine 1 job %.2f s, %d jobs %.2f s (%.1f MB), zip %.2f s (%.1f MB), "
              "ratio %.2f / %.2f\n",
              zipEngine[0], jobs, zipEngine[1],
              static_cast<double>(SizeOf(root / "engine" / "bench.zip")) / 1e6, zipTool,
              static_cast<double>(SizeOf(root / "tool" / "ref.zip")) / 1e6,
              zipEngine[0] / zipTool, zipEngine[1] / zipTool);

  // Both extract the same archive (the one Info-ZIP wrote).
  j.Action = 4;
  j.DestZipFolder = 1;
  double unzipEngine[2] = {0, 0};
  for (const int k : {0, 1}) {
    j.To = (root / ("x-engine" + std::to_string(k))).string();
    e.svc.zip->SetWorkers(k == 0 ? 1 : jobs);
    FileList archives = {(root / "tool" / "ref.zip").string()};
    unzipEngine[k] = Seconds([&] { orvKestrel::UnZip_Files(run, e.svc, archives); });
  }
  const double unzipTool = Tool("unzip -q " + Quote((root / "tool" / "ref.zip").string()) + " -d " +
                                Quote((root / "x-tool").string()), ok);
  std::error_code ec;
  bool same = ok && TreeSize(root / "x-tool") == TreeSize(root / "src");
  for (const char* x : {"x-engine0", "x-engine1"}) {
    same = same && fs::exists(root / x, ec) && TreeSize(root / x) == TreeSize(root / "x-tool");
  }
  std::printf("extract:  engine 1 job %.2f s, %d jobs %.2f s, unzip %.2f s, ratio %.2f / %.2f%s\n",
              unzipEngine[0], jobs, unzipEngine[1], unzipTool, unzipEngine[0] / unzipTool,
              unzipEngine[1] / unzipTool, same ? "" : "  (OUTPUT DIFFERS)");
  fs::remove_all(root);
  return same ? 0 : 1;
}
