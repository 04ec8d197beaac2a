// The calls of the product that end here instead of in Windows.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

bool key_is_open(const std::string& path);   // the key, or one below it, by the product
void set_local_time(const SYSTEMTIME& time); // from now on it goes with the clock

} // namespace runner
