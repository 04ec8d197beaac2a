// The executable's data resource.
#pragma once

#include <string>

namespace sim {

// The embedded INF, as the executable's resource shows it.
std::string embedded_inf();

} // namespace sim
