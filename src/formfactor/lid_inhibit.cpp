#include "formfactor/lid_inhibit.h"

#include "common/holders.h"
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

// The watchdog's stop event. Whoever takes it out of here may set it, once; the watchdog closes it only after
// it was set or when it has taken it back, so nobody ever holds a closed handle.
static std::atomic<HANDLE> g_hLCDCSWatchdogStop{nullptr};
// 1 from before a watchdog thread is created until it has decided to end.
static std::atomic<DWORD> g_dwLCDCSWatchdogAlive{0};
// Count what a client's request or the timer did to the inhibit, so that a decision can tell whether it was
// overtaken while it was being made.
static std::atomic<DWORD> g_dwLCDCSInhibitStarts{0};
static std::atomic<DWORD> g_dwLCDCSInhibitEnds{0};
// The handle of the last watchdog thread. The control handler's thread only; it is closed when a new thread
// takes the place, not by the thread that empties the slot: the control handler may be about to terminate by
// it.
static HANDLE g_hLastWatchdogThread = nullptr;

static BOOL LCDCSDisableInhibit() {
    DWORD result = 0;
    const BOOL sent = SendOneWord(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_OFF, &result);
    if (!sent)
        Trace(L"LCDCSDisableInhibit(): Error: request failed. (%lu)\n", GetLastError());
    return sent;
}

// Ends the watchdog, if one runs, unless an inhibit has been started since the decision was begun at
// `starts`: its client may have found the slot filled and relies on the watch. Emptying the slot decides
// between several callers which of them it is that sets the event. A watchdog that has no event yet looks at
// the slot as soon as it has one.
static void StopWatchdog(DWORD starts) {
    if (g_dwLCDCSInhibitStarts != starts || g_hLCDCSWatchdogThread.exchange(nullptr) == nullptr)
        return;
    HANDLE stop = g_hLCDCSWatchdogStop.exchange(nullptr);
    if (stop != nullptr)
        SetEvent(stop);
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
static void CheckSensorAndLidStatus() {
    const DWORD inhibit_starts = g_dwLCDCSInhibitStarts;
    const DWORD inhibit_ends = g_dwLCDCSInhibitEnds;
    bool wanted = false;
    if (!ReadTimerWanted(&wanted))
        return;
    HANDLE start = g_hLCDCSTimerStart;
    // Without a timer there is nothing to start.
    if (start == nullptr)
        return;
    const bool running = WaitForSingleObject(start, 0) == WAIT_OBJECT_0;
    if (!running && wanted) {
        Trace(L"CheckSensorAndLidStatus(): timer starts\n");
        StartTimer(start);
        // The inhibit has ended since this poll began, and whoever ended it may have found no run to stop.
        if (g_dwLCDCSInhibitEnds != inhibit_ends)
            StopTimer();
    } else if (running && !wanted) {
        Trace(L"CheckSensorAndLidStatus(): timer stops\n");
        StopTimer();
        StopWatchdog(inhibit_starts);
    }
}

static DWORD WINAPI LCDCSTimerThreadProc(void*) {
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
        if (WaitForSingleObject(start.handle, INFINITE) != WAIT_OBJECT_0)
            continue;
        ResetEvent(reset.handle);
        DWORD result = WAIT_OBJECT_0;
        if (g_dwLCDCSTimerStopped == 0)
            result = SignalObjectAndWait(signal.handle, reset.handle, TIMER_PERIOD_MS, FALSE);
        if (result == WAIT_TIMEOUT) {
            Trace(L"LCDCSTimerThreadProc(): lid closed for too long, inhibit off\n");
            const DWORD inhibit_starts = g_dwLCDCSInhibitStarts;
            LCDCSDisableInhibit();
            StopWatchdog(inhibit_starts);
            ++g_dwLCDCSInhibitEnds;
        }
        ResetEvent(signal.handle);
        // Not for the next run, which another program may start by the event's name.
        g_dwLCDCSTimerStopped = 0;
        ResetEvent(start.handle);
    }
}

void StartLCDCSTimerThread() {
    HANDLE thread = CreateThread(nullptr, 0, LCDCSTimerThreadProc, nullptr, 0, nullptr);
    if (thread == nullptr)
        Trace(L"StartLCDCSTimerThread(): Error: thread not created. (%lu)\n", GetLastError());
    g_hLCDCSTimerThread = thread;
}

