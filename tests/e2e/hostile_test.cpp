// Hostile trees through `kestrel run`: names with line breaks, invalid UTF-8, leading dashes and
// 255 bytes; link loops; folders and files that cannot be read; paths beyond PATH_MAX; a file
// that grows while it is copied. Each run ends with the right result or the right error line,
// never a crash or a hang, and every line of the stream is valid JSON.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class Hostile : public JobFolderTest {
 protected:
  Hostile() { WriteJob(kDue + std::string("Action=0\nSubFolder=1\nFStruct=1\n"), "h"); }
  // True when a line of the last run contains text.
  bool Said(const std::string& text) const { return Count(r_.logs, "", {text}) > 0; }
  std::string End() const { return r_.logs.empty() ? "" : r_.logs.back(); }
  RunResult r_;
};

TEST_F(Hostile, NamesWithLineBreaksInvalidUtf8LeadingDashesAndTheLongestLength) {
  // Names that are valid UTF-8 read back from the stream as they are, whatever it escapes.
  const Lines readable = {"line\nbreak.txt", "-rf", "--help", "-", std::string(251, 'n') + ".txt", " lead and trail ",
                          "tab\there", "*?[x]", "quote\"d", "back\\slash", "ctl\x01\x1f", "emoji\xf0\x9f\x98\x80"};
  Lines names = readable;
  names.insert(names.end(), {"bad\xff\xfe" "name.txt", "sub/\xc3\x28" "deep.bin"});
  for (const std::string& name : names) Put(src() / name, "data " + name);
  r_ = RunJobs();
  EXPECT_TRUE(r_.exitCode == 0 && End() == "h: Auftrag ausgeführt") << r_.err << r_.out;
  for (const std::string& name : names) EXPECT_EQ(Get(dst() / name), "data " + name) << name;
  EXPECT_EQ(Files(dst()).size(), names.size());
  // Invalid bytes reach the stream as U+FFFD, the rest of the line as it is.
  EXPECT_TRUE(Said("bad\xEF\xBF\xBD\xEF\xBF\xBD" "name.txt")) << r_.out;
  for (const std::string& name : readable) EXPECT_TRUE(Said(name)) << name;
}

// A link to a file counts as the file; links to folders, loops and dangling links do not.
TEST_F(Hostile, LinkLoopsEndAndOnlyRealFilesAreCopied) {
  Put(src() / "a/real.txt", "real");
  fs::create_directory_symlink(".", src() / "loop");
  fs::create_directory_symlink("../a", src() / "a/up");
  fs::create_symlink("self", src() / "self");
  fs::create_symlink("nowhere", src() / "dangling");
  fs::create_symlink("a/real.txt", src() / "file-link.txt");
  r_ = RunJobs();
  EXPECT_TRUE(r_.exitCode == 0 && End() == "h: Auftrag ausgeführt") << r_.err << r_.out;
  EXPECT_EQ(Files(dst()), (Tree{{"a/real.txt", "real"}, {"file-link.txt", "real"}}));
}

// The folder that cannot be listed simply gives no files; the file that cannot be read is an
// error of its own, and the job says so.
TEST_F(Hostile, AnUnreadableFolderGivesNoFilesAndAnUnreadableFileAnErrorLine) {
  uid_t user = 0;
  if (::geteuid() == 0) {
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr) GTEST_SKIP() << "running as root, and there is no user nobody to drop to";
    user = nobody->pw_uid;
  }
  Plant(src(), {{"open.txt", "open"}, {"locked/secret.txt", "secret"}, {"closed.txt", "closed"}});
  if (user != 0) {
    for (const auto& e : fs::recursive_directory_iterator(dir_.root())) {
      ASSERT_EQ(::lchown(e.path().c_str(), user, user), 0) << e.path();
    }
    ASSERT_EQ(::chown(dir_.root().c_str(), user, user), 0);
  }
  fs::permissions(src() / "locked", fs::perms::none);
  fs::permissions(src() / "closed.txt", fs::perms::none);
  r_ = RunJobs({}, {.asUser = user});
  ASSERT_NE(r_.exitCode, 125) << "could not switch to user " << user;
  EXPECT_EQ(Files(dst()), (Tree{{"open.txt", "open"}}));
  EXPECT_TRUE(Said("Fehler: Permission denied") && Said(S("closed.txt"))) << r_.out;
  EXPECT_TRUE(r_.exitCode == 1 && End() == "h: Auftrag ausgeführt (mit Fehler)") << r_.out;
}

// Shell steps that enter (and first make) the first `depth` levels one by one: the whole path
// may be longer than the system takes in one call.
std::string Levels(const Lines& levels, std::size_t depth, bool make) {
  std::string steps;
  for (std::size_t i = 0; i < depth; ++i) {
    steps += (make ? "mkdir -p " + levels[i] + " && " : "") + "cd -P " + levels[i] + " && ";
  }
  return steps;
}

