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
    DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (!AdaptiveCoolingCheckBIOSVersion(&version))
        version = COOLING_INTERFACE_NONE;
    if (!IsVersion2(version) && version != COOLING_INTERFACE_3000)
        version = COOLING_INTERFACE_NONE;
    // A worker that still waits for the firmware goes on: a start that is asked for again and again must not
    // put the initialisation off for good.
    if (version == COOLING_INTERFACE_3000 && AdaptiveCoolingInitilizeWorkerWaits()) {
        g_dwAdaptiveCoolingSupportVersion = version;
        return TRUE;
    }
    // The version may have come out different, and then no request would reach an earlier worker any more.
    if (!AdaptiveCoolingRetireWorkers())
        return FALSE;
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

// Version 2 is only signalled of attach and detach, and its worker acts in its turn.
static BOOL EnableCurrentStatus() {
    return SetAdaptiveCoolingCurrentStatus(1);
}

static BOOL DisableCurrentStatus() {
    return SetAdaptiveCoolingCurrentStatus(0);
}

BOOL AdaptiveCoolingRiseAttachEventOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingRiseAttachEventOfTwoInOne",
                          AdaptiveCoolingRiseEventOfOptionAttached,
                          InTurn<AdaptiveCoolingChageThermalModeByTwoInOne_v3>);
}

BOOL AdaptiveCoolingRiseDetachEventOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingRiseDetachEventOfTwoInOne",
                          AdaptiveCoolingRiseEventOfOptionDetached,
                          InTurn<AdaptiveCoolingChageThermalModeByTwoInOne_v3>);
}

BOOL AdaptiveCoolingEnableCurrentSettingsOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingEnableCurrentSettingsOfTwoInOne", InTurn<EnableCurrentStatus>,
                          InTurn<AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3>);
}

BOOL AdaptiveCoolingDisableCurrentSettingsOfTwoInOne() {
    return RouteByVersion(L"AdaptiveCoolingDisableCurrentSettingsOfTwoInOne", InTurn<DisableCurrentStatus>,
                          InTurn<AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3>);
}

BOOL AdaptiveCoolingDetectOnHand() {
    return RouteByVersion(L"AdaptiveCoolingDetectOnHand", nullptr, InTurn<AdaptiveCoolingDetectOnHand_v3>);
}

BOOL AdaptiveCoolingUndetectOnHand() {
    return RouteByVersion(L"AdaptiveCoolingUndetectOnHand", nullptr,
                          InTurn<AdaptiveCoolingUndetectOnHand_v3>);
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
    return RouteFlipMode(L"AdaptiveCoolingEnterFlipMode", InTurn<AdaptiveCoolingEnterFlipMode_v3>);
}

BOOL AdaptiveCoolingExitFlipMode() {
    return RouteFlipMode(L"AdaptiveCoolingExitFlipMode", InTurn<AdaptiveCoolingExitFlipMode_v3>);
}

// ---- events that act whatever the version ----

BOOL AdaptiveCoolingRiseEventOfPivoModeChange() {
    return InTurn<AdaptiveCoolingPivoModeChange>();
}

BOOL AdaptiveCoolingRiseEventOfCoolQuietHingeAngle() {
    return InTurn<AdaptiveCoolingThermalModeByHingeSettings_v3>();
}

BOOL AdaptiveCoolingRiseEventOfDynamicCpuControl() {
    return InTurn<AdaptiveCoolingDynamicCpuControlSettings_v3>();
}

BOOL AdaptiveCoolingRiseEventOfDockModeControlChange() {
    return InTurn<AdaptiveCoolingDockModeControlChange>();
}
