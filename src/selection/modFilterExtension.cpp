// The extension filter: a comma-separated list of extensions, each optionally written "*.ext",
// compared without regard to case. "*." names the files without an extension when excluding.
#include "engine/Traced.h"
#include "platform/Paths.h"
#include "selection/FilterLoop.h"
#include "selection/Selection.h"

#include <unordered_set>

namespace orvKestrel {
namespace {

// The list entries with every "*." removed, lower-cased; empty entries stay (they name the
// files without an extension).
std::unordered_set<std::string> ExtensionSet(const std::string& ext) {
  std::unordered_set<std::string> set;
  std::size_t start = 0;
  for (;;) {
    const std::size_t comma = ext.find(',', start);
    const std::string entry = ext.substr(start, comma - start);
    set.insert(paths::LowerAscii(paths::ReplaceAll(entry, "*.", "")));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return set;
}

}  // namespace

FileList FilterExtention(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  if (job.Ext.empty()) return std::move(sArray);
  job.Ext = paths::ReplaceAll(job.Ext, " ", "");
  if (job.Ext.empty()) return std::move(sArray);
  const std::unordered_set<std::string> set = ExtensionSet(job.Ext);
  auto listed = [&set](const std::string& file) {
    return set.count(paths::LowerAscii(paths::GetExtensionName(file))) != 0;
  };
  if (job.ExtOpt == 2) {
    return KeepFiles(s, sArray, true, [&](const std::string& file) -> std::optional<bool> {
      return !paths::GetExtensionName(file).empty() && listed(file);
    });
  }
  if (job.ExtOpt == 1) {
    return KeepFiles(s, sArray, false,
                     [&](const std::string& file) -> std::optional<bool> { return !listed(file); });
  }
  return std::move(sArray);
}

}  // namespace orvKestrel
