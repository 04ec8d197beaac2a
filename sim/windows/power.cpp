#include "sim/windows/power.h"

#include <algorithm>

#include "sim/script/commands.h"
#include "sim/windows/modules.h"
#include "sim/windows/registry.h"
#include "sim/windows/security.h"

namespace sim {

constexpr DWORD FIRST_OWN_SCHEME = 6; // those below exist on a new machine
constexpr NTSTATUS STATUS_SUCCESS = 0;
constexpr auto STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
constexpr auto STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D);
constexpr auto STATUS_ACCESS_DENIED = static_cast<NTSTATUS>(0xC0000022);
constexpr auto STATUS_PRIVILEGE_NOT_HELD = static_cast<NTSTATUS>(0xC0000061);
constexpr auto STATUS_DISK_FULL = static_cast<NTSTATUS>(0xC000007F);

Power& power() {
    return machine_state<Power>();
}

POWER_POLICY& power_scheme(DWORD index) {
    const auto [found, is_new] = power().schemes.try_emplace(index);
    if (is_new) {
        // No two bytes alike for long, so that a shifted or shortened copy shows.
        auto* bytes = reinterpret_cast<BYTE*>(&found->second);
        const size_t first = static_cast<size_t>(index) * 16 + 1;
        for (size_t i = 0; i < sizeof(POWER_POLICY); ++i)
            bytes[i] = static_cast<BYTE>(first + i);
        found->second.user.VideoTimeoutAc = 600 + index;
        found->second.user.VideoTimeoutDc = 300 + index;
        found->second.user.SpindownTimeoutAc = 1200 + index;
        found->second.user.SpindownTimeoutDc = 900 + index;
    }
    return found->second;
}

// Whether the scheme exists; otherwise last error 2.
static bool scheme_exists(DWORD index) {
    if (index < FIRST_OWN_SCHEME || index == power().active_scheme || power().schemes.count(index) != 0)
        return true;
    set_last_error(ERROR_FILE_NOT_FOUND);
    return false;
}

// Whether the next attempt to sleep or hibernate works.
static bool next_suspend_works() {
    Power& p = power();
    if (p.suspend_failures == 0)
        return !p.suspend_fails;
    --p.suspend_failures;
    return false;
}

// Ends an attempt; a good one lasts as long as the machine is away.
static BOOL end_suspend(bool works) {
    if (!works) {
        set_last_error(ERROR_GEN_FAILURE);
        return FALSE;
    }
    if (power().suspend_takes != 0)
        sleep_for(power().suspend_takes);
    return TRUE;
}

#define POWRPROF_CALL() require_loaded("powrprof.dll", __func__)

static NTSTATUS WINAPI CallNtPowerInformation(POWER_INFORMATION_LEVEL level, void* input, ULONG input_bytes,
                                              void* output, ULONG output_bytes) {
    SIM_CALL(STATUS_ACCESS_DENIED, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    if (level == SystemPowerPolicyCurrent) {
        trace_detail("CallNtPowerInformation(8)");
        if (power().lid_action_fails)
            return STATUS_ACCESS_DENIED;
        if (input != nullptr || output == nullptr || output_bytes != sizeof(SYSTEM_POWER_POLICY)) {
            violation("CallNtPowerInformation(8): %u bytes in, %u out", input_bytes, output_bytes);
            return STATUS_BUFFER_TOO_SMALL;
        }
        SYSTEM_POWER_POLICY policy = {};
        policy.Revision = 1;
        policy.PowerButton.Action = PowerActionShutdownOff;
        policy.LidClose.Action = static_cast<POWER_ACTION>(power().lid_action);
        std::memcpy(output, &policy, sizeof(policy));
        return STATUS_SUCCESS;
    }
    if (level == SystemReserveHiberFile) {
        if (input_bytes != 1 || input == nullptr || *static_cast<BYTE*>(input) != TRUE || output != nullptr) {
            violation("CallNtPowerInformation(10): %u bytes in", input_bytes);
            return STATUS_INVALID_PARAMETER;
        }
        NTSTATUS status = power().hiberfile_works ? STATUS_SUCCESS : STATUS_DISK_FULL;
        if (!privilege_enabled("SeCreatePagefilePrivilege", "CallNtPowerInformation(10)"))
            status = STATUS_PRIVILEGE_NOT_HELD;
        trace(status == 0 ? "call CallNtPowerInformation(10) = %d" : "call CallNtPowerInformation(10) = 0x%x",
              status);
        return status;
    }
    violation("CallNtPowerInformation(%u)", level);
    return STATUS_INVALID_PARAMETER;
}

static BOOLEAN WINAPI IsPwrHibernateAllowed() {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    trace_detail("IsPwrHibernateAllowed() = %d", power().hibernate_allowed);
    return power().hibernate_allowed;
}

static BOOLEAN WINAPI SetSuspendState(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wake_events_disabled) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    const bool allowed = privilege_enabled("SeShutdownPrivilege", "SetSuspendState");
    const bool works = allowed && next_suspend_works();
    trace("call SetSuspendState(%u, %u, %u) = %d", hibernate, force, wake_events_disabled, works);
    return allowed && end_suspend(works) != FALSE;
}

