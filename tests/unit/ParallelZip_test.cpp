// Compression with workers that deflate entries ahead of the commit: the same events, the same
// entries (every header field but the compressed size) and the same refusals as without them.
#include "engine/Engine.h"
#include "unit/ZipTestSupport.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <random>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// Every field of every entry that must not depend on the workers: the central and the local
// header (all but the compressed size and offsets), the name, extra fields and the contents,
// which zipfile checks against the CRC as it reads them.
constexpr const char* kDump = R"(import zipfile,struct,sys,hashlib
z=zipfile.ZipFile(sys.argv[1]); raw=open(sys.argv[1],'rb').read()
for i in z.infolist():
  h=struct.unpack('<4sHHHHHIIIHH',raw[i.header_offset:i.header_offset+30])
  local=h[:7]+h[8:]+(raw[i.header_offset+30:i.header_offset+30+h[9]+h[10]].hex(),)
  print(i.filename,i.date_time,i.compress_type,i.flag_bits,i.create_system,i.create_version,
        i.extract_version,i.external_attr,i.internal_attr,i.extra.hex(),i.CRC,i.file_size,
        local,hashlib.sha256(z.read(i)).hexdigest())
)";

// A test's fault points, safe for workers: runs an action before each call of one operation.
struct BeforeOp : FaultPoints {
  int Check(FaultOp at) override {
    if (at != op || !action) return 0;
    std::lock_guard lock(m);
    action();
    return 0;
  }
  std::mutex m;
  FaultOp op = FaultOp::Read;
  std::function<void()> action;
};

// Whether this process holds path open (a worker reading it).
bool OpenHere(const std::string& path) {
  for (const auto& e : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ec;
    if (fs::read_symlink(e.path(), ec) == path) return true;
  }
  return false;
}

class ParallelZip : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    e.LoadLogMessages("");
    e.SetMsgIDs();
    e.svc.events = &ev;
    j.JobName = "job";
    j.From = dir / "in";
    j.To = dir / "out";
    j.DoPreview = 0;
  }
  // Text, incompressible data, an empty file, one too large to be held by a worker, folders
  // and a name beyond ASCII; the same bytes and times on every call.
  FileList MakeTree() {
    fs::remove_all(j.From);
    std::mt19937_64 rng(7);
    FileList files;
    auto add = [&](const std::string& rel, std::string data) {
      const std::string path = dir / ("in/" + rel);
      fs::create_directories(fs::path(path).parent_path());
      WriteFile(path, data);
      SetModified(path, LocalTime(2026, 3, 14, 15, 9, 27) + static_cast<int>(files.size()));
      files.push_back(path);
    };
    for (int i = 0; i < 24; ++i) {
      std::string data;
      const std::size_t size = 1000 + static_cast<std::size_t>(i) * 7919;
      while (data.size() < size) {
        data += (i % 3 == 0) ? static_cast<char>(rng()) : static_cast<char>('a' + rng() % 6);
      }
      add("d" + std::to_string(i % 4) + "/f" + std::to_string(i) + ".dat", data);
    }
    add("empty.txt", "");
    add("grüße/ünïcode.txt", "text");
    add("big.bin", std::string(5 << 20, 'x') + "end");
    return files;
  }
  struct Outcome {
    Lines events, entries;
    std::vector<bool> kept;
    bool operator==(const Outcome&) const = default;
  };
  Outcome Run(int workers, FileList files, bool zip = true) {
    e.svc.zip->SetWorkers(workers);
    ev = {};
    JobRun run(j);
    if (zip) Zip_Files(run, e.svc, files);
    else UnZip_Files(run, e.svc, files);
    Outcome o;
    for (const auto& l : ev.lines) o.events.push_back(std::to_string(l.id) + " " + l.text);
    for (const auto& [all, curr] : ev.counters) {
      o.events.push_back(std::to_string(all) + "/" + std::to_string(curr));
    }
    for (const auto& f : files) o.kept.push_back(Exists(f));
    return o;
  }
  Lines Dump(const std::string& archive) {
    WriteFile(dir / "dump.py", kDump);
    const ToolResult r = RunTool("python3 -I " + Quote(dir / "dump.py") + " " + Quote(archive));
    EXPECT_EQ(r.status, 0) << r.output;
    Lines out;
    std::size_t start = 0;
    for (auto end = r.output.find('\n'); end != std::string::npos;
         start = end + 1, end = r.output.find('\n', start)) {
      out.push_back(r.output.substr(start, end - start));
    }
    return out;
  }

  TempDir dir;
  BeforeOp points;
  Engine e{Host{}, &points};
  RecordingEvents ev;
  job j;
};

