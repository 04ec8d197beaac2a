// The panel's back-light PWM frequency, set through the graphics driver as the firmware prescribes it.
#pragma once

#include <windows.h>

// Reads the wanted frequency from the firmware, sets it in the graphics driver, and tells the firmware the
// frequency now in force (0 when setting it failed; nothing when the firmware prescribes none). The first
// call connects to the graphics driver, and a failed connection is tried again by the next. Event thread
// only. Always 0.
DWORD ChangePWMFrequency();

// Makes the COM connection of the calling thread: 1 connected, 0 not (then COM is in no use by it).
DWORD Open5nitInterface();

// Ends the use of the connection at service stop. Any thread; the event thread must not be running any more.
void Close5nitInterface();
