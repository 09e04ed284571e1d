// Text for the JSON stream and for people.
#pragma once

#include <orvKestrel/utf8.h>

#include <string>
#include <string_view>

namespace kestrel {

using orvKestrel::ValidUtf8;
// Control characters become \xNN, so that a line feed in a file name cannot forge a line.
std::string EscapeControls(std::string_view text);

// One JSON object on one line, written straight into a string: the events of the stream come
// once per file, and a document tree per event showed in the profile. Texts are made valid UTF-8
// and escaped as nlohmann's dump() escapes them, so the bytes are those of the other objects.
class JsonLine {
 public:
  // line: where the object is written, the caller's so that its room is kept for the next one.
  explicit JsonLine(std::string& line) : line_(line) { line_.assign(1, '{'); }
  JsonLine& Text(std::string_view key, std::string_view value);
  JsonLine& Number(std::string_view key, long long value);
  JsonLine& Bool(std::string_view key, bool value);
  // The object closed, with its line feed.
  const std::string& Done();

 private:
  void Key(std::string_view key);
  bool Escaped(std::string_view value);
  std::string& line_;
};

}  // namespace kestrel
