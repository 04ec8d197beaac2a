// The calls of the product that end here instead of in Windows.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

// `base` of a key that the product opened, or a root: its full path as the product named it.
std::string key_path(HKEY key);
void set_local_time(const SYSTEMTIME& time); // from now on it goes with the clock

} // namespace runner
