// The power manager, whose functions are looked up by name; privileges and accounts.
#include <windows.h>
#include <cstring>
#include <powrprof.h>
#include <sddl.h>

#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"
#include "recorder/record/replaced.h"

namespace record {

// ---- the functions of powrprof.dll ----

namespace {

// Windows' own, each as it was found last.
struct Found {
    decltype(&::CallNtPowerInformation) power_information;
    decltype(&::IsPwrHibernateAllowed) hibernate_allowed;
    decltype(&::SetSuspendState) set_suspend_state;
    decltype(&::GetActivePwrScheme) get_active_scheme;
    decltype(&::SetActivePwrScheme) set_active_scheme;
    decltype(&::ReadPwrScheme) read_scheme;
    decltype(&::WritePwrScheme) write_scheme;
    decltype(&::ReadGlobalPwrPolicy) read_global_policy;
    BOOL(WINAPI* session_of_process)(DWORD, DWORD*);
    DWORD(WINAPI* console_session)();
};

} // namespace

static Found g_found;

static void tell_lid_action(LONG status, const void* output) {
    const auto* policy = static_cast<const SYSTEM_POWER_POLICY*>(output);
    tell("lid-action",
         "windows lid-action " +
             (status != 0 ? "fails" : std::to_string(static_cast<int>(policy->LidClose.Action))));
}

static LONG WINAPI power_information(POWER_INFORMATION_LEVEL level, void* input, ULONG input_bytes,
                                     void* output, ULONG output_bytes) {
    const LONG status = g_found.power_information(level, input, input_bytes, output, output_bytes);
    constexpr LONG privilege_not_held = static_cast<LONG>(0xC0000061);
    if (!recording())
        return status;
    const Guard guard;
    if (level != SystemReserveHiberFile) {
        tell_lid_action(status, output);
        return status;
    }
    if (status != privilege_not_held)
        tell("hiberfile", std::string("windows hiberfile ") + (status == 0 ? "works" : "fails"), status == 0);
    effect(status == 0 ? "call CallNtPowerInformation(10) = %ld" : "call CallNtPowerInformation(10) = 0x%lx",
           status);
    return status;
}

static BOOLEAN WINAPI hibernate_allowed() {
    const BOOLEAN allowed = g_found.hibernate_allowed();
    if (recording()) {
        const Guard guard;
        tell("hibernate", std::string("windows hibernate ") + (allowed ? "allowed" : "forbidden"), allowed);
    }
    return allowed;
}

// What a refusal for want of a privilege says of suspending is nothing.
static void tell_suspend(bool works, DWORD error) {
    if (works || error != ERROR_PRIVILEGE_NOT_HELD)
        tell("suspend", std::string("windows suspend ") + (works ? "works" : "fails"), works);
}

// The machine is away meanwhile: the line comes when it is back.
static BOOLEAN WINAPI set_suspend_state(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wake_events_disabled) {
    const BOOLEAN works = g_found.set_suspend_state(hibernate, force, wake_events_disabled);
    if (!recording())
        return works;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        tell_suspend(works, error);
        effect("call SetSuspendState(%u, %u, %u) = %d", hibernate, force, wake_events_disabled, works != 0);
    }
    SetLastError(error);
    return works;
}

static BOOLEAN WINAPI get_active_scheme(UINT* index) {
    const BOOLEAN read = g_found.get_active_scheme(index);
    if (recording()) {
        const Guard guard;
        tell("scheme", "windows scheme " + (read ? std::to_string(*index) : "fails"));
    }
    return read;
}

static BOOLEAN WINAPI set_active_scheme(UINT index, GLOBAL_POWER_POLICY* global, POWER_POLICY* policy) {
    const BOOLEAN set = g_found.set_active_scheme(index, global, policy);
    if (recording()) {
        const Guard guard;
        effect("call SetActivePwrScheme(%u, %s, %s) = %d", index, global != nullptr ? "policy" : "null",
               policy != nullptr ? "policy" : "null", set != 0);
        no_longer_known("scheme");
    }
    return set;
}

// What stands in a scheme has no command.
static BOOLEAN WINAPI read_scheme(UINT index, POWER_POLICY* policy) {
    return g_found.read_scheme(index, policy);
}

static BOOLEAN WINAPI write_scheme(UINT* index, LPWSTR name, LPWSTR description, POWER_POLICY* policy) {
    const BOOLEAN written = g_found.write_scheme(index, name, description, policy);
    if (recording()) {
        const Guard guard;
        effect("call WritePwrScheme(%u) = %d", *index, written != 0);
    }
    return written;
}

static BOOLEAN WINAPI read_global_policy(GLOBAL_POWER_POLICY* policy) {
    return g_found.read_global_policy(policy);
}

// ---- sessions ----

static BOOL WINAPI session_of_process(DWORD process, DWORD* session) {
    return g_found.session_of_process(process, session);
}

static DWORD WINAPI console_session() {
    const DWORD console = g_found.console_session();
    DWORD own = 0;
    if (recording() && ProcessIdToSessionId(GetCurrentProcessId(), &own)) {
        const Guard guard;
        tell("console", std::string("windows console-session ") + (own == console ? "0" : "1"),
             own == console);
    }
    return console;
}

// ---- looking up ----

