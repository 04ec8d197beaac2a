// Handles, events, mutexes, waits and threads.
#include <cstdlib>

#include "sim/machine/image.h"
#include "sim/machine/machine.h"
#include "sim/windows/held_names.h"

namespace sim {

constexpr DWORD FAILED_COUNT = ~DWORD{0}; // of a thread's suspensions

static Object* waitable(HANDLE handle, ObjectRef* keep, const char* call) {
    HandleEntry* entry = any_handle(handle, call);
    if (entry == nullptr)
        return nullptr;
    *keep = entry->object;
    return entry->object.get();
}

static DWORD wait_on_handles(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout, const char* call) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::vector<ObjectRef> objects(count);
    for (DWORD i = 0; i < count; ++i) {
        if (waitable(handles[i], &objects[i], call) == nullptr)
            return WAIT_FAILED;
    }
    trace_detail("%s(%u handles, %d ms)", call, count, static_cast<int>(timeout));
    return wait_for(objects, all != FALSE, timeout);
}

static Thread* thread_of(HANDLE handle, const char* call) {
    HandleEntry* entry = handle_entry(handle, Kind::Thread, call);
    return entry != nullptr ? static_cast<Thread*>(entry->object->body.get()) : nullptr;
}

// The name in the machine's one namespace: what is not global belongs to a session. The names of session 0,
// the service's own, are the global ones.
static std::string full_name(const std::string& name) {
    constexpr size_t prefix = sizeof("Global\\") - 1;
    if (lower(name.substr(0, prefix)) == "global\\")
        return name.substr(prefix);
    const DWORD session = current_process()->session;
    return name.empty() || session == 0 ? name : format("Sessions\\%u\\%s", session, name.c_str());
}

static HANDLE named_object(Kind kind, LPCWSTR wide_name, ObjectRef* created) {
    const std::string name = full_name(narrow(wide_name));
    if (!name.empty()) {
        bool denied = false;
        ObjectRef existing = held_elsewhere(name, &denied);
        if (existing == nullptr)
            existing = find_named(name);
        if (existing != nullptr) {
            if (existing->kind != kind || denied) {
                set_last_error(existing->kind != kind ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED);
                return nullptr;
            }
            set_last_error(ERROR_ALREADY_EXISTS);
            return open_handle(existing);
        }
    }
    ObjectRef object = make_object(kind, name);
    HANDLE handle = open_handle(object);
    if (!name.empty())
        remember_named(object);
    set_last_error(ERROR_SUCCESS);
    *created = object;
    return handle;
}

} // namespace sim

using namespace sim;

