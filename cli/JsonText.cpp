#include "JsonText.h"

#include <charconv>

namespace kestrel {
std::string EscapeControls(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto b = static_cast<unsigned char>(c);
    if (b < 0x20 || b == 0x7F) {
      static const char kHex[] = "0123456789abcdef";
      out += "\\x";
      out += kHex[b >> 4];
      out += kHex[b & 0xF];
    } else {
      out += c;
    }
  }
  return out;
}

void JsonLine::Key(std::string_view key) {
  if (line_.size() > 1) line_ += ',';
  line_ += '"';
  line_ += key;  // the keys are the events' argument names: nothing to escape
  line_ += "\":";
}

JsonLine& JsonLine::Text(std::string_view key, std::string_view value) {
  Key(key);
  line_ += '"';
  static const char kHex[] = "0123456789abcdef";
  std::string repaired;
  if (!orvKestrel::IsValidUtf8(value)) value = repaired = ValidUtf8(value);
  const auto plain = [](char c) {
    return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20;
  };
  while (!value.empty()) {
    // Most texts are file names with nothing to escape: whole runs are copied at once.
    std::size_t run = 0;
    while (run < value.size() && plain(value[run])) ++run;
    line_.append(value.data(), run);
    if (run == value.size()) break;
    const char c = value[run];
    value.remove_prefix(run + 1);
    switch (c) {
      case '"': line_ += "\\\""; break;
      case '\\': line_ += "\\\\"; break;
      case '\b': line_ += "\\b"; break;
      case '\f': line_ += "\\f"; break;
      case '\n': line_ += "\\n"; break;
      case '\r': line_ += "\\r"; break;
      case '\t': line_ += "\\t"; break;
      default:
        line_ += "\\u00";
        line_ += kHex[static_cast<unsigned char>(c) >> 4];
        line_ += kHex[c & 0xF];
    }
  }
  line_ += '"';
  return *this;
}

JsonLine& JsonLine::Number(std::string_view key, long long value) {
  Key(key);
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  line_.append(digits, end);
  return *this;
}

JsonLine& JsonLine::Bool(std::string_view key, bool value) {
  Key(key);
  line_ += value ? "true" : "false";
  return *this;
}

const std::string& JsonLine::Done() {
  line_ += "}\n";
  return line_;
}

}  // namespace kestrel
