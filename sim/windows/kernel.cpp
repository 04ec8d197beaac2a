// Events, mutexes, waits, threads, memory, time and versions.
#include "sim/machine/image.h"
#include "sim/machine/machine.h"
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"
#include "sim/windows/held_names.h"

#include <cstdlib>

namespace sim {

struct Windows {
    DWORD major = 10;
    DWORD minor = 0;
    // Local time at virtual time 0, in seconds since 1970 as if it were UTC: 2021-06-01 09:00:00.
    std::int64_t epoch_seconds = 1622538000;
};

static Windows& windows() {
    return machine_state<Windows>();
}

static const char g_windowsFolder[] = "C:\\Windows";
static const char g_systemFolder[] = "C:\\Windows\\System32";
static const char g_executable[] = "C:\\Windows\\System32\\zorpmsvc.exe";

// Days since 1970-01-01 of a date of the Gregorian calendar, and back.
static std::int64_t days_from_date(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto year_of_era = static_cast<unsigned>(year - era * 400);
    const unsigned day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}

static void date_from_days(std::int64_t days, SYSTEMTIME* time) {
    time->wDayOfWeek = static_cast<WORD>(((days % 7) + 11) % 7);
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto day_of_era = static_cast<unsigned>(days - era * 146097);
    const unsigned year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const unsigned day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const unsigned shifted = (5 * day_of_year + 2) / 153;
    const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
    time->wDay = static_cast<WORD>(day_of_year - (153 * shifted + 2) / 5 + 1);
    time->wMonth = static_cast<WORD>(month);
    time->wYear = static_cast<WORD>(static_cast<std::int64_t>(year_of_era) + era * 400 + (month <= 2));
}

static Action compile_version(Tokens& tokens) {
    const std::string text = tokens.word();
    unsigned major = 0;
    unsigned minor = 0;
    if (std::sscanf(text.c_str(), "%u.%u", &major, &minor) != 2)
        tokens.fail("MAJOR.MINOR expected");
    return [major, minor] {
        windows().major = major;
        windows().minor = minor;
    };
}

static Action compile_time(Tokens& tokens) {
    const std::string text = tokens.text();
    int year = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text.c_str(), "%d-%u-%u %u:%u:%u", &year, &month, &day, &hour, &minute, &second) != 6 ||
        month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59)
        tokens.fail("\"YYYY-MM-DD hh:mm:ss\" expected");
    const std::int64_t seconds =
        days_from_date(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
    return [seconds] { windows().epoch_seconds = seconds - static_cast<std::int64_t>(machine().now / 1000); };
}

static const Commands g_commands({
    {"windows version", Use::Machine, compile_version},
    {"windows time", Use::Machine, compile_time},
});

// ---- LocalAlloc: blocks with a header that names their process ----

struct BlockHeader {
    std::uint64_t magic;
    Process* process;
};
constexpr std::uint64_t BLOCK_ALIVE = 0x4C4F43414C424C4Bull;

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

void WINAPI OutputDebugStringW(LPCWSTR text) {
    if (!machine().keep_details)
        return;
    std::string line = narrow(text);
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    trace_detail("says %s", line.c_str());
}

BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (version->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        violation("GetVersionExW: size field %u", version->dwOSVersionInfoSize);
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    version->dwMajorVersion = windows().major;
    version->dwMinorVersion = windows().minor;
    version->dwBuildNumber = 19041;
    version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    version->szCSDVersion[0] = 0;
    return TRUE;
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
    SIM_CALL(0xFFFFFFFF, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, "SuspendThread");
    if (thread == nullptr)
        return 0xFFFFFFFF;
    if (thread->run == Run::Ended) {
        set_last_error(ERROR_ACCESS_DENIED);
        return 0xFFFFFFFF;
    }
    const int before = thread->suspended++;
    if (thread == current())
        sleep_for(0);
    return static_cast<DWORD>(before);
}

DWORD WINAPI ResumeThread(HANDLE handle) {
    SIM_CALL(0xFFFFFFFF, ERROR_ACCESS_DENIED);
    Thread* thread = thread_of(handle, "ResumeThread");
    if (thread == nullptr)
        return 0xFFFFFFFF;
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

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + bytes));
    if (header == nullptr)
        return nullptr;
    *header = {BLOCK_ALIVE, current_process()};
    ++header->process->local_blocks;
    // Memory that is not asked to be zero holds anything but zeros.
    std::memset(header + 1, (flags & LMEM_ZEROINIT) != 0 ? 0 : 0xCD, bytes);
    return header + 1;
}

HLOCAL WINAPI LocalFree(HLOCAL block) {
    SIM_VISIT();
    if (block == nullptr)
        return nullptr;
    BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
    if (header->magic != BLOCK_ALIVE || header->process != current_process()) {
        violation("LocalFree: no block of this process");
        return block;
    }
    header->magic = 0;
    --header->process->local_blocks;
    std::free(header);
    return nullptr;
}

void WINAPI GetLocalTime(SYSTEMTIME* time) {
    SIM_VISIT();
    const std::int64_t seconds = windows().epoch_seconds + static_cast<std::int64_t>(machine().now / 1000);
    const std::int64_t days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
    const auto of_day = static_cast<unsigned>(seconds - days * 86400);
    date_from_days(days, time);
    time->wHour = static_cast<WORD>(of_day / 3600);
    time->wMinute = static_cast<WORD>(of_day / 60 % 60);
    time->wSecond = static_cast<WORD>(of_day % 60);
    time->wMilliseconds = static_cast<WORD>(machine().now % 1000);
}

static UINT folder(LPWSTR buffer, UINT characters, const char* path) {
    const DWORD length = put_wide(buffer, characters, path);
    return length != 0 ? length : static_cast<UINT>(widen(path).size() + 1);
}

UINT WINAPI GetWindowsDirectoryW(LPWSTR buffer, UINT characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    return folder(buffer, characters, g_windowsFolder);
}

UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    return folder(buffer, characters, g_systemFolder);
}

DWORD WINAPI GetModuleFileNameW(HMODULE, LPWSTR buffer, DWORD characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    const std::u16string path = widen(g_executable);
    if (const DWORD length = put_wide(buffer, characters, g_executable))
        return length;
    for (DWORD i = 0; i + 1 < characters; ++i)
        buffer[i] = static_cast<WCHAR>(path[i]);
    if (characters > 0)
        buffer[characters - 1] = 0;
    set_last_error(ERROR_INSUFFICIENT_BUFFER);
    return characters;
}

} // extern "C"
