// SetupDiGetClassDevsW serves two enumerations: all present devices, and the interfaces of one class.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// Makes a set of the present devices that expose a class (the form-factor devices), or null with the last
// error set.
using InterfaceSetMaker = ObjectRef (*)(const GUID& class_guid);
void set_interface_set_maker(InterfaceSetMaker maker);

} // namespace sim
