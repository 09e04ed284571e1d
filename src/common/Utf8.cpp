#include <orvKestrel/utf8.h>

namespace orvKestrel {

std::size_t Utf8SequenceLength(std::string_view s) {
  if (s.empty()) return 0;
  const auto b0 = static_cast<unsigned char>(s[0]);
  if (b0 < 0x80) return 1;
  std::size_t len = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // bounds of the second byte
  if (b0 >= 0xC2 && b0 <= 0xDF) len = 2;
  else if (b0 == 0xE0) { len = 3; lo = 0xA0; }
  else if (b0 >= 0xE1 && b0 <= 0xEC) len = 3;
  else if (b0 == 0xED) { len = 3; hi = 0x9F; }
  else if (b0 >= 0xEE && b0 <= 0xEF) len = 3;
  else if (b0 == 0xF0) { len = 4; lo = 0x90; }
  else if (b0 >= 0xF1 && b0 <= 0xF3) len = 4;
  else if (b0 == 0xF4) { len = 4; hi = 0x8F; }
  else return 0;
  if (s.size() < len) return 0;
  const auto b1 = static_cast<unsigned char>(s[1]);
  if (b1 < lo || b1 > hi) return 0;
  for (std::size_t i = 2; i < len; ++i) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80 || b > 0xBF) return 0;
  }
  return len;
}

bool IsValidUtf8(std::string_view text) {
  while (!text.empty()) {
    // ASCII runs are the common case.
    if (static_cast<unsigned char>(text[0]) < 0x80) {
      text.remove_prefix(1);
      continue;
    }
    const std::size_t len = Utf8SequenceLength(text);
    if (len == 0) return false;
    text.remove_prefix(len);
  }
  return true;
}

std::string ValidUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t len = Utf8SequenceLength(text);
    if (len == 0) {
      out += "\xEF\xBF\xBD";
      text.remove_prefix(1);
    } else {
      out.append(text.substr(0, len));
      text.remove_prefix(len);
    }
  }
  return out;
}

}  // namespace orvKestrel
