// Profile (INI) files as the job and language files use them: sections in square brackets,
// "key=value" lines, ";" comments. Names match without regard to case, the first matching
// section and the first matching key in it win, blanks around names and values are dropped and
// one pair of matching quotes around a value is removed. A file that is valid UTF-8 is read as
// UTF-8, any other as Windows-1252.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace orvKestrel {

class FileSystem;

// One file, parsed once, for reading many keys.
class Profile {
 public:
  Profile() = default;  // a missing file: every key takes its default
  explicit Profile(std::string_view bytes);
  // A missing file yields the empty profile; an unreadable one, one that is no regular file
  // and one over kMaxBytes throw KestrelError.
  static constexpr std::size_t kMaxBytes = 1024 * 1024;
  static Profile Load(FileSystem& fs, const std::string& path);

  // The value of key in section, else def; cut to nSize - 1 characters.
  std::string Get(std::string_view section, std::string_view key, std::string_view def,
                  int nSize = 256) const;

 private:
  using Keys = std::unordered_map<std::string, std::string>;
  std::unordered_map<std::string, Keys> sections_;
};

// The bytes of a profile file after setting key of section to value: every other line, comment
// and the order stay as they are; a missing section or key is added; the file's encoding and
// line endings are kept (a value that Windows-1252 cannot hold turns the file into UTF-8).
// Throws KestrelError for a value or name that a profile line cannot hold.
std::string SetProfileValue(std::string_view bytes, std::string_view section, std::string_view key,
                            std::string_view value);

}  // namespace orvKestrel
