#include "JsonText.h"

#include <array>
#include <charconv>
#include <cstring>

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

namespace {

// The bytes of a text that JSON takes as they are: not a quote, a backslash, a control
// character, nor the start of a multi-byte sequence (checked one by one).
constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (int b = 0x20; b < 0x80; ++b) plain[b] = b != '"' && b != '\\';
  return plain;
}();

}  // namespace

// Written as one piece: once per argument of every event, it showed in the profile.
void JsonLine::Key(std::string_view key) {
  char head[64];
  if (key.size() + 4 > sizeof head) {
    line_ += line_.size() > 1 ? ",\"" : "\"";
    line_.append(key).append("\":");
    return;
  }
  std::size_t n = 0;
  if (line_.size() > 1) head[n++] = ',';
  head[n++] = '"';
  std::memcpy(head + n, key.data(), key.size());  // argument names: nothing to escape
  n += key.size();
  head[n++] = '"';
  head[n++] = ':';
  line_.append(head, n);
}

JsonLine& JsonLine::Text(std::string_view key, std::string_view value) {
  Key(key);
  line_ += '"';
  const std::size_t start = line_.size();
  if (!Escaped(value)) {  // rare: bytes that are no UTF-8, each replaced
    line_.resize(start);
    Escaped(ValidUtf8(value));
  }
  line_ += '"';
  return *this;
}

// Most texts are file names with nothing to escape: whole runs are copied at once, and the
// text is checked for UTF-8 on the way. False, with part of it written, at a byte that is none.
bool JsonLine::Escaped(std::string_view value) {
  static const char kHex[] = "0123456789abcdef";
  while (!value.empty()) {
    std::size_t run = 0;
    while (run < value.size() && kPlain[static_cast<unsigned char>(value[run])]) ++run;
    line_.append(value.data(), run);
    value.remove_prefix(run);
    if (value.empty()) break;
    const auto c = static_cast<unsigned char>(value[0]);
    if (c >= 0x80) {
      const std::size_t length = orvKestrel::Utf8SequenceLength(value);
      if (length == 0) return false;
      line_.append(value.data(), length);
      value.remove_prefix(length);
      continue;
    }
    value.remove_prefix(1);
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
        line_ += kHex[c >> 4];
        line_ += kHex[c & 0xF];
    }
  }
  return true;
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
