// Interface version 3: the thermal functions that the firmware announces, each switched by its own commands
// and published in its own subkey. Results are nonzero on success; a handler ends at the first firmware query
// that fails or command that is refused.
#pragma once

#include <windows.h>

// Initialises every announced function; a function that fails does not stop the others. Fails when the
// firmware does not tell its functions.
BOOL AdaptiveCoolingInitSettings_v3();

// Two In One: the tablet option, the user's switch, the device held in the hand, and flip mode.
BOOL AdaptiveCoolingChageThermalModeByTwoInOne_v3();
BOOL AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3();
BOOL AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3();
BOOL AdaptiveCoolingDetectOnHand_v3();
BOOL AdaptiveCoolingUndetectOnHand_v3();
BOOL AdaptiveCoolingEnterFlipMode_v3();
BOOL AdaptiveCoolingExitFlipMode_v3();

// Hinge posture and dock state; they act whatever the user's setting.
BOOL AdaptiveCoolingPivoModeChange();
BOOL AdaptiveCoolingDockModeControlChange();

// Hinge-angle thermal mode and graphics temperature; they act while the function is enabled.
BOOL AdaptiveCoolingThermalModeByHingeSettings_v3();
BOOL AdaptiveCoolingDynamicCpuControlSettings_v3();
