#include "cooling/cooling_workers.h"

#include <atomic>

#include "common/trace.h"
#include "cooling/cooling_registry.h"
#include "cooling/cooling_v2.h"
#include "cooling/cooling_v3.h"
#include "cooling/thermal_firmware.h"

constexpr DWORD TICK_MS = 1000;

// The events, manual-reset and without names. Each is created by the first start that needs it and then kept
// for the life of the process; a later start resets it, which is all that a client could tell from a new one.
// A thread that signals an attach while the control handler restarts the cooling therefore never meets a
// closed handle, nor one whose number already belongs to something else.
static std::atomic<HANDLE> g_hAdaptCoolWorkerThread_Start{nullptr};
static std::atomic<HANDLE> g_hAdaptCoolWorkerThread_Terminate{nullptr};
static std::atomic<HANDLE> g_hAdaptCoolWorkerThread_Attach{nullptr};
static std::atomic<HANDLE> g_hAdaptCoolWorkerThread_Dettach{nullptr};
static std::atomic<HANDLE> g_hAdaptCoolInitilizeWorkerThread_Start{nullptr};
static std::atomic<HANDLE> g_hAdaptCoolInitilizeWorkerThread_Terminate{nullptr};

namespace {

// What woke a worker: the index of its event. Of several, the first wins.
enum : DWORD { WAKE_START, WAKE_TERMINATE, WAKE_ATTACH, WAKE_DETTACH, WAKE_EVENT_LIMIT };

struct CoolingWorker {
    const wchar_t* name;
    LPTHREAD_START_ROUTINE procedure;
    std::atomic<HANDLE>* events[WAKE_EVENT_LIMIT];
    DWORD event_count;
    // Null while no worker is recorded.
    std::atomic<HANDLE> thread;
};

} // namespace

static DWORD WINAPI AdaptiveCoolingWorkerThread_v1(void* parameter);
static DWORD WINAPI AdaptiveCoolingInitilizeWorkerThread(void* parameter);

static CoolingWorker g_version2Worker = {
    TRACE_NAME(L"AdaptiveCoolingWorkerThread_v1"),
    AdaptiveCoolingWorkerThread_v1,
    {&g_hAdaptCoolWorkerThread_Start, &g_hAdaptCoolWorkerThread_Terminate, &g_hAdaptCoolWorkerThread_Attach,
     &g_hAdaptCoolWorkerThread_Dettach},
    4,
    nullptr};
static CoolingWorker g_version3Worker = {
    TRACE_NAME(L"AdaptiveCoolingInitilizeWorkerThread"),
    AdaptiveCoolingInitilizeWorkerThread,
    {&g_hAdaptCoolInitilizeWorkerThread_Start, &g_hAdaptCoolInitilizeWorkerThread_Terminate},
    2,
    nullptr};

// From the creation of version 3's worker until it goes over to the initialisation or its end.
static std::atomic<bool> g_bWaitingForReady{false};

// ---- creating and ending ----

// TRUE when no worker is recorded any more.
static BOOL EndWorker(CoolingWorker* worker) {
    HANDLE thread = worker->thread;
    if (thread == nullptr)
        return TRUE;
    if (!SetEvent(*worker->events[WAKE_TERMINATE]) ||
        WaitForSingleObject(thread, INFINITE) != WAIT_OBJECT_0) {
        Trace(L"%ls: Error: not ended. (%u)\n", worker->name, GetLastError());
        return FALSE;
    }
    worker->thread = nullptr;
    CloseHandle(thread);
    return TRUE;
}

// Ends the worker of an earlier start and forgets what was signalled to it.
static BOOL RetireWorker(CoolingWorker* worker) {
    if (worker->thread != nullptr)
        Trace(L"%ls aready have\n", worker->name);
    if (!EndWorker(worker))
        return FALSE;
    for (DWORD i = 0; i < worker->event_count; ++i) {
        HANDLE event = *worker->events[i];
        if (event != nullptr && !ResetEvent(event))
            return FALSE;
    }
    return TRUE;
}

static BOOL CreateMissingEvents(const CoolingWorker& worker) {
    for (DWORD i = 0; i < worker.event_count; ++i) {
        if (*worker.events[i] == nullptr)
            *worker.events[i] = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (*worker.events[i] == nullptr)
            return FALSE;
    }
    return TRUE;
}

