#include "power/powrprof.h"

#include <cstddef>

#include "common/trace.h"
#include "power/system_library.h"

// The records cross the boundary to the system and the registry byte by byte.
static_assert(sizeof(SYSTEM_POWER_POLICY) == 232 && offsetof(SYSTEM_POWER_POLICY, LidClose) == 28);
static_assert(sizeof(USER_POWER_POLICY) == 80 && sizeof(POWER_POLICY) == 144);
static_assert(offsetof(POWER_POLICY, user) == 0 && offsetof(POWER_POLICY, mach) == 80);
static_assert(sizeof(GLOBAL_USER_POWER_POLICY) == 176 && sizeof(GLOBAL_POWER_POLICY) == 192);
static_assert(offsetof(GLOBAL_POWER_POLICY, user) == 0 && offsetof(GLOBAL_POWER_POLICY, mach) == 176);

// Calls one function of powrprof.dll; `missing` is the result when it cannot be found. The arguments must
// have the function's own types: its type is derived from them.
template <typename Result, typename... Arguments>
static Result CallPowrProf(const char* name, Result missing, Arguments... arguments) {
    const SystemLibrary library(L"powrprof.dll");
    const auto function = library.Find<Result(WINAPI*)(Arguments...)>(name);
    if (function == nullptr) {
        Trace(L"CallPowrProf(): Error: function not found. (%lu)\n", GetLastError());
        return missing;
    }
    return function(arguments...);
}

constexpr BOOLEAN NO_FUNCTION = 0;

static BOOLEAN ToBoolean(BOOL flag) {
    return flag ? TRUE : FALSE;
}

OPERATION(DWORD, PowrProfCallNtPowerInformation,
          (POWER_INFORMATION_LEVEL level, void* input, DWORD input_bytes, void* output, DWORD output_bytes),
          level, input, input_bytes, output, output_bytes) {
    constexpr LONG missing = 1;
    return static_cast<DWORD>(
        CallPowrProf("CallNtPowerInformation", missing, level, input, input_bytes, output, output_bytes));
}

OPERATION(BOOL, PowrProfIsPwrHibernateAllowed, ()) {
    return CallPowrProf("IsPwrHibernateAllowed", NO_FUNCTION);
}

OPERATION(BOOL, PowrProfSetSuspendState, (BOOL hibernate, BOOL force, BOOL wake_events_disabled), hibernate,
          force, wake_events_disabled) {
    return CallPowrProf("SetSuspendState", NO_FUNCTION, ToBoolean(hibernate), ToBoolean(force),
                        ToBoolean(wake_events_disabled));
}

OPERATION(BOOLEAN, PowrProfGetActivePwrScheme, (UINT * index), index) {
    return CallPowrProf("GetActivePwrScheme", NO_FUNCTION, index);
}

OPERATION(BOOLEAN, PowrProfSetActivePwrScheme,
          (UINT index, GLOBAL_POWER_POLICY* global_policy, POWER_POLICY* policy), index, global_policy,
          policy) {
    return CallPowrProf("SetActivePwrScheme", NO_FUNCTION, index, global_policy, policy);
}

OPERATION(BOOLEAN, PowrProfReadPwrScheme, (UINT index, POWER_POLICY* policy), index, policy) {
    return CallPowrProf("ReadPwrScheme", NO_FUNCTION, index, policy);
}

OPERATION(BOOLEAN, PowrProfWritePwrScheme,
          (UINT * index, const wchar_t* name, const wchar_t* description, POWER_POLICY* policy), index, name,
          description, policy) {
    return CallPowrProf("WritePwrScheme", NO_FUNCTION, index, name, description, policy);
}

OPERATION(BOOLEAN, PowrProfReadGlobalPwrPolicy, (GLOBAL_POWER_POLICY * global_policy), global_policy) {
    return CallPowrProf("ReadGlobalPwrPolicy", NO_FUNCTION, global_policy);
}
