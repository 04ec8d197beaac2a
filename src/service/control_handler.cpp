#include "service/service.h"

#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "cpu/cpu_monitor.h"
#include "driver/device.h"
#include "driver/firmware_words.h"
#include "events/sleep_wake.h"
#include "formfactor/lid_inhibit.h"
#include "formfactor/multimode.h"
#include "hotkeys/ph_interface.h"
#include "service/power_setting.h"

std::atomic<HANDLE> g_hMonitorOffThread = nullptr;
// Set before the stop control looks at the monitor-off slot: a monitor-off thread that empties the slot after
// that look leaves its handle open, so that the handler never uses a closed one.
static std::atomic<bool> g_bStopping = false;

// ---- lid inhibit ----

enum : DWORD { LCDCS_START_INHIBIT, LCDCS_STOP_INHIBIT, LCDCS_GET_CAPABILITY };

// One lid-inhibit request. For the first two, 0 means that the driver accepted it; 0 also when the device
// cannot be opened or the request fails.
static DWORD LCDCSControl(DWORD request) {
    static const struct {
        DWORD request;
        DWORD code;
        DWORD input;
    } rows[] = {
        {LCDCS_START_INHIBIT, IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_ON},
        {LCDCS_STOP_INHIBIT, IOCTL_PMDRV_LCDCSCONTROL, LCDCS_CONTROL_INHIBIT_OFF},
        {LCDCS_GET_CAPABILITY, IOCTL_PMDRV_LCDCSGETSTATE, 0},
    };
    DWORD result = 0;
    for (const auto& row : rows) {
        if (row.request == request)
            SendOneWord(row.code, row.input, &result);
    }
    return result;
}

static void StartInhibitLidEvent() {
    if (LCDCSControl(LCDCS_START_INHIBIT) != LCDCS_CONTROL_ACCEPTED)
        return;
    LCDCSWatchdogControl(TRUE);
    ReportServiceStatus(SERVICE_RUNNING, 0, 0, 0);
}

static void StopInhibitLidEvent() {
    if (LCDCSControl(LCDCS_STOP_INHIBIT) != LCDCS_CONTROL_ACCEPTED)
        return;
    LCDCSWatchdogControl(FALSE);
    ReportServiceStatus(SERVICE_RUNNING, 0, 0, 0);
}

static void GetInhibitCapability() {
    const DWORD capability = LCDCSControl(LCDCS_GET_CAPABILITY);
    // The value travels back as the service-specific exit code.
    if (capability != 0)
        ReportServiceStatus(SERVICE_RUNNING, ERROR_SERVICE_SPECIFIC_ERROR, 0, capability);
}

// ---- monitor off ----

static DWORD WINAPI MonitorOffThreadProc(void*) {
    StandbySystem();
    HANDLE own = g_hMonitorOffThread.exchange(nullptr);
    if (own != nullptr && !g_bStopping)
        CloseHandle(own);
    return 0;
}

static void MonitorOff() {
    if (g_hMonitorOffThread != nullptr)
        return; // one runs
    // Suspended, so that the slot is set before the thread can empty it.
    HANDLE thread = CreateThread(nullptr, 0, MonitorOffThreadProc, nullptr, CREATE_SUSPENDED, nullptr);
    if (thread == nullptr)
        return;
    g_hMonitorOffThread = thread;
    if (ResumeThread(thread) == static_cast<DWORD>(-1)) {
        g_hMonitorOffThread = nullptr;
        TerminateThread(thread, 0);
        CloseHandle(thread);
    }
}

// ---- standard controls ----

static void Stop() {
    ReportServiceStatus(SERVICE_STOP_PENDING, 0, 1, 0);
    g_bStopping = true;
    std::atomic<HANDLE>* const slots[] = {
        &g_hPHThread,         &g_hPHOverrideThread, &g_hCPUMonitorThread,
        &g_hMonitorOffThread, &g_hLCDCSTimerThread, &g_hLCDCSWatchdogThread,
    };
    for (const std::atomic<HANDLE>* slot : slots) {
        HANDLE thread = *slot;
        if (thread != nullptr)
            TerminateThread(thread, 0);
    }
    SetEvent(g_hServiceStopEvent);
}

static void Pause() {
    ReportServiceStatus(SERVICE_PAUSE_PENDING, 0, 1, 0);
    SuspendThread(g_hTerminalThread);
    ReportServiceStatus(SERVICE_PAUSED, 0, 0, 0);
}

static void Continue() {
    ReportServiceStatus(SERVICE_CONTINUE_PENDING, 0, 1, 0);
    ResumeThread(g_hTerminalThread);
    ReportServiceStatus(SERVICE_RUNNING, 0, 0, 0);
}

