// Text for the JSON stream and for people.
#pragma once

#include <orvKestrel/utf8.h>

#include <string>
#include <string_view>

namespace kestrel {

using orvKestrel::ValidUtf8;
// Control characters become \xNN, so that a line feed in a file name cannot forge a line.
std::string EscapeControls(std::string_view text);

}  // namespace kestrel
