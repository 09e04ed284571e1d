// Numbers as job files hold them: blanks around allowed, "." or "," before the fraction, a
// fraction rounded to the nearest integer with halves to even. Anything else throws
// KestrelError 13 (type mismatch); a value outside the type throws KestrelError 6 (overflow).
#pragma once

#include <cstdint>
#include <string_view>

namespace orvKestrel {

std::int16_t ToInt16(std::string_view text);
std::int32_t ToInt32(std::string_view text);
double ToDouble(std::string_view text);

}  // namespace orvKestrel
