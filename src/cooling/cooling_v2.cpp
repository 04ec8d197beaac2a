#include "cooling/cooling_v2.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"

OPERATION(BOOL, InitAdaptiveCoolingInitTabletOptionControlSettings, ()) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE) {
        Trace(L"InitAdaptiveCoolingInitTabletOptionControlSettings(): no interface, nothing is set\n");
        return FALSE;
    }
    DWORD option = 0;
    if (!AdaptiveCoolingCheckTabletOptionAtachStatus_v1(&option))
        return FALSE;
    DWORD setting = 0;
    if (!SetAdaptiveCoolingCreateReg(&setting))
        return FALSE;
    if (setting == 1 && option == TABLET_OPTION_ATTACHED)
        AdaptiveCoolingSetHighPerformanceMode();
    else
        AdaptiveCoolingSetNominalMode();
    return TRUE;
}

static BOOL InitSettings() {
    DWORD mode = COOLING_INTERFACE_NONE;
    if (!AdaptiveCoolingGetSystemControlMode(&mode)) {
        Trace(L"AdaptiveCoolingInitSettings_v2(): Error: System Capability failure\n");
        return FALSE;
    }
    if (mode != COOLING_INTERFACE_NONE)
        g_dwAdaptiveCoolingSupportVersion = mode;
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (version < COOLING_INTERFACE_2000 || version >= COOLING_INTERFACE_3000) {
        Trace(L"AdaptiveCoolingInitSettings_v2(): version 0x%x has no system-wide mode\n", version);
        return TRUE;
    }
    return InitAdaptiveCoolingInitTabletOptionControlSettings();
}

OPERATION(BOOL, AdaptiveCoolingInitSettings_v2, ()) {
    return InTurn<InitSettings>();
}

OPERATION(BOOL, SetAdaptiveCoolingCurrentStatus, (DWORD setting), setting) {
    if (!SetAdaptiveCoolingCurrentSettingReg(setting))
        return FALSE;
    switch (setting) {
    case 0:
        return AdaptiveCoolingSetNominalMode();
    case 1:
        // In the turn that its caller has: it would wait for one of its own.
        return InitSettings();
    default:
        return FALSE;
    }
}

// Whether the user has Adaptive Cooling enabled; a setting that is missing or cannot be read counts as
// disabled.
static bool CoolingEnabled() {
    DWORD setting = 0;
    if (!GetAdaptiveCoolingGetCurrentSettingsStatusFromReg(&setting))
        return false;
    if (setting == 0)
        Trace(L"CoolingEnabled() [Disabled]: the mode stays\n");
    return setting != 0;
}

static BOOL FollowOption() {
    DWORD option = 0;
    if (!CoolingEnabled() || !AdaptiveCoolingCheckTabletOptionAtachStatus_v1(&option))
        return FALSE;
    return option == TABLET_OPTION_ATTACHED ? AdaptiveCoolingSetHighPerformanceMode()
                                            : AdaptiveCoolingSetNominalMode();
}

OPERATION(BOOL, AdaptiveCoolingDoOptionAttached, ()) {
    return InTurn<FollowOption>();
}

OPERATION(BOOL, AdaptiveCoolingDoOptionDetached, ()) {
    return InTurn<FollowOption>();
}

static BOOL CoolSpecially() {
    DWORD capability = 0;
    if (!CoolingEnabled() || !AdaptiveCoolingGetFunctionCapability_v3(&capability))
        return FALSE;
    if (DytcCurrentSetting(capability) != TMCT_CURRENT_SETTING_HIGH_PERFORMANCE_MODE) {
        Trace(L"CoolSpecially(): not in high performance, NOT into Special Cool mode\n");
        return FALSE;
    }
    DWORD option = 0;
    if (!AdaptiveCoolingCheckTabletOptionAtachStatus_v1(&option))
        return FALSE;
    if (option == TABLET_OPTION_ATTACHED) {
        Trace(L"Option deteced NOT into Special Cool mode\n");
        return FALSE;
    }
    Trace(L"No Option deteced (=Only Tablet) into Special Cool mode\n");
    return SetAdaptiveCoolingCoolQuite();
}

OPERATION(BOOL, AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode, ()) {
    return InTurn<CoolSpecially>();
}
