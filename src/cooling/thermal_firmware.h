// What the cooling subsystem asks and tells the firmware: the method DYTC with its command words, three
// status methods, and the hinge and tablet-option methods. Every operation opens the driver's device for
// itself, sends its request once and may run on any thread. Results are nonzero on success; an out-parameter
// is written only where the comment says so.
#pragma once

#include <windows.h>

#include "cooling/cooling_state.h"

// *revision: the firmware's interface revision. Fails without support for the method.
BOOL AdaptiveCoolingGetCurrentBIOSInterfaceVersion(DWORD* revision);

// *version: 0x2000 or 0x3000 (also published as "Version" of the TMC key) for revision 2 or 3, else
// untouched. Succeeds when the revision could be asked.
BOOL AdaptiveCoolingCheckBIOSVersion(DWORD* version);

// *mode: the system control mode if it is one of version 2, else untouched. Succeeds when the query went
// through.
BOOL AdaptiveCoolingGetSystemControlMode(DWORD* mode);

// *capability: the result word of any query that went through; bit (16 + n) announces function n. Succeeds
// when the firmware carried the query out.
BOOL AdaptiveCoolingGetFunctionCapability_v3(DWORD* capability);

// *result: the result word of any command that went through. Succeeds when the firmware accepted it.
BOOL AdaptiveCoolingSetCommand_v3(DWORD command, DWORD* result);

// clang-format off
// The set words: X(name, function, mode, on). Each is sent by AdaptiveCoolingSet<name>, plain and _v3.
#define THERMAL_SET_WORDS(X)                                                                   \
    X(TwoInOneStatusToCool,             THERMAL_TWO_IN_ONE,          THERMAL_NO_MODE, false)   \
    X(TwoInOneStatusToHighPerformance,  THERMAL_TWO_IN_ONE,          THERMAL_NO_MODE, true)    \
    X(MultiPivoHingeStatusToClamShell,  THERMAL_MULTI_PIVO_HINGE,    THERMAL_NO_MODE, false)   \
    X(MultiPivoHingeStatusToTablet,     THERMAL_MULTI_PIVO_HINGE,    0,               true)    \
    X(MultiPivoHingeStatusToTent,       THERMAL_MULTI_PIVO_HINGE,    1,               true)    \
    X(MultiPivoHingeStatusToLayFlat,    THERMAL_MULTI_PIVO_HINGE,    2,               true)    \
    X(CoolQuietHingeStatusToCool,       THERMAL_COOL_QUIET_HINGE,    THERMAL_NO_MODE, false)   \
    X(CoolQuietHingeStatusToHigh,       THERMAL_COOL_QUIET_HINGE,    THERMAL_NO_MODE, true)    \
    X(DynamicCpuControlStatusToCool,    THERMAL_DYNAMIC_CPU_CONTROL, THERMAL_NO_MODE, false)   \
    X(DynamicCpuControlStatusToHigh,    THERMAL_DYNAMIC_CPU_CONTROL, THERMAL_NO_MODE, true)    \
    X(DockModeControlToUndocked,        THERMAL_DOCK_MODE_CONTROL,   THERMAL_NO_MODE, false)   \
    X(DockModeControlToDocked,          THERMAL_DOCK_MODE_CONTROL,   THERMAL_NO_MODE, true)
// clang-format on

#define THERMAL_SETTER(name, function, mode, on)                                                             \
    BOOL AdaptiveCoolingSet##name##_v3();                                                                    \
    BOOL AdaptiveCoolingSet##name();
THERMAL_SET_WORDS(THERMAL_SETTER)
#undef THERMAL_SETTER

// 1 when the firmware is ready for version 3 commands. A request that does not go through counts as not
// ready.
BOOL AdaptiveCoolingGetDytcCurrentAvailability();

// Version 2: the system-wide mode. Refused, with nothing sent, while the interface version is 0.
BOOL AdaptiveCoolingSetNominalMode();
BOOL SetAdaptiveCoolingCoolQuite();
BOOL AdaptiveCoolingSetHighPerformanceMode();

// *status: the raw status word of any request that went through, which is success.
BOOL AdaptiveCoolingGetDockModeStatusFromBIOS(DWORD* status);
BOOL AdaptiveCoolingGetThermalModeStatusFromBIOS(DWORD* status);
BOOL AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS(DWORD* status);
BOOL AdaptiveCoolingGetPivoModeStatusFromBIOS(DWORD* status);

// *version: the raw version word of the tablet-option method, when the request went through.
BOOL AdaptiveCoolingQueryTabletOptionAtachStatusVersion(DWORD* version);

// *status on success: whether a tablet option is attached.
constexpr DWORD TABLET_OPTION_NONE = 1;
constexpr DWORD TABLET_OPTION_ATTACHED = 2;
BOOL AdaptiveCoolingCheckTabletOptionAtachStatus_v1(DWORD* status);
