// Which texts a run speaks, and settings files that are no plain small files.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class Language : public JobFolderTest {
 protected:
  Language() {
    // An installed copy of kestrel: <prefix>/bin/kestrel beside <prefix>/share/orvKestrel/lang.
    fs::create_directories(dir_ / "prefix/bin");
    fs::copy_file(KESTREL_BIN, dir_ / "prefix/bin/kestrel");
    const fs::path lang = dir_ / "prefix/share/orvKestrel/lang";
    Put(lang / "French.lng", "[LogMessages]\nt3=Lancement\n");
    fs::copy_file(fs::path(KESTREL_SOURCE_DIR) / "examples/lang/English.lng", lang / "English.lng");
    Put(dir_ / "own.lng", "[LogMessages]\nt3=Eigener Text\n");
    WriteJob(kDue + std::string("DoFileMatch=1\nFilename=^nothing$\n"));
  }
  // The first line of a run of the installed copy (or of the built one, which has no lang
  // folder); the locale of the test's own environment is removed, then env set.
  std::string FirstLine(const std::vector<std::pair<std::string, std::string>>& env,
                        std::vector<std::string> args = {}, bool installed = true) const {
    StartOptions o{.env = {{"LANG", ""}, {"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"KESTREL_LANG", ""}}};
    o.env.insert(o.env.end(), env.begin(), env.end());
    if (installed) o.bin = (dir_ / "prefix/bin/kestrel").string();
    args.insert(args.begin(), {"run", "jobs"});
    const RunResult r = Kestrel(args, o);
    return r.out.substr(0, r.out.find('\n'));
  }
};

TEST_F(Language, ChosenByOptionEnvironmentLocaleElseGerman) {
  const std::string own = (dir_ / "own.lng").string();
  const struct {
    std::vector<std::pair<std::string, std::string>> env;
    std::vector<std::string> args;
    bool installed;
    std::string first;
  } cases[] = {
      {{}, {}, true, "a: Starte Auftrag"},  // no locale
      {{{"LANG", "C"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "POSIX"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "C.UTF-8"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "de_DE.UTF-8"}}, {}, true, "a: Starte Auftrag"},
      {{{"LANG", "en_GB.UTF-8"}}, {}, true, "a: Starting job"},
      {{{"LANG", "fr_FR.UTF-8"}}, {}, true, "a: Lancement"},
      {{{"LANG", "ja_JP.UTF-8"}}, {}, true, "a: Starting job"},  // no file: English
      {{{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "en_US.UTF-8"}}, {}, true, "a: Starting job"},
      {{{"LANG", "en_US.UTF-8"}}, {}, false, "a: Starte Auftrag"},  // nothing installed
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
  ASSERT_EQ(::mkfifo((dir_ / "fifo.lng").c_str(), 0600), 0);
  fs::create_directories(dir_ / "folder.lng");
  Put(dir_ / "big.lng", "[LogMessages]\nt3=Big\n" + std::string(2 << 20, ';'));
  for (const char* path : {"/dev/urandom", "fifo.lng", "folder.lng", "big.lng"}) {
    EXPECT_EQ(FirstLine({}, {"--lang", path}, false), "a: Starte Auftrag") << path;
  }
  ASSERT_EQ(::mkfifo((jobs() / "p.kjb").c_str(), 0600), 0);
  Put(jobs() / "big.kjb", "[Job]\nName=big\n" + std::string(2 << 20, ';'));
  // A big job file is one that does not read (a FIFO is none: RunTest.RunOne...).
  EXPECT_EQ(Kestrel({"run-one", "jobs/big.kjb"}).exitCode, 3);
  for (const std::string file : {"p.kjb", "big.kjb"}) {
    const RunResult c = Kestrel({"check", "jobs", "--file", file});
    EXPECT_TRUE(c.exitCode == 1 && c.out.find("invalid") != std::string::npos) << file << c.out;
  }
}

// The English language file replaces every message of the catalogue, once each, and only those.
TEST_F(Language, TheEnglishLanguageFileHasEveryKey) {
  std::set<int> expected, keys;
  for (int n = 2; n <= 96; ++n) {
    if (n != 4 && n != 5 && (n < 21 || n > 24) && n != 29 && n != 68 && n != 69) expected.insert(n);
  }
  for (const std::string& line : SplitLines(Get(fs::path(KESTREL_SOURCE_DIR) / "examples/lang/English.lng"))) {
    if (line.empty() || line[0] != 't') continue;
    EXPECT_TRUE(keys.insert(std::stoi(line.substr(1, line.find('=') - 1))).second) << line;
    EXPECT_FALSE(line.ends_with(":") || line.ends_with(": ")) << line;
  }
  EXPECT_EQ(keys, expected);
}

}  // namespace
}  // namespace e2e
