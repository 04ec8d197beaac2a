#include "recorder/runner/wrapped.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/accounts.h"
#include "recorder/runner/clients.h"
#include "recorder/runner/com.h"
#include "recorder/runner/console.h"
#include "recorder/runner/driver.h"
#include "recorder/runner/images.h"
#include "recorder/runner/manager.h"
#include "recorder/runner/output.h"
#include "recorder/runner/power.h"
#include "recorder/runner/settings.h"
#include "recorder/symbols.h"

namespace runner {

static BOOL WINAPI close_handle(HANDLE handle);
static LSTATUS WINAPI close_key(HKEY key);

// ---- what an image has open ----

static void close_later(void* handle) {
    close_handle(handle);
}

static HANDLE kept(HANDLE handle) {
    const DWORD error = GetLastError();
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE)
        keep_open(handle, close_later);
    SetLastError(error);
    return handle;
}

// ---- waits and threads ----

static DWORD WINAPI wait_for_one(HANDLE object, DWORD timeout) {
    return turns::wait(1, &object, FALSE, timeout);
}

static DWORD WINAPI wait_for_many(DWORD count, const HANDLE* objects, BOOL all, DWORD timeout) {
    return turns::wait(count, objects, all, timeout);
}

static DWORD WINAPI signal_and_wait(HANDLE signal, HANDLE object, DWORD timeout, BOOL) {
    return turns::signal_and_wait(signal, object, timeout);
}

static void WINAPI sleep(DWORD duration) {
    turns::sleep(duration);
}

static HANDLE WINAPI create_thread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE procedure,
                                   LPVOID parameter, DWORD flags, DWORD* id) {
    if (told_to_fail("CreateThread", ERROR_NOT_ENOUGH_MEMORY))
        return nullptr;
    const std::string name = symbols::name_at(reinterpret_cast<void*>(procedure));
    return kept(turns::start_thread(name.c_str(), procedure, parameter, flags, id));
}

static void WINAPI exit_thread(DWORD code) {
    turns::exit_thread(code);
}

static BOOL WINAPI terminate_thread(HANDLE thread, DWORD code) {
    return turns::terminate_thread(thread, code);
}

static DWORD WINAPI suspend_thread(HANDLE thread) {
    return turns::suspend_thread(thread);
}

static DWORD WINAPI resume_thread(HANDLE thread) {
    return turns::resume_thread(thread);
}

static std::set<HANDLE> g_unnamed; // events that nobody reaches by another handle

static HANDLE WINAPI create_event(SECURITY_ATTRIBUTES* security, BOOL manual_reset, BOOL initial,
                                  LPCWSTR name) {
    HANDLE event = kept(REAL(CreateEventW)(security, manual_reset, initial, name));
    if (name == nullptr)
        g_unnamed.insert(event);
    return event;
}

static HANDLE WINAPI create_mutex(SECURITY_ATTRIBUTES* security, BOOL owned, LPCWSTR name) {
    HANDLE mutex = kept(REAL(CreateMutexW)(security, owned, name));
    if (mutex != nullptr)
        turns::note_mutex(mutex);
    return mutex;
}

static BOOL WINAPI set_event(HANDLE event) {
    const BOOL set = REAL(SetEvent)(event);
    if (g_unnamed.contains(event))
        turns::signalled(event);
    else
        turns::signalled();
    return set;
}

static BOOL WINAPI release_mutex(HANDLE mutex) {
    const BOOL released = REAL(ReleaseMutex)(mutex);
    turns::released();
    return released;
}

static BOOL WINAPI get_message(MSG* message, HWND window, UINT first, UINT last) {
    return turns::get_message(message, window, first, last);
}

static UINT_PTR WINAPI set_timer(HWND window, UINT_PTR id, UINT period, TIMERPROC procedure) {
    return turns::set_timer(window, id, period, procedure);
}

static BOOL WINAPI kill_timer(HWND window, UINT_PTR id) {
    return turns::kill_timer(window, id);
}

// ---- local time ----

static ULONGLONG g_timeBase = 0; // local time at 0 of the clock, in 100 ns
constexpr ULONGLONG UNITS_PER_MS = 10000;

void set_local_time(const SYSTEMTIME& time) {
    FILETIME file = {};
    SystemTimeToFileTime(&time, &file);
    ULARGE_INTEGER units = {};
    units.LowPart = file.dwLowDateTime;
    units.HighPart = file.dwHighDateTime;
    g_timeBase = units.QuadPart - turns::now() * UNITS_PER_MS;
}

static void WINAPI get_local_time(SYSTEMTIME* time) {
    ULARGE_INTEGER units = {};
    units.QuadPart = g_timeBase + turns::now() * UNITS_PER_MS;
    const FILETIME file = {units.LowPart, units.HighPart};
    FileTimeToSystemTime(&file, time);
}

