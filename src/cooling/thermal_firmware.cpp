#include "cooling/thermal_firmware.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "driver/firmware.h"

// Traces what became of a request; the result is whether it went through.
static BOOL Report(const wchar_t* operation, DWORD argument, BOOL sent, DWORD answer) {
    if (sent)
        Trace(L"Inside %ls(0x%08x): Return 0x%08x\n", operation, argument, answer);
    else
        Trace(L"%ls(0x%08x): Error: (%u) IoCtl Colling Error.\n", operation, argument, GetLastError());
    return sent;
}

// *result takes the answer of a request that went through; a byte that the driver did not return is 0.
static BOOL Request(const wchar_t* operation, DWORD code, DWORD argument, DWORD* result) {
    DWORD answer = 0;
    const BOOL sent = SendOneWord(code, argument, &answer);
    if (Report(operation, argument, sent, answer))
        *result = answer;
    return sent;
}

// A DYTC request whose result tells in bit 0 whether the firmware carried it out.
static BOOL ConfirmedRequest(const wchar_t* operation, DWORD argument, DWORD* result) {
    DWORD answer = 0;
    const BOOL sent = SendOneWord(IOCTL_PMDRV_DYTC, argument, &answer);
    if (!Report(operation, argument, sent, answer))
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
    if (!Request(L"AdaptiveCoolingGetSystemControlMode", IOCTL_PMDRV_DYTC, DYTC_QUERY_SYSTEM_CONTROL_MODE,
                 &result))
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

BOOL AdaptiveCoolingSetCommand_v3(const ThermalWord& word, DWORD* result) {
    DWORD answer = 0;
    const BOOL accepted = ConfirmedRequest(word.name, ThermalSetWord(word.function, word.mode, word.on),
                                           result != nullptr ? result : &answer);
    if (!accepted)
        Trace(L"Failed to call Power control setting\n");
    return accepted;
}

BOOL AdaptiveCoolingGetDytcCurrentAvailability() {
    // The preset stands for "no answer", which is not ready: a firmware that cannot be asked cannot be
    // initialised.
    DWORD result = DYTC_NOT_READY;
    const BOOL accepted = AdaptiveCoolingSetCommand_v3(READINESS_PROBE, &result);
    return (result & DYTC_NOT_READY) == 0 ? TRUE : accepted;
}

// The version 2 modes confirm with 0.
static BOOL SetSystemMode(const wchar_t* operation, DWORD command) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE) {
        Trace(L"%ls(): Error: Not capable system.\n", operation);
        return FALSE;
    }
    DWORD result = 0;
    if (!Request(operation, IOCTL_PMDRV_DYTC, command, &result))
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
    return Request(L"AdaptiveCoolingGetDockModeStatusFromBIOS", IOCTL_PMDRV_DOCKMODE, 0, status);
}

BOOL AdaptiveCoolingGetThermalModeStatusFromBIOS(DWORD* status) {
    return Request(L"AdaptiveCoolingGetThermalModeStatusFromBIOS", IOCTL_PMDRV_THERMALMODE, 0, status);
}

BOOL AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS(DWORD* status) {
    return Request(L"AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS", IOCTL_PMDRV_DGPUTEMP, 0,
                   status);
}

BOOL AdaptiveCoolingGetPivoModeStatusFromBIOS(DWORD* status) {
    return Request(L"AdaptiveCoolingGetPivoModeStatusFromBIOS", IOCTL_PMDRV_GMMS, 0, status);
}

// One selector of GOPT; the holder keeps the device open from the first to the last.
static BOOL QueryTabletOption(DriverHandles* handles, const wchar_t* operation, DWORD selector,
                              DWORD* result) {
    const BOOL sent = PMDriverIoControl(handles, IOCTL_PMDRV_GOPT, selector, result);
    return Report(operation, selector, sent, *result);
}

BOOL AdaptiveCoolingCheckTabletOptionAtachStatus_v1(DWORD* status) {
    const wchar_t* const operation = L"AdaptiveCoolingCheckTabletOptionAtachStatus_v1";
    DriverHandles handles;
    DWORD version = 0;
    if (!QueryTabletOption(&handles, L"AdaptiveCoolingQueryTabletOptionAtachStatusVersion", GOPT_VERSION,
                           &version))
        return FALSE;
    if (version < OPTION_VERSION_1 || version > OPTION_VERSION_LAST_KNOWN) {
        Trace(L"%ls(): Error: unexpected version 0x%08x\n", operation, version);
        return FALSE;
    }
    DWORD type = 0;
    if (!QueryTabletOption(&handles, operation, GOPT_TYPE, &type))
        return FALSE;
    if (type < OPTION_TYPE_FIRST || type > OPTION_TYPE_LAST) {
        Trace(L"%ls(): Error: unexpected interface type 0x%08x\n", operation, type);
        return FALSE;
    }
    DWORD option = 0;
    if (!QueryTabletOption(&handles, operation, GOPT_STATUS, &option))
        return FALSE;
    const bool attached =
        type == OPTION_TYPE_LAST ? (option & OPTION_TYPE_LAST_ATTACHED) != 0 : option != OPTION_1_NONE;
    *status = attached ? TABLET_OPTION_ATTACHED : TABLET_OPTION_NONE;
    return TRUE;
}
