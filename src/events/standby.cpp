#include "events/standby.h"

#include "common/holders.h"
#include "common/thread.h"
#include "common/trace.h"
#include "helper/monitor_off.h"
#include "power/user_policy.h"

// Marks the index that a monitor-off request carries.
constexpr DWORD MONITOR_OFF_MARK = 0xE0000000;

std::atomic<HANDLE> g_hMonitorOffThread{nullptr};
static std::atomic<bool> g_bKeepMonitorOffThreadHandle{false};

// The scheme index of the latest monitor-off request. The request threads hold a pointer to it.
static std::atomic<DWORD> g_dwMonitorOffRequest{0};

OPERATION(void, StandbySystem, ()) {
    DWORD index = 0;
    if (!GetCurrentPowerPolicyIndex(&index))
        return;
    g_dwMonitorOffRequest = index | MONITOR_OFF_MARK;
    const HandleHolder thread(
        CreateThread(nullptr, 0, MonitorOffRequestThreadProc, &g_dwMonitorOffRequest, 0, nullptr));
    if (!thread.Valid())
        Trace(L"StandbySystem(): Error: no request thread. (%lu)\n", GetLastError());
}

static OPERATION(DWORD WINAPI, MonitorOffThreadProc, ([[maybe_unused]] void* parameter), parameter) {
    StandbySystem();
    HANDLE own = g_hMonitorOffThread.exchange(nullptr);
    if (own != nullptr && !g_bKeepMonitorOffThreadHandle)
        CloseHandle(own);
    return 0;
}

OPERATION(void, StartMonitorOff, ()) {
    StartThreadInSlot(MonitorOffThreadProc, &g_hMonitorOffThread);
}

void KeepMonitorOffThreadHandle() {
    g_bKeepMonitorOffThreadHandle = true;
}
