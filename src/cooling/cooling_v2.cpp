#include "cooling/cooling_v2.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"

BOOL InitAdaptiveCoolingInitTabletOptionControlSettings() {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE)
        return FALSE;
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
    Trace(L"Enter AdaptiveCoolingInitSettings_v2()\n");
    DWORD mode = COOLING_INTERFACE_NONE;
    if (!AdaptiveCoolingGetSystemControlMode(&mode)) {
        Trace(L"AdaptiveCoolingInitSettings_v2(): Error: System Capability failure\n");
        return FALSE;
    }
    if (mode != COOLING_INTERFACE_NONE)
        g_dwAdaptiveCoolingSupportVersion = mode;
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (version < COOLING_INTERFACE_2000 || version >= COOLING_INTERFACE_3000)
        return TRUE;
    return InitAdaptiveCoolingInitTabletOptionControlSettings();
}

BOOL AdaptiveCoolingInitSettings_v2() {
    return InTurn<InitSettings>();
}

BOOL SetAdaptiveCoolingCurrentStatus(DWORD setting) {
    Trace(L"Enter SetAdaptiveCoolingCurrentStatus(%u)\n", setting);
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
static bool CoolingEnabled(const wchar_t* operation) {
    DWORD setting = 0;
    if (!GetAdaptiveCoolingGetCurrentSettingsStatusFromReg(&setting))
        return false;
    if (setting == 0)
        Trace(L"%ls() [Disabled]\n", operation);
    return setting != 0;
}

static BOOL FollowOption(const wchar_t* operation) {
    DWORD option = 0;
    if (!CoolingEnabled(operation) || !AdaptiveCoolingCheckTabletOptionAtachStatus_v1(&option))
        return FALSE;
    return option == TABLET_OPTION_ATTACHED ? AdaptiveCoolingSetHighPerformanceMode()
                                            : AdaptiveCoolingSetNominalMode();
}

static BOOL FollowAttach() {
    return FollowOption(L"AdaptiveCoolingDoOptionAttached");
}

static BOOL FollowDetach() {
    return FollowOption(L"AdaptiveCoolingDoOptionDetached");
}

BOOL AdaptiveCoolingDoOptionAttached() {
    return InTurn<FollowAttach>();
}

BOOL AdaptiveCoolingDoOptionDetached() {
    return InTurn<FollowDetach>();
}

static BOOL CoolSpecially() {
    DWORD capability = 0;
    if (!CoolingEnabled(L"AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode") ||
        !AdaptiveCoolingGetFunctionCapability_v3(&capability))
        return FALSE;
    if (DytcCurrentSetting(capability) != TMCT_CURRENT_SETTING_HIGH_PERFORMANCE_MODE)
        return FALSE;
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

BOOL AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode() {
    return InTurn<CoolSpecially>();
}
