#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "cpu/cpu_monitor.h"
#include "display/pwm_frequency.h"
#include "driver/device.h"
#include "driver/notification_events.h"
#include "events/lid_beep.h"
#include "events/terminal_thread.h"
#include "formfactor/bios_version.h"
#include "formfactor/lid_inhibit.h"
#include "formfactor/multimode.h"
#include "formfactor/transformation.h"
#include "hotkeys/ph_interface.h"
#include "service/power_setting.h"
#include "service/service.h"
#include "setup/pnp_task.h"

SERVICE_STATUS_HANDLE g_hServiceStatus = nullptr;
HANDLE g_hServiceStopEvent = nullptr;
std::atomic<HANDLE> g_hTerminalThread{nullptr};
static HANDLE g_hPnPTaskThread = nullptr;

constexpr DWORD WAIT_HINT_MS = 3000;
constexpr int PROBE_ATTEMPTS = 11;
constexpr DWORD PROBE_PAUSE_MS = 300;

static void Report(DWORD state, DWORD accepted, DWORD win32_exit_code, DWORD check_point,
                   DWORD specific_exit_code) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = accepted;
    status.dwWin32ExitCode = win32_exit_code;
    status.dwServiceSpecificExitCode = specific_exit_code;
    status.dwCheckPoint = check_point;
    status.dwWaitHint = WAIT_HINT_MS;
    if (!SetServiceStatus(g_hServiceStatus, &status))
        Trace(L"Report(): Error: state %lu not reported. (%lu)\n", state, GetLastError());
}

OPERATION(void, ReportServiceStatus,
          (DWORD state, DWORD win32_exit_code, DWORD check_point, DWORD specific_exit_code), state,
          win32_exit_code, check_point, specific_exit_code) {
    Report(state, SERVICE_ACCEPT_STOP, win32_exit_code, check_point, specific_exit_code);
}

// For the start: no control is accepted yet.
static OPERATION(void, ReportServicePendingStatus,
                 (DWORD state, DWORD win32_exit_code, DWORD check_point, DWORD specific_exit_code), state,
                 win32_exit_code, check_point, specific_exit_code) {
    Report(state, 0, win32_exit_code, check_point, specific_exit_code);
}

// The driver may come up after the service. It is not kept open: each request opens it for itself.
static BOOL ProbeDriver() {
    for (int attempt = 0; attempt < PROBE_ATTEMPTS; ++attempt) {
        if (OpenPMDriver()) {
            ClosePMDriver();
            return TRUE;
        }
        Trace(L"ProbeDriver(): no driver yet. (%lu)\n", GetLastError());
        Sleep(PROBE_PAUSE_MS);
    }
    return FALSE;
}

// In this order; no result stops the start.
static void InitializeSubsystems() {
    InitLidBeepIniPaths();
    InitPHInterface();
    InitPHInterfaceEx();
    StartLCDCSTimerThread();
    GetSystemBiosVersion();
    StartAdaptiveCooling();
    // Never withdrawn: it ends with the service.
    if (RegisterPowerSettingNotification(g_hServiceStatus, &g_guidMonitorPowerOn,
                                         DEVICE_NOTIFY_SERVICE_HANDLE) == nullptr)
        Trace(L"InitializeSubsystems(): Error: no monitor notification. (%lu)\n", GetLastError());
    InitSystemTransformationNotebookMode();
    SystemTransformationGetCurrentSystemStatus();
    if (IsReleaseId1903OrLater())
        Trace(L"InitializeSubsystems(): this Windows needs no task\n");
    else
        g_hPnPTaskThread = CreateThread(nullptr, 0, CreatePnPTaskThreadProc, nullptr, 0, nullptr);
    CheckLegacyTabletModel();
}

static void CloseStopEvent() {
    CloseHandle(g_hServiceStopEvent);
    g_hServiceStopEvent = nullptr;
}

// From the registered handler to the running state. FALSE once a failure has been reported as stopped.
static BOOL StartUp() {
    ReportServicePendingStatus(SERVICE_START_PENDING, 0, 1, 0);
    g_hServiceStopEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (g_hServiceStopEvent == nullptr) {
        ReportServiceStatus(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR, 0, ZORPM_START_NO_EVENT);
        return FALSE;
    }
    ReportServicePendingStatus(SERVICE_START_PENDING, 0, 2, 0);
    ReportServicePendingStatus(SERVICE_START_PENDING, 0, 3, 0);
    if (!ProbeDriver()) {
        CloseStopEvent();
        ReportServiceStatus(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR, 0, ZORPM_START_NO_DRIVER);
        return FALSE;
    }
    ReportServicePendingStatus(SERVICE_START_PENDING, 0, 4, 0);
    MakeConnect(TRUE);
    ReportServicePendingStatus(SERVICE_START_PENDING, 0, 5, 0);
    InitializeSubsystems();
    g_hTerminalThread = CreateThread(nullptr, 0, TerminalThread, nullptr, 0, nullptr);
    if (g_hTerminalThread == nullptr) {
        // The threads already started end with the process, when the dispatcher returns.
        ReportServiceStatus(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR, 0, ZORPM_START_NO_THREAD);
        ClosePMDriver();
        CloseStopEvent();
        return FALSE;
    }
    StartCPUMonitorThread();
    ReportServiceStatus(SERVICE_RUNNING, 0, 0, 0);
    return TRUE;
}

// The stop control has reported the first check point and ended the threads it owns.
static void ShutDown() {
    ReportServiceStatus(SERVICE_STOP_PENDING, 0, 2, 0);
    TerminateThread(g_hTerminalThread, 0);
    ReportServiceStatus(SERVICE_STOP_PENDING, 0, 3, 0);
    MakeConnect(FALSE);
    CloseHandle(g_hTerminalThread.exchange(nullptr));
    Close5nitInterface();
    TerminateAdaptiveCooling();
    if (g_hPnPTaskThread != nullptr)
        CloseHandle(g_hPnPTaskThread);
    g_hPnPTaskThread = nullptr;
    ReportServiceStatus(SERVICE_STOPPED, 0, 0, 0);
    ClosePMDriver();
    CloseStopEvent();
}

OPERATION(void WINAPI, ServiceMain,
          ([[maybe_unused]] DWORD argument_count, [[maybe_unused]] LPWSTR* arguments), argument_count,
          arguments) {
    g_hServiceStatus = RegisterServiceCtrlHandlerExW(ZORPM_SERVICE_NAME, ServiceCtrlHandlerEx, nullptr);
    if (g_hServiceStatus == nullptr)
        return; // nothing can be reported
    if (!StartUp())
        return;
    WaitForSingleObject(g_hServiceStopEvent, INFINITE);
    ShutDown();
}
