// The panel and its inverter, behind the graphics driver.
#pragma once

#include <windows.h>

namespace sim {

struct Inverter {
    DWORD type = 1;
    DWORD frequency = 1000;
    bool get_fails = false;
    bool set_fails = false;
    bool get_positive = false; // answers S_FALSE, and does the work all the same
    bool set_positive = false;
};

Inverter& inverter();
// The graphics driver; absent on a new machine.
bool graphics_present();
void set_graphics_present(bool present);

} // namespace sim
