// Compression and extraction jobs and their previews, seen through `kestrel run`.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

int StartsWith(const std::vector<std::string>& lines, const std::string& prefix) {
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) {
    return l.starts_with(prefix);
  }));
}

class ZipJobs : public JobFolderTest {
 protected:
  void SetUp() override {
    if (std::system("python3 -c 'import zipfile' >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    }
  }
  fs::path Src(const std::string& rel) const { return src() / rel; }
  fs::path Dst(const std::string& rel) const { return dst() / rel; }
  void WriteJob(const std::string& keys) {
    JobFolderTest::WriteJob("SubFolder=1\nCounter=1\n" + keys, "z");
  }
  // Runs python3 with a script; returns its stdout.
  std::string Python(const std::string& script) const {
    Put(dir_ / "script.py", script);
    const std::string cmd = "python3 " + Quote((dir_ / "script.py").string()) + " > " +
                            Quote((dir_ / "py.out").string()) + " 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << Get(dir_ / "py.out");
    return Get(dir_ / "py.out");
  }
  // The sorted entry names of an archive, one per line.
  std::string Entries(const fs::path& archive) const {
    return Python("import zipfile\nfor n in sorted(zipfile.ZipFile(" + Quote(archive.string()) +
                  ").namelist()): print(n)\n");
  }
  // A zip file `archive` with `entries` (name, contents), written by python.
  void Archive(const fs::path& archive,
               const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string script = "import zipfile\nz=zipfile.ZipFile(" + Quote(archive.string()) + ",'w')\n";
    for (const auto& [name, data] : entries) script += "z.writestr('" + name + "','" + data + "')\n";
    Python(script + "z.close()\n");
  }
  RunResult Run(const std::vector<std::string>& options = {}) {
    RunResult r = RunJobs(options);
    logs = LogTexts(r.out);
    return r;
  }
  std::vector<std::string> logs;  // LogMsg of every LogMessage event, in order
};

TEST_F(ZipJobs, CompressesTheSelectedFilesIntoTheJobsArchive) {
  Put(Src("a.txt"), "alpha");
  Put(Src("sub/b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=0\nZipIntStruct=1\nZipDelComp=1\n");
  const RunResult r = Run();
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_TRUE(Has(logs, "Dateien gefunden: 2")) << r.out;
  EXPECT_EQ(Entries(Dst("z.zip")), "src/a.txt\nsrc/sub/b.txt\n");
  EXPECT_FALSE(fs::exists(Src("a.txt")));
  EXPECT_FALSE(fs::exists(Src("sub/b.txt")));
  EXPECT_EQ(StartsWith(logs, "z: Gelöscht: "), 2) << r.out;
}

TEST_F(ZipJobs, CompressionPreviewChangesNothing) {
  Put(Src("a.txt"), "alpha");
  Put(Src("b.txt"), "beta");
  WriteJob("Action=3\nDoPreview=1\nExist=1\n");
  const RunResult r = Run({"--preview-jobs"});
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_EQ(StartsWith(logs, "Würde zu Zip hinzugefügt: "), 1) << r.out;
  EXPECT_TRUE(Has(logs, "Würde gelöscht: " + Src("a.txt").string()) ||
              Has(logs, "Würde gelöscht: " + Src("b.txt").string()))
      << r.out;
  EXPECT_FALSE(fs::exists(Dst("z.zip")));
  EXPECT_TRUE(fs::exists(Src("a.txt")));
}

TEST_F(ZipJobs, ExtractsTheArchivesOfTheSourceFolder) {
  Archive(Src("pack.zip"), {{"d/x.txt", "X"}, {"y.txt", "Y"}});
  Put(Src("notes.txt"), "not an archive");
  WriteJob("Action=4\nDoPreview=0\nDestZipFolder=1\nZipDelDeComp=1\n");
  const RunResult r = Run();
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_TRUE(Has(logs, "2 Dateien wurden dekomprimiert: " + Src("pack.zip").string() + " nach " +
                              dst().string()))
      << r.out;
  EXPECT_TRUE(Has(logs, "Zip Datei wurde gelöscht: " + Src("pack.zip").string())) << r.out;
  EXPECT_EQ(Get(Dst("d/x.txt")), "X");
  EXPECT_EQ(Get(Dst("y.txt")), "Y");
  EXPECT_FALSE(fs::exists(Src("pack.zip")));
}

TEST_F(ZipJobs, ExtractionPreviewAndDryRunWriteNothing) {
  Archive(Src("pack.zip"), {{"y.txt", "Y"}});
  WriteJob("Action=4\nDoPreview=1\nZipDelDeComp=1\n");
  const RunResult preview = Run({"--preview-jobs"});
  EXPECT_EQ(preview.exitCode, 0) << preview.err << preview.out;
  EXPECT_TRUE(Has(logs, "1 Datei würde dekomprimiert: " + Src("pack.zip").string() +
                                    " nach " + dst().string()))
      << preview.out;
  WriteJob("Action=4\nDoPreview=0\nZipDelDeComp=1\n");
  const RunResult dry = Run({"--dry-run"});
  EXPECT_EQ(dry.exitCode, 0) << dry.err << dry.out;
  EXPECT_TRUE(fs::is_empty(dst()));
  EXPECT_TRUE(fs::exists(Src("pack.zip")));
}

TEST_F(ZipJobs, AnArchiveReachingOutsideTheDestinationFailsTheJob) {
  Archive(Src("evil.zip"), {{"../../escaped.txt", "x"}, {"ok.txt", "ok"}});
  WriteJob("Action=4\nDoPreview=0\nZipDelDeComp=1\n");
  const RunResult r = Run();
  EXPECT_EQ(r.exitCode, 1) << r.err << r.out;
  const bool named = std::any_of(logs.begin(), logs.end(), [](const std::string& l) {
    return l.rfind("z: Fehler: ", 0) == 0 && l.find("../../escaped.txt") != std::string::npos;
  });
  EXPECT_TRUE(named) << r.out;
  EXPECT_EQ(Get(Dst("ok.txt")), "ok");
  EXPECT_FALSE(fs::exists(dir_.root().parent_path() / "escaped.txt"));
  EXPECT_TRUE(fs::exists(Src("evil.zip")));
}

}  // namespace
}  // namespace e2e
