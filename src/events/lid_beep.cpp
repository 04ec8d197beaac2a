#include "events/lid_beep.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "power/powrprof.h"

#define LID_BEEP_FILE         L"\\LidBeep.ini"
#define DESKTOP_POWER_MANAGER L"SOFTWARE\\Wow6432Node\\Mestra\\ENERDSK\\Path"

constexpr DWORD DESKTOP_PATH_BYTES = 260;

// The INI read's answer for "no value".
constexpr DWORD NO_INI_VALUE = 57005;

// The two lid-beep files; empty when unknown. Written at service start, read by the event thread.
static wchar_t g_szDesktopLidBeepPath[PATH_CHARACTERS];
static wchar_t g_szWindowsLidBeepPath[PATH_CHARACTERS];

OPERATION(void, InitLidBeepIniPaths, ()) {
    g_szDesktopLidBeepPath[0] = L'\0';
    g_szWindowsLidBeepPath[0] = L'\0';
    wchar_t windows[PATH_CHARACTERS];
    const UINT length = GetWindowsDirectoryW(windows, ARRAYSIZE(windows));
    if (length == 0 || length >= ARRAYSIZE(windows)) {
        Trace(L"InitLidBeepIniPaths(): Error: no Windows directory. (%lu)\n", GetLastError());
        return;
    }
    if (FAILED(StringCchPrintfW(g_szWindowsLidBeepPath, ARRAYSIZE(g_szWindowsLidBeepPath), L"%ls%ls", windows,
                                LID_BEEP_FILE)))
        g_szWindowsLidBeepPath[0] = L'\0';

    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, DESKTOP_POWER_MANAGER, KEY_READ) &&
        QueryString(key.key, nullptr, g_szDesktopLidBeepPath, ARRAYSIZE(g_szDesktopLidBeepPath),
                    DESKTOP_PATH_BYTES))
        StringCchCatW(g_szDesktopLidBeepPath, ARRAYSIZE(g_szDesktopLidBeepPath), LID_BEEP_FILE);
}

static DWORD ReadLidBeepStatus(const wchar_t* path) {
    if (path[0] == L'\0')
        return NO_INI_VALUE;
    return GetPrivateProfileIntW(L"LidCloseBeep", L"Status", static_cast<INT>(NO_INI_VALUE), path);
}

// The desktop power manager's file decides; the Windows one only when that has no value.
static bool IsLidBeepWanted() {
    const DWORD status = ReadLidBeepStatus(g_szDesktopLidBeepPath);
    if (status == NO_INI_VALUE)
        return ReadLidBeepStatus(g_szWindowsLidBeepPath) == 1;
    return status == 1;
}

static OPERATION(void, NotifyLidCloseActionNone, ()) {
    SendOneWord(IOCTL_PMDRV_LIDCLOSEACTIONNONE, 0, nullptr);
}

OPERATION(void, SetLidBeep, (DWORD on), on) {
    SendOneWord(IOCTL_PMDRV_SETLIDBEEP, on, nullptr);
}

OPERATION(void, HandleLidCloseBeep, ()) {
    SYSTEM_POWER_POLICY policy = {};
    if (PowrProfCallNtPowerInformation(SystemPowerPolicyCurrent, nullptr, 0, &policy, sizeof(policy)) != 0) {
        Trace(L"HandleLidCloseBeep(): Error: the power policy cannot be read.\n");
        return;
    }
    if (policy.LidClose.Action == PowerActionNone)
        NotifyLidCloseActionNone();
    else if (IsLidBeepWanted())
        SetLidBeep(1);
    else
        Trace(L"HandleLidCloseBeep(): no beep wanted\n");
}
