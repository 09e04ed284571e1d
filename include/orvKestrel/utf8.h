// UTF-8 as the engine reads it (job and language files, archive entry names) and as hosts must
// write it (streams whose readers expect valid UTF-8 while file names may hold any bytes).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvKestrel {

// The length of the valid UTF-8 sequence at the start of text (no overlong forms, surrogates or
// code points above U+10FFFF), or 0 when it does not start with one.
std::size_t Utf8SequenceLength(std::string_view text);
bool IsValidUtf8(std::string_view text);
// Each byte that is not part of a valid sequence becomes U+FFFD.
std::string ValidUtf8(std::string_view text);

}  // namespace orvKestrel
