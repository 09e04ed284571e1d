// New unique identifiers as text.
#pragma once

#include <string>

namespace orvKestrel {

// A new UUID: 36 upper-case hexadecimal characters in groups 8-4-4-4-12 joined by "-", no
// braces; empty when none can be made.
std::string CreateGUID();

}  // namespace orvKestrel
