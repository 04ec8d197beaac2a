// What can be asked of the power library without an effect on the machine.
#include <windows.h>
#include <powrprof.h>

#include "tests/platform/probe.h"

static HMODULE g_library = nullptr;

template <class Function> static Function* function(const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(g_library, name)));
}

static void probe_information() {
    group("power-information");
    auto* ask = function<NTSTATUS WINAPI(POWER_INFORMATION_LEVEL, void*, ULONG, void*, ULONG)>(
        "CallNtPowerInformation");
    SYSTEM_POWER_POLICY policy = {};
    BOOLEAN on = TRUE;
    fact("policy", ask(SystemPowerPolicyCurrent, nullptr, 0, &policy, sizeof(policy)));
    fact("policy-revision", policy.Revision);
    fact("policy-lid-action", policy.LidClose.Action <= PowerActionShutdownOff);
    switch_privilege(L"SeCreatePagefilePrivilege", false);
    fact("reserve-without-privilege", ask(SystemReserveHiberFile, &on, 1, nullptr, 0));
}

static void probe_schemes() {
    group("power-scheme");
    auto* active = function<BOOLEAN WINAPI(UINT*)>("GetActivePwrScheme");
    auto* activate =
        function<BOOLEAN WINAPI(UINT, GLOBAL_POWER_POLICY*, POWER_POLICY*)>("SetActivePwrScheme");
    auto* read = function<BOOLEAN WINAPI(UINT, POWER_POLICY*)>("ReadPwrScheme");
    auto* read_global = function<BOOLEAN WINAPI(GLOBAL_POWER_POLICY*)>("ReadGlobalPwrPolicy");
    UINT scheme = 4711;
    POWER_POLICY policy = {};
    static GLOBAL_POWER_POLICY global = {};
    fact("active", active(&scheme));
    fact("read-0", read(0, &policy));
    fact("read-5", read(5, &policy));
    fact("read-99", ERROR_OF(read(99, &policy)));
    fact("activate-99", ERROR_OF(activate(99, nullptr, nullptr)));
    fact("read-global", read_global(&global));
    fact("user-policy-bytes", sizeof(USER_POWER_POLICY));
    fact("policy-bytes", sizeof(POWER_POLICY));
    fact("global-policy-bytes", sizeof(GLOBAL_POWER_POLICY));
    fact("system-policy-bytes", sizeof(SYSTEM_POWER_POLICY));
    fact("user-policy-video-at", offsetof(USER_POWER_POLICY, VideoTimeoutAc));
    fact("user-policy-spindown-at", offsetof(USER_POWER_POLICY, SpindownTimeoutDc));
    fact("global-lid-at", offsetof(GLOBAL_USER_POWER_POLICY, LidCloseAc));
    fact("system-lid-at", offsetof(SYSTEM_POWER_POLICY, LidClose));
}

void probe_power() {
    g_library = LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    probe_information();
    probe_schemes();
    group("power-library");
    fact("freed", FreeLibrary(g_library));
}