// Mode "All" at three levels, into an archive that holds older entries of some names (replaced
// in place) and with the sources deleted afterwards, and mode "Single".
TEST_F(ParallelZip, WorkersChangeNeitherEventsNorEntries) {
  struct Case {
    CheckState zipAll;
    const char* grade;
    bool existing;
    CheckState deleting;
  };
  for (const Case c : {Case{0, "6", false, 0}, Case{0, "1", true, 0}, Case{0, "9", false, 1},
                       Case{1, "6", false, 1}}) {
    SCOPED_TRACE(std::string(c.grade) + (c.zipAll ? " single" : " all"));
    j.ZipAll = c.zipAll;
    j.ZipGrade = c.grade;
    j.ZipDelComp = c.deleting;
    j.Exist = c.existing ? 4 : 0;  // 4: an entry is replaced when its source is newer
    j.ZipIntStruct = 1;
    Outcome outcome[2];
    std::vector<Lines> archives[2];
    for (const int w : {0, 1}) {
      fs::remove_all(j.To);
      fs::create_directories(j.To);
      FileList files = MakeTree();
      if (c.existing) {
        FileList older = {files[3], files[10], files.back()};
        Run(1, older);
        WriteFile(files[3], "changed since");
        SetModified(files[3], LocalTime(2026, 3, 15));
      }
      outcome[w] = Run(w == 0 ? 1 : 4, files);
      for (const auto& a : fs::directory_iterator(j.To)) archives[w].push_back(Dump(a.path()));
      std::sort(archives[w].begin(), archives[w].end());
    }
    EXPECT_EQ(outcome[0], outcome[1]);
    ASSERT_FALSE(archives[1].empty());
    EXPECT_EQ(archives[0], archives[1]);
    EXPECT_EQ(archives[1].front().size(), c.zipAll ? 1u : 27u);
    if (c.zipAll == 0) {
      const std::string archive = j.To + "/job.zip";
      const ToolResult unzip = RunTool("unzip -tq " + Quote(archive));
      EXPECT_EQ(unzip.status, 0) << unzip.output;
      if (HaveTool("7z")) {
        const ToolResult seven = RunTool("7z t " + Quote(archive));
        EXPECT_EQ(seven.status, 0) << seven.output;
      }
    }
  }
}

// An archive with deflated and stored entries, two of one name, a file where a later entry
// needs a folder, an unsafe name, a link, an entry too large to be held and two damaged ones.
constexpr const char* kMixedArchive = R"(import zipfile,random,struct,sys
random.seed(3); path=sys.argv[1]; z=zipfile.ZipFile(path,'w')
def add(name,data,method=zipfile.ZIP_DEFLATED,mode=0o100644):
  i=zipfile.ZipInfo(name,date_time=(2026,3,14,15,9,28)); i.compress_type=method
  i.create_system=3; i.external_attr=mode<<16; z.writestr(i,data)
for k in range(30):
  add('d%d/f%d.txt'%(k%3,k),bytes(random.choice(b'abcdef') for _ in range(1000+k*3001)),
      zipfile.ZIP_STORED if k%4==0 else zipfile.ZIP_DEFLATED)
  if k==12:
    add('same.txt',b'first'); add('x',b'a file'); add('x/y',b'below a file')
add('same.txt',b'second'); add('../evil',b'no'); add('dir/',b''); add('run.sh',b'#!/bin/sh',mode=0o100755)
add('link',b'd0/f0.txt',zipfile.ZIP_STORED,0o120777); add('big.bin',b'x'*(5<<20)+b'end')
add('bad.txt',b'damaged '*999); add('bad2.txt',b'damaged too',zipfile.ZIP_STORED)
z.close(); raw=bytearray(open(path,'rb').read())
for i in zipfile.ZipFile(path).infolist():
  if i.filename.startswith('bad'):
    n,x=struct.unpack('<HH',raw[i.header_offset+26:i.header_offset+30])
    raw[i.header_offset+30+n+x+i.compress_size//2]^=0x55
open(path,'wb').write(raw)
)";

