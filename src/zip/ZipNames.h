// Pure text rules of the zip facade: entry names, name filters and the safety test of the
// paths stored in an archive.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvKestrel::zipnames {

// The entry name of file relative to base: the part below base without leading "/"; a file
// outside base keeps its whole path without the leading "/".
std::string EntryName(std::string_view file, std::string_view base);


// The filter of an extraction: wildcard patterns separated by ";" (blanks around them
// ignored), "*" any run of characters, "?" one character, ASCII case ignored. An empty filter,
// "*" and "*.*" take every name.
class NameFilter {
 public:
  explicit NameFilter(std::string_view filter);
  bool Matches(std::string_view name) const;
  bool TakesAll() const { return all_; }

 private:
  std::vector<std::string> patterns_;
  bool all_ = false;
};

// The components of a stored path, or the reason why it is refused because it would leave
// the destination (absolute, or a ".." component). Empty and "." components are dropped.
struct SplitPath {
  std::vector<std::string> parts;
  std::string refused;  // non-empty: why the path is refused
};
SplitPath SplitEntryPath(std::string_view name);

// What stands at a path below the destination when it is a link: its target; nullopt when it is
// no link.
using LinkLookup =
    std::function<std::optional<std::string>(const std::vector<std::string>& parts)>;

// Whether a link stored at the folder parts (below the destination) with this target stays
// inside the destination when it is resolved as the system would: each link met on the way
// (linkAt tells them: the links already there and those an archive is about to make) is
// replaced by its target. Absolute targets, and chains longer than the system follows, leave.
bool LinkResolvesInside(const std::vector<std::string>& folder, std::string_view target,
                        const LinkLookup& linkAt);

}  // namespace orvKestrel::zipnames