// Polls until it is stopped. When it returns, the slot was emptied after the watch began, and both events are
// closed.
static void Watch() {
    HandleHolder signal(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSWATCHDOGTIMERSIGNAL"));
    HandleHolder stop(CreateEventW(nullptr, FALSE, FALSE, L"PMDRVLCDCSWATCHDOG"));
    if (!signal.Valid() || !stop.Valid()) {
        Trace(L"LCDCSWatchdogThreadProc(): Error: events not created.\n");
        g_hLCDCSWatchdogThread = nullptr;
        return;
    }
    ResetEvent(stop.handle);
    g_hLCDCSWatchdogStop = stop.handle;
    // Stopped before there was an event to set. If the event has been taken meanwhile, it will be set.
    if (g_hLCDCSWatchdogThread == nullptr && g_hLCDCSWatchdogStop.exchange(nullptr) != nullptr)
        return;
    for (;;) {
        const DWORD result = SignalObjectAndWait(signal.handle, stop.handle, WATCHDOG_POLL_PERIOD_MS, FALSE);
        if (result == WAIT_OBJECT_0)
            break;
        // With its slot emptied the watch is over, although the event is not seen yet.
        if (result == WAIT_TIMEOUT && g_hLCDCSWatchdogThread != nullptr)
            CheckSensorAndLidStatus();
    }
    // Another program set the event by its name: the slot is still to be emptied.
    if (g_hLCDCSWatchdogStop.exchange(nullptr) != nullptr)
        g_hLCDCSWatchdogThread = nullptr;
}

// Whether an ended watchdog is wanted again: a new inhibit does not wait for it to end, it refills the slot.
static bool WatchdogWantedAgain() {
    g_dwLCDCSWatchdogAlive = 0;
    if (g_hLCDCSWatchdogThread == nullptr)
        return false;
    // Either this thread goes on or the control handler's thread has seen it gone and creates another.
    DWORD gone = 0;
    return g_dwLCDCSWatchdogAlive.compare_exchange_strong(gone, 1);
}

static DWORD WINAPI LCDCSWatchdogThreadProc(void*) {
    do
        Watch();
    while (WatchdogWantedAgain());
    ExitThread(0);
}

static void StartWatchdog() {
    if (g_hLCDCSWatchdogThread != nullptr)
        return;
    // The slot is filled before the thread can look at it, with something else until its handle is known:
    // only this thread uses what is in the slot as a handle.
    HANDLE placeholder = g_hLastWatchdogThread != nullptr ? g_hLastWatchdogThread : INVALID_HANDLE_VALUE;
    g_hLCDCSWatchdogThread = placeholder;
    // A watchdog that is just ending goes on instead.
    if (g_dwLCDCSWatchdogAlive.exchange(1) == 1)
        return;
    HANDLE thread = CreateThread(nullptr, 0, LCDCSWatchdogThreadProc, nullptr, 0, nullptr);
    if (thread == nullptr) {
        Trace(L"LCDCSWatchdogControl(): Error: thread not created. (%lu)\n", GetLastError());
        g_dwLCDCSWatchdogAlive = 0;
        g_hLCDCSWatchdogThread = nullptr;
        return;
    }
    // Unless the new watchdog has been stopped already.
    g_hLCDCSWatchdogThread.compare_exchange_strong(placeholder, thread);
    if (g_hLastWatchdogThread != nullptr)
        CloseHandle(g_hLastWatchdogThread);
    g_hLastWatchdogThread = thread;
}

// After the driver accepted an inhibit change.
static void LCDCSWatchdogControl(BOOL start) {
    Trace(L"Enter LCDCSWatchdogControl(%d)\n", start);
    if (start) {
        ++g_dwLCDCSInhibitStarts;
        StartWatchdog();
        return;
    }
    ++g_dwLCDCSInhibitEnds;
    StopWatchdog(g_dwLCDCSInhibitStarts);
    CheckSensorAndLidStatus();
}

// ---- the clients' requests ----

// One request: the driver's answer, or 0 when it cannot be reached, which then counts as accepted or as no
// capability.
static DWORD LCDCSControl(DWORD code, DWORD input) {
    DWORD result = 0;
    SendOneWord(code, input, &result);
    return result;
}

BOOL LCDCSStartInhibit() {
    if (LCDCSControl(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_ON) != LCDCS_CONTROL_ACCEPTED)
        return FALSE;
    LCDCSWatchdogControl(TRUE);
    return TRUE;
}

BOOL LCDCSStopInhibit() {
    if (LCDCSControl(IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_OFF) != LCDCS_CONTROL_ACCEPTED)
        return FALSE;
    LCDCSWatchdogControl(FALSE);
    return TRUE;
}

DWORD LCDCSGetInhibitCapability() {
    return LCDCSControl(IOCTL_PMDRV_LCDCSGETSTATE, 0);
}
