#include "events/sleep_wake.h"

#include <atomic>
#include <strsafe.h>

#include "common/process.h"
#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "helper/monitor_off.h"
#include "power/powrprof.h"
#include "power/privileges.h"
#include "power/user_policy.h"

#define LID_BEEP_FILE         L"\\LidBeep.ini"
#define DESKTOP_POWER_MANAGER L"SOFTWARE\\Wow6432Node\\Mestra\\ENERDSK\\Path"

constexpr DWORD PATH_CHARACTERS = 260;
constexpr DWORD DESKTOP_PATH_BYTES = 260;

// The INI read's answer for "no value".
constexpr DWORD NO_INI_VALUE = 57005;

constexpr DWORD RETURN_TO_SLEEP_MS = 180000;
constexpr DWORD DISCONNECT_DELAY_MS = 3000;
constexpr DWORD BATTERY_PAUSE_MS = 5000;
constexpr int BATTERY_ATTEMPTS = 3;

constexpr DWORD STATE_SLEEP = 3;
constexpr DWORD STATE_HIBERNATE = 4;

// Marks the index that a monitor-off request carries.
constexpr DWORD MONITOR_OFF_MARK = 0xE0000000;

// The two lid-beep files; empty when unknown. Written at service start, read by the event thread.
static wchar_t g_szDesktopLidBeepPath[PATH_CHARACTERS];
static wchar_t g_szWindowsLidBeepPath[PATH_CHARACTERS];

// Whether a return to sleep is armed. TAKEN stands between the moment when a disconnect takes the return over
// and the end of the timer thread, so that a timer firing just then leaves the sleep to the disconnect.
enum : DWORD { TIMER_NONE, TIMER_ARMED, TIMER_TAKEN };
static std::atomic<DWORD> g_dwTimerPending;

// The sleep state to return to, or 0. The timer threads hold a pointer to it.
static std::atomic<DWORD> g_dwPendingSleepState;

// The latest timer thread, or null. Event thread only.
static HANDLE g_hTimerThread;

// The scheme index of the latest monitor-off request. The request threads hold a pointer to it.
static std::atomic<DWORD> g_dwMonitorOffRequest;

void InitLidBeepIniPaths() {
    Trace(L"Enter InitLidBeepIniPaths()\n");
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

static void NotifyLidCloseActionNone() {
    SendOneWord(IOCTL_PMDRV_LIDCLOSEACTIONNONE, 0, nullptr);
}

void SetLidBeep(DWORD on) {
    Trace(L"Enter SetLidBeep(%lu)\n", on);
    SendOneWord(IOCTL_PMDRV_SETLIDBEEP, on, nullptr);
}

void HandleLidCloseBeep() {
    Trace(L"Enter HandleLidCloseBeep()\n");
    SYSTEM_POWER_POLICY policy = {};
    if (PowrProfCallNtPowerInformation(SystemPowerPolicyCurrent, nullptr, 0, &policy, sizeof(policy)) != 0) {
        Trace(L"HandleLidCloseBeep(): Error: the power policy cannot be read.\n");
        return;
    }
    if (policy.LidClose.Action == PowerActionNone)
        NotifyLidCloseActionNone();
    else if (IsLidBeepWanted())
        SetLidBeep(1);
}

static void SuspendSystem() {
    Trace(L"Enter SuspendSystem()\n");
    if (EnableShutdownPrivilege())
        PowrProfSetSuspendState(FALSE, FALSE, TRUE);
}

void ForceSuspendSystem() {
    Trace(L"Enter ForceSuspendSystem()\n");
    if (EnableShutdownPrivilege())
        PowrProfSetSuspendState(FALSE, TRUE, TRUE);
}

// Whether policy allows making a hibernation file; an absent or unreadable value does.
static bool MayCreateHibernationFile() {
    DWORD creation = 1;
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, ZORPM_KEY, KEY_READ))
        QueryDword(key.key, L"HibFileCreation", &creation);
    return creation != 0;
}

static bool CreateHibernationFile() {
    BOOLEAN create = TRUE;
    return PowrProfCallNtPowerInformation(SystemReserveHiberFile, &create, sizeof(create), nullptr, 0) == 0;
}

void HibernateSystem() {
    Trace(L"Enter HibernateSystem()\n");
    if (!EnableShutdownPrivilege())
        return;
    if (!PowrProfIsPwrHibernateAllowed() && !(MayCreateHibernationFile() && CreateHibernationFile())) {
        Trace(L"HibernateSystem(): no hibernation file, sleeping instead.\n");
        SuspendSystem();
        return;
    }
    if (!EnableShutdownPrivilege())
        return;
    SetSystemPowerState(FALSE, FALSE);
}

