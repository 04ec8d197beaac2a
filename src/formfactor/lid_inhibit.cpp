#include "formfactor/lid_inhibit.h"

#include "common/holders.h"
#include "common/subsystem_lock.h"
#include "common/trace.h"
#include "driver/firmware.h"
#include "driver/firmware_words.h"

constexpr DWORD TIMER_PERIOD_MS = 300000;
constexpr DWORD WATCHDOG_POLL_PERIOD_MS = 1000;

std::atomic<HANDLE> g_hLCDCSTimerThread{nullptr};
std::atomic<HANDLE> g_hLCDCSWatchdogThread{nullptr};

// The timer's events, null while there is no timer. They live as long as the service.
static std::atomic<HANDLE> g_hLCDCSTimerStart{nullptr};
static std::atomic<HANDLE> g_hLCDCSTimerReset{nullptr};
// 1 once the present run has been told to stop. The timer thread clears the reset event at the start of a
// run, to be rid of a reset that was meant for the run before; this keeps one that is meant for the run
// itself.
static std::atomic<DWORD> g_dwLCDCSTimerStopped{0};

// The present run's five minutes are over, and nobody has acted on it yet.
static std::atomic<bool> g_bLCDCSLimitReached{false};

// The watchdog's stop event. Whoever takes it out of here sets it, once; the watchdog closes it after that,
// or when it has taken it back. Another program may have ended the watch just then, by the event's name: so
// the watchdog waits for those who are between the two.
static std::atomic<HANDLE> g_hLCDCSWatchdogStop{nullptr};
static std::atomic<DWORD> g_dwLCDCSWatchdogStopping{0};

namespace {

// The life of the watchdog thread, which there is in every state but the first. It does not end at once when
// it is told to: an inhibit that begins meanwhile keeps it.
enum : DWORD {
    WATCH_NONE,
    WATCH_ON,
    WATCH_ENDS,     // told to end
    WATCH_ON_AGAIN, // told to end, and then wanted again
};

} // namespace

static std::atomic<DWORD> g_dwLCDCSWatch{WATCH_NONE};

// Spans what a request, a poll or the limit reads and does: at rest driver, timer and watch are as these,
// one after another, have left them.
static SubsystemLock g_lidInhibitLock;

static OPERATION(BOOL, LCDCSDisableInhibit, ()) {
    DWORD result = 0;
    const BOOL sent = SendOneWord(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_OFF, &result);
    if (!sent)
        Trace(L"LCDCSDisableInhibit(): Error: request failed. (%lu)\n", GetLastError());
    return sent;
}

// A watchdog that has no event yet looks at its state as soon as it has one.
static void StopWatchdog() {
    DWORD state = g_dwLCDCSWatch;
    while (state == WATCH_ON || state == WATCH_ON_AGAIN) {
        if (!g_dwLCDCSWatch.compare_exchange_weak(state, WATCH_ENDS))
            continue;
        ++g_dwLCDCSWatchdogStopping;
        HANDLE stop = g_hLCDCSWatchdogStop.exchange(nullptr);
        if (stop != nullptr)
            SetEvent(stop);
        --g_dwLCDCSWatchdogStopping;
        return;
    }
}

static void StartTimer(HANDLE start_event) {
    g_dwLCDCSTimerStopped = 0;
    SetEvent(start_event);
}

static void StopTimer() {
    g_dwLCDCSTimerStopped = 1;
    SetEvent(g_hLCDCSTimerReset);
}

// Reads lid and inhibit state. FALSE when there is nothing to decide on; *wanted tells whether the timer
// should run.
static BOOL ReadTimerWanted(bool* wanted) {
    DriverHandles holder;
    DWORD lid = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_GETLIDSTATUS, 0, &lid) || (lid & LID_READING_VALID) == 0)
        return FALSE;
    DWORD inhibit = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_LCDCSGETSTATE, 0, &inhibit))
        return FALSE;
    *wanted = inhibit == LCDCS_STATE_INHIBIT_ON && (lid & LID_SWITCH_OPEN) == 0;
    return TRUE;
}