extern "C" {

DWORD WINAPI GetLastError() {
    return last_error();
}

void WINAPI SetLastError(DWORD code) {
    set_last_error(code);
}

BOOL WINAPI CloseHandle(HANDLE handle) {
    SIM_VISIT();
    trace_detail("CloseHandle(%p)", handle);
    return close_handle(handle, "CloseHandle");
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manual_reset, BOOL initial, LPCWSTR name) {
    SIM_CALL(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ObjectRef created;
    HANDLE handle = named_object(Kind::Event, name, &created);
    if (created != nullptr) {
        created->manual_reset = manual_reset != FALSE;
        created->signaled = initial != FALSE;
    }
    return handle;
}

BOOL WINAPI SetEvent(HANDLE event) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    HandleEntry* entry = handle_entry(event, Kind::Event, "SetEvent");
    if (entry == nullptr)
        return FALSE;
    const ObjectRef object = entry->object;
    signal_object(*object);
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE event) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    HandleEntry* entry = handle_entry(event, Kind::Event, "ResetEvent");
    if (entry == nullptr)
        return FALSE;
    reset_object(*entry->object);
    return TRUE;
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL owned, LPCWSTR name) {
    SIM_CALL(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ObjectRef created;
    HANDLE handle = named_object(Kind::Mutex, name, &created);
    if (created != nullptr && owned != FALSE && current() != nullptr) {
        created->owner = current();
        created->owned_depth = 1;
        current()->owned.push_back(created.get());
    }
    return handle;
}

BOOL WINAPI ReleaseMutex(HANDLE mutex) {
    SIM_VISIT();
    HandleEntry* entry = handle_entry(mutex, Kind::Mutex, "ReleaseMutex");
    if (entry == nullptr)
        return FALSE;
    const ObjectRef object = entry->object;
    if (object->owner != current()) {
        violation("ReleaseMutex: not the owner");
        set_last_error(ERROR_NOT_OWNER);
        return FALSE;
    }
    if (--object->owned_depth == 0) {
        std::erase(current()->owned, object.get());
        object->owner = nullptr;
        object->signaled = false;
        signal_object(*object); // wakes the next; a mutex is available by its owner alone
    }
    return TRUE;
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD timeout) {
    SIM_CALL(WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY);
    return wait_on_handles(1, &handle, FALSE, timeout, "WaitForSingleObject");
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) {
    SIM_CALL(WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY);
    return wait_on_handles(count, handles, all, timeout, "WaitForMultipleObjects");
}

DWORD WINAPI SignalObjectAndWait(HANDLE signal, HANDLE wait, DWORD timeout, BOOL) {
    SIM_CALL(WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY);
    ObjectRef keep;
    if (waitable(wait, &keep, "SignalObjectAndWait") == nullptr)
        return WAIT_FAILED;
    HandleEntry* entry = any_handle(signal, "SignalObjectAndWait");
    if (entry == nullptr)
        return WAIT_FAILED;
    if (entry->object->kind == Kind::Event) {
        const ObjectRef signalled = entry->object;
        signal_object(*signalled);
    } else if (entry->object->kind == Kind::Mutex) {
        if (!ReleaseMutex(signal))
            return WAIT_FAILED;
    } else {
        violation("SignalObjectAndWait: neither event nor mutex");
        set_last_error(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return wait_for({keep}, false, timeout);
}

void WINAPI Sleep(DWORD duration) {
    SIM_VISIT();
    trace_detail("Sleep(%u)", duration);
    sleep_for(duration == INFINITE ? NEVER : duration);
}

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                           DWORD flags, LPDWORD id) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    Process* process = current_process();
    std::string name;
    if (process->image != nullptr)
        name = image_symbol(static_cast<Image*>(process->image), reinterpret_cast<void*>(start));
    if (name.empty())
        name = "thread";
    Thread* thread = start_thread(
        process, name, [start, parameter] { return start(parameter); }, (flags & CREATE_SUSPENDED) != 0);
    trace_detail("CreateThread(%s)", name.c_str());
    if (id != nullptr)
        *id = thread->id;
    return open_handle(thread->object);
}

void WINAPI ExitThread(DWORD exit_code) {
    SIM_VISIT();
    end_thread(current(), exit_code);
    std::abort();
}

DWORD WINAPI SuspendThread(HANDLE handle) {
    SIM_CALL(FAILED_COUNT, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, "SuspendThread");
    if (thread == nullptr)
        return FAILED_COUNT;
    if (thread->run == Run::Ended) {
        set_last_error(ERROR_ACCESS_DENIED);
        return FAILED_COUNT;
    }
    const int before = thread->suspended++;
    if (thread == current())
        sleep_for(0);
    return static_cast<DWORD>(before);
}

DWORD WINAPI ResumeThread(HANDLE handle) {
    SIM_CALL(FAILED_COUNT, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, "ResumeThread");
    if (thread == nullptr)
        return FAILED_COUNT;
    if (thread->suspended == 0)
        return 0;
    const int before = thread->suspended--;
    wake_waiting();
    return static_cast<DWORD>(before);
}

BOOL WINAPI TerminateThread(HANDLE handle, DWORD exit_code) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, "TerminateThread");
    if (thread == nullptr)
        return FALSE;
    trace_detail("TerminateThread(%s)", thread->name.c_str());
    end_thread(thread, exit_code);
    return TRUE;
}

BOOL WINAPI GetExitCodeThread(HANDLE handle, LPDWORD exit_code) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const Thread* thread = thread_of(handle, "GetExitCodeThread");
    if (thread == nullptr)
        return FALSE;
    *exit_code = thread->run == Run::Ended ? thread->exit_code : STILL_ACTIVE;
    return TRUE;
}

HANDLE WINAPI GetCurrentProcess() {
    return INVALID_HANDLE_VALUE; // the platform's pseudo handle
}

HANDLE WINAPI GetCurrentThread() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

DWORD WINAPI GetCurrentProcessId() {
    return current_process()->id;
}

DWORD WINAPI GetCurrentThreadId() {
    return current() != nullptr ? current()->id : 0;
}

} // extern "C"