static BOOL CreateWorker(CoolingWorker* worker) {
    HANDLE thread = nullptr;
    if (CreateMissingEvents(*worker))
        thread = CreateThread(nullptr, 0, worker->procedure, nullptr, 0, nullptr);
    if (thread == nullptr) {
        Trace(L"%ls: create thread error. (%u)\n", worker->name, GetLastError());
        return FALSE;
    }
    worker->thread = thread;
    if (!SetEvent(*worker->events[WAKE_START]))
        Trace(L"%ls: Error: not started. (%u)\n", worker->name, GetLastError());
    return TRUE;
}

static BOOL TerminateWorker(CoolingWorker* worker) {
    if (worker->thread == nullptr) {
        Trace(L"%ls: does not have the thread\n", worker->name);
        return FALSE;
    }
    return EndWorker(worker);
}

OPERATION(BOOL, AdaptiveCoolingRetireWorkers, ()) {
    const BOOL version2_ended = RetireWorker(&g_version2Worker);
    const BOOL version3_ended = RetireWorker(&g_version3Worker);
    return version2_ended && version3_ended;
}

OPERATION(BOOL, AdaptiveCoolingCreateWorkerThread, ()) {
    return CreateWorker(&g_version2Worker);
}

OPERATION(BOOL, AdaptiveCoolingTerminateWorkerThread, ()) {
    return TerminateWorker(&g_version2Worker);
}

OPERATION(BOOL, AdaptiveCoolingCreateInitilizeWorkerThread, ()) {
    g_bWaitingForReady = true;
    return CreateWorker(&g_version3Worker);
}

OPERATION(BOOL, AdaptiveCoolingTerminateInitilizeWorkerThread, ()) {
    return TerminateWorker(&g_version3Worker);
}

static BOOL RiseEvent(HANDLE event) {
    if (event == nullptr) {
        Trace(L"RiseEvent(): Invaild Event handler\n");
        return FALSE;
    }
    return SetEvent(event);
}

OPERATION(BOOL, AdaptiveCoolingRiseEventOfOptionAttached, ()) {
    return RiseEvent(g_hAdaptCoolWorkerThread_Attach);
}

OPERATION(BOOL, AdaptiveCoolingRiseEventOfOptionDetached, ()) {
    return RiseEvent(g_hAdaptCoolWorkerThread_Dettach);
}

// ---- waiting ----

// Waits for one of the worker's events, resets it and returns its index, or WAIT_TIMEOUT. A wait that fails
// would fail again at once, so it ends the worker.
static DWORD WaitForWork(const CoolingWorker& worker, DWORD timeout_ms) {
    HANDLE events[WAKE_EVENT_LIMIT] = {};
    for (DWORD i = 0; i < worker.event_count; ++i)
        events[i] = *worker.events[i];
    const DWORD woken = WaitForMultipleObjects(worker.event_count, events, FALSE, timeout_ms);
    if (woken == WAIT_TIMEOUT)
        return WAIT_TIMEOUT;
    if (woken >= worker.event_count) {
        Trace(L"%ls: Error: wait failed. (%u)\n", worker.name, GetLastError());
        return WAKE_TERMINATE;
    }
    ResetEvent(events[woken]);
    return woken;
}

// ---- version 2 ----

namespace {

struct Version2State {
    DWORD timeout_ms = INFINITE;
    // In ticks of one second.
    DWORD init_ticks = 0;
    DWORD special_cooling_ticks = 0;
    DWORD initialise_counter = 0;
    DWORD duration_counter = 0;
    bool special_cooling = false;
};

} // namespace

// Clients may ask for as many ticks as a counter holds; it stays at its end.
constexpr DWORD LAST_TICK = 0xFFFFFFFF;

static void CountTick(DWORD* counter) {
    if (*counter != LAST_TICK)
        ++*counter;
}

static void OnDettach(Version2State* state) {
    SetAdaptiveCoolingCreateSpcialCoolingTimeReg(&state->special_cooling_ticks);
    state->duration_counter = 0;
    state->special_cooling = state->special_cooling_ticks != 0;
    if (state->special_cooling) {
        AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode();
        state->timeout_ms = TICK_MS;
    } else {
        AdaptiveCoolingDoOptionDetached();
    }
}

