#include "formfactor/multimode_registry.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/text.h"
#include "common/trace.h"
#include "driver/firmware_words.h"

static const wchar_t g_parametersKey[] = ZORPM_TRANSFORM_SETTINGS_KEY;
static const wchar_t g_currentStatusKey[] = ZORPM_POSTURE_KEY;
static const wchar_t g_multimodeKey[] = ZORPM_MULTIMODE_KEY;
static const wchar_t g_dolbyKey[] = ZORPM_DOLBY_KEY;
static const wchar_t g_windowsKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// Sizes of the text buffers, in characters.
constexpr DWORD MODE_NAME_CHARACTERS = 10;
constexpr DWORD TIME_STAMP_CHARACTERS = 25;
constexpr DWORD BUILD_NUMBER_CHARACTERS = 65;
// Longest values that are read, in bytes.
constexpr DWORD TIME_STAMP_LIMIT = 50;
constexpr DWORD BUILD_NUMBER_LIMIT = 128;

constexpr DWORD LAST_BUILD_BEFORE_10 = 9600;

std::atomic<DWORD> g_dwCurrentSetting{1};
std::atomic<DWORD> g_dwChkINode{1};
std::atomic<DWORD> g_dwChkOSV{0};

namespace {

struct TransformParameter {
    const wchar_t* name;
    DWORD default_value;
    std::atomic<DWORD>* value;
};

} // namespace

static const TransformParameter g_transformParameters[] = {
    {L"CurrentSetting", 1, &g_dwCurrentSetting},
    {ZORPM_TRANSFORM_CHECK_BUTTON, 1, &g_dwChkINode},
    {ZORPM_TRANSFORM_CHECK_BUILD, 0, &g_dwChkOSV},
};

// Programs may have stored these settings and the state under any type and with fewer than 4 bytes: missing
// ones are 0. FALSE leaves *value untouched.
static BOOL QueryShortValue(HKEY key, const wchar_t* name, DWORD* value) {
    DWORD data = 0;
    DWORD size = sizeof(data);
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&data), &size) !=
            ERROR_SUCCESS ||
        size == 0)
        return FALSE;
    *value = data;
    return TRUE;
}

// "CurrentSetting" is kept for clients that look for it; nothing here acts on it.
static OPERATION(BOOL, SystemTransformationCreateParamatersToReg, ()) {
    KeyHolder key;
    BOOL created = FALSE;
    if (!CreateKey(&key, HKEY_LOCAL_MACHINE, g_parametersKey, KEY_ALL_ACCESS, &created))
        return FALSE;
    for (const TransformParameter& parameter : g_transformParameters) {
        DWORD value = parameter.default_value;
        if (created)
            SetDword(key.key, parameter.name, value);
        else
            QueryShortValue(key.key, parameter.name, &value);
        *parameter.value = value;
    }
    return TRUE;
}

namespace {

// The names that other programs know the postures by.
struct ModeName {
    DWORD state;
    const wchar_t* name;
};

} // namespace

// clang-format off
static const ModeName g_modeNames[] = {
    {MM_SYSTEM_STATE_NotReceived, L"UNKNOWN"},
    {MM_SYSTEM_STATE_NoteBook,    L"LAPTOP"},
    {MM_SYSTEM_STATE_Layflat,     L"LAYFLAT"},
    {MM_SYSTEM_STATE_Tablet,      L"TABLET"},
    {MM_SYSTEM_STATE_Media,       L"STAND"},
    {MM_SYSTEM_STATE_Tent,        L"TENT"},
};
// clang-format on

// Every state without a posture is "UNKNOWN". `size` in characters.
static OPERATION(void, ConvertToModeName, (DWORD state, wchar_t* buffer, DWORD size), state, buffer, size) {
    const wchar_t* name = g_modeNames[0].name;
    for (const ModeName& row : g_modeNames) {
        if (row.state == state)
            name = row.name;
    }
    StringCchCopyW(buffer, size, name);
}

// The local time as a time stamp, cut if it does not fit. `size` in characters. The hour 0 stays 0, and noon
// counts as "AM": readers of the stamp expect it so.
static OPERATION(void, GetCurrentDateAndTime, (wchar_t * buffer, DWORD size), buffer, size) {
    SYSTEMTIME now = {};
    GetLocalTime(&now);
    const int hour = now.wHour;
    const bool afternoon = hour >= 13;
    StringCchPrintfW(buffer, size, L"%d/%d/%d %d:%02d:%02d %ls", int{now.wMonth}, int{now.wDay},
                     int{now.wYear}, afternoon ? hour - 12 : hour, int{now.wMinute}, int{now.wSecond},
                     afternoon ? L"PM" : L"AM");
}

// "MM" in the status key is still the old state here.
static OPERATION(BOOL, UpdatePrevMultimode, (HKEY multimode, HKEY current_status), multimode,
                 current_status) {
    DWORD previous = 0;
    if (!QueryDword(current_status, ZORPM_POSTURE, &previous))
        return FALSE;
    wchar_t name[MODE_NAME_CHARACTERS] = {};
    ConvertToModeName(previous, name, ARRAYSIZE(name));
    return SetString(multimode, ZORPM_MULTIMODE_PREVIOUS, name);
}

