// Extraction: an archive is deleted only while its name leads to the file that was read, and a
// link is judged by where it leads once the other links are followed.
#include "Rig.h"
#include "unit/ZipTestSupport.h"
#include "zip/ZipNames.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <utility>
#include <map>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class UnzipSafety : public Rig {
 protected:
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
    j.Action = 4;
    rec.onLine = [this](const LoggedLine& l) {  // after the archive was read, before its deletion
      if ((l.id == 77 || l.id == 78) && action) std::exchange(action, nullptr)();
    };
  }
  std::string Zip(const std::string& rel, const std::string& entry) {
    const std::string path = Src(rel);
    const ToolResult r = Python(tmp, "import zipfile\nz=zipfile.ZipFile(" + Quote(path) +
                                         ",'w')\nz.writestr(" + Quote(entry) + ",'data')\n"
                                         "z.close()\n");
    EXPECT_EQ(r.status, 0) << r.output;
    return path;
  }
  std::function<void()> action;
  FileList files;
};

TEST_F(UnzipSafety, AnArchiveReplacedAfterItWasReadIsKept) {
  for (const std::int16_t bin : {0, 1}) {
    SCOPED_TRACE(bin);
    rec.lines.clear();
    fs::remove(Dst("a.txt"));
    files = {Zip("a.zip", "a.txt")};
    const std::string other = Zip("other.zip", "other.txt");
    const std::string replacement = ReadFile(other);
    action = [&] { fs::rename(other, files[0]); };
    j.ZipDelDeComp = 1;
    j.ZipDelDeCompBin = bin;
    run.jobError = false;
    UnZip_Files(run, svc, files);
    EXPECT_EQ(ReadFile(files[0]), replacement);
    EXPECT_EQ(ReadFile(Dst("a.txt")), "data");
    EXPECT_TRUE(run.jobError);
    EXPECT_EQ(rec.Texts().back(), "job: Fehler: The file changed after it was read and was kept - " +
                                       files[0]);
  }
}

TEST(LinkResolution, FollowsTheLinksOnTheWay) {
  using Parts = std::vector<std::string>;
  const std::map<std::string, std::string> links = {
      {"a/l", ".."}, {"a/b/l1", "../.."}, {"up", "/"}, {"loop1", "loop2"}, {"loop2", "loop1"}};
  const zipnames::LinkLookup lookup = [&](const Parts& parts) -> std::optional<std::string> {
    std::string key;
    for (const auto& p : parts) key += (key.empty() ? "" : "/") + p;
    const auto it = links.find(key);
    return it == links.end() ? std::nullopt : std::optional<std::string>(it->second);
  };
  struct Case { Parts at; std::string target; bool inside; };
  for (const Case& c : {Case{{}, "a/l/a/l/../..", false}, Case{{}, "a/l/..", false},
                        Case{{"a"}, "b/l1/..", false}, Case{{}, "a/l/x", true},
                        Case{{}, "a/b/l1/a/l", true}, Case{{}, "up/etc", false},
                        Case{{}, "loop1", false}, Case{{"a"}, "../x", true},
                        Case{{"a"}, "../../x", false}, Case{{}, "/etc", false},
                        Case{{}, "", false}, Case{{"a", "b"}, "l1/a/l/../c", false},
                        Case{{}, std::string("..\0/x", 5), false}}) {
    EXPECT_EQ(zipnames::LinkResolvesInside(c.at, c.target, lookup), c.inside) << c.target;
  }
}

}  // namespace
}  // namespace orvKestrel
