#include "Rig.h"
#include "unit/ZipTestSupport.h"
#include "zip/ZipNames.h"
#include "zip/modZIP32vb.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <utility>

namespace orvKestrel {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class Compression : public Rig {
 protected:
  FileList files;
  void SetUp() override {
    if (!HaveTool("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh)";
  }
  struct Row {
    bool preview;
    const char* name;
    std::function<void(job&)> set;
    // "s/..." and "d/..." files: "DIR" a folder, "zip:a" an archive of the entry a.
    std::vector<std::pair<const char*, const char*>> files;
    Strings lines;          // {s} and {d} stand for the folders; see ExpectLines
    std::string after;      // the trees afterwards; a preview must leave them as they were
    const char* counters = nullptr;  // "all/current ...", nullptr: not looked at
  };
  void Check(const Row& r) {
    SCOPED_TRACE(r.name);
    for (const std::string& root : {src, dst}) {
      fs::remove_all(root);
      fs::create_directories(root);
    }
    Fresh();
    Next();
    r.set(j);
    files.clear();
    for (const auto& [rel, data] : r.files) {
      const std::string path = (rel[0] == 's' ? src : dst) + std::string(rel).substr(1);
      const std::string text = data;
      if (text == "DIR") fs::create_directories(path);
      if (text.starts_with("zip:")) MakeArchive(path, {{text.substr(4), text.substr(4)}});
      if (text != "DIR" && !text.starts_with("zip:")) WriteFile(path, text);
      if (rel[0] == 's') files.push_back(path);
    }
    const std::string before = Tree();
    r.preview ? Zip_Preview(run, svc, files) : Zip_Files(run, svc, files);
    ExpectLines(r.lines, Lines());
    EXPECT_EQ(Tree(), r.preview ? before : r.after);
    if (r.counters != nullptr) {
      std::string text;
      for (const auto& [all, curr] : rec.counters) text += (text.empty() ? "" : " ") + std::to_string(all) + "/" + std::to_string(curr);
      EXPECT_EQ(text, r.counters);
    }
  }
};

const auto kAll = [](job&) {};
const auto kExist = [](std::int16_t e) { return [=](job& j) { j.Exist = e; }; };
const auto kSingle = [](std::int16_t e) { return [=](job& j) { j.ZipAll = 1, j.Exist = e; }; };

// Each row: the files, the job's keys, the lines, the trees afterwards (a preview must leave
// them as they were).
TEST_F(Compression, ByModePolicyAndPreview) {
  const Row rows[] = {
      // "All" mode: one archive named after the job; its first file gets no line of its own.
      {false, "one file", kAll, {{"s/a.txt", "a"}}, {"Datei gefunden: 1"}, "d/job.zip=[a.txt] s/a.txt=a", ""},
      {false, "further files", kAll, {{"s/a.txt", "a"}, {"s/sub/b.txt", "b"}, {"s/sub/deep/c.txt", "c"}},
       {"Dateien gefunden: 3", "Hinzufügen: {s}sub/b.txt nach {d}job.zip", "Hinzufügen: {s}sub/deep/c.txt nach {d}job.zip"},
       "d/job.zip=[a.txt,b.txt,c.txt] s/a.txt=a s/sub/b.txt=b s/sub/deep/c.txt=c", "3/2 3/3"},
      // The inner structure is taken from the parent of From (e2e), or below From when it ends in "/".
      {false, "inner structure below From", [](job& j) { j.ZipIntStruct = 1, j.From += "/"; },
       {{"s/a.txt", "a"}, {"s/sub/b.txt", "b"}}, {"..."}, "d/job.zip=[a.txt,sub/b.txt] s/a.txt=a s/sub/b.txt=b"},
      {false, "0 with an archive does nothing", [](job& j) { j.ZipDelComp = 1; }, {{"s/a.txt", "a"}, {"s/b.txt", "b"},
       {"d/job.zip", "not touched"}}, {"Dateien gefunden: 2", "{d}job.zip existiert - Keine Aktion: "}, "d/job.zip=not touched s/a.txt=a s/b.txt=b"},
      {false, "4 adds", kExist(4), {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "zip:old.txt"}}, {"..."},
       "d/job.zip=[old.txt,a.txt,b.txt] s/a.txt=a s/b.txt=b"},
      {false, "3 replaces", kExist(3), {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "zip:old.txt"}}, {"Dateien gefunden: 2",
       "Gelöscht: {d}job.zip - Erstelle neue Zip Datei: {d}job.zip", "Hinzufügen: {s}b.txt nach {d}job.zip"}, "d/job.zip=[a.txt,b.txt] s/a.txt=a s/b.txt=b"},
      {false, "2 writes a free name", [](job& j) { j.Exist = 2, j.PickRenamer = 1; },
       {{"s/a.txt", "a"}, {"d/job.zip", "older"}}, {"..."}, "d/job.zip=older d/job_1.zip=[a.txt] s/a.txt=a"},
      // A folder stands for any path the library cannot read as a file.
      {false, "what cannot be added is an error in a new archive", kAll, {{"s/a.txt", "a"}, {"s/folder.d", "DIR"}},
       {"...", "Fehler: {s}folder.d"}, "d/job.zip=[a.txt] s/a.txt=a s/folder.d/"},
      {false, "else it is not added", kExist(4), {{"s/a.txt", "a"}, {"s/folder.d", "DIR"}, {"d/job.zip", "zip:a.txt"}},
       {"...", "Nicht hinzugefügt: {s}folder.d"}, "d/job.zip=[a.txt] s/a.txt=a s/folder.d/"},
      // "Single" mode: an archive per file, named after it.
      {false, "names", kSingle(0), {{"s/report.txt", "r"}, {"s/README", "R"}, {"s/x.txt/a.txt", "a"}},
       {"Dateien gefunden: 3", "Erstelle neue Zip Datei: {s}report.txt nach {d}report.zip",
        "Erstelle neue Zip Datei: {s}README nach {d}README", "Erstelle neue Zip Datei: {s}x.txt/a.txt nach {d}a.zip"},
       "d/README=[README] d/a.zip=[a.txt] d/report.zip=[report.txt] s/README=R s/report.txt=r s/x.txt/a.txt=a", "3/1 3/2 3/3"},
      {false, "a zero result reads as replaced and keeps the source", [](job& j) { j.ZipAll = j.ZipDelComp = 1; },
       {{"s/folder.d", "DIR"}, {"s/b.txt", "b"}}, {"Dateien gefunden: 2", "Ersetzt: {s}folder.d nach {d}folder.zip",
       "Erstelle neue Zip Datei: {s}b.txt nach {d}b.zip", "..."}, "d/b.zip=[b.txt] s/folder.d/"},
      {false, "the folder structure keeps the extension", [](job& j) { j.ZipAll = j.ZipExtStruct = 1; },
       {{"s/sub/report.txt", "r"}}, {"..."}, "d/sub/report.txt.zip=[report.txt] s/sub/report.txt=r"},
      // Previews change nothing; only Exist 1 previews deletions (ZipDelComp alone does not, although the run deletes).
      {true, "all mode", kAll, {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"s/c.txt", "c"}}, {"Dateien gefunden: 3",
       "Würde zu Zip hinzugefügt: {s}b.txt nach {d}job.zip", "Würde zu Zip hinzugefügt: {s}c.txt nach {d}job.zip"}, "", "3/2 3/3"},
      {true, "ZipDelComp does not", [](job& j) { j.ZipDelComp = 1; }, {{"s/a.txt", "a"}, {"s/b.txt", "b"}},
       {"Dateien gefunden: 2", "Würde zu Zip hinzugefügt: {s}b.txt nach {d}job.zip"}, ""},
      {true, "0 with an archive ends the preview", kAll, {{"s/a.txt", "a"}, {"s/b.txt", "b"}, {"d/job.zip", "x"}},
       {"Dateien gefunden: 2", "{d}job.zipDatei existiert: "}, ""},
      {true, "3 names the archive it would delete", kExist(3), {{"s/a.txt", "a"}, {"d/job.zip", "x"}},
       {"Datei gefunden: 1", "Würde gelöscht: {d}job.zip - Erstelle neue Zip Datei: {d}job.zip"}, ""},
      {true, "single, 3", kSingle(3), {{"s/a.txt", "a"}, {"d/a.zip", "x"}},
       {"Datei gefunden: 1", "Würde gelöscht: {d}a.zip", "Zip würde erstellt: {s}a.txt nach {d}a.zip"}, ""},
      {true, "single names, making no folder", kSingle(0), {{"s/README", "R"}, {"s/sub/r.txt", "r"}},
       {"Dateien gefunden: 2", "Zip würde erstellt: {s}README nach {d}README", "Zip würde erstellt: {s}sub/r.txt nach {d}r.zip"}, ""},
      {true, "single with the structure", [](job& j) { j.ZipAll = j.ZipExtStruct = 1; }, {{"s/sub/r.txt", "r"}},
       {"...", "Zip würde erstellt: {s}sub/r.txt nach {d}sub/r.txt.zip"}, ""},
  };
  for (const Row& r : rows) Check(r);
}

