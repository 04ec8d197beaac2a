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
static BOOL RouteByVersion(Operation version2, Operation version3) {
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    Operation operation = nullptr;
    if (IsVersion2(version))
        operation = version2;
    if (version == COOLING_INTERFACE_3000)
        operation = version3;
    if (operation == nullptr) {
        Trace(L"RouteByVersion(): Routing failed (version 0x%x)\n", version);
        return FALSE;
    }
    return operation();
}

// ---- life ----

static OPERATION(BOOL, StartAdaptiveCooling_v2, ()) {
    AdaptiveCoolingInitSettings_v2();
    const BOOL created = AdaptiveCoolingCreateWorkerThread();
    // Creates the value for clients to find.
    DWORD special_cooling_ticks = 0;
    SetAdaptiveCoolingCreateSpcialCoolingTimeReg(&special_cooling_ticks);
    return created;
}

static OPERATION(BOOL, StartAdaptiveCooling_v3, ()) {
    return AdaptiveCoolingCreateInitilizeWorkerThread();
}

static OPERATION(BOOL, TerminateAdaptiveCooling_v2, ()) {
    return AdaptiveCoolingTerminateWorkerThread();
}

static OPERATION(BOOL, TerminateAdaptiveCooling_v3, ()) {
    return AdaptiveCoolingTerminateInitilizeWorkerThread();
}

OPERATION(BOOL, StartAdaptiveCooling, ()) {
    DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (!AdaptiveCoolingCheckBIOSVersion(&version))
        version = COOLING_INTERFACE_NONE;
    if (!IsVersion2(version) && version != COOLING_INTERFACE_3000)
        version = COOLING_INTERFACE_NONE;
    // A worker that still waits for the firmware goes on: a start that is asked for again and again must not
    // put the initialisation off for good.
    if (version == COOLING_INTERFACE_3000 && AdaptiveCoolingInitilizeWorkerWaits()) {
        Trace(L"StartAdaptiveCooling(): the worker of an earlier start still waits, and goes on\n");
        g_dwAdaptiveCoolingSupportVersion = version;
        return TRUE;
    }
    // The version may have come out different, and then no request would reach an earlier worker any more.
    if (!AdaptiveCoolingRetireWorkers())
        return FALSE;
    g_dwAdaptiveCoolingSupportVersion = version;
    return RouteByVersion(StartAdaptiveCooling_v2, StartAdaptiveCooling_v3);
}

OPERATION(BOOL, TerminateAdaptiveCooling, ()) {
    return RouteByVersion(TerminateAdaptiveCooling_v2, TerminateAdaptiveCooling_v3);
}

OPERATION(BOOL, RestartAdaptiveCooling, ()) {
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

OPERATION(BOOL, AdaptiveCoolingRiseAttachEventOfTwoInOne, ()) {
    return RouteByVersion(AdaptiveCoolingRiseEventOfOptionAttached,
                          InTurn<AdaptiveCoolingChageThermalModeByTwoInOne_v3>);
}

OPERATION(BOOL, AdaptiveCoolingRiseDetachEventOfTwoInOne, ()) {
    return RouteByVersion(AdaptiveCoolingRiseEventOfOptionDetached,
                          InTurn<AdaptiveCoolingChageThermalModeByTwoInOne_v3>);
}

OPERATION(BOOL, AdaptiveCoolingEnableCurrentSettingsOfTwoInOne, ()) {
    return RouteByVersion(InTurn<EnableCurrentStatus>,
                          InTurn<AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3>);
}

OPERATION(BOOL, AdaptiveCoolingDisableCurrentSettingsOfTwoInOne, ()) {
    return RouteByVersion(InTurn<DisableCurrentStatus>,
                          InTurn<AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3>);
}

OPERATION(BOOL, AdaptiveCoolingDetectOnHand, ()) {
    return RouteByVersion(nullptr, InTurn<AdaptiveCoolingDetectOnHand_v3>);
}

OPERATION(BOOL, AdaptiveCoolingUndetectOnHand, ()) {
    return RouteByVersion(nullptr, InTurn<AdaptiveCoolingUndetectOnHand_v3>);
}

// Flip mode has routes of its own: every version but 0x2001 that knows the tablet option takes version 3's
// handler.
static BOOL RouteFlipMode(Operation handler) {
    switch (g_dwAdaptiveCoolingSupportVersion) {
    case COOLING_INTERFACE_1000:
    case COOLING_INTERFACE_2000:
    case COOLING_INTERFACE_3000:
        return handler();
    default:
        Trace(L"RouteFlipMode(): version routing.... (no flip mode in version 0x%x)\n",
              g_dwAdaptiveCoolingSupportVersion.load());
        return FALSE;
    }
}

OPERATION(BOOL, AdaptiveCoolingEnterFlipMode, ()) {
    return RouteFlipMode(InTurn<AdaptiveCoolingEnterFlipMode_v3>);
}

OPERATION(BOOL, AdaptiveCoolingExitFlipMode, ()) {
    return RouteFlipMode(InTurn<AdaptiveCoolingExitFlipMode_v3>);
}

// ---- events that act whatever the version ----

OPERATION(BOOL, AdaptiveCoolingRiseEventOfPivoModeChange, ()) {
    return InTurn<AdaptiveCoolingPivoModeChange>();
}

OPERATION(BOOL, AdaptiveCoolingRiseEventOfCoolQuietHingeAngle, ()) {
    return InTurn<AdaptiveCoolingThermalModeByHingeSettings_v3>();
}

OPERATION(BOOL, AdaptiveCoolingRiseEventOfDynamicCpuControl, ()) {
    return InTurn<AdaptiveCoolingDynamicCpuControlSettings_v3>();
}

OPERATION(BOOL, AdaptiveCoolingRiseEventOfDockModeControlChange, ()) {
    return InTurn<AdaptiveCoolingDockModeControlChange>();
}
