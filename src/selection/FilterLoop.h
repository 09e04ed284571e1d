// The removal loop that every list filter shares, in one linear pass: the survivors keep their
// order, each file is tested once, and the stop flag is tested once per file.
#pragma once

#include "engine/Services.h"

#include <optional>

namespace orvKestrel {

// test(file) answers true to keep, false to remove, nullopt when the filter's error trap chose
// to leave: the filter then ends with an empty list. yieldEach lets the host's events run
// before each file. A stop ends the filter with an empty list. The list is consumed: the
// survivors are returned.
template <class Test>
FileList KeepFiles(Services& s, FileList& sArray, bool yieldEach, Test test) {
  FileList kept;
  kept.reserve(sArray.size());
  for (std::string& file : sArray) {
    if (yieldEach) s.Yield();
    if (s.Stopped()) break;
    const std::optional<bool> keep = test(file);
    if (!keep) {
      sArray.clear();
      return {};
    }
    if (*keep) kept.push_back(std::move(file));
  }
  sArray.clear();
  if (s.Stopped()) return {};
  s.Yield();
  return kept;
}

}  // namespace orvKestrel