TEST_F(Compression, AStopEndsTheRunAndKeepsWhatWasAdded) {
  files = {Source("a.txt"), Source("b.txt"), Source("c.txt"), Source("d.txt")};
  rec.onCounter = [&](std::int32_t, std::int32_t curr) {
    if (curr == 3) driver.StopMsg(true);
  };
  Zip_Files(run, svc, files);
  EXPECT_EQ(Tree(), "d/job.zip=[a.txt,b.txt] s/a.txt=data s/b.txt=data s/c.txt=data s/d.txt=data");
}

// The job's password makes AES entries, which a wrong password does not open: nothing is
// written for them, not even a temporary.
TEST_F(Compression, PasswordProtectsTheEntries) {
  files = {Source("a.txt", "secret text")};
  j.ZipPwd = "Pa55";
  Zip_Files(run, svc, files);
  const std::string archive = Dst("job.zip");
  EXPECT_EQ(svc.zip->CheckZipFile(archive, "Pa55"), 0);
  EXPECT_EQ(svc.zip->CheckZipFile(archive, "wrong"), 4);
  EXPECT_EQ(svc.zip->CheckZipFile(archive, ""), 4);
  EXPECT_EQ(svc.zip->UnZipEx(archive, tmp / "bad", "*.*", 1, "wrong", 0, 0), 0);
  ASSERT_EQ(svc.zip->Failures().size(), 1u);
  EXPECT_EQ(svc.zip->Failures()[0].kind, ZipLibrary::EntryFailure::Kind::Password);
  EXPECT_FALSE(Exists(tmp / "bad/a.txt"));
  EXPECT_EQ(TempLeftovers(tmp / "bad"), Strings{});
  EXPECT_EQ(svc.zip->UnZipEx(archive, tmp / "good", "*.*", 1, "Pa55", 0, 0), 1);
  EXPECT_EQ(ReadFile(tmp / "good/a.txt"), "secret text");
  if (!HaveTool("7z")) GTEST_SKIP() << "7z is not installed (p7zip-full, scripts/setup.sh)";
  EXPECT_EQ(RunTool("7z t -pPa55 " + Quote(archive)).status, 0);
  EXPECT_NE(RunTool("7z l -slt -pPa55 " + Quote(archive)).output.find("Method = AES-256"), std::string::npos);
  EXPECT_NE(RunTool("7z t -pnope " + Quote(archive)).status, 0);
}

