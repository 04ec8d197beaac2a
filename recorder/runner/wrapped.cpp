#include "recorder/runner/wrapped.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <vector>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/com.h"
#include "recorder/runner/driver.h"
#include "recorder/runner/manager.h"
#include "recorder/runner/output.h"
#include "recorder/runner/power.h"
#include "recorder/runner/settings.h"
#include "recorder/symbols.h"
#include "recorder/wrap.h"

namespace runner {

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
    const std::string name = symbols::name_at(reinterpret_cast<void*>(procedure));
    return turns::start_thread(name.c_str(), procedure, parameter, flags, id);
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

static BOOL WINAPI set_event(HANDLE event) {
    const BOOL set = REAL(SetEvent)(event);
    turns::signalled();
    return set;
}

static BOOL WINAPI release_mutex(HANDLE mutex) {
    const BOOL released = REAL(ReleaseMutex)(mutex);
    turns::signalled();
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

// ---- the service control manager ----

static BOOL WINAPI set_status_told(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status) {
    effect("%s", status_line(*status).c_str());
    return set_status(service, status);
}

// ---- devices ----

static std::map<HANDLE, const char*> g_devices; // open ones; those of the driver have no name
static HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                 DWORD disposition, DWORD flags, HANDLE pattern) {
    HANDLE file = REAL(CreateFileW)(path, access, share, security, disposition, flags, pattern);
    const DWORD error = GetLastError();
    if (const char* name = device_name(path); file != INVALID_HANDLE_VALUE && name != nullptr)
        g_devices[file] = name;
    SetLastError(error);
    return file;
}

static BOOL WINAPI write_file(HANDLE file, LPCVOID data, DWORD bytes, DWORD* written,
                              OVERLAPPED* overlapped) {
    const BOOL done = REAL(WriteFile)(file, data, bytes, written, overlapped);
    const auto found = g_devices.find(file);
    if (done && found != g_devices.end())
        effect("write %s %u", found->second, *static_cast<const BYTE*>(data));
    return done;
}

static BOOL WINAPI close_handle(HANDLE handle) {
    g_devices.erase(handle);
    const BOOL closed = REAL(CloseHandle)(handle);
    turns::signalled();
    return closed;
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
    prime_answer(method_of(code), words[0]);
    const BOOL sent = REAL(DeviceIoControl)(device, code, in, in_bytes, out, out_bytes, returned, overlapped);
    const DWORD error = GetLastError();
    effect("%s%s", line.c_str(),
           sent ? shown_answer(code, static_cast<const DWORD*>(out), out_bytes, *returned).c_str()
                : " failed");
    turns::signalled();
    SetLastError(error);
    return sent;
}

// ---- the registry ----

static LSTATUS WINAPI open_key(HKEY key, LPCWSTR path, DWORD options, REGSAM access, HKEY* result) {
    if (key_refused(joined(key, path), access))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error = REAL(RegOpenKeyExW)(key, path, options, access, result);
    if (error == ERROR_SUCCESS)
        keep_key(*result, joined(key, path));
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
    keep_key(*result, joined(key, path));
    if (made == REG_CREATED_NEW_KEY)
        effect("registry create %s%s", shown_path(key_path(*result)).c_str(),
               options == REG_OPTION_VOLATILE ? " volatile" : "");
    turns::signalled();
    return error;
}

static LSTATUS WINAPI close_key(HKEY key) {
    const LSTATUS error = REAL(RegCloseKey)(key);
    forget_key(key);
    turns::signalled();
    return error;
}

static LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                                DWORD bytes) {
    const LSTATUS error = REAL(RegSetValueExW)(key, name, reserved, type, data, bytes);
    if (error == ERROR_SUCCESS)
        effect("registry %s %s = %s", shown_path(key_path(key)).c_str(), value_name(name).c_str(),
               shown_data(type, data, bytes).c_str());
    turns::signalled();
    return error;
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

} // namespace runner

// clang-format off
WRAP(LoadLibraryExW,                   runner::load_library)
WRAP(GetProcAddress,                   runner::find_function)
WRAP(GetVersionExW,                    runner::get_version)
WRAP(SetSystemPowerState,              runner::set_system_power_state)
WRAP(ExitWindowsEx,                    runner::exit_windows)
WRAP(CLSIDFromProgID, runner::class_of_name)
WRAP(CoCreateInstance, runner::create_instance)
WRAP(AdjustTokenPrivileges,            runner::adjust_privileges)
WRAP(WaitForSingleObject,              runner::wait_for_one)
WRAP(WaitForMultipleObjects,           runner::wait_for_many)
WRAP(SignalObjectAndWait,              runner::signal_and_wait)
WRAP(Sleep,                            runner::sleep)
WRAP(CreateThread,                     runner::create_thread)
WRAP(ExitThread,                       runner::exit_thread)
WRAP(TerminateThread,                  runner::terminate_thread)
WRAP(SuspendThread,                    runner::suspend_thread)
WRAP(ResumeThread,                     runner::resume_thread)
WRAP(SetEvent,                         runner::set_event)
WRAP(ReleaseMutex,                     runner::release_mutex)
WRAP(GetMessageW,                      runner::get_message)
WRAP(SetTimer,                         runner::set_timer)
WRAP(KillTimer,                        runner::kill_timer)
WRAP(GetLocalTime,                     runner::get_local_time)
WRAP(StartServiceCtrlDispatcherW,      runner::start_dispatcher)
WRAP(RegisterServiceCtrlHandlerExW,    runner::register_handler)
WRAP(SetServiceStatus,                 runner::set_status_told)
WRAP(RegisterPowerSettingNotification, runner::register_power_setting)
WRAP(DeviceIoControl,                  runner::device_control)
WRAP(CreateFileW, runner::create_file)
WRAP(WriteFile, runner::write_file)
WRAP(CloseHandle, runner::close_handle)
WRAP(RegOpenKeyExW,                    runner::open_key)
WRAP(RegCreateKeyExW,                  runner::create_key)
WRAP(RegCloseKey,                      runner::close_key)
WRAP(RegSetValueExW,                   runner::set_value)
WRAP(RegDeleteKeyW,                    runner::delete_key)
// clang-format on
