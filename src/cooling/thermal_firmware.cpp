#include "cooling/thermal_firmware.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "driver/firmware.h"

// One request. *result takes the answer of a request that went through; a byte that the driver did not return
// is 0.
static BOOL Request(DriverHandles* handles, const wchar_t* operation, DWORD code, DWORD argument,
                    DWORD* result) {
    DWORD answer = 0;
    if (!PMDriverIoControl(handles, code, argument, &answer)) {
        Trace(L"%ls(0x%08x): Error: (%u) IoCtl Colling Error.\n", operation, argument, GetLastError());
        return FALSE;
    }
    Trace(L"Inside %ls(0x%08x): Return 0x%08x\n", operation, argument, answer);
    *result = answer;
    return TRUE;
}

static BOOL SingleRequest(const wchar_t* operation, DWORD code, DWORD argument, DWORD* result) {
    DriverHandles handles;
    return Request(&handles, operation, code, argument, result);
}

// A DYTC request whose result tells in bit 0 whether the firmware carried it out.
static BOOL ConfirmedRequest(const wchar_t* operation, DWORD argument, DWORD* result) {
    DWORD answer = 0;
    if (!SingleRequest(operation, IOCTL_PMDRV_DYTC, argument, &answer))
        return FALSE;
    *result = answer;
    if ((answer & DYTC_SUCCESS) != 0)
        return TRUE;
    Trace(L"%ls(0x%08x): Error: Not capable system.\n", operation, argument);
    return FALSE;
}

BOOL AdaptiveCoolingGetCurrentBIOSInterfaceVersion(DWORD* revision) {
    DWORD result = 0;
    if (!ConfirmedRequest(L"AdaptiveCoolingGetCurrentBIOSInterfaceVersion", DYTC_QUERY_REVISION, &result))
        return FALSE;
    *revision = DytcRevision(result);
    return TRUE;
}

BOOL AdaptiveCoolingCheckBIOSVersion(DWORD* version) {
    DWORD revision = 0;
    if (!AdaptiveCoolingGetCurrentBIOSInterfaceVersion(&revision))
        return FALSE;
    if (revision == 2)
        *version = COOLING_INTERFACE_2000;
    if (revision == 3) {
        *version = COOLING_INTERFACE_3000;
        AdaptiveCoolingSetRegDYTCVersion(COOLING_INTERFACE_3000);
    }
    return TRUE;
}

BOOL AdaptiveCoolingGetSystemControlMode(DWORD* mode) {
    DWORD result = 0;
    if (!SingleRequest(L"AdaptiveCoolingGetSystemControlMode", IOCTL_PMDRV_DYTC,
                       DYTC_QUERY_SYSTEM_CONTROL_MODE, &result))
        return FALSE;
    if ((DytcSystemControlMode(result) & 0xF000) == COOLING_INTERFACE_2000)
        *mode = DytcSystemControlMode(result);
    else
        Trace(L"AdaptiveCoolingGetSystemControlMode(): Error: mode 0x%08x Not capable system.\n", result);
    return TRUE;
}

BOOL AdaptiveCoolingGetFunctionCapability_v3(DWORD* capability) {
    return ConfirmedRequest(L"AdaptiveCoolingGetFunctionCapability_v3", DYTC_QUERY_FUNCTION_CAPABILITY,
                            capability);
}

BOOL AdaptiveCoolingSetCommand_v3(DWORD command, DWORD* result) {
    return ConfirmedRequest(L"AdaptiveCoolingSetCommand_v3", command, result);
}

static BOOL SendSetWord(DWORD word) {
    DWORD result = 0;
    return AdaptiveCoolingSetCommand_v3(word, &result);
}

#define THERMAL_SETTER(name, function, mode, on)                                                             \
    BOOL AdaptiveCoolingSet##name##_v3() {                                                                   \
        return SendSetWord(ThermalSetWord(function, mode, on));                                              \
    }                                                                                                        \
    BOOL AdaptiveCoolingSet##name() {                                                                        \
        return AdaptiveCoolingSet##name##_v3();                                                              \
    }
THERMAL_SET_WORDS(THERMAL_SETTER)
#undef THERMAL_SETTER

