// The removal list of a synchronisation, apart from the walks that feed it.
#pragma once

#include "engine/Services.h"

#include <string>

namespace orvKestrel {

// The entries of secondary (below root to) whose path relative to to has no equal (by bytes,
// so case counts) among the entries of primary relative to from; in the order of secondary.
FileList MissingInPrimary(const FileList& primary, const std::string& from,
                          const FileList& secondary, const std::string& to);

}  // namespace orvKestrel
