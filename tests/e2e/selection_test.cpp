// File selection seen through `kestrel run`: the walk's progress lines, the check line before
// the filters, and the report of a selection that ends empty.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class Selection : public JobFolderTest {
 protected:
  Selection() {
    for (const char* f : {"a.txt", "b.log", "sub/c.txt", "sub/deeper/d.txt", ".hid/e.txt", "skip/f.txt"}) {
      Put(src() / f, "x");
    }
  }
};

TEST_F(Selection, WalkLinesComeBeforeTheCheckLine) {
  WriteJob(kDue + std::string("Action=6\nSubFolder=1\nNoHidenFolderScan=1\n"));
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 0);
  const auto events = LogEvents(r.out);
  std::vector<int> ids;
  for (const auto& e : events) ids.push_back(e["MsgID"]);
  // start, search, four sub-folders (the hidden one is logged, then skipped), check, done
  ASSERT_EQ(ids, (std::vector<int>{3, 16, 16, 16, 16, 16, 17, 6}));
  EXPECT_EQ(events[1]["LogMsg"], "Suche Dateien ...");
  EXPECT_TRUE(events[1]["bFile"] && !events[1]["bSameView"]);
  // One status line per folder (in the walk's order, which the unit tests of the search check).
  std::set<std::string> folders;
  for (std::size_t i = 2; i < 6; ++i) {
    EXPECT_TRUE(!events[i]["bFile"] && events[i]["bSameView"]);
    folders.insert(events[i]["LogMsg"].get<std::string>().substr(("Suche Dateien ... " + S("")).size()));
  }
  EXPECT_EQ(folders, (std::set<std::string>{".hid", "skip", "sub", "sub/deeper"}));
  EXPECT_EQ(events[6]["LogMsg"], "a: Überprüfe Dateien ...");
}

// Which steps speak (16: search, 17: check, 18: the action's head, 7: no files, 6: done) and
// what is copied. --regex hands a folder expression over as it is: "^sub", tested against the
// whole path, then names no folder and excludes nothing; without it "^" stands for the start of
// a folder's name.
TEST_F(Selection, OnlyTheSelectedFilesReachTheAction) {
  const std::string check = "a: Überprüfe Dateien ...", none = "a: Keine Dateien gefunden",
                    regex = "Action=0\nSubFolder=1\nFStruct=1\nDoFolderMatch=1\nUseFolderRegEx=1\nFolderMatch=^sub\n";
  const Tree outsideSub{{"a.txt", "x"}, {"b.log", "x"}, {".hid/e.txt", "x"}, {"skip/f.txt", "x"}};
  Tree all = outsideSub;
  all.insert({{"sub/c.txt", "x"}, {"sub/deeper/d.txt", "x"}});
  const struct {
    std::string keys;
    std::map<int, Lines> texts;
    Tree dst;
    Lines options = {};
  } cases[] = {
      {"Action=6\nSubFolder=0\n", {{16, {"Suche Dateien ..."}}, {17, {check}}}, {}},
      {"Action=0\nSubFolder=1\nExtOpt=2\nExt=doc, *.pdf\n", {{17, {check}}, {18, {}}, {7, {none}}, {6, {}}}, {}},
      {"Action=0\nSubFolder=1\nDoFileMatch=2\nFileName=zz*\n", {{17, {}}, {7, {none}}}, {}},
      {"Action=0\nSubFolder=1\nFStruct=1\nNoHidenFolderScan=1\nDoFolderMatch=1\nFolderMatch=skip\nExtOpt=2\nExt=TXT\n",
       {{18, {"a: Kopiere Dateien ..."}}}, {{"a.txt", "x"}, {"sub/c.txt", "x"}, {"sub/deeper/d.txt", "x"}}},
      {regex, {}, outsideSub},
      {regex, {}, all, {"--regex"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys + ::testing::PrintToString(c.options));
    fs::remove_all(dst());
    fs::create_directories(dst());
    WriteJob(kDue + c.keys);
    const RunResult r = RunJobs(c.options);
    EXPECT_EQ(r.exitCode, 0);
    std::map<int, Lines> texts;
    for (const auto& e : LogEvents(r.out)) texts[e["MsgID"]].push_back(e["LogMsg"]);
    for (const auto& [id, lines] : c.texts) EXPECT_EQ(texts[id], lines) << id;
    EXPECT_EQ(Files(dst()), c.dst);
  }
}

}  // namespace
}  // namespace e2e
