// Text for the JSON stream: bytes that are not valid UTF-8 become U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace kestrel {

std::string ValidUtf8(std::string_view text);

}  // namespace kestrel