BOOL AdaptiveCoolingGetDytcCurrentAvailability() {
    // The preset stands for "no answer", which is not ready: a firmware that cannot be asked cannot be
    // initialised.
    DWORD result = DYTC_NOT_READY;
    const BOOL accepted =
        AdaptiveCoolingSetCommand_v3(ThermalSetWord(THERMAL_STANDARD, THERMAL_NO_MODE, true), &result);
    return (result & DYTC_NOT_READY) == 0 ? TRUE : accepted;
}

// The version 2 modes confirm with 0.
static BOOL SetSystemMode(const wchar_t* operation, DWORD command) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE) {
        Trace(L"%ls(): Error: Not capable system.\n", operation);
        return FALSE;
    }
    DWORD result = 0;
    if (!SingleRequest(operation, IOCTL_PMDRV_DYTC, command, &result))
        return FALSE;
    if (result != DYTC_MODE_ACCEPTED)
        Trace(L"%ls(): Error: refused. (0x%08x) Not capable system.\n", operation, result);
    return result == DYTC_MODE_ACCEPTED;
}

BOOL AdaptiveCoolingSetNominalMode() {
    return SetSystemMode(L"AdaptiveCoolingSetNominalMode", DYTC_SET_NOMINAL_MODE);
}

BOOL SetAdaptiveCoolingCoolQuite() {
    return SetSystemMode(L"SetAdaptiveCoolingCoolQuite", DYTC_SET_COOL_QUIET_MODE);
}

BOOL AdaptiveCoolingSetHighPerformanceMode() {
    return SetSystemMode(L"AdaptiveCoolingSetHighPerformanceMode", DYTC_SET_HIGH_PERFORMANCE_MODE);
}

BOOL AdaptiveCoolingGetDockModeStatusFromBIOS(DWORD* status) {
    return SingleRequest(L"AdaptiveCoolingGetDockModeStatusFromBIOS", IOCTL_PMDRV_DOCKMODE, 0, status);
}

BOOL AdaptiveCoolingGetThermalModeStatusFromBIOS(DWORD* status) {
    return SingleRequest(L"AdaptiveCoolingGetThermalModeStatusFromBIOS", IOCTL_PMDRV_THERMALMODE, 0, status);
}

BOOL AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS(DWORD* status) {
    return SingleRequest(L"AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS", IOCTL_PMDRV_DGPUTEMP, 0,
                         status);
}

BOOL AdaptiveCoolingGetPivoModeStatusFromBIOS(DWORD* status) {
    return SingleRequest(L"AdaptiveCoolingGetPivoModeStatusFromBIOS", IOCTL_PMDRV_GMMS, 0, status);
}

static BOOL QueryTabletOption(DriverHandles* handles, DWORD argument, DWORD* result) {
    return Request(handles, L"AdaptiveCoolingQueryTabletOption", IOCTL_PMDRV_GOPT, argument, result);
}

BOOL AdaptiveCoolingQueryTabletOptionAtachStatusVersion(DWORD* version) {
    DriverHandles handles;
    return QueryTabletOption(&handles, GOPT_VERSION, version);
}

BOOL AdaptiveCoolingCheckTabletOptionAtachStatus_v1(DWORD* status) {
    DriverHandles handles;
    DWORD version = 0;
    if (!QueryTabletOption(&handles, GOPT_VERSION, &version))
        return FALSE;
    if (version < OPTION_VERSION_1 || version > OPTION_VERSION_LAST_KNOWN) {
        Trace(L"AdaptiveCoolingCheckTabletOptionAtachStatus_v1(): Error: unexpected version 0x%08x\n",
              version);
        return FALSE;
    }
    DWORD type = 0;
    if (!QueryTabletOption(&handles, GOPT_TYPE, &type))
        return FALSE;
    if (type < OPTION_TYPE_FIRST || type > OPTION_TYPE_LAST) {
        Trace(L"AdaptiveCoolingCheckTabletOptionAtachStatus_v1(): Error: unexpected interface type 0x%08x\n",
              type);
        return FALSE;
    }
    DWORD option = 0;
    if (!QueryTabletOption(&handles, GOPT_STATUS, &option))
        return FALSE;
    const bool attached =
        type == OPTION_TYPE_LAST ? (option & OPTION_TYPE_LAST_ATTACHED) != 0 : option != OPTION_1_NONE;
    *status = attached ? TABLET_OPTION_ATTACHED : TABLET_OPTION_NONE;
    return TRUE;
}
