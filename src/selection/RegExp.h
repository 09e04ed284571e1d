// The run's pattern object: case-insensitive regular expressions in the dialect the jobs were
// written for, each compiled once per run and then tested per file.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>

namespace orvKestrel {

class RegExpCache {
 public:
  RegExpCache();
  ~RegExpCache();
  // Tests subject against pattern, ignoring case. An invalid pattern throws KestrelError.
  bool Test(const std::string& pattern, const std::string& subject);
  // Compiles pattern now, so that a pattern that cannot compile is known before any file is
  // tested; throws KestrelError.
  void Prepare(const std::string& pattern);

  struct Compiled;  // opaque: the compiled forms of one pattern

 private:
  Compiled& Find(const std::string& pattern);
  std::unordered_map<std::string, std::unique_ptr<Compiled>> cache_;
};

}  // namespace orvKestrel
