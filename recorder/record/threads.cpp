// Threads, events, waits and the clock.
#include <map>

#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"
#include "recorder/symbols.h"

namespace record {

// ---- threads ----

namespace {

struct Start {
    LPTHREAD_START_ROUTINE procedure;
    LPVOID parameter;
    std::string name;
};

} // namespace

static DWORD WINAPI named_thread(LPVOID argument) {
    LPTHREAD_START_ROUTINE procedure = nullptr;
    LPVOID parameter = nullptr;
    {
        const Guard guard;
        const auto* start = static_cast<Start*>(argument);
        procedure = start->procedure;
        parameter = start->parameter;
        name_thread(start->name.c_str());
        delete start;
    }
    return procedure(parameter);
}

HANDLE WINAPI create_thread(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE procedure,
                            LPVOID parameter, DWORD flags, DWORD* id) {
    if (!recording())
        return os::CreateThread(security, stack, procedure, parameter, flags, id);
    const Guard guard;
    auto* start = new Start{procedure, parameter, symbols::name_at(reinterpret_cast<void*>(procedure))};
    HANDLE thread = os::CreateThread(security, stack, named_thread, start, flags, id);
    outcome("CreateThread", thread == nullptr);
    return thread;
}

// When this returns the thread stands still: asking for its registers waits until it does. It may be in any
// call, but not in a line.
static DWORD halt(HANDLE thread) {
    const DWORD before = os::SuspendThread(thread);
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    if (before != ~DWORD{0})
        GetThreadContext(thread, &context);
    return before;
}

static bool is_own(HANDLE thread) {
    return GetThreadId(thread) == GetCurrentThreadId();
}

BOOL WINAPI terminate_thread(HANDLE thread, DWORD code) {
    if (!recording() || is_own(thread))
        return os::TerminateThread(thread, code);
    const Guard guard;
    halt(thread);
    const BOOL ended = os::TerminateThread(thread, code);
    outcome("TerminateThread", ended == FALSE);
    return ended;
}

DWORD WINAPI suspend_thread(HANDLE thread) {
    if (!recording() || is_own(thread))
        return os::SuspendThread(thread);
    const Guard guard;
    const DWORD before = halt(thread);
    outcome("SuspendThread", before == ~DWORD{0});
    return before;
}

DWORD WINAPI resume_thread(HANDLE thread) {
    const DWORD before = os::ResumeThread(thread);
    if (recording()) {
        const Guard guard;
        outcome("ResumeThread", before == ~DWORD{0});
    }
    return before;
}

// ---- the driver's events: what signals them is no call of the service ----

static const wchar_t g_driverEvent[] = L"Global\\MestraPowerManagementDriverEventNotify";
static const std::string g_fetchEvent = "NotifyEvent"; // pending events set it: they are told where fetched

namespace {

struct DriverEvent {
    std::string name;
    bool set_here = false; // by the service
};

} // namespace

static std::map<HANDLE, DriverEvent> g_events;

HANDLE WINAPI create_event(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, LPCWSTR name) {
    HANDLE event = os::CreateEventW(security, manual, set, name);
    if (!recording())
        return event;
    const Guard guard;
    outcome("CreateEventW", event == nullptr);
    constexpr size_t length = ARRAYSIZE(g_driverEvent) - 1;
    if (event != nullptr && name != nullptr && std::wstring(name).starts_with(g_driverEvent))
        g_events[event] = {lines::narrow(name + length)};
    return event;
}

HANDLE WINAPI create_mutex(SECURITY_ATTRIBUTES* security, BOOL owned, LPCWSTR name) {
    HANDLE mutex = os::CreateMutexW(security, owned, name);
    if (recording()) {
        const Guard guard;
        outcome("CreateMutexW", mutex == nullptr);
    }
    return mutex;
}

void forget_event(HANDLE event) {
    g_events.erase(event);
}

static void note_set(HANDLE event, bool set) {
    if (const auto found = g_events.find(event); found != g_events.end())
        found->second.set_here = set;
}

BOOL WINAPI set_event(HANDLE event) {
    if (!recording())
        return os::SetEvent(event);
    const Guard guard;
    const BOOL done = os::SetEvent(event);
    note_set(event, true);
    outcome("SetEvent", done == FALSE);
    return done;
}

BOOL WINAPI reset_event(HANDLE event) {
    if (!recording())
        return os::ResetEvent(event);
    const Guard guard;
    const BOOL done = os::ResetEvent(event);
    note_set(event, false);
    outcome("ResetEvent", done == FALSE);
    return done;
}

// ---- waits ----

static void tell_signal(HANDLE event) {
    const auto found = g_events.find(event);
    if (found != g_events.end() && !found->second.set_here && found->second.name != g_fetchEvent)
        command("signal " + found->second.name);
}

// Of a wait that began at this time.
static void note_wait(const char* call, unsigned long long began, DWORD timeout, DWORD result, DWORD count,
                      const HANDLE* objects) {
    const DWORD error = GetLastError();
    {
        const Guard guard;
        outcome(call, result == WAIT_FAILED);
        if (result == WAIT_TIMEOUT)
            clock_is_past(began + timeout);
        if (result - WAIT_OBJECT_0 < count)
            tell_signal(objects[result - WAIT_OBJECT_0]);
    }
    SetLastError(error);
}

DWORD WINAPI wait_for_one(HANDLE object, DWORD timeout) {
    const bool told = recording();
    const unsigned long long began = told ? clock_ms() : 0;
    const DWORD result = os::WaitForSingleObject(object, timeout);
    if (told)
        note_wait("WaitForSingleObject", began, timeout, result, 1, &object);
    return result;
}

DWORD WINAPI wait_for_many(DWORD count, const HANDLE* objects, BOOL all, DWORD timeout) {
    const bool told = recording();
    const unsigned long long began = told ? clock_ms() : 0;
    const DWORD result = os::WaitForMultipleObjects(count, objects, all, timeout);
    if (told)
        note_wait("WaitForMultipleObjects", began, timeout, result, all ? 0 : count, objects);
    return result;
}

DWORD WINAPI signal_and_wait(HANDLE signal, HANDLE object, DWORD timeout, BOOL alertable) {
    const bool told = recording();
    const unsigned long long began = told ? clock_ms() : 0;
    const DWORD result = os::SignalObjectAndWait(signal, object, timeout, alertable);
    if (told)
        note_wait("SignalObjectAndWait", began, timeout, result, 1, &object);
    return result;
}

void WINAPI sleep(DWORD duration) {
    const bool told = recording();
    const unsigned long long began = told ? clock_ms() : 0;
    os::Sleep(duration);
    if (told) {
        const Guard guard;
        clock_is_past(began + duration);
    }
}

// ---- local time: told at each reading, since the bench's clock follows the recording's only roughly ----

void WINAPI local_time(SYSTEMTIME* time) {
    os::GetLocalTime(time);
    if (!recording())
        return;
    char line[64];
    std::snprintf(line, sizeof(line), "windows time \"%04u-%02u-%02u %02u:%02u:%02u\"", time->wYear,
                  time->wMonth, time->wDay, time->wHour, time->wMinute, time->wSecond);
    const Guard guard;
    command(line);
}

} // namespace record
