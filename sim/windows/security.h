// Tokens, privileges and accounts.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// Whether the current process has the privilege enabled; otherwise last error 1314.
bool privilege_enabled(const char* name, const char* call);

} // namespace sim
