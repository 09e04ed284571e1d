// The name patterns: wildcard and regular-expression conversion for files and folders, then a
// test of a name through the run's pattern object. Input: one flag byte, the pattern, a zero
// byte, the name. Besides not crashing (an invalid expression is an error, not a crash):
//  - a wildcard without wildcard or expression characters matches itself as a file name, and
//    matches itself as a folder anywhere in a path;
//  - "*" around such a wildcard matches it inside any name.
#include "FuzzSupport.h"

#include <orvKestrel/utf8.h>

#include "jobs/Codepage.h"
#include "platform/SysError.h"
#include "selection/RegExp.h"
#include "selection/Selection.h"

#include <cstdint>
#include <string>

using namespace orvKestrel;

namespace {

bool Test(RegExpCache& re, const std::string& pattern, const std::string& name, bool& failed) {
  try {
    return re.Test(pattern, name);
  } catch (const KestrelError&) {
    failed = true;  // an expression that does not compile, or a match that gives up
    return false;
  }
}

// Wildcards and the characters a wildcard keeps as expression syntax.
bool IsLiteral(const std::string& s) {
  return IsValidUtf8(s) && s.find_first_of("*?|\\+") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > 600) return 0;  // patterns and names are cut far below that
  static Services services{Host{}};
  const std::uint8_t flags = data[0];
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto zero = rest.find('\0');
  const std::string raw = rest.substr(0, zero);
  const std::string name = zero == std::string::npos ? raw : rest.substr(zero + 1);
  const bool regexMode = flags & 1;
  const bool folder = flags & 2;
  services.filterRegExp = flags & 4;

  RegExpCache re;
  bool failed = false;
  std::string pattern = raw;
  if (folder) {
    CleanFolderPattern(services, pattern, regexMode);
    Test(re, pattern, "/" + name + "/", failed);
  } else {
    CleanFilePattern(services, pattern, regexMode);
    Test(re, pattern, name, failed);
  }
  if (regexMode || !IsLiteral(raw) || raw.size() > 255) return 0;

  failed = false;
  if (folder) {
    if (raw.empty() || raw.find('/') != std::string::npos) return 0;
    if (!Test(re, pattern, "/a/" + raw + "/b/", failed) || failed) {
      fuzz::Fail("folder wildcard \"" + raw + "\" does not match itself");
    }
    return 0;
  }
  if (!Test(re, pattern, raw, failed) || failed) fuzz::Fail("wildcard \"" + raw + "\" does not match itself");
  std::string around = "*" + raw + "*";
  CleanFilePattern(services, around, false);
  if (!Test(re, around, "x" + raw + name, failed) || failed) {
    fuzz::Fail("wildcard \"*" + raw + "*\" does not match a name holding it");
  }
  return 0;
}
