#include "engine/Catalogue.h"
#include "engine/Engine.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace orvKestrel {
namespace {

using testing::TempDir;
using testing::WriteFile;

Catalogue Load(FileSystem& fs, const std::string& lang) {
  Catalogue c;
  c.LoadLogMessages(fs, lang);
  c.SetMsgIDs();
  return c;
}

// The built-in texts show in every other test's lines; here what they do not show: numbers
// without a text, and a text without a number.
TEST(Catalogue, GapsAndNumbers) {
  FileSystem fs;
  const Catalogue c = Load(fs, "/nonexistent/en.lng");  // a missing language file: the defaults
  EXPECT_EQ(c.Text(11), "Kopiert: ");
  EXPECT_EQ(c.Id(96), 96);
  EXPECT_EQ(c.Id(90), 0);  // "t90" keeps no number
  for (int missing : {1, 4, 5, 21, 22, 23, 24, 29, 68, 69}) {
    EXPECT_FALSE(Catalogue::Exists(missing)) << missing;
    EXPECT_EQ(c.Text(missing), "");
  }
}

TEST(Catalogue, LanguageFileReplacesTextsButNotAffixes) {
  TempDir dir;
  FileSystem fs;
  const std::string lang = dir / "en.lng";
  WriteFile(lang,
            "[LogMessages]\n"
            "t11=Copied\n"
            "t13=\n"
            "t14=to\n"
            "t6=Job done\n"
            "t99=ignored\n"
            "t3=" +
                std::string(300, 'x') + "\n");
  const Catalogue c = Load(fs, lang);
  EXPECT_EQ(c.Text(11), "Copied: ");
  EXPECT_EQ(c.Text(13), ": ");  // present but empty: the empty text, not the default
  EXPECT_EQ(c.Text(14), " to ");
  EXPECT_EQ(c.Text(28), "Job done (mit Fehler)");  // built from the replaced "t6"
  EXPECT_EQ(c.Text(3), std::string(255, 'x'));
  EXPECT_EQ(c.Text(12), "Verschoben: ");
  WriteFile(lang, "[LogMessages]\nt28=(with errors)\nt6=Done\n");  // both parts of "t28"
  EXPECT_EQ(Load(fs, lang).Text(28), "Done (with errors)");
}

TEST(Catalogue, LoadedOncePerEngine) {
  TempDir dir;
  WriteFile(dir / "en.lng", "[LogMessages]\nt11=Copied\n");
  WriteFile(dir / "fr.lng", "[LogMessages]\nt11=Copie\n");
  Engine e{Host{}};
  e.ExecuteAllJobs(dir / "jobs/", dir / "en.lng", false, false, false);
  EXPECT_EQ(e.svc.T(11), "Copied: ");
  EXPECT_EQ(e.svc.Id(11), 11);
  e.ExecuteAllJobs(dir / "jobs/", dir / "fr.lng", false, false, false);
  EXPECT_EQ(e.svc.T(11), "Copied: ");
}

}  // namespace
}  // namespace orvKestrel
