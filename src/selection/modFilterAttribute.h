// Attribute lookups shared by the filters and the actions.
#pragma once

#include <cstdint>

namespace orvKestrel {

// Whether the attribute value lAttr holds the attribute iSelected (read-only 1, hidden 2,
// system 4 or archive 32). Only sums of those four bits are known: any other value, such as
// one with the directory or compressed bit, answers false, and so does any other selector.
bool AttributeExists(std::int32_t lAttr, std::int32_t iSelected);

}  // namespace orvKestrel
