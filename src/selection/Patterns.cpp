// The two name patterns of a job, rewritten once per run into the regular expressions that the
// walk tests: wildcards become anchored (file) or component-framed (folder) expressions.
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "selection/Selection.h"

#include <array>
#include <utility>

namespace orvKestrel {
namespace {

using paths::ReplaceAll;
using Replacement = std::pair<const char*, const char*>;

// Applied in this order; "?" matches zero or one character on purpose.
constexpr std::array<Replacement, 9> kEscapes = {{{"^", "\\^"},
                                                  {".", "\\."},
                                                  {"{", "\\{"},
                                                  {"}", "\\}"},
                                                  {"(", "\\("},
                                                  {")", "\\)"},
                                                  {"[", "\\["},
                                                  {"]", "\\]"},
                                                  {"$", "\\$"}}};

std::string WildcardToRegex(std::string text, const char* star) {
  for (const auto& [what, with] : kEscapes) text = ReplaceAll(text, what, with);
  text = ReplaceAll(text, "?", ".?");
  return ReplaceAll(text, "*", star);
}

}  // namespace

std::string CleanFilePattern(Services& s, std::string& sPattern, bool bUseRegEx) {
  Proc p(s.trap, Traced(__func__), "sPattern", sPattern, "bUseRegEx", bUseRegEx);
  // "\", "+" and "|" stay as they are: "|" keeps its alternation meaning in a wildcard.
  if (!bUseRegEx) sPattern = "^" + WildcardToRegex(sPattern, ".*") + "$";
  return sPattern;
}

std::string CleanFolderPattern(Services& s, std::string& sPattern, bool bUseRegEx) {
  Proc p(s.trap, Traced(__func__), "sPattern", sPattern, "bUseRegEx", bUseRegEx);
  if (bUseRegEx) {
    if (s.filterRegExp) return sPattern;
    // Without the caller's switch a folder expression is read in the walk's own terms: it is
    // tested against a whole path, so "^" stands for the start of a path component and becomes
    // an escaped separator ("\/"), while an escaped caret "\^" (which the second step turns into
    // "\\/") is restored by the third. The first step turns a nested star group into the form
    // that the wildcard conversion produces.
    sPattern = ReplaceAll(sPattern, "(.*)*", "(.?)*");
    sPattern = ReplaceAll(sPattern, "^", "\\/");
    sPattern = ReplaceAll(sPattern, "\\\\/", "\\^");
    return sPattern;
  }
  // A "\" in a wildcard folder pattern names a level, as "/" does; the framing separators make
  // the pattern match whole components anywhere in the path.
  sPattern = "/" + WildcardToRegex(ReplaceAll(sPattern, "\\", "/"), "(.?)*") + "/";
  return sPattern;
}

}  // namespace orvKestrel
