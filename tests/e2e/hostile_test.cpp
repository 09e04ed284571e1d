// Hostile trees through `kestrel run`: names with line breaks, invalid UTF-8, leading dashes and
// 255 bytes; link loops; folders and files that cannot be read; paths beyond PATH_MAX. Each run
// ends with the right result or the right error line, never a crash or a hang. (A file that
// grows while it is copied: the unit regression, which times the growth exactly.)
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

// Odd names are copied as they are. A link to a file counts as the file; links to folders,
// loops and dangling links do not.
TEST_F(Hostile, NamesWithLineBreaksInvalidUtf8LeadingDashesTheLongestLengthAndLinkLoops) {
  // Names that are valid UTF-8 read back from the stream as they are, whatever it escapes.
  const Lines readable = {"line\nbreak.txt", "-rf", "--help", "-", std::string(251, 'n') + ".txt", " lead and trail ",
                          "tab\there", "*?[x]", "quote\"d", "back\\slash", "ctl\x01\x1f", "emoji\xf0\x9f\x98\x80"};
  Lines names = readable;
  names.insert(names.end(), {"bad\xff\xfe" "name.txt", "sub/\xc3\x28" "deep.bin"});
  Tree expected{{"a/real.txt", "real"}};
  for (const std::string& name : names) expected[name] = "data " + name;
  Plant(src(), expected);
  fs::create_directory_symlink(".", src() / "loop");
  fs::create_directory_symlink("../a", src() / "a/up");
  fs::create_symlink("self", src() / "self");
  fs::create_symlink("nowhere", src() / "dangling");
  fs::create_symlink("a/real.txt", src() / "file-link.txt");
  r_ = RunJobs();
  EXPECT_TRUE(r_.exitCode == 0 && End() == "h: Auftrag ausgeführt") << r_.err << r_.out;
  expected["file-link.txt"] = "real";
  EXPECT_EQ(Files(dst()), expected);
  // Invalid bytes reach the stream as U+FFFD, the rest of the line as it is.
  EXPECT_TRUE(Said("bad\xEF\xBF\xBD\xEF\xBF\xBD" "name.txt")) << r_.out;
  for (const std::string& name : readable) EXPECT_TRUE(Said(name)) << name;
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

// A file whose path fits is copied; what lies beyond PATH_MAX is never half there: either the
// walk could not list its folder (no files, as for any folder it cannot list) or the copy failed
// with an error line.
TEST_F(Hostile, PathsBeyondPathMaxEndWithErrorLinesNotACrash) {
  // 24 levels of 200 bytes: the deepest files lie beyond PATH_MAX (4096) both in the source and
  // in the destination. The shell makes and enters them one by one (the whole path is longer
  // than the system takes in one call): the steps down to where "fits" and "beyond" go.
  std::string make, enter, makeFits, enterFits, makeBeyond, enterBeyond;
  for (std::size_t i = 0, length = src().string().size(); i < 24; ++i) {
    const std::string level = std::string(199, static_cast<char>('a' + i)) + std::to_string(i % 10);
    make += "mkdir -p " + level + " && cd -P " + level + " && ";
    enter += "cd -P " + level + " && ";
    if ((length += 201) + 12 < PATH_MAX) makeFits = make, enterFits = enter;
    if (length > PATH_MAX + 400 && makeBeyond.empty()) makeBeyond = make, enterBeyond = enter;
  }
  const auto shell = [&](const std::string& cmd) {
    return std::system(("cd " + Quote(dir_.root().string()) + " && " + cmd).c_str());
  };
  ASSERT_EQ(shell("cd src && " + makeFits + "printf fits > fits.txt"), 0);
  ASSERT_EQ(shell("cd src && " + makeBeyond + "printf beyond > beyond.txt"), 0);
  Put(src() / "top.txt", "top");
  r_ = RunJobs();
  EXPECT_EQ(Get(dst() / "top.txt"), "top");
  const auto read = [&](const std::string& steps, const std::string& name) {
    fs::remove(dir_ / "read");
    shell("cd dst && " + steps + "cat " + name + " > " + Quote((dir_ / "read").string()));
    return fs::exists(dir_ / "read") ? Get(dir_ / "read") : "<missing>";
  };
  EXPECT_EQ(read(enterFits, "fits.txt"), "fits");
  const std::string copied = read(enterBeyond, "beyond.txt");
  EXPECT_TRUE(copied == "<missing>" || copied == "beyond") << copied;
  EXPECT_TRUE(copied != "<missing>" || !Said("beyond.txt") ||
              (Said("File name too long") && End() == "h: Auftrag ausgeführt (mit Fehler)")) << r_.out;
  shell("rm -rf src dst");  // by levels, which the paths of the scratch folder's removal are not
}

}  // namespace
}  // namespace e2e
