// Extraction jobs that must not lose an entry, replace their own archive or escape their
// destination, and archives written by other tools, seen through `kestrel run`.
#include "e2e/E2eSupport.h"

namespace e2e {
namespace {

class UnzipSafety : public ArchiveTest {
 protected:
  // An extraction job from src into dst (or into src itself); more keys after.
  void Job(const std::string& keys, bool intoSource = false) const {
    WriteJob("Counter=1\nAction=4\nDoPreview=0\n" + keys, "u", src(), intoSource ? src() : dst());
  }
};

// An archive never loses an entry: an entry that would replace its own archive, another archive
// of the run, or a file that another entry of the run wrote (two entries of one name extracted
// flat, whatever the policy for existing files) fails with an error line naming it, and its
// archive is kept.
TEST_F(UnzipSafety, AnEntryNeverReplacesAnArchiveOrAFileOfTheRun) {
  const std::vector<Entry> twoReports{{"jan/report.txt", "january"}, {"feb/report.txt", "february"}, {"x.txt", "x"}};
  const Tree january{{"report.txt", "january"}, {"x.txt", "x"}};
  const struct {
    std::string name, keys;
    bool intoSource;
    std::vector<std::pair<std::string, std::vector<Entry>>> archives;
    std::vector<Lines> errors;  // the parts of each error line
    Tree after;                 // files below the destination (besides the archives)
    std::string policies = "1";  // for existing files: each its own run
  } cases[] = {
      {"own name", "ZipDelDeComp=1\nDestZipFolder=1\n", true,
       {{"pack.zip", {{"other.txt", "other"}, {"pack.zip", "inner bytes"}}}}, {{"pack.zip: pack.zip"}},
       {{"other.txt", "other"}}},
      {"own name, flat", "ZipDelDeComp=1\nDestZipFolder=0\n", true,
       {{"pack.zip", {{"other.txt", "other"}, {"inner/pack.zip", "inner bytes"}}}}, {{"pack.zip: inner/pack.zip"}},
       {{"other.txt", "other"}}},
      {"each other's names", "ZipDelDeComp=1\n", true,
       {{"a.zip", {{"b.zip", "not an archive"}, {"x.txt", "from a"}}},
        {"b.zip", {{"a.zip", "not an archive"}, {"y.txt", "from b"}}}},
       {{"b.zip: a.zip"}, {"a.zip: b.zip"}}, {{"x.txt", "from a"}, {"y.txt", "from b"}}},
      {"one name", "ZipDelDeComp=1\n", false, {{"r.zip", twoReports}}, {{"feb/report.txt"}}, january, "012"},
  };
  for (const auto& c : cases) for (const char policy : c.policies) for (const std::string jobs : {"1", "4"}) {
    SCOPED_TRACE(c.name + " DestZipExist=" + policy + " --jobs " + jobs);
    EmptyFolders();
    Tree archives;
    for (const auto& [rel, entries] : c.archives) {
      Archive(S(rel), entries);
      archives[rel] = Get(S(rel));
    }
    Job(c.keys + "DestZipExist=" + policy + "\n", c.intoSource);
    const RunResult r = RunJobs({"--jobs", jobs});
    EXPECT_EQ(r.exitCode, 1) << r.out;
    Tree expected = c.intoSource ? c.after : archives;
    expected.insert(archives.begin(), archives.end());
    EXPECT_EQ(Files(src()), expected);
    EXPECT_TRUE(c.intoSource || Files(dst()) == c.after);
    EXPECT_EQ(Count(r.logs, "u: Fehler: "), static_cast<int>(c.errors.size())) << r.out;
    for (const Lines& parts : c.errors) EXPECT_EQ(Count(r.logs, "u: Fehler: ", parts), 1) << r.out;
    EXPECT_EQ(Count(r.logs, "Zip Datei wurde gelöscht"), 0) << r.out;
  }
}

// Two archives of one run with the same entry: the second never replaces the first's file.
TEST_F(UnzipSafety, TwoArchivesForOneNameNeverReplaceEachOther) {
  Archive(S("a.zip"), {{"r.txt", "A"}});
  Archive(S("b.zip"), {{"r.txt", "B"}});
  Job("ZipDelDeComp=1\nDestZipExist=1\n");
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 1) << r.out;
  ASSERT_NE(fs::exists(S("a.zip")), fs::exists(S("b.zip"))) << r.out;
  const bool aKept = fs::exists(S("a.zip"));
  EXPECT_EQ(Get(D("r.txt")), aKept ? "B" : "A");
  EXPECT_EQ(Count(r.logs, "u: Fehler: ", {aKept ? "a.zip" : "b.zip", "r.txt"}), 1) << r.out;
}

// Each link looks inside by itself; followed through the others (or through a link already in
// the destination) it leaves. Such links are refused, as are a file through a planted link and
// names that climb out or are absolute, and the rest of the archive is extracted; everything
// made stays inside. A link planted where the archive's own folder goes
// is never written through.
TEST_F(UnzipSafety, LinksThatLeaveThroughOtherLinksAreRefused) {
  Put(dir_ / "outside/secret", "secret");
  const std::pair<std::vector<Entry>, std::string> cases[] = {
      {{{"a/l", "..", true}, {"root", "a/l/a/l/../..", true}}, "root"},
      {{{"root", "a/l/a/l/../..", true}, {"a/l", "..", true}}, "root"},
      {{{"a/l", "..", true}, {"b", "a/l/..", true}}, "b"},
      {{{"a/b/l1", "../..", true}, {"a/l2", "b/l1/..", true}}, "a/l2"},
      {{{"x", "y/..", true}, {"y", "a/l", true}, {"a/l", "..", true}}, "x"},
      {{{"p", "planted/secret", true}}, "p"},
  };
  for (const auto& [links, refused] : cases) for (const std::string jobs : {"1", "4"}) {
    SCOPED_TRACE(refused + " --jobs " + jobs);
    EmptyFolders();
    fs::create_directory_symlink(dir_ / "outside", D("planted"));
    std::vector<Entry> entries = links;
    entries.insert(entries.end(), {{"fine.txt", "fine"}, {"planted/through.txt", "x"}, {"../evil", "x"},
                                   {"../../escape.txt", "x"}, {"/abs.txt", "x"}, {"ok/../../slip.txt", "x"}});
    Archive(S("l.zip"), entries);
    Job("ZipDelDeComp=1\nDestZipFolder=1\n");
    const RunResult r = RunJobs({"--jobs", jobs});
    EXPECT_TRUE(r.exitCode == 1 && Count(r.logs, "u: Fehler: link points outside", {refused}) == 1) << r.out;
    for (const char* name : {"planted/through.txt", "../evil", "../../escape.txt", "/abs.txt", "ok/../../slip.txt"}) {
      EXPECT_EQ(Count(r.logs, "u: Fehler: ", {name}), 1) << name << "\n" << r.out;
    }
    EXPECT_EQ(Files(dir_ / "outside"), (Tree{{"secret", "secret"}}));
    for (const fs::path& out : {dir_ / "evil", dir_ / "slip.txt", dir_ / "../escape.txt", fs::path("/abs.txt")}) {
      EXPECT_FALSE(fs::exists(out)) << out;
    }
    for (const Entry& l : links) EXPECT_EQ(fs::is_symlink(D(l.name)), l.name != refused) << l.name;
    EXPECT_TRUE(Get(D("fine.txt")) == "fine" && fs::exists(S("l.zip")));
    const std::string inside = fs::canonical(dst()).string();
    for (const auto& e : fs::recursive_directory_iterator(dst())) {
      if (e.is_symlink() && e.path() != D("planted")) {
        EXPECT_TRUE(fs::weakly_canonical(e.path()).string().starts_with(inside)) << e.path();
      }
    }
  }
  EmptyFolders();
  Archive(S("sub/pack.zip"), {{"a.txt", "a"}});
  fs::create_directories(D("sub"));
  fs::create_directory_symlink(dir_ / "outside", D("sub/pack"));
  Job("SubFolder=1\nFStruct=1\nDestZipFolder=1\nZipDelDeComp=1\n");
  EXPECT_EQ(RunJobs().exitCode, 1);
  EXPECT_EQ(Files(dir_ / "outside"), (Tree{{"secret", "secret"}}));
  EXPECT_TRUE(fs::exists(S("sub/pack.zip")));
}

class OtherTools : public UnzipSafety {
 protected:
  void SetUp() override {
    ArchiveTest::SetUp();
    if (IsSkipped()) return;
    Plant(dir_ / "data", {{"small.txt", "short"}, {"text.txt", "a line of text that is longer than twenty bytes\n"}});
    Python("d=" + Quote((dir_ / "data").string()) + "\n"
           "open(d+'/num.txt','w').write(''.join('%d\\n' % i for i in range(20000)))\n"
           "open(d+'/rand.bin','wb').write(os.urandom(100000))\n");
  }
  std::string Data() const { return Quote((dir_ / "data").string()); }
  std::string Into(const std::string& archive) const { return Quote(S(archive)); }
  // A python script that runs in the source folder.
  void InSource(const std::string& script) const { Python("os.chdir(" + Quote(src().string()) + ")\n" + script); }
};

// Archives of 7-Zip (AES-256, bzip2), Info-ZIP (data descriptors, zip64), python (streamed,
// with data descriptors), with trailing bytes and with local dates that differ from the
// central ones: each extracts byte for byte, and is then deleted.
TEST_F(OtherTools, ArchivesOfOtherToolsExtractByteForByte) {
  if (!HaveTool("7z") || !HaveTool("zip")) GTEST_SKIP() << "7z or zip missing (scripts/setup.sh)";
  const std::string files = " small.txt text.txt num.txt rand.bin";
  Shell("cd " + Data() + " && 7z a -tzip -mem=AES256 -pPW " + Into("aes.zip") + files + " && 7z a -tzip -mm=BZip2 " +
        Into("bz.zip") + files + " && zip -q -fd " + Into("fd.zip") + files + " && zip -q -fz -r " + Into("fz.zip") +
        " .");
  // stream.zip has no seek and no tell, so zipfile writes data descriptors; junk.zip ends in
  // trailing bytes; the local dates of dates.zip differ from its central ones.
  InSource("d=" + Data() + "\n"
           "class Stream:\n"
           "  def __init__(s, f): s.f = f\n"
           "  def write(s, b): return s.f.write(b)\n"
           "  def flush(s): s.f.flush()\n"
           "with open('stream.zip', 'wb') as f, zipfile.ZipFile(Stream(f), 'w', zipfile.ZIP_DEFLATED) as z:\n"
           "  for n in os.listdir(d):\n"
           "    with z.open(n, 'w') as w: w.write(open(d+'/'+n, 'rb').read())\n"
           "for a, names in (('junk', ['small.txt', 'num.txt']), ('dates', ['text.txt', 'rand.bin'])):\n"
           "  with zipfile.ZipFile(a + '.zip', 'w', zipfile.ZIP_DEFLATED) as z: [z.write(d+'/'+n, n) for n in names]\n"
           "open('junk.zip', 'ab').write(b'trailing junk' * 10)\n"
           "b = bytearray(open('dates.zip', 'rb').read())\n"
           "for i in zipfile.ZipFile('dates.zip').infolist():\n"
           "  b[i.header_offset+12:i.header_offset+14] = struct.pack('<H', 0x2821)\n"
           "open('dates.zip', 'wb').write(b)\n");
  Job("FStruct=1\nDestZipFolder=1\nZipDelDeComp=1\nDestZipPwd=PW\n");
  const RunResult r = RunJobs();
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_EQ(Count(r.logs, "u: Fehler"), 0) << r.out;
  for (const std::string archive : {"aes", "bz", "fd", "fz", "stream", "junk", "dates"}) {
    SCOPED_TRACE(archive);
    EXPECT_FALSE(fs::exists(S(archive + ".zip")));
    for (const std::string f : {"small.txt", "text.txt", "num.txt", "rand.bin"}) {
      const fs::path out = D(archive + "/" + f);
      if (!fs::exists(out) && (archive == "junk" || archive == "dates")) continue;
      EXPECT_TRUE(Get(out) == Get(dir_ / ("data/" + f))) << f << " differs or is missing";
    }
  }
}

// Entries that cannot be extracted are named, whatever the reason, and keep their archive.
TEST_F(OtherTools, UnreadableEntriesAreNamedAndKeepTheArchive) {
  if (!HaveTool("7z")) GTEST_SKIP() << "7z is not installed (p7zip-full, scripts/setup.sh)";
  Shell("cd " + Data() + " && 7z a -tzip -mem=AES256 -pPW " + Into("tampered.zip") + " num.txt");
  Shell("cd " + Data() + " && 7z a -tzip -mm=LZMA " + Into("lzma.zip") + " num.txt");
  // flip(p, k, at) flips a bit of the k-th entry's stored data.
  InSource("def flip(p, k, at):\n"
           "  b = bytearray(open(p, 'rb').read()); i = zipfile.ZipFile(p).infolist()[k]\n"
           "  n, e = struct.unpack('<HH', b[i.header_offset+26:i.header_offset+30])\n"
           "  b[i.header_offset + 30 + n + e + at] ^= 1; open(p, 'wb').write(b)\n"
           "flip('tampered.zip', 0, 1000)\n"
           "with zipfile.ZipFile('dup.zip', 'w') as z:\n"
           "  z.writestr('d.txt', 'first'); z.writestr('d.txt', 'second'); z.writestr('x', 'a file')\n"
           "  z.writestr('x/y', 'below a file'); z.writestr('big.bin', 'b' * (5 << 20))\n"
           "with zipfile.ZipFile('noname.zip', 'w') as z:\n"
           "  z.writestr(zipfile.ZipInfo(''), 'x'); z.writestr('ok.txt', 'ok')\n"
           "open('cut.zip', 'wb').write(open('dup.zip', 'rb').read()[:os.path.getsize('dup.zip') // 2])\n"
           "with zipfile.ZipFile('crc.zip', 'w') as z:\n"
           "  z.writestr('good.txt', 'good'); z.writestr('bad.txt', 'B' * 5000)\n"
           "flip('crc.zip', 1, 100)\n");
  for (const std::string jobs : {"1", "4"}) {  // every archive is kept: the second run meets them again
    SCOPED_TRACE(jobs);
    fs::remove_all(dst());
    fs::create_directories(dst());
    Job("Interval=1\nFStruct=1\nDestZipFolder=1\nZipDelDeComp=1\nDestZipPwd=PW\n");
    const RunResult r = RunJobs({"--jobs", jobs});
    EXPECT_EQ(r.exitCode, 1) << r.out;
    EXPECT_EQ(Files(src()).size(), 6u);  // the archives
    // Each failure once, and nothing under a name whose entry failed.
    for (const auto& [prefix, parts, n] : std::vector<std::tuple<std::string, Lines, int>>{
             {"u: Fehler: ", {"authentication failed", "tampered.zip: num.txt"}, 1},
             {"Undefinierbarer Fehler (fehlendes Passwort?): " + S("tampered.zip"), {}, 0},
             {"u: Fehler: ", {"lzma.zip: num.txt"}, 1}, {"u: Fehler: ", {"dup.zip: d.txt"}, 1},
             {"u: Fehler: ", {"dup.zip: x/y"}, 1}, {"u: Fehler: entry without a name", {"noname.zip"}, 1},
             {"u: Fehler: ", {"crc.zip: bad.txt"}, 1},
             {"Zip Datei ist beschädigt oder enthält keine Dateien: " + S("cut.zip"), {}, 1}}) {
      EXPECT_EQ(Count(r.logs, prefix, parts), n) << prefix << ::testing::PrintToString(parts) << r.out;
    }
    // big.bin is too large for a worker to hold.
    EXPECT_EQ(Files(dst()), (Tree{{"crc/good.txt", "good"}, {"dup/big.bin", std::string(5 << 20, 'b')},
                                  {"dup/d.txt", "first"}, {"dup/x", "a file"}, {"noname/ok.txt", "ok"}}));
  }
}

}  // namespace
}  // namespace e2e
