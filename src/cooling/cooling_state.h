// What the threads of this subsystem share: the interface version, the enabled thermal functions, the tablet
// option.
#pragma once

#include <atomic>
#include <windows.h>

// Generations of the firmware interface as the version word holds them. Version 2 has one system-wide mode,
// version 3 one command per thermal function.
enum : DWORD {
    COOLING_INTERFACE_NONE = 0,
    COOLING_INTERFACE_1000 = 0x1000,
    COOLING_INTERFACE_2000 = 0x2000,
    COOLING_INTERFACE_2001 = 0x2001,
    COOLING_INTERFACE_3000 = 0x3000,
};

// The thermal functions of version 3 under the firmware's numbers.
enum ThermalFunction : DWORD {
    THERMAL_STANDARD,
    THERMAL_COOL_QUIET_ON_LAPTOP,
    THERMAL_TWO_IN_ONE,
    THERMAL_MULTI_PIVO_HINGE,
    THERMAL_SKIN_TEMPERATURE_PROTECTION,
    THERMAL_COOL_QUIET_HINGE,
    THERMAL_DYNAMIC_CPU_CONTROL,
    THERMAL_SINGLE_FAN,
    THERMAL_DOCK_MODE_CONTROL,
    THERMAL_FORCE_HIGH_PERFORMANCE,
    THERMAL_FUNCTION_COUNT
};

// The interface version in use. The firmware may refine 0x2000 to another value up to 0x2FFF.
extern std::atomic<DWORD> g_dwAdaptiveCoolingSupportVersion;

// Bit (1 << n): function n is enabled by the user.
extern std::atomic<DWORD> g_dwCoolingFunctionFlags;

// Bit 0: the tablet option is attached, as the last Two-In-One mode change found it.
constexpr DWORD COOLING_OPTION_ATTACHED = 1;
extern std::atomic<DWORD> g_dwCoolingOptionState;

// Whether the user has the function enabled.
bool ThermalFunctionEnabled(ThermalFunction function);

// Sets or clears the function's bit; changes that other threads make at the same time are kept.
void SetThermalFunctionEnabled(ThermalFunction function, bool enabled);