// clang-format off
static const struct { const char* name; void* wrapper; void** own; } g_functions[] = {
#define FUNCTION(name, wrapper) {name, reinterpret_cast<void*>(wrapper), reinterpret_cast<void**>(&g_found.wrapper)},
    FUNCTION("CallNtPowerInformation",       power_information)
    FUNCTION("IsPwrHibernateAllowed",        hibernate_allowed)
    FUNCTION("SetSuspendState",              set_suspend_state)
    FUNCTION("GetActivePwrScheme",           get_active_scheme)
    FUNCTION("SetActivePwrScheme",           set_active_scheme)
    FUNCTION("ReadPwrScheme",                read_scheme)
    FUNCTION("WritePwrScheme",               write_scheme)
    FUNCTION("ReadGlobalPwrPolicy",          read_global_policy)
    FUNCTION("ProcessIdToSessionId",         session_of_process)
    FUNCTION("WTSGetActiveConsoleSessionId", console_session)
#undef FUNCTION
};
// clang-format on

static bool is_powrprof(LPCWSTR name) {
    return lstrcmpiW(name, L"powrprof.dll") == 0;
}

HMODULE WINAPI load_library(LPCWSTR name, HANDLE file, DWORD flags) {
    HMODULE library = os::LoadLibraryExW(name, file, flags);
    if (!recording() || !is_powrprof(name))
        return library;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        tell("powrprof", std::string("windows powrprof ") + (library != nullptr ? "present" : "missing"),
             library != nullptr);
    }
    SetLastError(error);
    return library;
}

FARPROC WINAPI find_function(HMODULE library, const char* name) {
    FARPROC function = os::GetProcAddress(library, name);
    if (!recording())
        return function;
    const DWORD error = GetLastError();
    const Guard guard;
    for (const auto& row : g_functions) {
        if (std::strcmp(row.name, name) != 0)
            continue;
        if (function == nullptr) {
            const std::string line = std::string("windows powrprof without ") + name;
            tell(line, line);
            SetLastError(error);
            return nullptr;
        }
        *row.own = reinterpret_cast<void*>(function);
        return reinterpret_cast<FARPROC>(row.wrapper);
    }
    command(std::string("unknown call ") + name);
    SetLastError(error);
    return function;
}

// ---- the machine's end ----

BOOL WINAPI set_system_power_state(BOOL suspend, BOOL force) {
    const BOOL works = os::SetSystemPowerState(suspend, force);
    if (!recording())
        return works;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        tell_suspend(works != FALSE, error);
        effect("call SetSystemPowerState(%d, %d) = %d", suspend, force, works != FALSE);
    }
    SetLastError(error);
    return works;
}

BOOL WINAPI exit_windows(UINT flags, DWORD reason) {
    const BOOL works = os::ExitWindowsEx(flags, reason);
    if (!recording())
        return works;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        effect("call ExitWindowsEx(%u, %lu) = %d", flags, reason, works != FALSE);
    }
    SetLastError(error);
    return works;
}

// ---- privileges and accounts ----

BOOL WINAPI open_token(HANDLE process, DWORD access, HANDLE* token) {
    const BOOL opened = os::OpenProcessToken(process, access, token);
    if (recording()) {
        const Guard guard;
        outcome("OpenProcessToken", opened == FALSE);
    }
    return opened;
}

BOOL WINAPI look_up_privilege(LPCWSTR system, LPCWSTR name, LUID* luid) {
    const BOOL found = os::LookupPrivilegeValueW(system, name, luid);
    if (recording()) {
        const Guard guard;
        outcome("LookupPrivilegeValueW", found == FALSE);
    }
    return found;
}

BOOL WINAPI adjust_privileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* privileges, DWORD bytes,
                              TOKEN_PRIVILEGES* previous, DWORD* previous_bytes) {
    const BOOL adjusted =
        os::AdjustTokenPrivileges(token, disable_all, privileges, bytes, previous, previous_bytes);
    if (!recording())
        return adjusted;
    const DWORD error = GetLastError();
    {
        wchar_t text[64] = L"";
        DWORD letters = ARRAYSIZE(text);
        LookupPrivilegeNameW(nullptr, &privileges->Privileges[0].Luid, text, &letters);
        const Guard guard;
        const std::string name = lines::narrow(text);
        const char* state = !adjusted ? "refused" : error == ERROR_NOT_ALL_ASSIGNED ? "denied" : "granted";
        tell("privilege " + name, "windows privilege " + name + " " + state,
             adjusted && error != ERROR_NOT_ALL_ASSIGNED);
    }
    SetLastError(error);
    return adjusted;
}

static std::string sid_text(PSID sid) {
    wchar_t* text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text))
        return "";
    const std::string result = lines::narrow(text);
    LocalFree(text);
    return result;
}

BOOL WINAPI look_up_account(LPCWSTR system, LPCWSTR name, PSID sid, DWORD* sid_bytes, LPWSTR domain,
                            DWORD* domain_letters, SID_NAME_USE* use) {
    const BOOL found = os::LookupAccountNameW(system, name, sid, sid_bytes, domain, domain_letters, use);
    if (!recording())
        return found;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        const std::string text = found ? sid_text(sid) : "";
        note_account(lines::narrow(name));
        if (found)
            tell("account", "windows account " + quoted(lines::narrow(name)) + " " + text);
        outcome("LookupAccountNameW", found == FALSE);
    }
    SetLastError(error);
    return found;
}

} // namespace record