static ULONGLONG WINAPI tick_count() {
    return turns::now();
}

// ---- the service control manager ----

static BOOL WINAPI set_status_told(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status) {
    effect("%s", status_line(*status).c_str());
    return set_status(service, status);
}

// ---- devices ----

static std::map<HANDLE, const char*> g_devices; // open ones; those of the driver have no name

// Files that somebody else finds or misses.
static void tell_file(const char* what, LPCWSTR path) {
    const DWORD error = GetLastError();
    effect("file %s \"%s\"", what, narrow(path).c_str());
    SetLastError(error);
}

static HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                 DWORD disposition, DWORD flags, HANDLE pattern) {
    HANDLE file = nullptr;
    if (open_console(path, &file))
        return file;
    file = REAL(CreateFileW)(path, access, share, security, disposition, flags, pattern);
    if (file == INVALID_HANDLE_VALUE)
        return file;
    const DWORD error = GetLastError();
    if (const char* name = device_name(path))
        g_devices[file] = name;
    else if (disposition == CREATE_NEW)
        tell_file("create", path);
    SetLastError(error);
    return kept(file);
}

static BOOL WINAPI delete_file(LPCWSTR path) {
    const BOOL deleted = delete_any_file(path);
    if (deleted)
        tell_file("delete", path);
    return deleted;
}

// Windows' side of the rotation lock: two bytes are one press, which turns its setting over.
static void follow_button(BYTE byte) {
    static bool half_pressed = false;
    constexpr BYTE rotation_lock = 4;
    if (byte != rotation_lock)
        return;
    half_pressed = !half_pressed;
    HKEY key = nullptr;
    DWORD enable = 0;
    DWORD bytes = sizeof(enable);
    if (half_pressed || setting("rotation-follows", 0) == 0 ||
        REAL(RegOpenKeyExW)(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation",
                            0, KEY_QUERY_VALUE | KEY_SET_VALUE, &key) != ERROR_SUCCESS)
        return;
    if (RegQueryValueExW(key, L"Enable", nullptr, nullptr, reinterpret_cast<BYTE*>(&enable), &bytes) ==
        ERROR_SUCCESS) {
        enable ^= 1;
        REAL(RegSetValueExW)(key, L"Enable", 0, REG_DWORD, reinterpret_cast<BYTE*>(&enable), sizeof(enable));
    }
    REAL(RegCloseKey)(key);
    turns::signalled();
}

static BOOL WINAPI write_file(HANDLE file, LPCVOID data, DWORD bytes, DWORD* written,
                              OVERLAPPED* overlapped) {
    if (is_output(file)) {
        write_output(data, bytes);
        *written = bytes;
        return TRUE;
    }
    const BOOL done = REAL(WriteFile)(file, data, bytes, written, overlapped);
    const auto found = g_devices.find(file);
    if (!done || found == g_devices.end())
        return done;
    effect("write %s %u", found->second, *static_cast<const BYTE*>(data));
    if (std::strcmp(found->second, "button") == 0)
        follow_button(*static_cast<const BYTE*>(data));
    return done;
}

static BOOL WINAPI close_handle(HANDLE handle) {
    if (is_output(handle))
        return TRUE;
    g_devices.erase(handle);
    g_unnamed.erase(handle);
    forget_open(handle);
    turns::forget_mutex(handle);
    return REAL(CloseHandle)(handle);
}

// ---- the driver ----

static BOOL WINAPI device_control(HANDLE device, DWORD code, LPVOID in, DWORD in_bytes, LPVOID out,
                                  DWORD out_bytes, DWORD* returned, OVERLAPPED* overlapped) {
    DWORD words[12] = {};
    if (in != nullptr)
        std::memcpy(words, in, std::min<size_t>(in_bytes, sizeof(words)));
    const std::string line = shown_request(code, words, in_bytes);
    if (!g_devices.contains(device)) // it could not be opened, and nobody is asked
        return REAL(DeviceIoControl)(device, code, in, in_bytes, out, out_bytes, returned, overlapped);
    prime_answer(code, method_of(code), words[0]);
    const BOOL sent = REAL(DeviceIoControl)(device, code, in, in_bytes, out, out_bytes, returned, overlapped);
    const DWORD error = GetLastError();
    effect("%s%s", line.c_str(),
           sent ? shown_answer(code, static_cast<const DWORD*>(out), out_bytes, *returned).c_str()
                : " failed");
    if (method_of(code) == "REGISTEREVENTS")
        turns::signalled(); // an event that is pending is told at once
    SetLastError(error);
    return sent;
}

// ---- the registry ----

// Whom a change can have told: looking after every waiting thread costs Wine a message each.
struct WatchedKey {
    std::string path; // small letters
    bool subtree;
};
static std::map<HKEY, WatchedKey> g_watched;

