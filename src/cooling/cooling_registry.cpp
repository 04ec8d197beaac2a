#include "cooling/cooling_registry.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/trace.h"
#include "cooling/cooling_state.h"

#define TMC_KEY  SERVICE_KEY L"\\TMC"
#define TMCT_KEY SERVICE_KEY L"\\TMCT\\Parameters"

constexpr DWORD DEFAULT_INIT_TICKS = 20;
constexpr DWORD DEFAULT_SPECIAL_COOLING_TICKS = 0;

BOOL AdaptiveCoolingGetRegKeyDwordValue(const wchar_t* subkey, const wchar_t* name, DWORD* value) {
    if (value == nullptr)
        return FALSE;
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, subkey, KEY_ALL_ACCESS)) {
        Trace(L"AdaptiveCoolingGetRegKeyDwordValue(): Error: %ls not opened.\n", subkey);
        SetLastError(COOLING_ERROR_KEY_NOT_OPENED);
        return FALSE;
    }
    DWORD type = 0;
    DWORD data = 0;
    DWORD size = sizeof(data);
    const LSTATUS error =
        RegQueryValueExW(key.key, name, nullptr, &type, reinterpret_cast<BYTE*>(&data), &size);
    key.Release();
    if (error != ERROR_SUCCESS || type != REG_DWORD || size != sizeof(data)) {
        Trace(L"AdaptiveCoolingGetRegKeyDwordValue(): Error: %ls %ls not read. (%ld)\n", subkey, name, error);
        if (error == ERROR_FILE_NOT_FOUND)
            SetLastError(COOLING_ERROR_VALUE_MISSING);
        return FALSE;
    }
    *value = data;
    return TRUE;
}

BOOL AdaptiveCoolingSetRegKeyDwordValue(const wchar_t* subkey, const wchar_t* name, DWORD value) {
    KeyHolder key;
    if (CreateKey(&key, HKEY_LOCAL_MACHINE, subkey, KEY_ALL_ACCESS) && SetDword(key.key, name, value))
        return TRUE;
    Trace(L"AdaptiveCoolingSetRegKeyDwordValue(): Error: %ls %ls = 0x%lx not written.\n", subkey, name,
          value);
    return FALSE;
}

BOOL AdaptiveCoolingSetRegDYTCVersion(DWORD value) {
    return AdaptiveCoolingSetRegKeyDwordValue(TMC_KEY, L"Version", value);
}

// Path of a function's key.
static void FormatFunctionPath(wchar_t (&path)[PATH_CHARACTERS], const wchar_t* subkey) {
    StringCchPrintfW(path, PATH_CHARACTERS, L"%ls\\%ls", TMC_KEY, subkey);
}

static BOOL SetFunctionValue(const wchar_t* subkey, const wchar_t* name, DWORD value) {
    wchar_t path[PATH_CHARACTERS];
    FormatFunctionPath(path, subkey);
    return AdaptiveCoolingSetRegKeyDwordValue(path, name, value);
}

static BOOL GetFunctionValue(const wchar_t* subkey, const wchar_t* name, DWORD* value) {
    wchar_t path[PATH_CHARACTERS];
    FormatFunctionPath(path, subkey);
    return AdaptiveCoolingGetRegKeyDwordValue(path, name, value);
}

static BOOL InitFunctionKey(const wchar_t* subkey, DWORD capable, DWORD* setting) {
    if (!SetFunctionValue(subkey, L"Capability", capable != 0 ? 1 : 0))
        return FALSE;
    DWORD taken = capable != 0 ? 1 : 0;
    const bool kept = capable != 0 && GetFunctionValue(subkey, L"CurrentSetting", &taken);
    if (!kept && !SetFunctionValue(subkey, L"CurrentSetting", taken))
        return FALSE;
    *setting = taken;
    return SetFunctionValue(subkey, L"CurrentStatus", 0);
}

