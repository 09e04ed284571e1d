// The trace names of the engine's procedures. A procedure passes its own name (__func__) and
// the table adds its module and kind, so that what the trace says cannot drift from the code.
#pragma once

#include "errortrap/modFailSafeLITE.h"

#include <string_view>

namespace orvKestrel {

// The entry of function; one that the table lacks is a "Sub" of "clsKestrel".
ProcName Traced(std::string_view function);

}  // namespace orvKestrel
