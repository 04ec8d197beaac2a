#include <zorpm/zorpm.h>

#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "cpu/cpu_monitor.h"
#include "events/standby.h"
#include "formfactor/lid_inhibit.h"
#include "formfactor/multimode.h"
#include "hotkeys/ph_interface.h"
#include "service/power_setting.h"
#include "service/service.h"

// ---- standard controls ----

static void Stop() {
    ReportServiceStatus(SERVICE_STOP_PENDING, 0, 1, 0);
    KeepMonitorOffThreadHandle();
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
    if (event_type != PBT_POWERSETTINGCHANGE || event_data == nullptr) {
        Trace(L"HandlePowerEvent(): 0x%lx is of no interest\n", event_type);
        return;
    }
    const auto* setting = static_cast<const POWERBROADCAST_SETTING*>(event_data);
    const bool monitor_on = IsEqualGUID(setting->PowerSetting, g_guidMonitorPowerOn) &&
                            setting->DataLength != 0 && setting->Data[0] == 1;
    if (monitor_on)
        SystemTransformationGetCurrentSystemStatus();
    else
        Trace(L"HandlePowerEvent(): not the monitor going on\n");
}

// ---- the table of control codes ----

namespace {

struct ControlRow {
    DWORD code;
    void (*action)(); // null: nothing
};

} // namespace

// An operation whose result is of no interest to the client.
template <BOOL (*Operation)()> static void Do() {
    Operation();
}

// A request that is answered with a running report when it was accepted, and not at all otherwise.
template <BOOL (*Request)()> static void Answer() {
    if (Request())
        ReportServiceStatus(SERVICE_RUNNING, 0, 0, 0);
    else
        Trace(L"Answer(): refused, nothing is reported\n");
}

// A value for the client travels as the service-specific exit code; 0 is none.
template <DWORD (*Question)()> static void AnswerValue() {
    if (const DWORD value = Question(); value != 0)
        ReportServiceStatus(SERVICE_RUNNING, ERROR_SERVICE_SPECIFIC_ERROR, 0, value);
}

// clang-format off
static const ControlRow g_controlTable[] = {
    {SERVICE_CONTROL_STOP,                                 Stop},
    {SERVICE_CONTROL_PAUSE,                                Pause},
    {SERVICE_CONTROL_CONTINUE,                             Continue},
    {SERVICE_CONTROL_INTERROGATE,                          nullptr},
    {SERVICE_CONTROL_MESSAGE_MONITOROFF,                   StartMonitorOff},
    {SERVICE_CONTROL_MESSAGE_LCDCS_STARTINHIBITLIDEVENT,   Answer<LCDCSStartInhibit>},
    {SERVICE_CONTROL_MESSAGE_LCDCS_STOPINHIBITLIDEVENT,    Answer<LCDCSStopInhibit>},
    {SERVICE_CONTROL_MESSAGE_LCDCS_GETINHIBITCAPABILITY,   AnswerValue<LCDCSGetInhibitCapability>},
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

OPERATION(DWORD WINAPI, ServiceCtrlHandlerEx,
          (DWORD control, DWORD event_type, void* event_data, [[maybe_unused]] void* context), control,
          event_type, event_data, context) {
    if (control == SERVICE_CONTROL_POWEREVENT)
        HandlePowerEvent(event_type, event_data);
    for (const ControlRow& row : g_controlTable) {
        if (row.code == control && row.action != nullptr)
            row.action();
    }
    return NO_ERROR;
}
