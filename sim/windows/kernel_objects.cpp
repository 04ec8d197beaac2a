// Handles, events, mutexes, waits and threads.
#include <algorithm>
#include <cstdlib>

#include "sim/machine/image.h"
#include "sim/machine/machine.h"
#include "sim/windows/held_names.h"

namespace sim {

constexpr DWORD FAILED_COUNT = ~DWORD{0}; // of a thread's suspensions

constexpr int MOST_SUSPENSIONS = 127;

static bool can_be_waited_for(Kind kind) {
    return kind == Kind::Event || kind == Kind::Mutex || kind == Kind::Thread || kind == Kind::Process;
}

static Object* waitable(HANDLE handle, ObjectRef* keep, const char* call) {
    HandleEntry* entry = any_handle(handle, call);
    if (entry == nullptr)
        return nullptr;
    const Kind kind = entry->object->kind;
    if (!can_be_waited_for(kind)) {
        set_last_error(ERROR_INVALID_HANDLE);
        violation("%s: handle %p is nothing to wait for", call, handle);
        return nullptr;
    }
    if ((entry->access & SYNCHRONIZE) == 0 && handle_entry(handle, kind, call, SYNCHRONIZE) == nullptr)
        return nullptr;
    if (*keep != entry->object)
        *keep = entry->object;
    return entry->object.get();
}

// Security attributes that say no more than their absence.
static void check_plain(const SECURITY_ATTRIBUTES* attributes, const char* call) {
    if (attributes != nullptr && (attributes->nLength != sizeof(*attributes) ||
                                  attributes->lpSecurityDescriptor != nullptr || attributes->bInheritHandle))
        violation("%s: security attributes are not known here", call);
}

static bool look_up(DWORD count, const HANDLE* handles, std::vector<ObjectRef>* objects, const char* call) {
    objects->resize(count);
    for (DWORD i = 0; i < count; ++i) {
        if (waitable(handles[i], &(*objects)[i], call) == nullptr)
            return false;
    }
    return true;
}

// Whether the thread has waited for these before, and none has been closed since: then all holds again.
static bool waits_for_the_same(const Thread* thread, DWORD count, const HANDLE* handles) {
    const std::vector<HANDLE>& last = thread->last_handles;
    return thread->last_closes == machine().closes && last.size() == count &&
           std::equal(last.begin(), last.end(), handles);
}

static bool remember_waited_for(Thread* thread, DWORD count, const HANDLE* handles, const char* call) {
    thread->last_handles.clear();
    if (!look_up(count, handles, &thread->last_objects, call))
        return false;
    thread->last_handles.assign(handles, handles + count);
    thread->last_closes = machine().closes;
    return true;
}

static DWORD wait_on_handles(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout, const char* call) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    Thread* thread = current();
    std::vector<ObjectRef> objects;
    if (thread == nullptr ? !look_up(count, handles, &objects, call)
                          : !waits_for_the_same(thread, count, handles) &&
                                !remember_waited_for(thread, count, handles, call))
        return WAIT_FAILED;
    trace_detail("%s(%u handles, %d ms)", call, count, static_cast<int>(timeout));
    return thread != nullptr ? wait_for_last(all != FALSE, timeout)
                             : wait_for(std::move(objects), all != FALSE, timeout);
}

static Thread* thread_of(HANDLE handle, DWORD needed, const char* call) {
    HandleEntry* entry = handle_entry(handle, Kind::Thread, call, needed);
    return entry != nullptr ? static_cast<Thread*>(entry->object->body.get()) : nullptr;
}

// The name in the machine's one namespace: what is not global belongs to a session. The names of session 0,
// the service's own, are the global ones. Returns an error, or 0.
static DWORD full_name(std::string* name) {
    if (name->empty())
        return ERROR_SUCCESS;
    const bool global = name->starts_with("Global\\");
    if (global || name->starts_with("Local\\"))
        name->erase(0, name->find('\\') + 1);
    if (name->empty())
        return ERROR_INVALID_NAME;
    if (name->front() == '\\')
        return ERROR_BAD_PATHNAME;
    if (name->find('\\') != std::string::npos)
        return ERROR_PATH_NOT_FOUND;
    const DWORD session = current_process()->session;
    if (!global && session != 0)
        *name = format("Sessions\\%u\\%s", session, name->c_str());
    return ERROR_SUCCESS;
}

static HANDLE named_object(Kind kind, LPCWSTR wide_name, ObjectRef* created) {
    std::string name = narrow(wide_name);
    if (std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }))
        violation("the object name %s: beyond ASCII, which is not known here", name.c_str());
    if (const DWORD error = full_name(&name)) {
        set_last_error(error);
        return nullptr;
    }
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
            return open_handle(existing, kind == Kind::Event ? EVENT_ALL_ACCESS : MUTEX_ALL_ACCESS);
        }
    }
    ObjectRef object = make_object(kind, name);
    HANDLE handle = open_handle(object, kind == Kind::Event ? EVENT_ALL_ACCESS : MUTEX_ALL_ACCESS);
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
    SIM_NOTE();
    return last_error();
}

