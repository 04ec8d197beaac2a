// The graphics driver: its COM class and the panel's inverter.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct Inverter {
    DWORD type = 1;
    DWORD frequency = 1000;
    bool get_fails = false;
    bool set_fails = false;
};

Inverter& inverter();
void set_graphics_present(bool present);

} // namespace sim
