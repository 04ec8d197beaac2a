#include "recorder/runner/power.h"

#include <cstring>
#include <map>
#include <powrprof.h>
#include <string>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/output.h"
#include "recorder/runner/settings.h"

namespace runner {

constexpr DWORD FIRST_OWN_SCHEME = 6; // those below are there on a new machine

// ---- privileges: the process's own token, and what the script takes away ----

static std::string privilege_name(LUID luid) {
    wchar_t name[64] = L"";
    DWORD letters = 64;
    LookupPrivilegeNameW(nullptr, &luid, name, &letters);
    return narrow(name);
}

enum : DWORD { GRANTED, DENIED, REFUSED };

BOOL WINAPI adjust_privileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* privileges, DWORD bytes,
                              TOKEN_PRIVILEGES* previous, DWORD* previous_bytes) {
    const DWORD state =
        setting("privilege " + small(privilege_name(privileges->Privileges[0].Luid)), GRANTED);
    if (state == REFUSED) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    const BOOL adjusted =
        REAL(AdjustTokenPrivileges)(token, disable_all, privileges, bytes, previous, previous_bytes);
    if (state == DENIED)
        SetLastError(ERROR_NOT_ALL_ASSIGNED);
    return adjusted;
}

bool privilege_enabled(const wchar_t* name) {
    BYTE buffer[2048];
    DWORD bytes = 0;
    LUID wanted = {};
    HANDLE token = nullptr;
    if (setting("privilege " + small(narrow(name)), GRANTED) == DENIED ||
        !REAL(OpenProcessToken)(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    REAL(LookupPrivilegeValueW)(nullptr, name, &wanted);
    const BOOL told = GetTokenInformation(token, TokenPrivileges, buffer, sizeof(buffer), &bytes);
    REAL(CloseHandle)(token);
    const auto* held = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer);
    for (DWORD i = 0; told && i < held->PrivilegeCount; ++i) {
        const LUID& luid = held->Privileges[i].Luid;
        if (luid.LowPart == wanted.LowPart && luid.HighPart == wanted.HighPart)
            return (held->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    }
    return false;
}

static void set_privilege(HANDLE token, const wchar_t* name, bool enabled) {
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = enabled ? SE_PRIVILEGE_ENABLED : 0;
    REAL(LookupPrivilegeValueW)(nullptr, name, &privileges.Privileges[0].Luid);
    REAL(AdjustTokenPrivileges)(token, FALSE, &privileges, 0, nullptr, nullptr);
}

void take_service_token() {
    HANDLE token = nullptr;
    if (!REAL(OpenProcessToken)(GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, &token))
        return;
    set_privilege(token, SE_SHUTDOWN_NAME, false);
    set_privilege(token, SE_RESTORE_NAME, false);
    set_privilege(token, SE_BACKUP_NAME, false);
    set_privilege(token, SE_CREATE_PAGEFILE_NAME, true);
    set_privilege(token, SE_DEBUG_NAME, true);
    REAL(CloseHandle)(token);
}

static bool may_shut_down() {
    if (privilege_enabled(SE_SHUTDOWN_NAME))
        return true;
    SetLastError(ERROR_PRIVILEGE_NOT_HELD);
    return false;
}

// ---- sleep ----

static bool next_suspend_works() {
    const DWORD failures = setting("suspend-failures", 0);
    if (failures == 0)
        return setting("suspend-fails", 0) == 0;
    set_setting("suspend-failures", failures - 1);
    return false;
}

static BOOL end_suspend(bool works) {
    if (!works) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    if (const DWORD takes = setting("suspend-takes", 0); takes != 0)
        turns::sleep(takes);
    return TRUE;
}

BOOL WINAPI set_system_power_state(BOOL suspend, BOOL force) {
    const bool allowed = may_shut_down();
    const bool works = allowed && next_suspend_works();
    effect("call SetSystemPowerState(%d, %d) = %d", suspend, force, works);
    return allowed ? end_suspend(works) : FALSE;
}

BOOL WINAPI exit_windows(UINT flags, DWORD reason) {
    const bool allowed = may_shut_down();
    effect("call ExitWindowsEx(%u, %lu) = %d", flags, reason, allowed);
    return allowed;
}

static BOOLEAN WINAPI set_suspend_state(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wake_events_disabled) {
    const bool allowed = may_shut_down();
    const bool works = allowed && next_suspend_works();
    effect("call SetSuspendState(%u, %u, %u) = %d", hibernate, force, wake_events_disabled, works);
    return allowed && end_suspend(works);
}

static BOOLEAN WINAPI hibernate_allowed() {
    return setting("hibernate", 1) != 0;
}

static LONG WINAPI power_information(POWER_INFORMATION_LEVEL level, void*, ULONG, void* output, ULONG bytes) {
    constexpr LONG access_denied = static_cast<LONG>(0xC0000022);
    constexpr LONG disk_full = static_cast<LONG>(0xC000007F);
    constexpr LONG privilege_not_held = static_cast<LONG>(0xC0000061);
    if (level == SystemReserveHiberFile) {
        LONG status = setting("hiberfile", 1) != 0 ? 0 : disk_full;
        if (!privilege_enabled(SE_CREATE_PAGEFILE_NAME))
            status = privilege_not_held;
        effect(status == 0 ? "call CallNtPowerInformation(10) = %ld"
                           : "call CallNtPowerInformation(10) = 0x%lx",
               status);
        return status;
    }
    SYSTEM_POWER_POLICY policy = {};
    if (setting("lid-action-fails", 0) != 0 || bytes != sizeof(policy))
        return access_denied;
    policy.Revision = 1;
    policy.PowerButton.Action = PowerActionShutdownOff;
    policy.LidClose.Action = static_cast<POWER_ACTION>(setting("lid-action", 1));
    std::memcpy(output, &policy, sizeof(policy));
    return 0;
}

// ---- schemes ----

static std::map<UINT, POWER_POLICY> g_schemes;

static POWER_POLICY& scheme(UINT index) {
    const auto [found, made] = g_schemes.try_emplace(index);
    if (made) {
        auto* bytes = reinterpret_cast<BYTE*>(&found->second);
        for (size_t i = 0; i < sizeof(POWER_POLICY); ++i)
            bytes[i] = static_cast<BYTE>(index * 16 + 1 + i);
        found->second.user.VideoTimeoutAc = 600 + index;
        found->second.user.VideoTimeoutDc = 300 + index;
        found->second.user.SpindownTimeoutAc = 1200 + index;
        found->second.user.SpindownTimeoutDc = 900 + index;
    }
    return found->second;
}

static bool scheme_exists(UINT index) {
    if (index < FIRST_OWN_SCHEME || index == setting("scheme", 0) || g_schemes.contains(index))
        return true;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return false;
}

static BOOLEAN WINAPI get_active_scheme(UINT* index) {
    *index = setting("scheme-fails", 0) != 0 ? 0xCCCCCCCC : setting("scheme", 0);
    if (setting("scheme-fails", 0) == 0)
        return TRUE;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}

static BOOLEAN WINAPI set_active_scheme(UINT index, GLOBAL_POWER_POLICY* global, POWER_POLICY* policy) {
    const bool exists = scheme_exists(index);
    effect("call SetActivePwrScheme(%u, %s, %s) = %d", index, global != nullptr ? "policy" : "null",
           policy != nullptr ? "policy" : "null", exists);
    if (!exists)
        return FALSE;
    if (policy != nullptr)
        scheme(index) = *policy;
    set_setting("scheme", index);
    return TRUE;
}

static BOOLEAN WINAPI read_scheme(UINT index, POWER_POLICY* policy) {
    if (!scheme_exists(index))
        return FALSE;
    *policy = scheme(index);
    return TRUE;
}

static BOOLEAN WINAPI write_scheme(UINT* index, LPCWSTR, LPCWSTR, POWER_POLICY* policy) {
    effect("call WritePwrScheme(%u) = 1", *index);
    scheme(*index) = *policy;
    return TRUE;
}

static BOOLEAN WINAPI read_global_policy(GLOBAL_POWER_POLICY* policy) {
    *policy = {};
    return TRUE;
}

// clang-format off
static const struct { const char* name; void* function; } g_functions[] = {
    {"CallNtPowerInformation", reinterpret_cast<void*>(power_information)},
    {"IsPwrHibernateAllowed",  reinterpret_cast<void*>(hibernate_allowed)},
    {"SetSuspendState",        reinterpret_cast<void*>(set_suspend_state)},
    {"GetActivePwrScheme",     reinterpret_cast<void*>(get_active_scheme)},
    {"SetActivePwrScheme",     reinterpret_cast<void*>(set_active_scheme)},
    {"ReadPwrScheme",          reinterpret_cast<void*>(read_scheme)},
    {"WritePwrScheme",         reinterpret_cast<void*>(write_scheme)},
    {"ReadGlobalPwrPolicy",    reinterpret_cast<void*>(read_global_policy)},
};
// clang-format on

void* power_function(const char* name) {
    for (const auto& row : g_functions) {
        if (std::strcmp(row.name, name) == 0)
            return row.function;
    }
    return nullptr;
}

} // namespace runner
