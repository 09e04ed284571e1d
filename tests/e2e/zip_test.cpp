// Compression and extraction jobs and their previews, seen through `kestrel run`.
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Result {
  int exit = -1;
  std::string out, err;
  std::vector<std::string> logs;  // LogMsg of every LogMessage event, in order
};

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void Put(const fs::path& p, const std::string& text) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

bool Has(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class ZipJobs : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    root_ = fs::temp_directory_path() / ("kestrel-e2e-zip-" + std::to_string(rd()));
    fs::create_directories(root_ / "jobs");
    fs::create_directories(root_ / "dst");
    if (std::system("python3 -c 'import zipfile' >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    }
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  fs::path Src(const std::string& rel) const { return root_ / "src" / rel; }
  fs::path Dst(const std::string& rel) const { return root_ / "dst" / rel; }

  void WriteJob(const std::string& keys) {
    Put(root_ / "jobs" / "z.kjb", "[Job]\nName=z\nFrom=" + (root_ / "src").string() +
                                      "\nTo=" + (root_ / "dst").string() +
                                      "\nSubFolder=1\nCounter=1\n" + keys);
  }
  // Runs python3 with a script; returns its stdout.
  std::string Python(const std::string& script) const {
    Put(root_ / "script.py", script);
    const std::string cmd = "python3 " + Quote((root_ / "script.py").string()) + " > " +
                            Quote((root_ / "py.out").string()) + " 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << Slurp(root_ / "py.out");
    return Slurp(root_ / "py.out");
  }
  // The sorted entry names of an archive, one per line.
  std::string Entries(const fs::path& archive) const {
    return Python("import zipfile\nfor n in sorted(zipfile.ZipFile(" + Quote(archive.string()) +
                  ").namelist()): print(n)\n");
  }
  Result RunJobs(const std::string& options = "") const {
    const fs::path out = root_ / "stdout", err = root_ / "stderr";
    const std::string cmd = Quote(KESTREL_BIN) + " run " + Quote((root_ / "jobs").string()) +
                            " --events jsonl " + options + " >" + Quote(out.string()) + " 2>" +
                            Quote(err.string());
    const int status = std::system(cmd.c_str());
    Result r;
    r.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = Slurp(out);
    r.err = Slurp(err);
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      const auto ev = nlohmann::json::parse(line, nullptr, false);
      if (ev.is_object() && ev.value("event", "") == "LogMessage") {
        r.logs.push_back(ev.value("LogMsg", ""));
      }
    }
    return r;
  }

  fs::path root_;
};

TEST_F(ZipJobs, CompressesTheSelectedFilesIntoTheJobsArchive) {
  Put(Src("a.txt"), "alpha");
  Put(Src("sub/b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=0\nZipIntStruct=1\nZipDelComp=1\n");
  const Result r = RunJobs();
  EXPECT_EQ(r.exit, 0) << r.err << r.out;
  EXPECT_TRUE(Has(r.logs, "Dateien gefunden: 2")) << r.out;
  EXPECT_EQ(Entries(Dst("z.zip")), "src/a.txt\nsrc/sub/b.txt\n");
  EXPECT_FALSE(fs::exists(Src("a.txt")));
  EXPECT_FALSE(fs::exists(Src("sub/b.txt")));
  const auto deleted = std::count_if(r.logs.begin(), r.logs.end(), [](const std::string& l) {
    return l.rfind("z: Gelöscht: ", 0) == 0;
  });
  EXPECT_EQ(deleted, 2) << r.out;
}

TEST_F(ZipJobs, CompressionPreviewChangesNothing) {
  Put(Src("a.txt"), "alpha");
  Put(Src("b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=1\nExist=1\n");
  const Result r = RunJobs("--preview-jobs");
  EXPECT_EQ(r.exit, 0) << r.err << r.out;
  const auto added = std::count_if(r.logs.begin(), r.logs.end(), [](const std::string& l) {
    return l.rfind("Würde zu Zip hinzugefügt: ", 0) == 0;
  });
  EXPECT_EQ(added, 1) << r.out;
  EXPECT_TRUE(Has(r.logs, "Würde gelöscht: " + Src("a.txt").string()) ||
              Has(r.logs, "Würde gelöscht: " + Src("b.txt").string()))
      << r.out;
  EXPECT_FALSE(fs::exists(Dst("z.zip")));
  EXPECT_TRUE(fs::exists(Src("a.txt")));
}

TEST_F(ZipJobs, ExtractsTheArchivesOfTheSourceFolder) {
  fs::create_directories(root_ / "src");
  Python("import zipfile\nz=zipfile.ZipFile(" + Quote(Src("pack.zip").string()) + ",'w')\n"
         "z.writestr('d/x.txt','X')\nz.writestr('y.txt','Y')\nz.close()\n");
  Put(Src("notes.txt"), "not an archive");
  WriteJob("Action=4\nDoPreview=0\nDestZipFolder=1\nZipDelDeComp=1\n");
  const Result r = RunJobs();
  EXPECT_EQ(r.exit, 0) << r.err << r.out;
  EXPECT_TRUE(Has(r.logs, "2 Dateien wurden dekomprimiert: " + Src("pack.zip").string() + " nach " +
                              (root_ / "dst").string()))
      << r.out;
  EXPECT_TRUE(Has(r.logs, "Zip Datei wurde gelöscht: " + Src("pack.zip").string())) << r.out;
  EXPECT_EQ(Slurp(Dst("d/x.txt")), "X");
  EXPECT_EQ(Slurp(Dst("y.txt")), "Y");
  EXPECT_FALSE(fs::exists(Src("pack.zip")));
}

TEST_F(ZipJobs, ExtractionPreviewAndDryRunWriteNothing) {
  fs::create_directories(root_ / "src");
  Python("import zipfile\nz=zipfile.ZipFile(" + Quote(Src("pack.zip").string()) + ",'w')\n"
         "z.writestr('y.txt','Y')\nz.close()\n");
  WriteJob("Action=4\nDoPreview=1\nZipDelDeComp=1\n");
  const Result preview = RunJobs("--preview-jobs");
  EXPECT_EQ(preview.exit, 0) << preview.err << preview.out;
  EXPECT_TRUE(Has(preview.logs, "1 Datei würde dekomprimiert: " + Src("pack.zip").string() +
                                    " nach " + (root_ / "dst").string()))
      << preview.out;
  WriteJob("Action=4\nDoPreview=0\nZipDelDeComp=1\n");
  const Result dry = RunJobs("--dry-run");
  EXPECT_EQ(dry.exit, 0) << dry.err << dry.out;
  EXPECT_TRUE(fs::is_empty(root_ / "dst"));
  EXPECT_TRUE(fs::exists(Src("pack.zip")));
}

TEST_F(ZipJobs, AnArchiveReachingOutsideTheDestinationFailsTheJob) {
  fs::create_directories(root_ / "src");
  Python("import zipfile\nz=zipfile.ZipFile(" + Quote(Src("evil.zip").string()) + ",'w')\n"
         "z.writestr('../../escaped.txt','x')\nz.writestr('ok.txt','ok')\nz.close()\n");
  WriteJob("Action=4\nDoPreview=0\nZipDelDeComp=1\n");
  const Result r = RunJobs();
  EXPECT_EQ(r.exit, 1) << r.err << r.out;
  const bool named = std::any_of(r.logs.begin(), r.logs.end(), [](const std::string& l) {
    return l.rfind("z: Fehler: ", 0) == 0 && l.find("../../escaped.txt") != std::string::npos;
  });
  EXPECT_TRUE(named) << r.out;
  EXPECT_EQ(Slurp(Dst("ok.txt")), "ok");
  EXPECT_FALSE(fs::exists(root_.parent_path() / "escaped.txt"));
  EXPECT_TRUE(fs::exists(Src("evil.zip")));
}

}  // namespace
