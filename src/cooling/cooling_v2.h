// Interface version 2: one system-wide thermal mode that follows the tablet option. Results are nonzero on
// success.
#pragma once

#include <windows.h>

// Refines the interface version by the firmware's system control mode, then sets the mode that option and
// user setting ask for.
BOOL AdaptiveCoolingInitSettings_v2();

// High performance for an attached option while the user has Adaptive Cooling enabled, else nominal. Fails
// when the option state or the registry cannot tell; a mode that the firmware refuses is no failure. The
// name InitAdaptiveCoolingInitTabletOptionControlSettings_1000 means the same.
BOOL InitAdaptiveCoolingInitTabletOptionControlSettings();

// Stores the user's switch (1 enabled, 0 disabled) and applies it. Any other setting is stored and fails.
BOOL SetAdaptiveCoolingCurrentStatus(DWORD setting);

// The mode decisions of the worker. Each changes nothing while the user has Adaptive Cooling disabled.
// Attached and detached: high performance with an option, nominal without.
BOOL AdaptiveCoolingDoOptionAttached();
BOOL AdaptiveCoolingDoOptionDetached();
// Cool and quiet when the bare tablet has been running in high performance.
BOOL AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode();
