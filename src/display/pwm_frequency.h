// The panel's back-light PWM frequency.
#pragma once

#include <windows.h>

// Sets the frequency that the firmware prescribes. Event thread only. Always 0.
DWORD ChangePWMFrequency();

// Ends COM use at service stop.
void Close5nitInterface();
