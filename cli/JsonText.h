// Text for the JSON stream and for people.
#pragma once

#include <string>
#include <string_view>

namespace kestrel {

// Bytes that are not valid UTF-8 become U+FFFD.
std::string ValidUtf8(std::string_view text);
// Control characters become \xNN, so that a line feed in a file name cannot forge a line.
std::string EscapeControls(std::string_view text);

}  // namespace kestrel
