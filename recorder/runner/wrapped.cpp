#include "recorder/runner/wrapped.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <vector>

#include "driver/ioctl.h"
#include "recorder/clock/real.h"
#include "recorder/clock/turns.h"
#include "recorder/runner/com.h"
#include "recorder/runner/driver.h"
#include "recorder/runner/manager.h"
#include "recorder/runner/output.h"
#include "recorder/runner/power.h"
#include "recorder/runner/settings.h"
#include "recorder/runner/symbols.h"

// In the place of a call: what the product's objects import is a pointer of ours, and the name itself goes by
// it.
#define WRAP(name, wrapper)                                                                                  \
    extern "C" void* const __imp_##name = reinterpret_cast<void*>(wrapper);                                  \
    asm(".text\n.globl " #name "\n" #name ":\n\tjmp *__imp_" #name "(%rip)\n");

namespace runner {

static std::string format(const char* pattern, unsigned long long value) {
    char text[64];
    std::snprintf(text, sizeof(text), pattern, value);
    return text;
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
    const std::string name = symbol_at(reinterpret_cast<void*>(procedure));
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
    std::string line = std::string("status ") + g_stateNames[status->dwCurrentState % (SERVICE_PAUSED + 1)] +
                       " " + std::to_string(status->dwWin32ExitCode) + "/" +
                       std::to_string(status->dwServiceSpecificExitCode);
    if (status->dwCheckPoint != 0)
        line += " checkpoint " + std::to_string(status->dwCheckPoint);
    effect("%s", line.c_str());
    return set_status(service, status);
}

// ---- devices ----

static std::map<HANDLE, const char*> g_devices; // open ones; those of the driver have no name
// clang-format off
static const struct { const wchar_t* part; const char* name; } g_devicePaths[] = {
    {L"317fc439-3f77-41c8-b09e-08ad63272aa3", "slate"},
    {L"a84e689b-0dce-493a-a164-acde05478fc3", "dock"},
    {L"30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a", "button"},
    {L"\\\\.\\zorpmdrv", ""},
    {L"\\\\.\\pmdrvs", ""},
    {L"\\\\.\\sx4track", ""},
};
// clang-format on

static HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                 DWORD disposition, DWORD flags, HANDLE pattern) {
    HANDLE file = REAL(CreateFileW)(path, access, share, security, disposition, flags, pattern);
    const DWORD error = GetLastError();
    std::wstring lower = path;
    CharLowerW(lower.data());
    for (const auto& row : g_devicePaths) {
        if (file != INVALID_HANDLE_VALUE && lower.find(row.part) != std::wstring::npos)
            g_devices[file] = row.name;
    }
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

// clang-format off
static const struct { DWORD code; const char* name; } g_requests[] = {
#define REQUEST_NAME(name, device, function, in, out) {PmdrvCode(function), #name},
    PMDRV_IOCTL_CATALOGUE(REQUEST_NAME)
#undef REQUEST_NAME
    {IOCTL_POINTING_STICK_MOUSE_DATA, "MOUSEDATA"},
};
// clang-format on

static std::string method_of(DWORD code) {
    for (const auto& row : g_requests) {
        if (row.code == code)
            return row.name;
    }
    return format("0x%llx", code);
}

static std::string shown_request(DWORD code, const DWORD* in, DWORD in_bytes) {
    const std::string name = "request " + method_of(code);
    const bool optional = code == IOCTL_PMDRV_GETLIDSTATUS || code == IOCTL_PMDRV_LCDCSGETSTATE;
    if (in_bytes > 8)
        return name + "(" + std::to_string(in_bytes) + " bytes)";
    if (in_bytes == 8)
        return name + "(" + std::to_string(in[0]) + ", " + std::to_string(in[1]) + ")";
    return name + (in_bytes == 0 || optional ? "()" : format("(0x%llx)", in[0]));
}

static std::string shown_answer(DWORD code, const DWORD* out, DWORD out_bytes, DWORD returned) {
    if (out_bytes != 4 && code != IOCTL_PMDRV_GETEVENT)
        return "";
    const unsigned bits = 8 * std::min<DWORD>(returned, 4);
    std::string text = format(" = 0x%llx", out_bytes == 4 ? out[0] & ((1ull << bits) - 1) : out[0]);
    if (code == IOCTL_PMDRV_GETEVENT)
        text += format(" 0x%llx", out[1]);
    return returned != out_bytes ? text + " bytes " + std::to_string(returned) : text;
}

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

static std::map<HKEY, std::string> g_keys;
// clang-format off
static const struct { HKEY key; const char* name; } g_roots[] = {
    {HKEY_CLASSES_ROOT, "HKCR"}, {HKEY_CURRENT_USER, "HKCU"}, {HKEY_LOCAL_MACHINE, "HKLM"}, {HKEY_USERS, "HKU"},
};
// clang-format on

std::string key_path(HKEY key) {
    for (const auto& root : g_roots) {
        if (root.key == key)
            return root.name;
    }
    const auto found = g_keys.find(key);
    return found != g_keys.end() ? found->second : "?";
}

static std::string joined(HKEY key, LPCWSTR path) {
    const std::string below = narrow(path);
    return key_path(key) + (below.empty() ? "" : "\\" + below);
}

static std::string shown_path(const std::string& path) {
    static const char service[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC";
    constexpr size_t length = sizeof(service) - 1;
    if (path.size() >= length && _strnicmp(path.c_str(), service, length) == 0 &&
        (path.size() == length || path[length] == '\\'))
        return "SVC" + path.substr(length);
    return path;
}

static LSTATUS WINAPI open_key(HKEY key, LPCWSTR path, DWORD options, REGSAM access, HKEY* result) {
    if (key_refused(joined(key, path), access))
        return ERROR_ACCESS_DENIED;
    const LSTATUS error = REAL(RegOpenKeyExW)(key, path, options, access, result);
    if (error == ERROR_SUCCESS)
        g_keys[*result] = joined(key, path);
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
    g_keys[*result] = joined(key, path);
    if (made == REG_CREATED_NEW_KEY)
        effect("registry create %s%s", shown_path(g_keys[*result]).c_str(),
               options == REG_OPTION_VOLATILE ? " volatile" : "");
    turns::signalled();
    return error;
}

static LSTATUS WINAPI close_key(HKEY key) {
    const LSTATUS error = REAL(RegCloseKey)(key);
    g_keys.erase(key);
    turns::signalled();
    return error;
}

static std::string shown_text(const std::wstring& text) {
    return "\"" + narrow(text.c_str()) + "\"";
}

static std::string shown_data(DWORD type, const BYTE* data, DWORD bytes) {
    if (type == REG_DWORD && bytes == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, data, sizeof(number));
        return format("0x%llx", number);
    }
    std::string text;
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ) {
        std::wstring all(bytes / sizeof(wchar_t), 0);
        std::memcpy(all.data(), data, all.size() * sizeof(wchar_t));
        for (size_t at = 0; at < all.size() && all[at] != 0; at = all.find(L'\0', at) + 1) {
            text += (text.empty() ? "" : " ") + shown_text(all.substr(at, all.find(L'\0', at) - at));
            if (type != REG_MULTI_SZ || all.find(L'\0', at) == std::wstring::npos)
                break;
        }
        return text.empty() ? "\"\"" : text;
    }
    for (DWORD i = 0; i < bytes; ++i)
        text += format("%02llx", data[i]);
    return text;
}

static std::string value_name(LPCWSTR name) {
    const std::string text = narrow(name);
    return text.empty() ? "@" : text;
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