static void tell_watchers(const std::string& changed) {
    const std::string path = small(changed);
    for (const auto& [key, watched] : g_watched) {
        const bool below = watched.subtree && path.size() > watched.path.size() &&
                           path.starts_with(watched.path) && path[watched.path.size()] == '\\';
        if (below || path == watched.path)
            return turns::signalled();
    }
}

static void close_key_later(void* key) {
    close_key(static_cast<HKEY>(key));
}

static std::map<HKEY, std::string> g_openKeys; // paths in small letters

bool key_is_open(const std::string& path) {
    const std::string above = small(path);
    return std::any_of(g_openKeys.begin(), g_openKeys.end(), [&](const auto& row) {
        return row.second == above || row.second.starts_with(above + "\\");
    });
}

static void keep(HKEY key, const std::string& path) {
    g_openKeys[key] = small(path);
    keep_key(key, path);
    keep_open(key, close_key_later);
}

static LSTATUS WINAPI open_key(HKEY key, LPCWSTR path, DWORD options, REGSAM access, HKEY* result) {
    if (key_refused(joined(key, path), access))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error = REAL(RegOpenKeyExW)(key, path, options, access, result);
    if (error == ERROR_SUCCESS)
        keep(*result, joined(key, path));
    return error;
}

static LSTATUS WINAPI create_key(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options,
                                 REGSAM access, SECURITY_ATTRIBUTES* security, HKEY* result,
                                 DWORD* disposition) {
    DWORD made = 0;
    if (key_refused(joined(key, path), access))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error =
        REAL(RegCreateKeyExW)(key, path, reserved, key_class, options, access, security, result, &made);
    if (error != ERROR_SUCCESS)
        return error;
    if (disposition != nullptr)
        *disposition = made;
    keep(*result, joined(key, path));
    if (made == REG_CREATED_NEW_KEY)
        effect("registry create %s%s", shown_path(key_path(*result)).c_str(),
               options == REG_OPTION_VOLATILE ? " volatile" : "");
    if (made == REG_CREATED_NEW_KEY)
        tell_watchers(key_path(*result));
    return error;
}

static LSTATUS WINAPI close_key(HKEY key) {
    forget_key(key);
    g_openKeys.erase(key);
    forget_open(key);
    const LSTATUS error = REAL(RegCloseKey)(key);
    if (g_watched.erase(key) != 0)
        turns::signalled(); // what is pending ends
    return error;
}

static LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                                DWORD bytes) {
    if (told_to_fail("RegSetValueExW", ERROR_ACCESS_DENIED))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error = REAL(RegSetValueExW)(key, name, reserved, type, data, bytes);
    if (error == ERROR_SUCCESS)
        effect("registry %s %s = %s", shown_path(key_path(key)).c_str(), value_name(name).c_str(),
               shown_data(type, data, bytes).c_str());
    tell_watchers(key_path(key));
    return error;
}

static LSTATUS WINAPI notify_change(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous) {
    if (told_to_fail("RegNotifyChangeKeyValue", ERROR_NOT_ENOUGH_MEMORY))
        return ERROR_NOT_ENOUGH_MEMORY;
    g_watched[key] = {small(key_path(key)), subtree != FALSE};
    return REAL(RegNotifyChangeKeyValue)(key, subtree, filter, event, asynchronous);
}

static LSTATUS WINAPI delete_key(HKEY key, LPCWSTR path) {
    if (key_refused(joined(key, path), DELETE))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error = REAL(RegDeleteKeyW)(key, path);
    if (error == ERROR_SUCCESS)
        effect("registry delete %s", shown_path(joined(key, path)).c_str());
    turns::signalled();
    return error;
}

// ---- libraries and the version ----

static bool is_power_library(LPCWSTR name) {
    return lstrcmpiW(name, L"powrprof.dll") == 0;
}