// A file whose path fits is copied; what lies beyond PATH_MAX is never half there: either the
// walk could not list its folder (no files, as for any folder it cannot list) or the copy failed
// with an error line.
TEST_F(Hostile, PathsBeyondPathMaxEndWithErrorLinesNotACrash) {
  // 24 levels of 200 bytes: the deepest files lie beyond PATH_MAX (4096) both in the source and
  // in the destination.
  Lines levels;
  std::size_t fits = 0, beyond = 0, length = src().string().size();
  for (int i = 0; i < 24; ++i) {
    levels.push_back(std::string(199, static_cast<char>('a' + i)) + std::to_string(i % 10));
    length += 201;
    if (length + 12 < PATH_MAX) fits = levels.size();
    if (length > PATH_MAX + 400 && beyond == 0) beyond = levels.size();
  }
  const auto shell = [&](const std::string& cmd) {
    return std::system(("cd " + Quote(dir_.root().string()) + " && " + cmd).c_str());
  };
  ASSERT_EQ(shell("cd src && " + Levels(levels, fits, true) + "printf fits > fits.txt"), 0);
  ASSERT_EQ(shell("cd src && " + Levels(levels, beyond, true) + "printf beyond > beyond.txt"), 0);
  Put(src() / "top.txt", "top");
  r_ = RunJobs();
  EXPECT_EQ(Get(dst() / "top.txt"), "top");
  const auto read = [&](std::size_t depth, const std::string& name) {
    fs::remove(dir_ / "read");
    shell("cd dst && " + Levels(levels, depth, false) + "cat " + name + " > " + Quote((dir_ / "read").string()));
    return fs::exists(dir_ / "read") ? Get(dir_ / "read") : "<missing>";
  };
  EXPECT_EQ(read(fits, "fits.txt"), "fits");
  const std::string copied = read(beyond, "beyond.txt");
  EXPECT_TRUE(copied == "<missing>" || copied == "beyond") << copied;
  EXPECT_TRUE(copied != "<missing>" || !Said("beyond.txt") ||
              (Said("File name too long") && End() == "h: Auftrag ausgeführt (mit Fehler)")) << r_.out;
  shell("rm -rf src dst");  // by levels, which the paths of the scratch folder's removal are not
}

// The file grows while kestrel copies it: kestrel is held (SIGSTOP) while its copy of the file is
// partly written, the file grows, and kestrel goes on. A run that had made its check
// before it was held copied a whole file, and is tried again.
TEST_F(Hostile, AFileThatGrowsWhileItIsCopiedIsReportedNotTorn) {
  const std::string original(64 << 20, 'x');
  const fs::path out = dir_ / "out";
  for (int attempt = 0; attempt < 5 && !Said("The file changed while it was copied"); ++attempt) {
    EmptyFolders();
    Put(src() / "growing.log", original);
    Put(src() / "quiet.txt", "quiet");
    const pid_t pid = StartKestrel({"run", "jobs", "--events", "jsonl"}, dir_.root(), {.outFile = out.string()});
    // A file kestrel holds open below dst (its temporary has no name) with more than a MiB in it.
    const auto partlyWritten = [&] {
      std::error_code ec;
      for (const auto& fd : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec)) {
        struct stat st {};
        if (fs::read_symlink(fd.path(), ec).string().starts_with(dst().string()) &&
            ::stat(fd.path().c_str(), &st) == 0 && st.st_size > (1 << 20)) {
          return true;
        }
      }
      return Get(out).find("h: Auftrag ausgef") != std::string::npos;  // too late: the job is done
    };
    EXPECT_TRUE(Eventually(partlyWritten));
    ::kill(pid, SIGSTOP);
    std::ofstream(src() / "growing.log", std::ios::app) << "more";
    ::kill(pid, SIGCONT);
    r_ = {WaitFor(pid).exitCode, Get(out), "", LogTexts(Get(out))};
    // Whatever kestrel saw, a file under its name is whole.
    const Tree files = Files(dst());
    EXPECT_TRUE(!files.contains("growing.log") || files.at("growing.log") == original ||
                files.at("growing.log") == original + "more");
  }
  EXPECT_EQ(Files(dst()), (Tree{{"quiet.txt", "quiet"}}));  // nothing torn, no temporary left
  EXPECT_TRUE(Said("The file changed while it was copied")) << r_.out;
  EXPECT_TRUE(r_.exitCode == 1 && End() == "h: Auftrag ausgeführt (mit Fehler)") << r_.out;
}

}  // namespace
}  // namespace e2e
