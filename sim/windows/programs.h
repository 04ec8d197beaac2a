// Other programs, and the redirection of a 32-bit process.
#pragma once

#include "sim/machine/process.h"

namespace sim {

// Makes the redirection calls act as in a 32-bit process; a 64-bit one has nothing to turn off.
void set_redirection_works(bool works);

} // namespace sim
