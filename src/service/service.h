// The service: its main routine, its status and its control handler.
#pragma once

#include <windows.h>
#include <atomic>
#include <zorpm/zorpm.h>

extern SERVICE_STATUS_HANDLE g_hServiceStatus;
extern HANDLE g_hServiceStopEvent; // auto-reset; the stop control sets it
extern std::atomic<HANDLE> g_hTerminalThread;

// Service main routine; returns once the service has stopped or has failed to start. The arguments are not
// used.
void WINAPI ServiceMain(DWORD argument_count, LPWSTR* arguments);

// Reports to the service control manager, with a wait hint of 3000 ms; the stop control is accepted.
void ReportServiceStatus(DWORD state, DWORD win32_exit_code, DWORD check_point, DWORD specific_exit_code);

// Control handler. Always 0.
DWORD WINAPI ServiceCtrlHandlerEx(DWORD control, DWORD event_type, void* event_data, void* context);