// Every file, folder and link below root: kind, permissions, time and contents.
Lines Tree(const std::string& root) {
  Lines out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    const std::string rel = fs::relative(e.path(), root).string();
    if (e.is_symlink()) {
      out.push_back(rel + " -> " + fs::read_symlink(e.path()).string());
    } else if (e.is_directory()) {
      out.push_back(rel + "/");
    } else {
      const std::string data = ReadFile(e.path());
      out.push_back(rel + " " + std::to_string(ModeOf(e.path())) + " " +
                    std::to_string(WriteTime(e.path())) + " " + std::to_string(data.size()) +
                    " " + std::to_string(std::hash<std::string>{}(data)));
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

// Extraction with folders, and flat through a filter over files that exist (replaced).
TEST_F(ParallelZip, WorkersChangeNeitherEventsNorExtractedFiles) {
  const std::string archive = dir / "mixed.zip";
  WriteFile(dir / "mixed.py", kMixedArchive);
  const ToolResult made = RunTool("python3 -I " + Quote(dir / "mixed.py") + " " + Quote(archive));
  ASSERT_EQ(made.status, 0) << made.output;
  j.Action = 4;
  for (const CheckState keep : {1, 0}) {
    SCOPED_TRACE(keep);
    j.DestZipFolder = keep;
    j.DestZipFilter = keep ? "*.*" : "*.txt";
    j.DestZipExist = keep ? 0 : 3;
    Outcome outcome[2];
    Lines trees[2];
    for (const int w : {0, 1}) {
      fs::remove_all(j.To);
      fs::create_directories(j.To);
      WriteFile(j.To + "/f7.txt", "there before");
      SetModified(j.To + "/f7.txt", LocalTime(2026, 1, 2));
      outcome[w] = Run(w == 0 ? 1 : 4, {archive}, false);
      trees[w] = Tree(j.To);
    }
    EXPECT_EQ(outcome[0], outcome[1]);
    EXPECT_EQ(trees[0], trees[1]);
    EXPECT_GT(trees[1].size(), 30u);
  }
}

// A source that changes while a worker reads it is left out and kept, as without workers.
TEST_F(ParallelZip, ASourceChangedWhileItIsReadIsRefusedAndKept) {
  j.ZipDelComp = 1;
  Outcome outcome[2];
  for (const int w : {0, 1}) {
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    FileList files = MakeTree();
    const std::string target = files[5];
    bool changed = false;
    points.action = [&] {
      if (!changed && OpenHere(target)) changed = (AppendFile(target, "more"), true);
    };
    outcome[w] = Run(w == 0 ? 1 : 4, files);
    points.action = nullptr;
    EXPECT_TRUE(changed);
    EXPECT_TRUE(Exists(target));
    EXPECT_FALSE(Exists(files[6]));
    const Lines entries = Dump(j.To + "/job.zip");
    EXPECT_EQ(entries.size(), files.size() - 1);
  }
  EXPECT_EQ(outcome[0], outcome[1]);
  const std::string line = "job: Fehler: The file changed while it was read - " + dir / "in/d1/f5.dat";
  EXPECT_EQ(std::count_if(outcome[1].events.begin(), outcome[1].events.end(),
                          [&](const std::string& l) { return l.ends_with(line); }),
            1)
      << ::testing::PrintToString(outcome[1].events);
}

// A commit or an extraction cancelled while the workers are ahead leaves the archive as it
// was, no temporary and no worker behind.
TEST_F(ParallelZip, ACancelLeavesNoTemporaries) {
  ZipLibrary& zip = *e.svc.zip;
  for (const int workers : {1, 4}) {
    SCOPED_TRACE(workers);
    fs::remove_all(j.To);
    fs::create_directories(j.To);
    FileList files = MakeTree();
    zip.SetWorkers(workers);
    zip.SetCompressionRate(6);
    zip.StartZipRun(1, 0);
    zip.SaveFolderLocation(j.From + "/");
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(j.To + "/a.zip", f, 3, 0), 1);
    int calls = 0;
    points.op = FaultOp::Read;
    points.action = [&] {
      if (++calls == 8) zip.CancelZip();
    };
    EXPECT_FALSE(zip.Flush());
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_TRUE(zip.WrittenSources().empty());
    EXPECT_TRUE(fs::is_empty(j.To)) << ::testing::PrintToString(TempLeftovers(j.To));

    points.action = nullptr;
    for (const auto& f : files) ASSERT_EQ(zip.ZipAddFile(j.To + "/a.zip", f, 3, 0), 1);
    ASSERT_TRUE(zip.Flush());
    fs::create_directories(j.To + "/x");
    calls = 0;
    points.op = FaultOp::Write;
    points.action = [&] {
      if (++calls == 8) zip.CancelZip();
    };
    zip.StartUnzipRun({});
    EXPECT_LT(zip.UnZipEx(j.To + "/a.zip", j.To + "/x", "*", 1, "", 0, 0), 20);
    points.action = nullptr;
    EXPECT_TRUE(zip.LastCancelled());
    EXPECT_TRUE(TempLeftovers(j.To).empty()) << ::testing::PrintToString(TempLeftovers(j.To));
  }
}

}  // namespace
}  // namespace orvKestrel
