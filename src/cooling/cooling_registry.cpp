#include "cooling/cooling_registry.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/trace.h"

// clang-format off
const CoolingKey TMC_TIO = {THERMAL_TWO_IN_ONE, L"TIO",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForTwoInOne_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForTwoInOne_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForTwoInOne_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForTwoInOne_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForTwoInOne_v3")};
const CoolingKey TMC_MPH = {THERMAL_MULTI_PIVO_HINGE, L"MPH",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForMultiPivoHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForMultiPivoHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForMultiPivoHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForMultiPivoHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForMultiPivoHinge_v3")};
const CoolingKey TMC_CQH = {THERMAL_COOL_QUIET_HINGE, L"CQH",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForCoolQuietHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForCoolQuietHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForCoolQuietHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForCoolQuietHinge_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForCoolQuietHinge_v3")};
const CoolingKey TMC_DCC = {THERMAL_DYNAMIC_CPU_CONTROL, L"DCC",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForDynamicCpuControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForDynamicCpuControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForDynamicCpuControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForDynamicCpuControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForDynamicCpuControl_v3")};
const CoolingKey TMC_DMC = {THERMAL_DOCK_MODE_CONTROL, L"DMC",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForDockModeControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForDockModeControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForDockModeControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForDockModeControl_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForDockModeControl_v3")};
const CoolingKey TMC_FHP = {THERMAL_FORCE_HIGH_PERFORMANCE, L"FHP",
    TRACE_NAME(L"AdaptiveCoolingInitRegKeyForForceHighPerfomanceMode_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCapabilityForForceHighPerfomanceMode_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentSettingsForForceHighPerfomanceMode_v3"),
    TRACE_NAME(L"AdaptiveCoolingGetRegCurrentSettingsForForceHighPerfomanceMode_v3"),
    TRACE_NAME(L"AdaptiveCoolingSetRegCurrentStatusForForceHighPerfomanceMode_v3")};
// clang-format on

constexpr DWORD DEFAULT_INIT_TICKS = 20;
constexpr DWORD DEFAULT_SPECIAL_COOLING_TICKS = 0;

// A value of exactly 4 bytes, whatever its type. An error leaves *value untouched.
static LSTATUS QueryFourBytes(HKEY key, const wchar_t* name, DWORD* value) {
    DWORD data = 0;
    DWORD size = sizeof(data);
    const LSTATUS error =
        RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&data), &size);
    if (error != ERROR_SUCCESS)
        return error;
    if (size != sizeof(data))
        return ERROR_INVALID_DATA;
    *value = data;
    return ERROR_SUCCESS;
}

OPERATION(BOOL, AdaptiveCoolingGetRegKeyDwordValue,
          (const wchar_t* subkey, const wchar_t* name, DWORD* value), subkey, name, value) {
    if (value == nullptr)
        return FALSE;
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, subkey, KEY_ALL_ACCESS)) {
        Trace(L"AdaptiveCoolingGetRegKeyDwordValue(): Error: %ls not opened.\n", subkey);
        SetLastError(COOLING_ERROR_KEY_NOT_OPENED);
        return FALSE;
    }
    const LSTATUS error = QueryFourBytes(key.key, name, value);
    key.Release();
    if (error != ERROR_SUCCESS) {
        Trace(L"AdaptiveCoolingGetRegKeyDwordValue(): Error: %ls %ls not read. (%ld)\n", subkey, name, error);
        if (error == ERROR_FILE_NOT_FOUND)
            SetLastError(COOLING_ERROR_VALUE_MISSING);
        return FALSE;
    }
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingSetRegKeyDwordValue, (const wchar_t* subkey, const wchar_t* name, DWORD value),
          subkey, name, value) {
    KeyHolder key;
    if (CreateKey(&key, HKEY_LOCAL_MACHINE, subkey, KEY_ALL_ACCESS) && SetDword(key.key, name, value))
        return TRUE;
    Trace(L"AdaptiveCoolingSetRegKeyDwordValue(): Error: %ls %ls = 0x%lx not written.\n", subkey, name,
          value);
    return FALSE;
}

OPERATION(BOOL, AdaptiveCoolingSetRegDYTCVersion, (DWORD value), value) {
    return AdaptiveCoolingSetRegKeyDwordValue(ZORPM_COOLING_V3_KEY, ZORPM_COOLING_VERSION, value);
}

// Path of a function's key.
static void FormatFunctionPath(wchar_t (&path)[PATH_CHARACTERS], const wchar_t* subkey) {
    StringCchPrintfW(path, PATH_CHARACTERS, L"%ls\\%ls", ZORPM_COOLING_V3_KEY, subkey);
}

static BOOL SetFunctionValue(const CoolingKey& key, const wchar_t* name, DWORD value) {
    wchar_t path[PATH_CHARACTERS];
    FormatFunctionPath(path, key.subkey);
    return AdaptiveCoolingSetRegKeyDwordValue(path, name, value);
}

BOOL AdaptiveCoolingSetRegCurrentSettings_v3(const CoolingKey& key, DWORD value) {
    return TRACED(key.set_setting, SetFunctionValue(key, ZORPM_COOLING_SETTING, value), value);
}

BOOL AdaptiveCoolingGetRegCurrentSettings_v3(const CoolingKey& key, DWORD* value) {
    wchar_t path[PATH_CHARACTERS];
    FormatFunctionPath(path, key.subkey);
    return TRACED(key.get_setting, AdaptiveCoolingGetRegKeyDwordValue(path, ZORPM_COOLING_SETTING, value),
                  value);
}

BOOL AdaptiveCoolingSetRegCurrentStatus_v3(const CoolingKey& key, DWORD value) {
    return TRACED(key.set_status, SetFunctionValue(key, ZORPM_COOLING_STATUS, value), value);
}

static BOOL InitRegKey(const CoolingKey& key, DWORD capable, DWORD* setting) {
    DWORD taken = capable != 0 ? 1 : 0;
    if (!TRACED(key.set_capability, SetFunctionValue(key, ZORPM_COOLING_CAPABILITY, taken), taken))
        return FALSE;
    const bool kept = capable != 0 && AdaptiveCoolingGetRegCurrentSettings_v3(key, &taken);
    if (!kept && !AdaptiveCoolingSetRegCurrentSettings_v3(key, taken))
        return FALSE;
    *setting = taken;
    return AdaptiveCoolingSetRegCurrentStatus_v3(key, 0);
}

BOOL AdaptiveCoolingInitRegKey_v3(const CoolingKey& key, DWORD capable, DWORD* setting) {
    return TRACED(key.initialise, InitRegKey(key, capable, setting), capable, setting);
}

OPERATION(BOOL, AdaptiveCoolingSetRegCurrentOptionStatusForTwoInOne_v3, (DWORD value), value) {
    return SetFunctionValue(TMC_TIO, ZORPM_TIO_OPTION, value);
}

OPERATION(BOOL, AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3, (DWORD value), value) {
    return SetFunctionValue(TMC_TIO, ZORPM_TIO_ON_HAND, value);
}

// Opens the version 2 key, unless there is no Adaptive Cooling.
static BOOL OpenVersion2Key(KeyHolder* holder, BOOL* created = nullptr) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE)
        return FALSE;
    if (CreateKey(holder, HKEY_LOCAL_MACHINE, ZORPM_COOLING_V2_KEY, KEY_ALL_ACCESS, created))
        return TRUE;
    Trace(L"OpenVersion2Key(): Error: %ls not opened.\n", ZORPM_COOLING_V2_KEY);
    return FALSE;
}

