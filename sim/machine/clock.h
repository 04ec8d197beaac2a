// Virtual time.
#pragma once

#include <cstdint>

namespace sim {

using Ms = std::uint64_t; // milliseconds since the machine was made
constexpr Ms NEVER = ~Ms{0};

struct Span {
    Ms shortest = 0;
    Ms longest = 0;
};

} // namespace sim
