// Whose a process is.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// `windows user`: an administrator's or an ordinary user's.
void give_helper_its_user(Process* process);

} // namespace sim