static BOOLEAN WINAPI GetActivePwrScheme(UINT* index) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    trace_detail("GetActivePwrScheme() = %u", power().active_scheme);
    if (power().scheme_fails) {
        *index = RUBBISH;
        set_last_error(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    *index = power().active_scheme;
    return TRUE;
}

// The service's account runs under the default user's copy of a scheme, a program in a session under the
// user's.
static POWER_POLICY stored_policy(DWORD index) {
    POWER_POLICY policy = power_scheme(index);
    if (!current_process()->is_service)
        return policy;
    const RegistryValue* value = registry_value(
        format("HKU\\.DEFAULT\\Control Panel\\PowerCfg\\PowerPolicies\\%u", index), "Policies");
    if (value != nullptr)
        std::memcpy(&policy, value->bytes.data(), std::min(value->bytes.size(), sizeof(policy.user)));
    return policy;
}

static BOOLEAN WINAPI SetActivePwrScheme(UINT index, GLOBAL_POWER_POLICY* global, POWER_POLICY* policy) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    const bool exists = scheme_exists(index);
    trace("call SetActivePwrScheme(%u, %s, %s) = %d", index, global != nullptr ? "policy" : "null",
          policy != nullptr ? "policy" : "null", exists);
    if (!exists)
        return FALSE;
    if (policy != nullptr)
        power_scheme(index) = *policy;
    power().active_scheme = index;
    power().applied = policy != nullptr ? *policy : stored_policy(index);
    trace_detail("video timeouts are %u s and %u s", power().applied.user.VideoTimeoutAc,
                 power().applied.user.VideoTimeoutDc);
    return TRUE;
}

static BOOLEAN WINAPI ReadPwrScheme(UINT index, POWER_POLICY* policy) {
    SIM_CALL(FALSE, ERROR_FILE_NOT_FOUND);
    POWRPROF_CALL();
    trace_detail("ReadPwrScheme(%u)", index);
    if (!scheme_exists(index))
        return FALSE;
    *policy = power_scheme(index);
    return TRUE;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the platform's type
static BOOLEAN WINAPI WritePwrScheme(UINT* index, LPCWSTR name, LPCWSTR description, POWER_POLICY* policy) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    POWRPROF_CALL();
    if (name != nullptr || description != nullptr)
        violation("WritePwrScheme: a name given to a scheme that has one");
    trace("call WritePwrScheme(%u) = 1", *index);
    power_scheme(*index) = *policy;
    return TRUE;
}

static BOOLEAN WINAPI ReadGlobalPwrPolicy(GLOBAL_POWER_POLICY* policy) {
    SIM_CALL(FALSE, ERROR_FILE_NOT_FOUND);
    POWRPROF_CALL();
    trace_detail("ReadGlobalPwrPolicy()");
    *policy = power().global;
    return TRUE;
}

