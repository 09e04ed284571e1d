// The log message catalogue: 86 numbered texts, German by default, replaceable from the
// "LogMessages" section of a language file.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace orvKestrel {

class FileSystem;

class Catalogue {
 public:
  static constexpr int kMaxKey = 96;
  // Reads every entry from the language file (missing file or key: the default) and puts the
  // entry's affixes around it. "t28" is built from the loaded "t6".
  void LoadLogMessages(FileSystem& fs, const std::string& sLanguagePath);
  // Gives every entry its number; "t90" keeps 0.
  void SetMsgIDs();
  // The loaded text of "tN" (empty for keys that do not exist).
  const std::string& Text(int n) const { return texts_.at(static_cast<std::size_t>(n)); }
  std::int16_t Id(int n) const { return ids_.at(static_cast<std::size_t>(n)); }
  static bool Exists(int n);
  static int EntryCount();

 private:
  std::array<std::string, kMaxKey + 1> texts_{};
  std::array<std::int16_t, kMaxKey + 1> ids_{};
};

}  // namespace orvKestrel
