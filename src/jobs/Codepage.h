// Text encodings of profile files: files written on the original platform are Windows-1252,
// newer ones UTF-8. Inside, all text is UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvKestrel::codepage {

// Every byte has a meaning: the five bytes that Windows-1252 leaves undefined become the C1
// control characters of the same value, so that a file survives a round trip unchanged.
std::string Cp1252ToUtf8(std::string_view bytes);
// nullopt when the text holds a character that Windows-1252 cannot represent.
std::optional<std::string> Utf8ToCp1252(std::string_view text);
// The number of characters (code points) of UTF-8 text.
std::size_t CountChars(std::string_view text);
// The first n characters of UTF-8 text.
std::string_view FirstChars(std::string_view text, std::size_t n);

}  // namespace orvKestrel::codepage
