// What the threads of this subsystem share: the interface version, the enabled thermal functions, the tablet
// option.
#pragma once

#include <windows.h>
#include <atomic>

#include "common/subsystem_lock.h"
#include "driver/firmware_words.h"

// Generations of the firmware interface as the version word holds them. Version 2 has one system-wide mode,
// version 3 one command per thermal function.
enum : DWORD {
    COOLING_INTERFACE_NONE = 0,
    COOLING_INTERFACE_1000 = 0x1000,
    COOLING_INTERFACE_2000 = 0x2000,
    COOLING_INTERFACE_2001 = 0x2001,
    COOLING_INTERFACE_3000 = 0x3000,
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

// Spans what an event, a request, an initialisation or a worker's decision reads and does, so that of two the
// later one has the last word. Not held while a worker is started or its end waited for.
extern SubsystemLock g_coolingLock;

template <BOOL (*Operation)()> BOOL InTurn() {
    return RunExclusive(&g_coolingLock, Operation);
}