// One tick of phase 1. True when the initialisation has run and phase 2 begins.
static bool OnPhase1Tick(Version2State* state) {
    if (state->special_cooling) {
        CountTick(&state->duration_counter);
        if (state->duration_counter >= state->special_cooling_ticks) {
            Trace(L"AdaptiveCoolingWorkerThread_v1_1 into nominal\n");
            AdaptiveCoolingDoOptionDetached();
            state->duration_counter = 0;
            state->special_cooling = false;
        }
    }
    CountTick(&state->initialise_counter);
    if (state->initialise_counter < state->init_ticks)
        return false;
    Trace(L"AdaptiveCoolingWorkerThread_v1_1 Initilize\n");
    AdaptiveCoolingInitSettings_v2();
    if (!state->special_cooling)
        state->timeout_ms = INFINITE;
    return true;
}

// Until the initialisation, INIT ticks after the start. False when the worker has to end.
static bool RunPhase1(Version2State* state) {
    for (;;) {
        switch (WaitForWork(g_version2Worker, state->timeout_ms)) {
        case WAKE_START:
            AdaptiveCoolingCreateInitTimeFromReg(&state->init_ticks);
            state->timeout_ms = TICK_MS;
            break;
        case WAKE_TERMINATE:
            return false;
        case WAKE_ATTACH:
            AdaptiveCoolingDoOptionAttached();
            state->special_cooling = false;
            break;
        case WAKE_DETTACH:
            OnDettach(state);
            break;
        default:
            if (OnPhase1Tick(state))
                return true;
            break;
        }
    }
}

static void OnPhase2Tick(Version2State* state) {
    // Ticks that take no time, as after an attach, pass all at once: SPCT may be four thousand million.
    if (state->timeout_ms == 0 && state->duration_counter < state->special_cooling_ticks)
        state->duration_counter = state->special_cooling_ticks;
    else
        CountTick(&state->duration_counter);
    if (state->duration_counter < state->special_cooling_ticks)
        return;
    Trace(L"AdaptiveCoolingWorkerThread_v1_2 into nominal\n");
    AdaptiveCoolingDoOptionDetached();
    state->timeout_ms = INFINITE;
}

// From the initialisation until the worker has to end.
static void RunPhase2(Version2State* state) {
    for (;;) {
        switch (WaitForWork(g_version2Worker, state->timeout_ms)) {
        case WAKE_START:
            break;
        case WAKE_TERMINATE:
            return;
        case WAKE_ATTACH:
            AdaptiveCoolingDoOptionAttached();
            state->timeout_ms = 0;
            break;
        case WAKE_DETTACH:
            OnDettach(state);
            break;
        default:
            OnPhase2Tick(state);
            break;
        }
    }
}

// The exit code is 0 when it ends in phase 1, 1 in phase 2.
static OPERATION(DWORD WINAPI, AdaptiveCoolingWorkerThread_v1, ([[maybe_unused]] void* parameter),
                 parameter) {
    Version2State state;
    if (!RunPhase1(&state)) {
        Trace(L"Exit AdaptiveCoolingWorkerThread_v1_1\n");
        return 0;
    }
    RunPhase2(&state);
    Trace(L"Exit AdaptiveCoolingWorkerThread_v1_2\n");
    return 1;
}

// ---- version 3 ----

// Polls that may find the firmware not ready; one more, and the initialisation runs in any case.
constexpr DWORD READY_POLL_LIMIT = 100;

BOOL AdaptiveCoolingInitilizeWorkerWaits() {
    return g_version3Worker.thread != nullptr && g_bWaitingForReady;
}

// The exit code is 0 when it ends without initialising, else 1.
static OPERATION(DWORD WINAPI, AdaptiveCoolingInitilizeWorkerThread, ([[maybe_unused]] void* parameter),
                 parameter) {
    DWORD timeout_ms = INFINITE;
    DWORD polls = 0;
    bool not_ready = true;
    while (not_ready) {
        switch (WaitForWork(g_version3Worker, timeout_ms)) {
        case WAKE_START:
            timeout_ms = TICK_MS;
            break;
        case WAKE_TERMINATE:
            g_bWaitingForReady = false;
            return 0;
        default:
            if (AdaptiveCoolingGetDytcCurrentAvailability() == 1) {
                Trace(L"Ready to DYTC.\n");
                not_ready = false;
            }
            if (polls >= READY_POLL_LIMIT) {
                Trace(L"AdaptiveCoolingInitilizeWorkerThread(): never ready, initialised all the same\n");
                not_ready = false;
            }
            ++polls;
            break;
        }
    }
    // A start from here on wants an initialisation of its own.
    g_bWaitingForReady = false;
    AdaptiveCoolingInitSettings_v3();
    return 1;
}