static OPERATION(BOOL, UpdateCurrentModeRegValue, (HKEY multimode, DWORD state), multimode, state) {
    return SetDword(multimode, ZORPM_MULTIMODE_CURRENT, state);
}

// Copies the bytes as they stand: they need not be a well-formed string, and are never used as one.
static OPERATION(BOOL, CopyTimeStampToPrev, (HKEY multimode), multimode) {
    BYTE stamp[TIME_STAMP_LIMIT] = {};
    DWORD size = sizeof(stamp);
    if (RegQueryValueExW(multimode, ZORPM_MULTIMODE_STAMP, nullptr, nullptr, stamp, &size) != ERROR_SUCCESS)
        return FALSE;
    return RegSetValueExW(multimode, ZORPM_MULTIMODE_PREV_STAMP, 0, REG_SZ, stamp, size) == ERROR_SUCCESS;
}

static OPERATION(BOOL, UpdateTimeStampRegValue, (HKEY multimode), multimode) {
    CopyTimeStampToPrev(multimode);
    wchar_t stamp[TIME_STAMP_CHARACTERS] = {};
    GetCurrentDateAndTime(stamp, ARRAYSIZE(stamp));
    return SetString(multimode, ZORPM_MULTIMODE_STAMP, stamp);
}

// Each step runs whatever became of the one before.
static OPERATION(BOOL, UpdateSettingsMultimodeRegistry, (DWORD state, HKEY current_status), state,
                 current_status) {
    KeyHolder multimode;
    if (!CreateKey(&multimode, HKEY_LOCAL_MACHINE, g_multimodeKey, KEY_READ | KEY_SET_VALUE)) {
        Trace(L"UpdateSettingsMultimodeRegistry(): Error: key not opened.\n");
        return FALSE;
    }
    UpdatePrevMultimode(multimode.key, current_status);
    UpdateCurrentModeRegValue(multimode.key, state);
    UpdateTimeStampRegValue(multimode.key);
    return TRUE;
}

// The audio software may be missing, and with it the key.
static OPERATION(BOOL, UpdateDolbyMultimodeRegistry, (DWORD state), state) {
    KeyHolder key;
    return OpenKey(&key, HKEY_LOCAL_MACHINE, g_dolbyKey, KEY_ALL_ACCESS) &&
           SetDword(key.key, ZORPM_DOLBY_POSTURE, state);
}

static OPERATION(BOOL, SystemTransformationCreateCurrentStatusToReg, ()) {
    KeyHolder key;
    BOOL created = FALSE;
    if (!CreateKey(&key, HKEY_LOCAL_MACHINE, g_currentStatusKey, KEY_ALL_ACCESS, &created))
        return FALSE;
    UpdateSettingsMultimodeRegistry(MM_SYSTEM_STATE_NotReceived, key.key);
    DWORD state = MM_SYSTEM_STATE_NotReceived;
    if (created)
        SetDword(key.key, ZORPM_POSTURE, state);
    else
        QueryShortValue(key.key, ZORPM_POSTURE, &state);
    UpdateDolbyMultimodeRegistry(state);
    return TRUE;
}

OPERATION(BOOL, SystemTransformationInitReg, ()) {
    if (SystemTransformationCreateParamatersToReg() && SystemTransformationCreateCurrentStatusToReg())
        return TRUE;
    Trace(L"SystemTransformationInitReg(): Error: transform keys not opened.\n");
    return FALSE;
}

OPERATION(void, SystemTransformationSetCurrentStatusToReg, (DWORD state), state) {
    KeyHolder key;
    if (!CreateKey(&key, HKEY_LOCAL_MACHINE, g_currentStatusKey, KEY_ALL_ACCESS)) {
        Trace(L"SystemTransformationSetCurrentStatusToReg(): Error: key not opened.\n");
        return;
    }
    UpdateSettingsMultimodeRegistry(state, key.key);
    if (SetDword(key.key, ZORPM_POSTURE, state))
        UpdateDolbyMultimodeRegistry(state);
}

OPERATION(void, PublishLidState, (DWORD state), state) {
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, g_currentStatusKey, KEY_ALL_ACCESS))
        SetDword(key.key, ZORPM_LID, state);
}

// Reads the Windows build number; 0 in *build when it cannot be read.
static OPERATION(BOOL, SystemTransformationCreateReg, (DWORD * build), build) {
    *build = 0;
    KeyHolder key;
    wchar_t text[BUILD_NUMBER_CHARACTERS] = {};
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, g_windowsKey, KEY_READ) ||
        !QueryString(key.key, L"CurrentBuildNumber", text, ARRAYSIZE(text), BUILD_NUMBER_LIMIT))
        return FALSE;
    *build = LeadingNumber(text, 0xFFFFFFFF);
    return TRUE;
}

OPERATION(BOOL, SystemTransformationIsWindows10orLater, ()) {
    DWORD build = 0;
    SystemTransformationCreateReg(&build);
    return build > LAST_BUILD_BEFORE_10;
}
