#include "cooling/adaptive_cooling.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "cooling/cooling_v2.h"
#include "cooling/cooling_v3.h"
#include "cooling/cooling_workers.h"
#include "cooling/thermal_firmware.h"

using Operation = BOOL (*)();

static bool IsVersion2(DWORD version) {
    return version >= COOLING_INTERFACE_2000 && version <= COOLING_INTERFACE_2001;
}

// Runs the operation of the interface version in use; 0 when there is none.
static BOOL RouteByVersion(const wchar_t* name, Operation version2, Operation version3) {
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    Operation operation = nullptr;
    if (IsVersion2(version))
        operation = version2;
    if (version == COOLING_INTERFACE_3000)
        operation = version3;
    if (operation == nullptr) {
        Trace(L"%ls(): Routing failed (version 0x%x)\n", name, version);
        return FALSE;
    }
    const BOOL result = operation();
    Trace(L"%ls(): Return 0x%08x\n", name, result);
    return result;
}

// ---- life ----

static BOOL StartAdaptiveCooling_v2() {
    AdaptiveCoolingInitSettings_v2();
    const BOOL created = AdaptiveCoolingCreateWorkerThread();
    // Creates the value for clients to find.
    DWORD special_cooling_ticks = 0;
    SetAdaptiveCoolingCreateSpcialCoolingTimeReg(&special_cooling_ticks);
    return created;
}

static BOOL StartAdaptiveCooling_v3() {
    return AdaptiveCoolingCreateInitilizeWorkerThread();
}

static BOOL TerminateAdaptiveCooling_v2() {
    return AdaptiveCoolingTerminateWorkerThread();
}

static BOOL TerminateAdaptiveCooling_v3() {
    return AdaptiveCoolingTerminateInitilizeWorkerThread();
}

BOOL StartAdaptiveCooling() {
    Trace(L"Enter StartAdaptiveCooling()\n");
    // The version may come out different this time, and then no request would reach an earlier worker any
    // more.
    if (!AdaptiveCoolingRetireWorkers())
        return FALSE;
    DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (!AdaptiveCoolingCheckBIOSVersion(&version))
        version = COOLING_INTERFACE_NONE;
    if (!IsVersion2(version) && version != COOLING_INTERFACE_3000)
        version = COOLING_INTERFACE_NONE;
    g_dwAdaptiveCoolingSupportVersion = version;
    return RouteByVersion(L"StartAdaptiveCooling", StartAdaptiveCooling_v2, StartAdaptiveCooling_v3);
}

BOOL TerminateAdaptiveCooling() {
    return RouteByVersion(L"TerminateAdaptiveCooling", TerminateAdaptiveCooling_v2,
                          TerminateAdaptiveCooling_v3);
}

BOOL RestartAdaptiveCooling() {
    TerminateAdaptiveCooling();
    return StartAdaptiveCooling();
}

// ---- routed requests ----

BOOL AdaptiveCoolingRiseAttachEventOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingRiseAttachEventOfTwoInOne",
                          AdaptiveCoolingRiseEventOfOptionAttached,
                          AdaptiveCoolingChageThermalModeByTwoInOne_v3);
}

BOOL AdaptiveCoolingRiseDetachEventOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingRiseDetachEventOfTwoInOne",
                          AdaptiveCoolingRiseEventOfOptionDetached,
                          AdaptiveCoolingChageThermalModeByTwoInOne_v3);
}

BOOL AdaptiveCoolingEnableCurrentSettingsOfTwoInOne() {
    return RouteByVersion(
        L"AdaptiveCoolingEnableCurrentSettingsOfTwoInOne", [] { return SetAdaptiveCoolingCurrentStatus(1); },
        AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3);
}

BOOL AdaptiveCoolingDisableCurrentSettingsOfTwoInOne() {
    return RouteByVersion(
        L"AdaptiveCoolingDisableCurrentSettingsOfTwoInOne", [] { return SetAdaptiveCoolingCurrentStatus(0); },
        AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3);
}

BOOL AdaptiveCoolingDetectOnHand() {
    return RouteByVersion(L"AdaptiveCoolingDetectOnHand", nullptr, AdaptiveCoolingDetectOnHand_v3);
}

BOOL AdaptiveCoolingUndetectOnHand() {
    return RouteByVersion(L"AdaptiveCoolingUndetectOnHand", nullptr, AdaptiveCoolingUndetectOnHand_v3);
}

// Flip mode has routes of its own: every version but 0x2001 that knows the tablet option takes version 3's
// handler.
static BOOL RouteFlipMode(const wchar_t* name, Operation handler) {
    switch (g_dwAdaptiveCoolingSupportVersion) {
    case COOLING_INTERFACE_1000:
    case COOLING_INTERFACE_2000:
    case COOLING_INTERFACE_3000:
        return handler();
    default:
        Trace(L"%ls(): version routing....\n", name);
        return FALSE;
    }
}

BOOL AdaptiveCoolingEnterFlipMode() {
    return RouteFlipMode(L"AdaptiveCoolingEnterFlipMode", AdaptiveCoolingEnterFlipMode_v3);
}

BOOL AdaptiveCoolingExitFlipMode() {
    return RouteFlipMode(L"AdaptiveCoolingExitFlipMode", AdaptiveCoolingExitFlipMode_v3);
}

// ---- events that act whatever the version ----

BOOL AdaptiveCoolingRiseEventOfPivoModeChange() {
    return AdaptiveCoolingPivoModeChange();
}

BOOL AdaptiveCoolingRiseEventOfCoolQuietHingeAngle() {
    return AdaptiveCoolingThermalModeByHingeSettings_v3();
}

BOOL AdaptiveCoolingRiseEventOfDynamicCpuControl() {
    return AdaptiveCoolingDynamicCpuControlSettings_v3();
}

BOOL AdaptiveCoolingRiseEventOfDockModeControlChange() {
    return AdaptiveCoolingDockModeControlChange();
}