static void HandlePowerEvent(DWORD event_type, const void* event_data) {
    if (event_type == PBT_APMRESUMESUSPEND) {
        SystemTransformationGetCurrentSystemStatus();
        return;
    }
    if (event_type != PBT_POWERSETTINGCHANGE || event_data == nullptr)
        return;
    const auto* setting = static_cast<const POWERBROADCAST_SETTING*>(event_data);
    const bool monitor_on = IsEqualGUID(setting->PowerSetting, g_guidMonitorPowerOn) &&
                            setting->DataLength != 0 && setting->Data[0] == 1;
    if (monitor_on)
        SystemTransformationGetCurrentSystemStatus();
}

// ---- the table of control codes ----

enum : DWORD {
    SERVICE_CONTROL_MESSAGE_MONITOROFF = 130,
    SERVICE_CONTROL_MESSAGE_LCDCS_STARTINHIBITLIDEVENT = 131,
    SERVICE_CONTROL_MESSAGE_LCDCS_STOPINHIBITLIDEVENT = 132,
    SERVICE_CONTROL_MESSAGE_LCDCS_GETINHIBITCAPABILITY = 133,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DISABLE = 134,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_ENABLE = 135,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_START = 136,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_STOP = 137,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_RESTART = 138,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_DISABLE = 139,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_ENABLE = 140,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_UNDETECTED = 141,
    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_DETECTED = 142,
    SERVICE_CONTROL_MESSAGE_DEBUG_5 = 251,
    SERVICE_CONTROL_MESSAGE_DEBUG_4 = 252,
    SERVICE_CONTROL_MESSAGE_DEBUG_3 = 253,
    SERVICE_CONTROL_MESSAGE_DEBUG_2 = 254,
    SERVICE_CONTROL_MESSAGE_DEBUG = 255,
};

struct ControlRow {
    DWORD code;
    void (*action)(); // null: nothing
};

// An operation whose result is of no interest to the client.
template <BOOL (*Operation)()> static void Do() {
    Operation();
}

// clang-format off
static const ControlRow g_controlTable[] = {
    {SERVICE_CONTROL_STOP,                                 Stop},
    {SERVICE_CONTROL_PAUSE,                                Pause},
    {SERVICE_CONTROL_CONTINUE,                             Continue},
    {SERVICE_CONTROL_INTERROGATE,                          nullptr},
    {SERVICE_CONTROL_MESSAGE_MONITOROFF,                   MonitorOff},
    {SERVICE_CONTROL_MESSAGE_LCDCS_STARTINHIBITLIDEVENT,   StartInhibitLidEvent},
    {SERVICE_CONTROL_MESSAGE_LCDCS_STOPINHIBITLIDEVENT,    StopInhibitLidEvent},
    {SERVICE_CONTROL_MESSAGE_LCDCS_GETINHIBITCAPABILITY,   GetInhibitCapability},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DISABLE, Do<AdaptiveCoolingDisableCurrentSettingsOfTwoInOne>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_ENABLE,  Do<AdaptiveCoolingEnableCurrentSettingsOfTwoInOne>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_START,   Do<StartAdaptiveCooling>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_STOP,    Do<TerminateAdaptiveCooling>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_RESTART, Do<RestartAdaptiveCooling>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_DISABLE, Do<AdaptiveCoolingDisableDynamicCpuControlSettings_v3>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_ENABLE,  Do<AdaptiveCoolingEnableDynamicCpuControlSettings_v3>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_UNDETECTED,  Do<AdaptiveCoolingUndetectOnHand>},
    {SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_DETECTED,    Do<AdaptiveCoolingDetectOnHand>},
    {SERVICE_CONTROL_MESSAGE_DEBUG_5,                      nullptr},
    {SERVICE_CONTROL_MESSAGE_DEBUG_4,                      nullptr},
    {SERVICE_CONTROL_MESSAGE_DEBUG_3,                      nullptr},
    {SERVICE_CONTROL_MESSAGE_DEBUG_2,                      nullptr},
    {SERVICE_CONTROL_MESSAGE_DEBUG,                        nullptr},
};
// clang-format on

DWORD WINAPI ServiceCtrlHandlerEx(DWORD control, DWORD event_type, void* event_data, void*) {
    Trace(L"Enter ServiceCtrlHandlerEx(%lu, 0x%lx)\n", control, event_type);
    if (control == SERVICE_CONTROL_POWEREVENT)
        HandlePowerEvent(event_type, event_data);
    for (const ControlRow& row : g_controlTable) {
        if (row.code == control && row.action != nullptr)
            row.action();
    }
    return NO_ERROR;
}
