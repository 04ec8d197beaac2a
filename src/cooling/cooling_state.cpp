#include "cooling/cooling_state.h"

SubsystemLock g_coolingLock;

std::atomic<DWORD> g_dwAdaptiveCoolingSupportVersion{COOLING_INTERFACE_NONE};
std::atomic<DWORD> g_dwCoolingFunctionFlags{0};
std::atomic<DWORD> g_dwCoolingOptionState{0};

bool ThermalFunctionEnabled(ThermalFunction function) {
    return (g_dwCoolingFunctionFlags.load() & (1u << function)) != 0;
}

void SetThermalFunctionEnabled(ThermalFunction function, bool enabled) {
    if (enabled)
        g_dwCoolingFunctionFlags.fetch_or(1u << function);
    else
        g_dwCoolingFunctionFlags.fetch_and(~(1u << function));
}
