// Removal of one element from a text list, keeping the order of the others.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvKestrel {

// Removes element nDelPos of sArray. The elements nDelPos + 1 .. nSize move down one place and
// the removed text ends up in slot nSize (nSize defaults to the last index). With bRedimSize
// the list then loses its last element; otherwise slot nSize is emptied and the size stays.
// A one-element list with nDelPos 0 becomes empty. Positions outside the list change nothing.
void ArrayDelete(std::vector<std::string>& sArray, long nDelPos,
                 std::optional<long> nSize = std::nullopt, bool bRedimSize = false);

}  // namespace orvKestrel
