// The clock on the wall, and the executable.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

void set_executable(const std::string& path); // the running executable's path
std::int64_t local_seconds();                 // since 1970 as if local time were UTC

} // namespace sim
