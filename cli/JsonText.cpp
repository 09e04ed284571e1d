#include "JsonText.h"

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

}  // namespace kestrel
