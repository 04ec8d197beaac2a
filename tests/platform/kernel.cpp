// Events, waits, mutexes, threads and their handles.
#include "tests/platform/probe.h"

static HANDLE make_event(BOOL manual, BOOL set) {
    return CreateEventW(nullptr, manual, set, nullptr);
}

static DWORD state(HANDLE object) {
    return WaitForSingleObject(object, 0);
}

// ---- events ----

static void probe_unnamed_events() {
    group("event");
    HANDLE manual = make_event(TRUE, FALSE);
    fact("manual-new", state(manual));
    fact("manual-set", SetEvent(manual));
    fact("manual-set-state", state(manual));
    fact("manual-set-state-again", state(manual));
    fact("manual-set-twice", SetEvent(manual));
    fact("manual-reset", ResetEvent(manual));
    fact("manual-reset-state", state(manual));
    fact("manual-reset-twice", ResetEvent(manual));
    HANDLE automatic = make_event(FALSE, TRUE);
    fact("auto-new-set", state(automatic));
    fact("auto-taken", state(automatic));
    SetEvent(automatic);
    SetEvent(automatic);
    fact("auto-set-twice-first", state(automatic));
    fact("auto-set-twice-second", state(automatic));
    SetEvent(automatic);
    ResetEvent(automatic);
    fact("auto-reset", state(automatic));
    fact("close", CloseHandle(manual));
    fact("set-null", ERROR_OF(SetEvent(nullptr)));
    fact("reset-null", ERROR_OF(ResetEvent(nullptr)));
    fact("close-null", ERROR_OF(CloseHandle(nullptr)));
    fact("wait-null", ERROR_OF(WaitForSingleObject(nullptr, 0) != WAIT_FAILED));
    fact("set-invalid", ERROR_OF(SetEvent(INVALID_HANDLE_VALUE)));
    fact("close-own-process", ERROR_OF(CloseHandle(INVALID_HANDLE_VALUE)));
    fact("wait-own-process", state(INVALID_HANDLE_VALUE));
}

// Creates a second one of a name: error 183, or the one it fails with; 0 for a new object.
static DWORD second_event(const WCHAR* name) {
    SetLastError(0xBAD);
    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, name);
    const DWORD error = GetLastError();
    if (handle != nullptr)
        CloseHandle(handle);
    return error;
}

static void probe_named_events() {
    group("event-name");
    SetLastError(0xBAD);
    HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"ZorpmProbeEvent");
    fact("new", GetLastError());
    SetLastError(0xBAD);
    HANDLE second = CreateEventW(nullptr, FALSE, TRUE, L"ZorpmProbeEvent");
    fact("again", GetLastError());
    fact("again-is-another-handle", first != second);
    fact("again-keeps-state", state(second));
    SetEvent(second);
    fact("shared", state(first));
    fact("again-keeps-kind", state(second));
    fact("other-case", second_event(L"zorpmprobeevent"));
    fact("local", second_event(L"Local\\ZorpmProbeEvent"));
    fact("local-other-case", second_event(L"LOCAL\\ZorpmProbeEvent"));
    fact("global", second_event(L"Global\\ZorpmProbeEvent"));
    fact("backslash", second_event(L"Zorpm\\Probe"));
    fact("backslash-first", second_event(L"\\ZorpmProbe"));
    fact("empty", second_event(L""));
    fact("empty-again", second_event(L""));
    fact("global-alone", second_event(L"Global\\"));
    fact("slash", second_event(L"Zorpm/Probe"));
    fact("other-kind", ERROR_OF(CreateMutexW(nullptr, FALSE, L"ZorpmProbeEvent")));
    CloseHandle(first);
    fact("first-closed", second_event(L"ZorpmProbeEvent"));
    CloseHandle(second);
    fact("all-closed", second_event(L"ZorpmProbeEvent"));
    SetLastError(0xBAD);
    HANDLE unnamed = make_event(TRUE, FALSE);
    fact("unnamed", GetLastError());
    CloseHandle(unnamed);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    fact("security", ERROR_OF(CreateEventW(&attributes, TRUE, FALSE, L"ZorpmProbeSecured")));
}

void probe_events() {
    probe_unnamed_events();
    probe_named_events();
}

// ---- waits ----

static DWORD wait_any(HANDLE a, HANDLE b, DWORD timeout = 0) {
    const HANDLE handles[] = {a, b};
    return WaitForMultipleObjects(2, handles, FALSE, timeout);
}

static DWORD wait_all(HANDLE a, HANDLE b, DWORD timeout = 0) {
    const HANDLE handles[] = {a, b};
    return WaitForMultipleObjects(2, handles, TRUE, timeout);
}

static DWORD waited(DWORD result) {
    return result == WAIT_FAILED ? GetLastError() + 1000 : result;
}

