// The calls of the product that end here instead of in Windows.
#pragma once

#include <windows.h>

namespace runner {

void set_local_time(const SYSTEMTIME& time); // from now on it goes with the clock

} // namespace runner
