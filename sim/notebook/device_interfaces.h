// Windows' laptop/slate and dock indicators and its button injection, as device interfaces of their classes.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

enum class Interface { Slate, Dock, Button };

// The state byte of an indicator, for tests.
BYTE indicator_state(Interface which);
void set_indicator_state(Interface which, BYTE state);

} // namespace sim
