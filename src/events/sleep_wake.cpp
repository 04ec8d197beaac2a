#include "events/sleep_wake.h"

#include <atomic>

#include "common/process.h"
#include "common/registry.h"
#include "common/trace.h"
#include "power/powrprof.h"
#include "power/privileges.h"

constexpr DWORD RETURN_TO_SLEEP_MS = 180000;
constexpr DWORD DISCONNECT_DELAY_MS = 3000;
constexpr DWORD BATTERY_PAUSE_MS = 5000;
constexpr int BATTERY_ATTEMPTS = 3;

constexpr DWORD STATE_SLEEP = 3;
constexpr DWORD STATE_HIBERNATE = 4;

namespace {

// Whether a return to sleep is armed. TAKEN stands between the moment when a disconnect takes the return over
// and the end of the timer thread, so that a timer firing just then leaves the sleep to the disconnect.
enum : DWORD { TIMER_NONE, TIMER_ARMED, TIMER_TAKEN };

} // namespace

static std::atomic<DWORD> g_dwTimerPending{0};

// The sleep state to return to, or 0. The timer threads hold a pointer to it.
static std::atomic<DWORD> g_dwPendingSleepState{0};

// The latest timer thread, or null. Event thread only.
static HANDLE g_hTimerThread;

static OPERATION(void, SuspendSystem, ()) {
    if (EnableShutdownPrivilege())
        PowrProfSetSuspendState(FALSE, FALSE, TRUE);
}

OPERATION(void, ForceSuspendSystem, ()) {
    if (EnableShutdownPrivilege())
        PowrProfSetSuspendState(FALSE, TRUE, TRUE);
}

// Whether policy allows making a hibernation file; an absent or unreadable value does.
static bool MayCreateHibernationFile() {
    DWORD creation = 1;
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, ZORPM_CAPABILITY_KEY, KEY_READ))
        QueryDword(key.key, ZORPM_CAPABILITY_HIBERFILE, &creation);
    return creation != 0;
}

static bool CreateHibernationFile() {
    BOOLEAN create = TRUE;
    return PowrProfCallNtPowerInformation(SystemReserveHiberFile, &create, sizeof(create), nullptr, 0) == 0;
}

OPERATION(void, HibernateSystem, ()) {
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

// TRUE when the power-off was accepted.
static OPERATION(BOOL, ForcePowerOff, ()) {
    return EnableShutdownPrivilege() && ExitWindowsEx(EWX_POWEROFF | EWX_FORCE, 0);
}

static void ReturnToSleep(DWORD state) {
    if (state == STATE_SLEEP)
        SuspendSystem();
    else if (state == STATE_HIBERNATE)
        HibernateSystem();
}

// Three minutes after a wake-up. A timer that a later wake-up has replaced acts too, on the state of then.
static OPERATION(DWORD WINAPI, TimerThread, (void* parameter), parameter) {
    Sleep(RETURN_TO_SLEEP_MS);
    // Read first: once the flag is clear, a disconnect no longer waits for this thread and zeroes the state.
    const DWORD state = static_cast<std::atomic<DWORD>*>(parameter)->load();
    DWORD flag = TIMER_ARMED;
    if (!g_dwTimerPending.compare_exchange_strong(flag, TIMER_NONE) && flag == TIMER_TAKEN) {
        Trace(L"TimerThread(): a disconnect has taken the return over\n");
        return 0;
    }
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
    } else {
        Trace(L"ReturnToSleepOnDisconnect(): no return to sleep is armed\n");
    }
    g_dwPendingSleepState = 0;
}

OPERATION(void, HandleWakeupEvent, (BOOL wakeup, BOOL disconnect, DWORD state), wakeup, disconnect, state) {
    DWORD exit_code = 0;
    if (g_hTimerThread != nullptr && !GetExitCodeThread(g_hTimerThread, &exit_code))
        DropTimerThread();
    if (wakeup)
        ArmReturnToSleep(state);
    if (disconnect)
        ReturnToSleepOnDisconnect();
}

OPERATION(void, HandleBatteryWakeup, ()) {
    Sleep(BATTERY_PAUSE_MS);
    if (!PowrProfIsPwrHibernateAllowed()) {
        Trace(L"HandleBatteryWakeup(): no hibernation, power off\n");
        ForcePowerOff();
        return;
    }
    // Its result is of no use: the attempts tell whether hibernation works.
    (void)EnableShutdownPrivilege();
    for (int attempt = 0; attempt < BATTERY_ATTEMPTS; ++attempt) {
        if (PowrProfSetSuspendState(TRUE, TRUE, TRUE))
            return;
        Trace(L"HandleBatteryWakeup(): Error: attempt %d failed.\n", attempt + 1);
        Sleep(BATTERY_PAUSE_MS);
    }
}