// The poll: starts the timer while the lid is closed under an inhibit, and ends timer and watchdog when it is
// not.
static OPERATION(void, CheckSensorAndLidStatus, ()) {
    bool wanted = false;
    if (!ReadTimerWanted(&wanted)) {
        Trace(L"CheckSensorAndLidStatus(): lid or inhibit not known, nothing is decided\n");
        return;
    }
    HANDLE start = g_hLCDCSTimerStart;
    // Without a timer there is nothing to start.
    if (start == nullptr)
        return;
    const bool running = WaitForSingleObject(start, 0) == WAIT_OBJECT_0;
    if (!running && wanted) {
        Trace(L"CheckSensorAndLidStatus(): timer starts\n");
        StartTimer(start);
    } else if (running && !wanted) {
        Trace(L"CheckSensorAndLidStatus(): timer stops\n");
        StopTimer();
        StopWatchdog();
    } else {
        Trace(L"CheckSensorAndLidStatus(): timer %ls\n", running ? L"runs on" : L"not wanted");
    }
}

// The watchdog's poll. FALSE once its end is decided: the watch is over, although the event is not seen yet
// or could not be set.
static BOOL PollWhileWatching() {
    if (g_dwLCDCSWatch == WATCH_ENDS)
        return FALSE;
    CheckSensorAndLidStatus();
    return TRUE;
}

// Five minutes are over. A run that was told to stop just then has not reached the limit. Once is enough,
// whoever asks again: an inhibit of then has a run of its own.
static BOOL EndInhibitAtLimit() {
    if (!g_bLCDCSLimitReached.exchange(false) || g_dwLCDCSTimerStopped != 0)
        return FALSE;
    Trace(L"LCDCSTimerThreadProc(): lid closed for too long, inhibit off\n");
    LCDCSDisableInhibit();
    StopWatchdog();
    return TRUE;
}

