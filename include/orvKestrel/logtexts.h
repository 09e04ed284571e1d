// The texts of the log message catalogue as a run with a given language file shows them, for a
// host that reads the events it gets (a message's text begins with its catalogue text).
#pragma once

#include <memory>
#include <string>

namespace orvKestrel {

class LogTexts {
 public:
  // sLanguagePath as the run gets it; missing or unreadable: the built-in texts.
  explicit LogTexts(const std::string& sLanguagePath);
  ~LogTexts();
  LogTexts(LogTexts&&) noexcept;
  LogTexts& operator=(LogTexts&&) noexcept;

  // The text of "tN" with its affixes; empty for a key that does not exist.
  const std::string& Text(int n) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_;
};

}  // namespace orvKestrel
