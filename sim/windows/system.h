// The machine's clock on the wall.
#pragma once

#include <cstdint>

namespace sim {

std::int64_t local_seconds(); // since 1970 as if local time were UTC

} // namespace sim