// One line for each operation of COOLING_FUNCTION_KEY_OPERATIONS.
#define COOLING_FUNCTION_KEY(F, subkey)                                                                      \
    BOOL AdaptiveCoolingSetRegCapabilityFor##F##_v3(DWORD value) {                                           \
        return SetFunctionValue(subkey, L"Capability", value);                                               \
    }                                                                                                        \
    BOOL AdaptiveCoolingSetRegCurrentSettingsFor##F##_v3(DWORD value) {                                      \
        return SetFunctionValue(subkey, L"CurrentSetting", value);                                           \
    }                                                                                                        \
    BOOL AdaptiveCoolingGetRegCurrentSettingsFor##F##_v3(DWORD* value) {                                     \
        return GetFunctionValue(subkey, L"CurrentSetting", value);                                           \
    }                                                                                                        \
    BOOL AdaptiveCoolingSetRegCurrentStatusFor##F##_v3(DWORD value) {                                        \
        return SetFunctionValue(subkey, L"CurrentStatus", value);                                            \
    }                                                                                                        \
    BOOL AdaptiveCoolingInitRegKeyFor##F##_v3(DWORD capable, DWORD* setting) {                               \
        return InitFunctionKey(subkey, capable, setting);                                                    \
    }
COOLING_FUNCTION_KEYS(COOLING_FUNCTION_KEY)
#undef COOLING_FUNCTION_KEY

BOOL AdaptiveCoolingSetRegCurrentOptionStatusForTwoInOne_v3(DWORD value) {
    return SetFunctionValue(L"TIO", L"CurrentOptionStatus", value);
}

BOOL AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3(DWORD value) {
    return SetFunctionValue(L"TIO", L"CurrentOnHandStatus", value);
}

// Opens the version 2 key, unless there is no Adaptive Cooling.
static BOOL OpenVersion2Key(KeyHolder* holder, BOOL* created = nullptr) {
    if (g_dwAdaptiveCoolingSupportVersion == COOLING_INTERFACE_NONE)
        return FALSE;
    if (CreateKey(holder, HKEY_LOCAL_MACHINE, TMCT_KEY, KEY_ALL_ACCESS, created))
        return TRUE;
    Trace(L"OpenVersion2Key(): Error: %ls not opened.\n", TMCT_KEY);
    return FALSE;
}

// A write whose failure stops nothing.
static void PublishVersion2Value(const KeyHolder& key, const wchar_t* name, DWORD value) {
    if (!SetDword(key.key, name, value))
        Trace(L"PublishVersion2Value(): Error: %ls = 0x%lx not written.\n", name, value);
}

BOOL GetAdaptiveCoolingGetCurrentSettingsStatusFromReg(DWORD* setting) {
    KeyHolder key;
    if (setting == nullptr || !OpenVersion2Key(&key))
        return FALSE;
    QueryDword(key.key, L"CurrentSetting", setting);
    return TRUE;
}

BOOL SetAdaptiveCoolingCurrentSettingReg(DWORD setting) {
    KeyHolder key;
    return OpenVersion2Key(&key) && SetDword(key.key, L"CurrentSetting", setting);
}

BOOL SetAdaptiveCoolingCreateReg(DWORD* setting) {
    KeyHolder key;
    BOOL created = FALSE;
    if (!OpenVersion2Key(&key, &created))
        return FALSE;
    const DWORD version = g_dwAdaptiveCoolingSupportVersion;
    if (version != COOLING_INTERFACE_2001) {
        Trace(L"Error unexpected Method(DYTC) interface version set capabiltu %x ()\n", version);
        PublishVersion2Value(key, L"Capability", 0);
        return FALSE;
    }
    PublishVersion2Value(key, L"Version", COOLING_INTERFACE_2001);
    PublishVersion2Value(key, L"Capability", 1);
    DWORD current = 1;
    if (created || !QueryDword(key.key, L"CurrentSetting", &current))
        PublishVersion2Value(key, L"CurrentSetting", current);
    *setting = current;
    return TRUE;
}

static BOOL CreateTicks(const wchar_t* name, DWORD default_ticks, DWORD* ticks) {
    KeyHolder key;
    if (!OpenVersion2Key(&key))
        return FALSE;
    DWORD stored = default_ticks;
    if (!QueryDword(key.key, name, &stored))
        PublishVersion2Value(key, name, stored);
    *ticks = stored;
    return TRUE;
}

BOOL AdaptiveCoolingCreateInitTimeFromReg(DWORD* ticks) {
    return CreateTicks(L"INIT", DEFAULT_INIT_TICKS, ticks);
}

BOOL SetAdaptiveCoolingCreateSpcialCoolingTimeReg(DWORD* ticks) {
    return CreateTicks(L"SPCT", DEFAULT_SPECIAL_COOLING_TICKS, ticks);
}