static HMODULE WINAPI load_library(LPCWSTR name, HANDLE file, DWORD flags) {
    if (!is_power_library(name) || setting("powrprof", 1) != 0)
        return REAL(LoadLibraryExW)(name, file, flags);
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

static FARPROC WINAPI find_function(HMODULE library, const char* name) {
    void* own = power_function(name);
    if (own != nullptr && setting(std::string("without ") + name, 0) != 0) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return own != nullptr ? reinterpret_cast<FARPROC>(own) : REAL(GetProcAddress)(library, name);
}

// Once for every process; here several share one.
static HRESULT WINAPI security_of_com(SECURITY_DESCRIPTOR*, LONG, SOLE_AUTHENTICATION_SERVICE*, void*, DWORD,
                                      DWORD, void*, DWORD, void*) {
    return S_OK;
}

// What an executable without a manifest is told: the last one of these that the machine has come to.
static BOOL WINAPI get_version(OSVERSIONINFOW* version) {
    static const DWORD releases[][3] = {{6, 2, 9200}, {6, 1, 7601}, {6, 0, 6002},
                                        {5, 2, 3790}, {5, 1, 2600}, {5, 0, 2195}};
    const DWORD major = setting("major", 10);
    const DWORD minor = setting("minor", 0);
    if (!REAL(GetVersionExW)(version))
        return FALSE;
    for (const auto& release : releases) {
        version->dwMajorVersion = release[0];
        version->dwMinorVersion = release[1];
        version->dwBuildNumber = release[2];
        if (major > release[0] || (major == release[0] && minor >= release[1]))
            break;
    }
    return TRUE;
}

// clang-format off
#define WRAP(name, wrapper) {#name, reinterpret_cast<void*>(wrapper)},
static const struct { const char* name; void* wrapper; } g_wrappers[] = {
    WRAP(LoadLibraryExW,                  load_library)
    WRAP(GetProcAddress,                  find_function)
    WRAP(GetVersionExW,                   get_version)
    WRAP(SetSystemPowerState,             set_system_power_state)
    WRAP(ExitWindowsEx,                   exit_windows)
    WRAP(CLSIDFromProgID,                 class_of_name)
    WRAP(CoCreateInstance,                create_instance)
    WRAP(CoInitializeSecurity,            security_of_com)
    WRAP(AdjustTokenPrivileges,           adjust_privileges)
    WRAP(WaitForSingleObject,             wait_for_one)
    WRAP(WaitForMultipleObjects,          wait_for_many)
    WRAP(SignalObjectAndWait,             signal_and_wait)
    WRAP(Sleep,                           sleep)
    WRAP(CreateThread,                    create_thread)
    WRAP(ExitThread,                      exit_thread)
    WRAP(TerminateThread,                 terminate_thread)
    WRAP(SuspendThread,                   suspend_thread)
    WRAP(ResumeThread,                    resume_thread)
    WRAP(CreateEventW,                    create_event)
    WRAP(SetEvent,                        set_event)
    WRAP(CreateMutexW,                    create_mutex)
    WRAP(ReleaseMutex,                    release_mutex)
    WRAP(GetMessageW,                     get_message)
    WRAP(SetTimer,                        set_timer)
    WRAP(KillTimer,                       kill_timer)
    WRAP(GetLocalTime,                    get_local_time)
    WRAP(GetTickCount64,                  tick_count)
    WRAP(StartServiceCtrlDispatcherW,     start_dispatcher)
    WRAP(RegisterServiceCtrlHandlerExW,   register_handler)
    WRAP(SetServiceStatus,                set_status_told)
    WRAP(RegisterPowerSettingNotification,register_power_setting)
    WRAP(OpenSCManagerW,                  open_manager)
    WRAP(OpenServiceW,                    open_service)
    WRAP(ControlService,                  control_service)
    WRAP(QueryServiceStatus,              query_status)
    WRAP(QueryServiceStatusEx,            query_status_ex)
    WRAP(CloseServiceHandle,              close_service)
    WRAP(DeviceIoControl,                 device_control)
    WRAP(CreateFileW,                     create_file)
    WRAP(WriteFile,                       write_file)
    WRAP(DeleteFileW,                     delete_file)
    WRAP(CloseHandle,                     close_handle)
    WRAP(RegOpenKeyExW,                   open_key)
    WRAP(RegCreateKeyExW,                 create_key)
    WRAP(RegCloseKey,                     close_key)
    WRAP(RegSetValueExW,                  set_value)
    WRAP(RegDeleteKeyW,                   delete_key)
    WRAP(RegNotifyChangeKeyValue,         notify_change)
    WRAP(LookupAccountNameW,              look_up_account)
    WRAP(RegLoadKeyW,                     load_hive)
    WRAP(RegUnLoadKeyW,                   unload_hive)
    WRAP(SHGetFolderPathW,                folder_path)
    WRAP(CreateProcessW,                  create_process)
    WRAP(GetExitCodeProcess,              exit_code_of_process)
    WRAP(GetStdHandle,                    standard_handle)
    WRAP(GetFileType,                     file_type)
    WRAP(AttachConsole,                   attach_console)
    WRAP(GetConsoleMode,                  console_mode)
    WRAP(WriteConsoleW,                   write_console)
    WRAP(SetConsoleCtrlHandler,           set_control_handler)
    WRAP(GetModuleHandleW,                module_handle)
    WRAP(RegisterClassExW,                register_class)
    WRAP(CreateWindowExW,                 create_window)
};
#undef WRAP
// clang-format on

void* wrapper_of(const char* name) {
    for (const auto& row : g_wrappers) {
        if (std::strcmp(row.name, name) == 0)
            return row.wrapper;
    }
    return nullptr;
}

} // namespace runner
