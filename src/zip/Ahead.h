// What the archive workers may hold in memory, for compression and extraction alike.
#pragma once

#include <cstdint>

namespace orvKestrel::zipahead {

// An entry larger than this is never held whole in memory: libzip compresses or extracts it as
// it reads it, on the run's own thread.
inline constexpr std::uint64_t kWholeLimit = std::uint64_t{4} << 20;

}  // namespace orvKestrel::zipahead