static OPERATION(DWORD WINAPI, LCDCSTimerThreadProc, ([[maybe_unused]] void* parameter), parameter) {
    HandleHolder signal(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSTIMERSIGNAL"));
    if (!signal.Valid())
        return 0;
    HandleHolder start(CreateEventW(nullptr, TRUE, FALSE, L"PMDRVLCDCSTIMERSTART"));
    if (!start.Valid())
        return 0;
    HandleHolder reset(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSTIMERRESET"));
    if (!reset.Valid())
        return 0;
    g_hLCDCSTimerReset = reset.handle;
    // Published last: a poll that finds it finds the other too.
    g_hLCDCSTimerStart = start.handle;
    for (;;) {
        if (WaitForSingleObject(start.handle, INFINITE) != WAIT_OBJECT_0) {
            // It would fail again at once.
            Sleep(WATCHDOG_POLL_PERIOD_MS);
            continue;
        }
        ResetEvent(reset.handle);
        DWORD result = WAIT_OBJECT_0;
        if (g_dwLCDCSTimerStopped == 0)
            result = SignalObjectAndWait(signal.handle, reset.handle, TIMER_PERIOD_MS, FALSE);
        if (result == WAIT_TIMEOUT) {
            g_bLCDCSLimitReached = true;
            RunExclusive(&g_lidInhibitLock, EndInhibitAtLimit);
        }
        ResetEvent(signal.handle);
        // Not for the next run, which another program may start by the event's name.
        g_dwLCDCSTimerStopped = 0;
        ResetEvent(start.handle);
    }
}

OPERATION(void, StartLCDCSTimerThread, ()) {
    HANDLE thread = CreateThread(nullptr, 0, LCDCSTimerThreadProc, nullptr, 0, nullptr);
    if (thread == nullptr)
        Trace(L"StartLCDCSTimerThread(): Error: thread not created. (%lu)\n", GetLastError());
    g_hLCDCSTimerThread = thread;
}

// Whether the watch goes on after its stop event was set: an inhibit has begun since it was told to end.
// Without having been told, another program has set the event by its name, which ends it too.
static bool WatchGoesOn() {
    DWORD state = g_dwLCDCSWatch;
    for (;;) {
        const DWORD next = state == WATCH_ON_AGAIN ? WATCH_ON : WATCH_NONE;
        if (g_dwLCDCSWatch.compare_exchange_weak(state, next))
            return next == WATCH_ON;
    }
}

// Polls until the stop event is set.
static void PollUntilStopped(HANDLE signal, HANDLE stop) {
    ResetEvent(stop);
    g_hLCDCSWatchdogStop = stop;
    // Told before there was an event to set. If the event has been taken meanwhile, it will be set.
    if (g_dwLCDCSWatch != WATCH_ON && g_hLCDCSWatchdogStop.exchange(nullptr) != nullptr)
        return;
    for (;;) {
        const DWORD result = SignalObjectAndWait(signal, stop, WATCHDOG_POLL_PERIOD_MS, FALSE);
        if (result == WAIT_OBJECT_0)
            break;
        if (result != WAIT_TIMEOUT)
            Sleep(WATCHDOG_POLL_PERIOD_MS); // the wait would fail again at once
        else if (!RunExclusive(&g_lidInhibitLock, PollWhileWatching))
            break;
    }
    g_hLCDCSWatchdogStop = nullptr;
}

static OPERATION(DWORD WINAPI, LCDCSWatchdogThreadProc, ([[maybe_unused]] void* parameter), parameter) {
    HandleHolder signal(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSWATCHDOGTIMERSIGNAL"));
    HandleHolder stop(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSWATCHDOG"));
    if (signal.Valid() && stop.Valid()) {
        do
            PollUntilStopped(signal.handle, stop.handle);
        while (WatchGoesOn());
    } else {
        Trace(L"LCDCSWatchdogThreadProc(): Error: events not created.\n");
        g_dwLCDCSWatch = WATCH_NONE;
    }
    while (g_dwLCDCSWatchdogStopping != 0)
        Sleep(1);
    signal.Release();
    stop.Release();
    Trace(L"Exit LCDCSWatchdogThreadProc()\n");
    ExitThread(0);
}

static void StartWatchdog() {
    DWORD state = g_dwLCDCSWatch;
    while (!g_dwLCDCSWatch.compare_exchange_weak(
        state, state == WATCH_ENDS || state == WATCH_ON_AGAIN ? WATCH_ON_AGAIN : WATCH_ON)) {
    }
    if (state != WATCH_NONE)
        return;
    HANDLE thread = CreateThread(nullptr, 0, LCDCSWatchdogThreadProc, nullptr, 0, nullptr);
    if (thread == nullptr) {
        Trace(L"LCDCSWatchdogControl(): Error: thread not created. (%lu)\n", GetLastError());
        g_dwLCDCSWatch = WATCH_NONE;
        return;
    }
    HANDLE last = g_hLCDCSWatchdogThread.exchange(thread);
    if (last != nullptr)
        CloseHandle(last);
}

// After the driver accepted an inhibit change.
static OPERATION(void, LCDCSWatchdogControl, (BOOL start), start) {
    if (start) {
        StartWatchdog();
        return;
    }
    StopWatchdog();
    CheckSensorAndLidStatus();
}

// ---- the clients' requests ----

// One request: the driver's answer, or 0 when it cannot be reached, which then counts as accepted or as no
// capability.
static OPERATION(DWORD, LCDCSControl, (DWORD code, DWORD input), code, input) {
    DWORD result = 0;
    SendOneWord(code, input, &result);
    return result;
}

static BOOL StartInhibit() {
    if (LCDCSControl(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_ON) != LCDCS_CONTROL_ACCEPTED)
        return FALSE;
    LCDCSWatchdogControl(TRUE);
    return TRUE;
}

static BOOL StopInhibit() {
    if (LCDCSControl(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_OFF) != LCDCS_CONTROL_ACCEPTED)
        return FALSE;
    LCDCSWatchdogControl(FALSE);
    return TRUE;
}

OPERATION(BOOL, LCDCSStartInhibit, ()) {
    return RunExclusive(&g_lidInhibitLock, StartInhibit);
}

OPERATION(BOOL, LCDCSStopInhibit, ()) {
    return RunExclusive(&g_lidInhibitLock, StopInhibit);
}

OPERATION(DWORD, LCDCSGetInhibitCapability, ()) {
    return LCDCSControl(IOCTL_PMDRV_LCDCSGETSTATE, 0);
}
