// What the cooling subsystem asks and tells the firmware: the method DYTC with its command words, three
// status methods, and the hinge and tablet-option methods. Every operation opens the driver's device for
// itself, sends its request once and may run on any thread. Results are nonzero on success; an out-parameter
// is written only where the comment says so.
#pragma once

#include <windows.h>

#include "common/trace.h"
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

// A set word of version 3. The trace reports it under the name of its operation, of which each row is all
// that there is, but for the last: the readiness probe has a function of its own, which reads the answer in
// another way. The same name with _v3 at its end means the same.
struct ThermalWord {
    ThermalFunction function;
    DWORD mode;
    bool on;
    const wchar_t* name;
};

// clang-format off
// X(name, function, mode, on, operation, words)
#define THERMAL_WORDS(X) \
    X(TWO_IN_ONE_COOL,             THERMAL_TWO_IN_ONE,          THERMAL_NO_MODE, false, "AdaptiveCoolingSetTwoInOneStatusToCool",                "cool")                \
    X(TWO_IN_ONE_HIGH_PERFORMANCE, THERMAL_TWO_IN_ONE,          THERMAL_NO_MODE, true,  "AdaptiveCoolingSetTwoInOneStatusToHighPerformance",     "high performance")    \
    X(HINGE_CLAMSHELL,             THERMAL_MULTI_PIVO_HINGE,    THERMAL_NO_MODE, false, "AdaptiveCoolingSetMultiPivoHingeStatusToClamShell",     "clamshell")           \
    X(HINGE_TABLET,                THERMAL_MULTI_PIVO_HINGE,    0,               true,  "AdaptiveCoolingSetMultiPivoHingeStatusToTablet",        "tablet")              \
    X(HINGE_TENT,                  THERMAL_MULTI_PIVO_HINGE,    1,               true,  "AdaptiveCoolingSetMultiPivoHingeStatusToTent",          "tent")                \
    X(HINGE_LAYFLAT,               THERMAL_MULTI_PIVO_HINGE,    2,               true,  "AdaptiveCoolingSetMultiPivoHingeStatusToLayFlat",       "lay-flat")            \
    X(QUIET_HINGE_COOL,            THERMAL_COOL_QUIET_HINGE,    THERMAL_NO_MODE, false, "AdaptiveCoolingSetCoolQuietHingeStatusToCool",          "cool")                \
    X(QUIET_HINGE_HIGH,            THERMAL_COOL_QUIET_HINGE,    THERMAL_NO_MODE, true,  "AdaptiveCoolingSetCoolQuietHingeStatusToHigh",          "high performance")    \
    X(CPU_CONTROL_COOL,            THERMAL_DYNAMIC_CPU_CONTROL, THERMAL_NO_MODE, false, "AdaptiveCoolingSetDynamicCpuControlStatusToCool",       "cool")                \
    X(CPU_CONTROL_HIGH,            THERMAL_DYNAMIC_CPU_CONTROL, THERMAL_NO_MODE, true,  "AdaptiveCoolingSetDynamicCpuControlStatusToHigh",       "high performance")    \
    X(DOCK_MODE_UNDOCKED,          THERMAL_DOCK_MODE_CONTROL,   THERMAL_NO_MODE, false, "AdaptiveCoolingSetDockModeControlToUndocked",           "undocked")            \
    X(DOCK_MODE_DOCKED,            THERMAL_DOCK_MODE_CONTROL,   THERMAL_NO_MODE, true,  "AdaptiveCoolingSetDockModeControlToDocked",             "docked")              \
    X(READINESS_PROBE,             THERMAL_STANDARD,            THERMAL_NO_MODE, true,  "AdaptiveCoolingGetDytcCurrentAvailability",             "ready for commands?")
// clang-format on
#define THERMAL_WORD(name, function, mode, on, operation, words)                                             \
    constexpr ThermalWord name = {function, mode, on, TRACE_NAME(L"" operation)};
THERMAL_WORDS(THERMAL_WORD)
#undef THERMAL_WORD

// *result, which may be null: the result word of any set word that went through. Succeeds when the firmware
// accepted it.
BOOL AdaptiveCoolingSetCommand_v3(const ThermalWord& word, DWORD* result = nullptr);

// 1 when the firmware is ready for version 3 commands: no bit of "not ready" in its answer, or the probe
// accepted all the same. A request that does not go through counts as not ready.
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

// *status on success: whether a tablet option is attached.
constexpr DWORD TABLET_OPTION_NONE = 1;
constexpr DWORD TABLET_OPTION_ATTACHED = 2;
BOOL AdaptiveCoolingCheckTabletOptionAtachStatus_v1(DWORD* status);