BOOL ForcePowerOff() {
    Trace(L"Enter ForcePowerOff()\n");
    return EnableShutdownPrivilege() && ExitWindowsEx(EWX_POWEROFF | EWX_FORCE, 0);
}

static void ReturnToSleep(DWORD state) {
    if (state == STATE_SLEEP)
        SuspendSystem();
    else if (state == STATE_HIBERNATE)
        HibernateSystem();
}

// Three minutes after a wake-up. A timer that a later wake-up has replaced acts too, on the state of then.
static DWORD WINAPI TimerThread(void* parameter) {
    Sleep(RETURN_TO_SLEEP_MS);
    // Read first: once the flag is clear, a disconnect no longer waits for this thread and zeroes the state.
    const DWORD state = static_cast<std::atomic<DWORD>*>(parameter)->load();
    DWORD flag = TIMER_ARMED;
    if (!g_dwTimerPending.compare_exchange_strong(flag, TIMER_NONE) && flag == TIMER_TAKEN)
        return 0;
    Trace(L"TimerThread(): returning to state %lu.\n", state);
    ReturnToSleep(state);
    return 0;
}

static void DropTimerThread() {
    if (g_hTimerThread != nullptr)
        CloseHandle(g_hTimerThread);
    g_hTimerThread = nullptr;
}

static void ArmReturnToSleep(DWORD state) {
    g_dwPendingSleepState = state;
    g_dwTimerPending = TIMER_ARMED;
    HANDLE thread = CreateThread(nullptr, 0, TimerThread, &g_dwPendingSleepState, 0, nullptr);
    if (thread == nullptr) {
        Trace(L"ArmReturnToSleep(): Error: no timer thread. (%lu)\n", GetLastError());
        return;
    }
    DropTimerThread();
    g_hTimerThread = thread;
}

static void ReturnToSleepOnDisconnect() {
    DWORD armed = TIMER_ARMED;
    if (g_dwTimerPending.compare_exchange_strong(armed, TIMER_TAKEN)) {
        if (g_hTimerThread != nullptr)
            TerminateThread(g_hTimerThread, 0);
        g_dwTimerPending = TIMER_NONE;
        DropTimerThread();
        if (IsVistaOrLater)
            Sleep(DISCONNECT_DELAY_MS);
        // Zeroed as it is read: the power action below may last until the next wake-up.
        ReturnToSleep(g_dwPendingSleepState.exchange(0));
    }
    g_dwPendingSleepState = 0;
}

void HandleWakeupEvent(BOOL bWakeup, BOOL bDisconnect, DWORD ulstate) {
    Trace(L"Enter HandleWakeupEvent(%d, %d, %lu)\n", bWakeup, bDisconnect, ulstate);
    DWORD exit_code = 0;
    if (g_hTimerThread != nullptr && !GetExitCodeThread(g_hTimerThread, &exit_code))
        DropTimerThread();
    if (bWakeup)
        ArmReturnToSleep(ulstate);
    if (bDisconnect)
        ReturnToSleepOnDisconnect();
}

void HandleBatteryWakeup() {
    Trace(L"Enter HandleBatteryWakeup()\n");
    Sleep(BATTERY_PAUSE_MS);
    if (!PowrProfIsPwrHibernateAllowed()) {
        ForcePowerOff();
        return;
    }
    for (int attempt = 0; attempt < BATTERY_ATTEMPTS; ++attempt) {
        if (PowrProfSetSuspendState(TRUE, TRUE, TRUE))
            return;
        Trace(L"HandleBatteryWakeup(): Error: attempt %d failed.\n", attempt + 1);
        Sleep(BATTERY_PAUSE_MS);
    }
}

void StandbySystem() {
    Trace(L"Enter StandbySystem()\n");
    DWORD index = 0;
    if (!GetCurrentPowerPolicyIndex(&index))
        return;
    g_dwMonitorOffRequest = index | MONITOR_OFF_MARK;
    const HandleHolder thread(
        CreateThread(nullptr, 0, MonitorOffRequestThreadProc, &g_dwMonitorOffRequest, 0, nullptr));
    if (!thread.Valid())
        Trace(L"StandbySystem(): Error: no request thread. (%lu)\n", GetLastError());
}
