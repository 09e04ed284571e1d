// File selection seen through `kestrel run --events jsonl`: the walk's progress lines, the
// check line before the filters, and the report of a selection that ends empty.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

struct Line {
  std::string text;
  int id;
  bool file, sameView;
};

class Selection : public JobFolderTest {
 protected:
  Selection() {
    for (const char* f : {"a.txt", "b.log", "sub/c.txt", "sub/deeper/d.txt", ".hid/e.txt"}) {
      Put(src() / f, "x");
    }
  }

  // A due job that acts for real; extra lines go into its "Job" section.
  void WriteJob(const std::string& extra) {
    JobFolderTest::WriteJob("DoPreview=0\nCounter=1\nInterval=1\n" + extra);
  }

  std::vector<Line> Run() {
    const RunResult r = RunJobs();
    exit_ = r.exitCode;
    std::vector<Line> lines;
    for (const auto& j : LogEvents(r.out)) {
      lines.push_back({j["LogMsg"], j["MsgID"], j["bFile"], j["bSameView"]});
    }
    return lines;
  }

  static std::vector<std::string> Texts(const std::vector<Line>& lines, int id) {
    std::vector<std::string> out;
    for (const Line& l : lines) {
      if (l.id == id) out.push_back(l.text);
    }
    return out;
  }

  int exit_ = -1;
};

TEST_F(Selection, WalkLinesComeBeforeTheCheckLine) {
  WriteJob("Action=6\nSubFolder=1\nNoHidenFolderScan=1\n");
  const auto lines = Run();
  EXPECT_EQ(exit_, 0);
  std::vector<int> ids;
  for (const Line& l : lines) ids.push_back(l.id);
  // start, search, three sub-folders (the hidden one is logged, then skipped), check, done
  EXPECT_EQ(ids, (std::vector<int>{3, 16, 16, 16, 16, 17, 6}));
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[1].text, "Suche Dateien ...");
  EXPECT_TRUE(lines[1].file);
  EXPECT_FALSE(lines[1].sameView);
  std::vector<std::string> folders;
  for (std::size_t i = 2; i < 5; ++i) {
    EXPECT_FALSE(lines[i].file);
    EXPECT_TRUE(lines[i].sameView);
    folders.push_back(lines[i].text);
  }
  const std::string prefix = "Suche Dateien ... " + src().string() + "/";
  // The walk is depth first: "deeper" follows its parent "sub" directly.
  const auto sub = std::find(folders.begin(), folders.end(), prefix + "sub");
  ASSERT_NE(sub, folders.end());
  ASSERT_NE(sub + 1, folders.end());
  EXPECT_EQ(*(sub + 1), prefix + "sub/deeper");
  EXPECT_NE(std::find(folders.begin(), folders.end(), prefix + ".hid"), folders.end());
  EXPECT_EQ(lines[5].text, "a: Überprüfe Dateien ...");
}

TEST_F(Selection, WithoutSubFoldersNothingBelowIsLogged) {
  WriteJob("Action=6\nSubFolder=0\n");
  const auto lines = Run();
  EXPECT_EQ(Texts(lines, 16), std::vector<std::string>{"Suche Dateien ..."});
  EXPECT_EQ(Texts(lines, 17).size(), 1u);
}

TEST_F(Selection, AFilterThatEmptiesTheListReportsNoFiles) {
  WriteJob("Action=0\nSubFolder=1\nExtOpt=2\nExt=doc, *.pdf\n");
  const auto lines = Run();
  EXPECT_EQ(Texts(lines, 17).size(), 1u);
  EXPECT_TRUE(Texts(lines, 18).empty());  // the copy is never announced
  EXPECT_EQ(Texts(lines, 7), std::vector<std::string>{"a: Keine Dateien gefunden"});
  EXPECT_TRUE(Texts(lines, 6).empty());
  EXPECT_TRUE(fs::is_empty(dst()));
}

TEST_F(Selection, APatternThatMatchesNothingReportsNoFilesWithoutChecking) {
  WriteJob("Action=0\nSubFolder=1\nDoFileMatch=2\nFileName=zz*\n");
  const auto lines = Run();
  EXPECT_TRUE(Texts(lines, 17).empty());
  EXPECT_EQ(Texts(lines, 7), std::vector<std::string>{"a: Keine Dateien gefunden"});
}

TEST_F(Selection, OnlyTheSelectedFilesReachTheCopy) {
  Put(src() / "skip" / "f.txt", "x");
  WriteJob(
      "Action=0\nSubFolder=1\nFStruct=1\nNoHidenFolderScan=1\nDoFolderMatch=1\n"
      "FolderMatch=skip\nExtOpt=2\nExt=TXT\n");
  const auto lines = Run();
  EXPECT_EQ(exit_, 0);
  EXPECT_EQ(Texts(lines, 18), std::vector<std::string>{"a: Kopiere Dateien ..."});
  std::vector<std::string> copied;
  for (const auto& entry : fs::recursive_directory_iterator(dst())) {
    if (entry.is_regular_file()) copied.push_back(fs::relative(entry.path(), dst()));
  }
  std::sort(copied.begin(), copied.end());
  EXPECT_EQ(copied, (std::vector<std::string>{"a.txt", "sub/c.txt", "sub/deeper/d.txt"}));
}

}  // namespace
}  // namespace e2e
