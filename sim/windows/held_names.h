// Names of kernel objects that another program holds.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// The object that another program keeps under this name (without its namespace prefix: it holds the name in
// every session); null when none does. *denied: its access control admits nobody else.
ObjectRef held_elsewhere(const std::string& name, bool* denied);

} // namespace sim
