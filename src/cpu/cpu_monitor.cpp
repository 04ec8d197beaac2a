#include "cpu/cpu_monitor.h"

#include "common/registry.h"
#include "common/thread.h"
#include "common/trace.h"
#include "driver/device.h"
#include "driver/firmware_words.h"

std::atomic<HANDLE> g_hCPUMonitorThread{nullptr};

// Keeps the duration in milliseconds within 32 bits.
constexpr DWORD MAX_POLLING_DURATION_S = 4000000;

namespace {

// Both devices stay open for the life of the thread. They are not checked on opening: a request on a device
// that is not there fails, and that is the case each step provides for.
struct MonitorDevices {
    HandleHolder primary{OpenDevice(PRIMARY_DEVICE, QUERY_ACCESS, QUERY_SHARE)};
    HandleHolder secondary{OpenDevice(SECONDARY_DEVICE, QUERY_ACCESS, QUERY_SHARE)};
};

struct MonitorSettings {
    DWORD workaround = 0;
    DWORD polling_duration_s = 0;
    // Compared with a tenth of the timer resolution.
    DWORD c4_threshold = 0;
};

} // namespace

static BOOL ReadTimerResolution(const MonitorDevices& devices, DWORD* resolution) {
    if (OneWordRequest(devices.secondary.handle, IOCTL_PMDRV_GETTIMERRESOL, 0, resolution))
        return TRUE;
    Trace(L"IOCTL_PMDRV_GETTIMERRESOL failed.");
    return FALSE;
}

static void RefreshDefaults(const MonitorDevices& devices, HKEY key, MonitorSettings* settings) {
    OneWordRequest(devices.primary.handle, IOCTL_PMDRV_QCPULEVELCTRL, CPU_QUERY_POLLING_DURATION,
                   &settings->polling_duration_s);
    OneWordRequest(devices.primary.handle, IOCTL_PMDRV_QCPULEVELCTRL, CPU_QUERY_C4_THRESHOLD,
                   &settings->c4_threshold);
    SetDword(key, ZORPM_CPU_POLLING, settings->polling_duration_s);
    SetDword(key, ZORPM_CPU_THRESHOLD, settings->c4_threshold);
    SetDword(key, ZORPM_CPU_USE, 0);
}

// Fills the settings from an open key. FALSE when the key is new and the driver wants no control: the key
// must then go, so that the next start asks again.
static BOOL LoadSettings(const MonitorDevices& devices, HKEY key, BOOL created, MonitorSettings* settings) {
    DWORD use_registry = 0;
    if (created) {
        DWORD wanted = 0;
        if (!OneWordRequest(devices.primary.handle, IOCTL_PMDRV_QCPULEVELCTRL, CPU_QUERY_WORKAROUND,
                            &wanted) ||
            wanted == 0)
            return FALSE;
        SetDword(key, ZORPM_CPU_WANTED, wanted);
    } else {
        QueryDword(key, ZORPM_CPU_USE, &use_registry);
    }
    if (use_registry != 0) {
        // A missing value leaves 0; a duration of 0 makes the passes follow each other without pause.
        QueryDword(key, ZORPM_CPU_POLLING, &settings->polling_duration_s);
        QueryDword(key, ZORPM_CPU_THRESHOLD, &settings->c4_threshold);
    } else {
        RefreshDefaults(devices, key, settings);
    }
    // Read back: a client's 0 in an existing key turns the control off.
    QueryDword(key, ZORPM_CPU_WANTED, &settings->workaround);
    return TRUE;
}

// Returns when the driver stops telling the timer resolution.
static void RunControlLoop(const MonitorDevices& devices, MonitorSettings* settings) {
    DWORD resolution = 0;
    DWORD selection = 0;
    while (ReadTimerResolution(devices, &resolution)) {
        const DWORD target = resolution / 10 > settings->c4_threshold ? CPU_SELECT_C4 : CPU_SELECT_C3;
        OneWordRequest(devices.primary.handle, IOCTL_PMDRV_CSTATESELECT, 0, &selection);
        if (selection != target)
            OneWordRequest(devices.primary.handle, IOCTL_PMDRV_CSTATEPARAMS, target, nullptr);
        if (settings->polling_duration_s > MAX_POLLING_DURATION_S)
            settings->polling_duration_s = MAX_POLLING_DURATION_S;
        Sleep(settings->polling_duration_s * 1000);
    }
}

// FALSE when the registry key could not be created.
static BOOL MonitorCpuState() {
    MonitorDevices devices;
    KeyHolder key;
    BOOL created = FALSE;
    if (!CreateKey(&key, HKEY_LOCAL_MACHINE, ZORPM_CPU_KEY, KEY_READ | KEY_WRITE, &created)) {
        Trace(L"ZORPMSVC coundn't create CPUControl registry key.");
        return FALSE;
    }
    MonitorSettings settings;
    const BOOL loaded = LoadSettings(devices, key.key, created, &settings);
    key.Release();
    if (!loaded) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, ZORPM_CPU_KEY);
        return TRUE;
    }
    DWORD wanted = 0;
    if (!OneWordRequest(devices.primary.handle, IOCTL_PMDRV_QCPULEVELCTRL, CPU_QUERY_WORKAROUND, &wanted) ||
        wanted == 0 || settings.workaround == 0) {
        Trace(L"Do nothing as for this function?");
        return TRUE;
    }
    RunControlLoop(devices, &settings);
    return TRUE;
}

OPERATION(DWORD WINAPI, CPUStateC3C4MonitorThreadProc, ([[maybe_unused]] void* parameter), parameter) {
    if (MonitorCpuState())
        g_hCPUMonitorThread = nullptr;
    return 0;
}

OPERATION(void, StartCPUMonitorThread, ()) {
    StartThreadInSlot(CPUStateC3C4MonitorThreadProc, &g_hCPUMonitorThread);
}