// Only an exactly hidden file has its attributes cleared and given back around the call (the
// first file of "All" mode never), in a run and in a preview; a dry run touches none.
TEST_F(Compression, OnlyExactlyHiddenFilesAreUnhiddenForTheCall) {
  const struct { bool preview, dryRun; int calls; } cases[] = {
      {true, false, 2}, {false, true, 0}, {true, true, 0}, {false, false, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.preview << c.dryRun);
    fs::remove_all(dst);
    fs::create_directories(dst);
    files = {Source(".first"), Source(".hidden"), Source("ro-hidden")};
    svc.fs.SetAttributes(files[0], kAttrHidden);
    svc.fs.SetAttributes(files[2], kAttrHidden | kAttrReadOnly);
    svc.dryRun = c.dryRun;
    j.Exist = c.dryRun ? 1 : 0;  // 1 would delete the sources
    faults.Disarm();
    c.preview ? Zip_Preview(run, svc, files) : Zip_Files(run, svc, files);
    EXPECT_EQ(faults.Calls(FaultOp::SetAttributes), c.calls);
    EXPECT_EQ(svc.fs.GetAttributes(files[1]), kAttrHidden);
    EXPECT_EQ(svc.fs.GetAttributes(files[2]), kAttrHidden | kAttrReadOnly);
    EXPECT_EQ(Exists(Dst("job.zip")), !c.preview && !c.dryRun);
    EXPECT_TRUE(Exists(files[0]));
  }
  EXPECT_EQ(Tree(), "d/job.zip=[.first,.hidden,ro-hidden] s/.first=data s/.hidden=data s/ro-hidden=data");  // the run, last
}

// A link is judged by where it leads once the other links on its way are followed.
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
