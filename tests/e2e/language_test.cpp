// Which texts a run speaks, and settings files that are no plain small files.
#include "e2e/E2eSupport.h"

#include <sys/stat.h>

namespace e2e {
namespace {

class Language : public ::testing::Test {
 protected:
  Language() {
    // An installed copy of kestrel: <prefix>/bin/kestrel beside <prefix>/share/orvKestrel/lang.
    fs::create_directories(dir / "prefix/bin");
    fs::copy_file(KESTREL_BIN, dir / "prefix/bin/kestrel");
    const fs::path lang = dir / "prefix/share/orvKestrel/lang";
    fs::create_directories(lang);
    fs::copy_file(fs::path(KESTREL_SOURCE_DIR) / "examples/lang/English.lng", lang / "English.lng");
    Put(lang / "French.lng", "[LogMessages]\nt3=Lancement\n");
    Put(dir / "own.lng", "[LogMessages]\nt3=Eigener Text\n");
    Put(dir / "jobs/a.kjb", "[Job]\nName=a\nFrom=" + (dir / "jobs").string() + "\nTo=" +
                                (dir / "jobs").string() + "\nDoPreview=0\nCounter=1\nInterval=1\n"
                                "DoFileMatch=1\nFilename=^nothing$\n");
  }
  // The first line of a run of the installed copy (or of the built one, which has no lang folder).
  std::string FirstLine(const std::vector<std::pair<std::string, std::string>>& env,
                        std::vector<std::string> extra = {}, bool installed = true) const {
    StartOptions o;  // the locale of the test's own environment is removed, then env set
    o.env = {{"LANG", ""}, {"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"KESTREL_LANG", ""}};
    o.env.insert(o.env.end(), env.begin(), env.end());
    if (installed) o.bin = (dir / "prefix/bin/kestrel").string();
    std::vector<std::string> args{"run", "jobs"};
    args.insert(args.end(), extra.begin(), extra.end());
    const RunResult r = RunKestrel(args, dir.root(), o);
    return r.out.substr(0, r.out.find('\n'));
  }
  Scratch dir{"e2e-lang"};
};

TEST_F(Language, ChosenByOptionEnvironmentLocaleElseGerman) {
  const std::string own = (dir / "own.lng").string();
  const struct {
    std::vector<std::pair<std::string, std::string>> env;
    std::vector<std::string> args;
    bool installed;
    std::string first;
  } cases[] = {
      {{}, {}, true, "a: Starte Auftrag"},                                  // no locale
      {{{"LANG", "C"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "POSIX"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "C.UTF-8"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "de_DE.UTF-8"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "en_GB.UTF-8"}}, {}, true, "a: Starting job"},
      {{{"LANG", "fr_FR.UTF-8"}}, {}, true, "a: Lancement"},
      {{{"LANG", "ja_JP.UTF-8"}}, {}, true, "a: Starting job"},             // no file: English
      {{{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "en_US.UTF-8"}}, {}, true, "a: Starting job"},
      {{{"LANG", "en_US.UTF-8"}}, {}, false, "a: Starte Auftrag"},          // nothing installed
      {{{"LANG", "en_US.UTF-8"}, {"KESTREL_LANG", own}}, {}, true, "a: Eigener Text"},
      {{{"KESTREL_LANG", own}}, {"--lang", own}, true, "a: Eigener Text"},
      {{{"LANG", "en_US.UTF-8"}}, {"--lang", own}, true, "a: Eigener Text"},
      {{{"LANG", "en_US.UTF-8"}}, {"--lang", "/nonexistent"}, true, "a: Starte Auftrag"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.env) + ::testing::PrintToString(c.args));
    EXPECT_EQ(FirstLine(c.env, c.args, c.installed), c.first);
  }
}

// A language or job file that is a device, a pipe, a folder or over 1 MiB is not read: the
// built-in texts are used, the job file is reported; nothing hangs or grows without bound.
TEST_F(Language, SettingsFilesMustBeSmallRegularFiles) {
  ASSERT_EQ(::mkfifo((dir / "fifo.lng").c_str(), 0600), 0);
  fs::create_directories(dir / "folder.lng");
  Put(dir / "big.lng", "[LogMessages]\nt3=Big\n" + std::string(2 << 20, ';'));
  for (const std::string& path : {std::string("/dev/urandom"), (dir / "fifo.lng").string(),
                                 (dir / "folder.lng").string(), (dir / "big.lng").string()}) {
    SCOPED_TRACE(path);
    const RunResult r = RunKestrel({"run", "jobs", "--lang", path}, dir.root());
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "a: Starte Auftrag");
  }
  ASSERT_EQ(::mkfifo((dir / "jobs/p.kjb").c_str(), 0600), 0);
  Put(dir / "jobs/big.kjb", "[Job]\nName=big\n" + std::string(2 << 20, ';'));
  for (const char* file : {"p.kjb", "big.kjb"}) {
    const RunResult r = RunKestrel({"run-one", (dir / "jobs" / file).string()}, dir.root());
    // A FIFO is no job file; a big one is a job file that does not read.
    EXPECT_EQ(r.exitCode, std::string(file) == "big.kjb" ? 3 : 1) << file << r.err;
    const RunResult c = RunKestrel({"check", "jobs", "--file", file}, dir.root());
    EXPECT_EQ(c.exitCode, 1) << file;
    EXPECT_NE(c.out.find("invalid"), std::string::npos) << c.out;
  }
}

}  // namespace
}  // namespace e2e

namespace e2e {
namespace {

// A log or trace file that is a pipe nobody reads, or a folder, is refused at once (exit 2)
// instead of hanging the run.
TEST(OutputFiles, APipeWithoutReaderOrAFolderIsRefusedAtOnce) {
  const Scratch dir("e2e-out");
  ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
  fs::create_directories(dir / "folder");
  for (const char* option : {"--log", "--trace"}) {
    for (const char* target : {"pipe", "folder"}) {
      const RunResult r = RunKestrel({"run", "jobs", option, (dir / target).string()}, dir.root());
      EXPECT_EQ(r.exitCode, 2) << option << " " << target;
      EXPECT_NE(r.err.find((dir / target).string()), std::string::npos) << r.err;
    }
  }
}

}  // namespace
}  // namespace e2e
