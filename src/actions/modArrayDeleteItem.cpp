#include "actions/modArrayDeleteItem.h"

#include <algorithm>

namespace orvKestrel {

void ArrayDelete(std::vector<std::string>& sArray, long nDelPos, std::optional<long> nSize,
                 bool bRedimSize) {
  const long upper = static_cast<long>(sArray.size()) - 1;
  if (upper == 0 && nDelPos == 0) {
    sArray.clear();
    return;
  }
  const long size = nSize.value_or(upper);
  if (upper < 0 || nDelPos < 0 || nDelPos > upper || size < 0 || size > upper) return;
  if (nDelPos < size) {
    // One rotation moves the references down; no text is copied.
    const auto first = sArray.begin() + nDelPos;
    std::rotate(first, first + 1, sArray.begin() + size + 1);
  }
  if (bRedimSize) {
    sArray.pop_back();
  } else {
    sArray[static_cast<std::size_t>(size)].clear();
  }
}

}  // namespace orvKestrel