static void probe_many() {
    group("wait");
    HANDLE a = make_event(FALSE, FALSE);
    HANDLE b = make_event(FALSE, FALSE);
    fact("any-none", wait_any(a, b));
    fact("any-none-timeout", wait_any(a, b, 20));
    SetEvent(b);
    fact("any-second", wait_any(a, b));
    fact("any-second-taken", state(b));
    SetEvent(a);
    SetEvent(b);
    fact("any-both", wait_any(a, b));
    fact("any-both-left", state(b));
    SetEvent(a);
    fact("all-one", wait_all(a, b));
    fact("all-one-left", state(a));
    SetEvent(a);
    SetEvent(b);
    fact("all-both", wait_all(a, b));
    fact("all-both-taken", wait_any(a, b));
    SetEvent(a);
    fact("any-same-twice", waited(wait_any(a, a)));
    fact("all-same-twice", waited(wait_all(a, a)));
    fact("any-null", waited(wait_any(a, nullptr)));
    SetEvent(a);
    fact("any-set-and-null", waited(wait_any(a, nullptr)));
    fact("all-null", waited(wait_all(nullptr, a)));
    HANDLE many[MAXIMUM_WAIT_OBJECTS + 1];
    for (HANDLE& each : many)
        each = b;
    SetEvent(b);
    fact("none-given", waited(WaitForMultipleObjects(0, many, FALSE, 0)));
    fact("64-given", waited(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, many, FALSE, 0)));
    fact("65-given", waited(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS + 1, many, FALSE, 0)));
}

static DWORD WINAPI set_soon(void* event) {
    Sleep(30);
    SetEvent(event);
    return 5;
}

static void probe_signal_and_wait() {
    group("signal-and-wait");
    HANDLE a = make_event(FALSE, FALSE);
    HANDLE b = make_event(FALSE, FALSE);
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    fact("timeout", waited(SignalObjectAndWait(a, b, 0, FALSE)));
    fact("timeout-has-set", state(a));
    fact("same", waited(SignalObjectAndWait(a, a, 0, FALSE)));
    fact("mutex-not-owned", waited(SignalObjectAndWait(mutex, a, 0, FALSE)));
    WaitForSingleObject(mutex, 0);
    SetEvent(a);
    fact("mutex-owned", waited(SignalObjectAndWait(mutex, a, 0, FALSE)));
    fact("null-signal", waited(SignalObjectAndWait(nullptr, a, 0, FALSE)));
    fact("null-wait", waited(SignalObjectAndWait(a, nullptr, 0, FALSE)));
    fact("null-wait-has-set", state(a));
    fact("thread", waited(SignalObjectAndWait(GetCurrentThread(), a, 0, FALSE)));
    HANDLE thread = CreateThread(nullptr, 0, set_soon, a, 0, nullptr);
    fact("later", waited(SignalObjectAndWait(b, a, 10000, FALSE)));
    fact("later-thread", WaitForSingleObject(thread, 10000));
    fact("later-code", on_thread(set_soon, b));
    fact("later-event", wait_any(a, b));
}

void probe_waits() {
    probe_many();
    probe_signal_and_wait();
}

// ---- mutexes ----

static DWORD WINAPI wait_for_it(void* mutex) {
    const DWORD result = state(mutex);
    if (result != WAIT_TIMEOUT)
        ReleaseMutex(mutex);
    return result;
}

static DWORD WINAPI take_and_end(void* mutex) {
    return state(mutex);
}

static DWORD WINAPI release_it(void* mutex) {
    return ERROR_OF(ReleaseMutex(mutex));
}

void probe_mutexes() {
    group("mutex");
    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    fact("owned-for-others", on_thread(wait_for_it, mutex));
    fact("owned-for-owner", state(mutex));
    fact("release-once", ReleaseMutex(mutex));
    fact("owned-once-more", on_thread(wait_for_it, mutex));
    fact("release-by-another", on_thread(release_it, mutex));
    fact("release-twice", ReleaseMutex(mutex));
    fact("released-for-others", on_thread(wait_for_it, mutex));
    fact("left-by-thread", on_thread(take_and_end, mutex));
    fact("abandoned", state(mutex));
    fact("abandoned-once", state(mutex));
    ReleaseMutex(mutex);
    ReleaseMutex(mutex);
    on_thread(take_and_end, mutex);
    HANDLE event = make_event(TRUE, FALSE);
    fact("abandoned-among-others", wait_any(event, mutex));
    fact("abandoned-is-owned", on_thread(wait_for_it, mutex));
    ReleaseMutex(mutex);
    on_thread(take_and_end, mutex);
    SetEvent(event);
    fact("abandoned-among-all", wait_all(event, mutex));
    ReleaseMutex(mutex);
    fact("release-null", ERROR_OF(ReleaseMutex(nullptr)));
    SetLastError(0xBAD);
    HANDLE named = CreateMutexW(nullptr, TRUE, L"ZorpmProbeMutex");
    fact("named-new", GetLastError());
    HANDLE again = CreateMutexW(nullptr, TRUE, L"ZorpmProbeMutex");
    fact("named-again", GetLastError());
    fact("named-again-not-owned-twice", ReleaseMutex(named));
    fact("named-free", on_thread(wait_for_it, again));
    fact("named-local", ERROR_OF(CreateEventW(nullptr, TRUE, FALSE, L"Local\\ZorpmProbeMutex")));
    HANDLE owned = CreateMutexW(nullptr, TRUE, L"ZorpmProbeOwned");
    CloseHandle(owned);
    SetLastError(0xBAD);
    owned = CreateMutexW(nullptr, FALSE, L"ZorpmProbeOwned");
    fact("closed-while-owned", GetLastError());
    fact("closed-while-owned-is-free", on_thread(wait_for_it, owned));
}

