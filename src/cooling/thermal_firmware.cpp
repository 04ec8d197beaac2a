#include "cooling/thermal_firmware.h"

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "driver/firmware.h"

// Traces what became of a request; the result is whether it went through.
static BOOL Report(DWORD argument, BOOL sent, DWORD answer) {
    if (sent)
        Trace(L"Inside Report(0x%08x): the firmware answers 0x%08x\n", argument, answer);
    else
        Trace(L"Report(0x%08x): Error: (%u) IoCtl Colling Error.\n", argument, GetLastError());
    return sent;
}

// *result takes the answer of a request that went through; a byte that the driver did not return is 0.
static BOOL Request(DWORD code, DWORD argument, DWORD* result) {
    DWORD answer = 0;
    const BOOL sent = SendOneWord(code, argument, &answer);
    if (Report(argument, sent, answer))
        *result = answer;
    return sent;
}

// A DYTC request whose result tells in bit 0 whether the firmware carried it out.
static BOOL ConfirmedRequest(DWORD argument, DWORD* result) {
    DWORD answer = 0;
    const BOOL sent = SendOneWord(IOCTL_PMDRV_DYTC, argument, &answer);
    if (!Report(argument, sent, answer))
        return FALSE;
    *result = answer;
    if ((answer & DYTC_SUCCESS) != 0)
        return TRUE;
    Trace(L"ConfirmedRequest(0x%08x): Error: Not capable system.\n", argument);
    return FALSE;
}

OPERATION(BOOL, AdaptiveCoolingGetCurrentBIOSInterfaceVersion, (DWORD * revision), revision) {
    DWORD result = 0;
    if (!ConfirmedRequest(DYTC_QUERY_REVISION, &result))
        return FALSE;
    *revision = DytcRevision(result);
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingCheckBIOSVersion, (DWORD * version), version) {
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

OPERATION(BOOL, AdaptiveCoolingGetSystemControlMode, (DWORD * mode), mode) {
    DWORD result = 0;
    if (!Request(IOCTL_PMDRV_DYTC, DYTC_QUERY_SYSTEM_CONTROL_MODE, &result))
        return FALSE;
    if ((DytcSystemControlMode(result) & 0xF000) == COOLING_INTERFACE_2000)
        *mode = DytcSystemControlMode(result);
    else
        Trace(L"AdaptiveCoolingGetSystemControlMode(): Error: mode 0x%08x Not capable system.\n", result);
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingGetFunctionCapability_v3, (DWORD * capability), capability) {
    return ConfirmedRequest(DYTC_QUERY_FUNCTION_CAPABILITY, capability);
}

OPERATION(BOOL, AdaptiveCoolingSetCommand_v3, (const ThermalWord& word, DWORD* result), word, result) {
    DWORD answer = 0;
    const DWORD command = ThermalSetWord(word.function, word.mode, word.on);
    const BOOL accepted =
        TRACED(word.name, ConfirmedRequest(command, result != nullptr ? result : &answer), command);
    if (!accepted)
        Trace(L"Failed to call Power control setting\n");
    return accepted;
}

OPERATION(BOOL, AdaptiveCoolingGetDytcCurrentAvailability, ()) {
    // The preset stands for "no answer", which is not ready: a firmware that cannot be asked cannot be
    // initialised.
    DWORD result = DYTC_NOT_READY;
    const BOOL accepted = AdaptiveCoolingSetCommand_v3(READINESS_PROBE, &result);
    return (result & DYTC_NOT_READY) == 0 ? TRUE : accepted;
}

// The version 2 modes confirm with 0.
static BOOL SetSystemMode(DWORD command) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE) {
        Trace(L"SetSystemMode(0x%08x): Error: Not capable system.\n", command);
        return FALSE;
    }
    DWORD result = 0;
    if (!Request(IOCTL_PMDRV_DYTC, command, &result))
        return FALSE;
    if (result != DYTC_MODE_ACCEPTED)
        Trace(L"SetSystemMode(0x%08x): Error: refused. (0x%08x) Not capable system.\n", command, result);
    return result == DYTC_MODE_ACCEPTED;
}

OPERATION(BOOL, AdaptiveCoolingSetNominalMode, ()) {
    return SetSystemMode(DYTC_SET_NOMINAL_MODE);
}

OPERATION(BOOL, SetAdaptiveCoolingCoolQuite, ()) {
    return SetSystemMode(DYTC_SET_COOL_QUIET_MODE);
}

OPERATION(BOOL, AdaptiveCoolingSetHighPerformanceMode, ()) {
    return SetSystemMode(DYTC_SET_HIGH_PERFORMANCE_MODE);
}

OPERATION(BOOL, AdaptiveCoolingGetDockModeStatusFromBIOS, (DWORD * status), status) {
    return Request(IOCTL_PMDRV_DOCKMODE, 0, status);
}

OPERATION(BOOL, AdaptiveCoolingGetThermalModeStatusFromBIOS, (DWORD * status), status) {
    return Request(IOCTL_PMDRV_THERMALMODE, 0, status);
}

OPERATION(BOOL, AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS, (DWORD * status), status) {
    return Request(IOCTL_PMDRV_DGPUTEMP, 0, status);
}

OPERATION(BOOL, AdaptiveCoolingGetPivoModeStatusFromBIOS, (DWORD * status), status) {
    return Request(IOCTL_PMDRV_GMMS, 0, status);
}

// One selector of GOPT; the holder keeps the device open from the first to the last.
static BOOL QueryTabletOption(DriverHandles* handles, DWORD selector, DWORD* result) {
    const BOOL sent = PMDriverIoControl(handles, IOCTL_PMDRV_GOPT, selector, result);
    return Report(selector, sent, *result);
}

OPERATION(BOOL, AdaptiveCoolingCheckTabletOptionAtachStatus_v1, (DWORD * status), status) {
    DriverHandles handles;
    DWORD version = 0;
    if (!TRACED(TRACE_NAME(L"AdaptiveCoolingQueryTabletOptionAtachStatusVersion"),
                QueryTabletOption(&handles, GOPT_VERSION, &version)))
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