static const Module
    g_powrprof("powrprof.dll",
               {
                   {"CallNtPowerInformation", reinterpret_cast<void*>(CallNtPowerInformation)},
                   {"IsPwrHibernateAllowed", reinterpret_cast<void*>(IsPwrHibernateAllowed)},
                   {"SetSuspendState", reinterpret_cast<void*>(SetSuspendState)},
                   {"GetActivePwrScheme", reinterpret_cast<void*>(GetActivePwrScheme)},
                   {"SetActivePwrScheme", reinterpret_cast<void*>(SetActivePwrScheme)},
                   {"ReadPwrScheme", reinterpret_cast<void*>(ReadPwrScheme)},
                   {"WritePwrScheme", reinterpret_cast<void*>(WritePwrScheme)},
                   {"ReadGlobalPwrPolicy", reinterpret_cast<void*>(ReadGlobalPwrPolicy)},
               });

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI SetSystemPowerState(BOOL suspend, BOOL force) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const bool allowed = privilege_enabled("SeShutdownPrivilege", "SetSystemPowerState");
    const bool works = allowed && next_suspend_works();
    trace("call SetSystemPowerState(%d, %d) = %d", suspend, force, works);
    return allowed ? end_suspend(works) : FALSE;
}

BOOL WINAPI ExitWindowsEx(UINT flags, DWORD reason) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const bool allowed = privilege_enabled("SeShutdownPrivilege", "ExitWindowsEx");
    trace("call ExitWindowsEx(%u, %u) = %d", flags, reason, allowed);
    return allowed;
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_hibernate(Tokens& tokens) {
    const bool allowed = tokens.choice({"allowed", "forbidden"}) == 0;
    return [allowed] { power().hibernate_allowed = allowed; };
}

static Action compile_hiberfile(Tokens& tokens) {
    const bool works = tokens.choice({"works", "fails"}) == 0;
    return [works] { power().hiberfile_works = works; };
}

// N, or "fails".
static Action compile_number_or_fails(Tokens& tokens, bool Power::*fails, DWORD Power::*number) {
    if (tokens.accept("fails"))
        return [fails] { power().*fails = true; };
    const auto value = static_cast<DWORD>(tokens.number());
    return [fails, number, value] {
        power().*fails = false;
        power().*number = value;
    };
}

static Action compile_lid_action(Tokens& tokens) {
    return compile_number_or_fails(tokens, &Power::lid_action_fails, &Power::lid_action);
}

// A scheme that has been active stays.
static Action compile_scheme(Tokens& tokens) {
    const Action set = compile_number_or_fails(tokens, &Power::scheme_fails, &Power::active_scheme);
    return [set] {
        set();
        power_scheme(power().active_scheme);
    };
}

static Action compile_suspend(Tokens& tokens) {
    enum { WORKS, FAILS, TAKES };
    const size_t what = tokens.choice({"works", "fails", "takes"});
    if (what == TAKES) {
        const Ms duration = tokens.duration();
        return [duration] { power().suspend_takes = duration; };
    }
    if (what == FAILS && tokens.accept("times")) {
        const std::uint64_t times = tokens.number();
        return [times] { power().suspend_failures = times; };
    }
    return [what] {
        power().suspend_fails = what == FAILS;
        power().suspend_failures = 0;
    };
}

static const Commands g_commands({
    {"windows hibernate", Use::Machine, compile_hibernate, "allowed|forbidden - whether hibernation is"},
    {"windows hiberfile", Use::Machine, compile_hiberfile, "works|fails - creating the hibernation file"},
    {"windows lid-action", Use::Machine, compile_lid_action,
     "N|fails - lid-close action of the current system power policy"},
    {"windows scheme", Use::Machine, compile_scheme, "N|fails - the active power scheme"},
    {"windows suspend", Use::Machine, compile_suspend,
     "works|fails [times N] | takes DURATION - the suspend call"},
});

} // namespace sim