// ---- threads ----

static DWORD WINAPI sleep_long(void*) {
    Sleep(20000);
    return 1;
}

static DWORD WINAPI return_it(void* value) {
    return *static_cast<DWORD*>(value);
}

static DWORD WINAPI exit_with(void* value) {
    ExitThread(*static_cast<DWORD*>(value));
    return 0;
}

static DWORD WINAPI own_id(void*) {
    return GetCurrentThreadId();
}

static DWORD exit_code(HANDLE thread) {
    DWORD code = 0xDEAD;
    GetExitCodeThread(thread, &code);
    return code;
}

static void probe_thread_life() {
    group("thread");
    DWORD value = 77;
    fact("code", on_thread(return_it, &value));
    fact("exit-code", on_thread(exit_with, &value));
    value = STILL_ACTIVE;
    fact("code-259", on_thread(return_it, &value));
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, own_id, nullptr, CREATE_SUSPENDED, &id);
    fact("suspended-waits", WaitForSingleObject(thread, 50));
    fact("suspended-code", exit_code(thread));
    fact("resume", ResumeThread(thread));
    fact("ended", WaitForSingleObject(thread, 10000));
    fact("ended-stays", state(thread));
    fact("id", exit_code(thread) == id);
    fact("ended-resume", ERROR_OF(ResumeThread(thread) != ~DWORD{0}));
    fact("ended-suspend", ERROR_OF(SuspendThread(thread) != ~DWORD{0}));
    fact("ended-terminate", ERROR_OF(TerminateThread(thread, 3)));
    fact("ended-terminate-keeps-code", exit_code(thread) == id);
    thread = CreateThread(nullptr, 0, sleep_long, nullptr, 0, nullptr);
    fact("alive-code", exit_code(thread));
    fact("alive", state(thread));
    fact("resume-running", ResumeThread(thread));
    fact("suspend", SuspendThread(thread));
    fact("suspend-again", SuspendThread(thread));
    fact("resume-first", ResumeThread(thread));
    fact("resume-last", ResumeThread(thread));
    fact("resume-more", ResumeThread(thread));
    SuspendThread(thread);
    fact("terminate-suspended", TerminateThread(thread, 9));
    fact("terminated", WaitForSingleObject(thread, 10000));
    fact("terminated-code", exit_code(thread));
    fact("terminate-null", ERROR_OF(TerminateThread(nullptr, 0)));
    fact("suspend-null", ERROR_OF(SuspendThread(nullptr) != ~DWORD{0}));
    fact("resume-null", ERROR_OF(ResumeThread(nullptr) != ~DWORD{0}));
    fact("code-null", ERROR_OF(GetExitCodeThread(nullptr, &value)));
}

static void probe_thread_limits() {
    group("suspension");
    HANDLE thread = CreateThread(nullptr, 0, sleep_long, nullptr, 0, nullptr);
    DWORD before = 0;
    for (int i = 0; i < 127; ++i)
        before = SuspendThread(thread);
    fact("127th", before);
    fact("128th", ERROR_OF(SuspendThread(thread) != ~DWORD{0}));
    fact("resume", ResumeThread(thread));
    fact("127th-again", SuspendThread(thread));
    TerminateThread(thread, 0);
    HANDLE event = make_event(FALSE, FALSE);
    thread = CreateThread(nullptr, 0, take_and_end, event, CREATE_SUSPENDED, nullptr);
    SetEvent(event);
    fact("suspended-takes-nothing", state(event));
    SetEvent(event);
    ResumeThread(thread);
    WaitForSingleObject(thread, 10000);
    fact("resumed-takes-it", exit_code(thread));
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    thread = CreateThread(nullptr, 0, sleep_long, nullptr, 0, nullptr);
    CloseHandle(thread);
    fact("closed-thread-goes-on", on_thread(wait_for_it, mutex));
    fact("own-process", GetCurrentProcess() == INVALID_HANDLE_VALUE);
    fact("own-id", GetCurrentThreadId() == on_thread(own_id, nullptr));
}

void probe_threads() {
    probe_thread_life();
    probe_thread_limits();
}