void WINAPI SetLastError(DWORD code) {
    if (code != last_error()) // else the trace routine has kept it
        SIM_NOTE();
    set_last_error(code);
}

BOOL WINAPI CloseHandle(HANDLE handle) {
    SIM_VISIT();
    trace_detail("CloseHandle(%p)", handle);
    return close_handle(handle, "CloseHandle");
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manual_reset, BOOL initial, LPCWSTR name) {
    SIM_CALL(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    check_plain(security, "CreateEventW");
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
    HandleEntry* entry = handle_entry(event, Kind::Event, "SetEvent", EVENT_MODIFY_STATE);
    if (entry == nullptr)
        return FALSE;
    const ObjectRef object = entry->object;
    signal_object(*object);
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE event) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    HandleEntry* entry = handle_entry(event, Kind::Event, "ResetEvent", EVENT_MODIFY_STATE);
    if (entry == nullptr)
        return FALSE;
    reset_object(*entry->object);
    return TRUE;
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name) {
    SIM_CALL(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    check_plain(security, "CreateMutexW");
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

DWORD WINAPI SignalObjectAndWait(HANDLE signal, HANDLE wait, DWORD timeout, BOOL alertable) {
    SIM_CALL(WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY);
    if (alertable)
        violation("SignalObjectAndWait: alertable waits are not known here");
    ObjectRef keep;
    if (waitable(wait, &keep, "SignalObjectAndWait") == nullptr)
        return WAIT_FAILED;
    HandleEntry* entry = any_handle(signal, "SignalObjectAndWait");
    if (entry == nullptr)
        return WAIT_FAILED;
    if (entry->object->kind == Kind::Event) {
        if (handle_entry(signal, Kind::Event, "SignalObjectAndWait", EVENT_MODIFY_STATE) == nullptr)
            return WAIT_FAILED;
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

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T, LPTHREAD_START_ROUTINE start,
                           LPVOID parameter, DWORD flags, LPDWORD id) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    check_plain(security, "CreateThread");
    if ((flags & ~CREATE_SUSPENDED) != 0)
        violation("CreateThread: flags 0x%x are not known here", flags);
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
    return open_handle(thread->object, THREAD_ALL_ACCESS);
}

void WINAPI ExitThread(DWORD exit_code) {
    SIM_VISIT();
    end_thread(current(), exit_code);
    std::abort();
}

DWORD WINAPI SuspendThread(HANDLE handle) {
    SIM_CALL(FAILED_COUNT, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, THREAD_SUSPEND_RESUME, "SuspendThread");
    if (thread == nullptr)
        return FAILED_COUNT;
    if (thread->run == Run::Ended) {
        set_last_error(ERROR_ACCESS_DENIED);
        return FAILED_COUNT;
    }
    if (thread->suspended >= MOST_SUSPENSIONS) {
        set_last_error(ERROR_SIGNAL_REFUSED);
        return FAILED_COUNT;
    }
    const int before = thread->suspended++;
    if (thread == current())
        sleep_for(0);
    return static_cast<DWORD>(before);
}

DWORD WINAPI ResumeThread(HANDLE handle) {
    SIM_CALL(FAILED_COUNT, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, THREAD_SUSPEND_RESUME, "ResumeThread");
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
    Thread* thread = thread_of(handle, THREAD_TERMINATE, "TerminateThread");
    if (thread == nullptr)
        return FALSE;
    trace_detail("TerminateThread(%s)", thread->name.c_str());
    end_thread(thread, exit_code);
    return TRUE;
}

BOOL WINAPI GetExitCodeThread(HANDLE handle, LPDWORD exit_code) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const Thread* thread = thread_of(handle, THREAD_QUERY_INFORMATION, "GetExitCodeThread");
    if (thread == nullptr)
        return FALSE;
    *exit_code = thread->run == Run::Ended ? thread->exit_code : STILL_ACTIVE;
    return TRUE;
}

HANDLE WINAPI GetCurrentProcess() {
    SIM_NOTE();
    return INVALID_HANDLE_VALUE; // the platform's pseudo handle
}

HANDLE WINAPI GetCurrentThread() {
    SIM_NOTE();
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

DWORD WINAPI GetCurrentProcessId() {
    SIM_NOTE();
    return current_process()->id;
}

DWORD WINAPI GetCurrentThreadId() {
    SIM_NOTE();
    return current() != nullptr ? current()->id : 0;
}

} // extern "C"