// A write whose failure stops nothing.
static void PublishVersion2Value(const KeyHolder& key, const wchar_t* name, DWORD value) {
    if (!SetDword(key.key, name, value))
        Trace(L"PublishVersion2Value(): Error: %ls = 0x%lx not written.\n", name, value);
}

OPERATION(BOOL, GetAdaptiveCoolingGetCurrentSettingsStatusFromReg, (DWORD * setting), setting) {
    KeyHolder key;
    if (setting == nullptr || !OpenVersion2Key(&key))
        return FALSE;
    QueryFourBytes(key.key, ZORPM_COOLING_SETTING, setting);
    return TRUE;
}

OPERATION(BOOL, SetAdaptiveCoolingCurrentSettingReg, (DWORD setting), setting) {
    KeyHolder key;
    return OpenVersion2Key(&key) && SetDword(key.key, ZORPM_COOLING_SETTING, setting);
}

OPERATION(BOOL, SetAdaptiveCoolingCreateReg, (DWORD * setting), setting) {
    KeyHolder key;
    BOOL created = FALSE;
    if (!OpenVersion2Key(&key, &created))
        return FALSE;
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (version != COOLING_INTERFACE_2001) {
        Trace(L"Error unexpected Method(DYTC) interface version set capabiltu %x ()\n", version);
        PublishVersion2Value(key, ZORPM_COOLING_CAPABILITY, 0);
        return FALSE;
    }
    PublishVersion2Value(key, ZORPM_COOLING_VERSION, COOLING_INTERFACE_2001);
    PublishVersion2Value(key, ZORPM_COOLING_CAPABILITY, 1);
    DWORD current = 1;
    if (created || QueryFourBytes(key.key, ZORPM_COOLING_SETTING, &current) != ERROR_SUCCESS)
        PublishVersion2Value(key, ZORPM_COOLING_SETTING, current);
    *setting = current;
    return TRUE;
}

static BOOL CreateTicks(const wchar_t* name, DWORD default_ticks, DWORD* ticks) {
    KeyHolder key;
    if (!OpenVersion2Key(&key))
        return FALSE;
    DWORD stored = default_ticks;
    // One that is there but cannot be read stays as it is.
    if (QueryFourBytes(key.key, name, &stored) == ERROR_FILE_NOT_FOUND)
        PublishVersion2Value(key, name, stored);
    *ticks = stored;
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingCreateInitTimeFromReg, (DWORD * ticks), ticks) {
    return CreateTicks(ZORPM_COOLING_INIT, DEFAULT_INIT_TICKS, ticks);
}

OPERATION(BOOL, SetAdaptiveCoolingCreateSpcialCoolingTimeReg, (DWORD * ticks), ticks) {
    return CreateTicks(ZORPM_COOLING_SPECIAL, DEFAULT_SPECIAL_COOLING_TICKS, ticks);
}
