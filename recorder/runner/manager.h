// The service control manager's side of the service in this process, as the wrapped calls and the commands
// see it.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

enum class Via { Manager, Handler };

void service_start(); // a process that runs the service's entry
void service_stop();
void service_control(DWORD code, Via via);
void service_power_event(DWORD type, Via via);
void service_power_setting(const GUID& setting, DWORD value, Via via);
void set_power_settings_at_registration(bool at_registration);
const SERVICE_STATUS& service_status();
DWORD service_process(); // 0: none
// As another program's thread, which waits for the answer: an error code.
DWORD service_send_control(DWORD code, SERVICE_STATUS* status);

extern const GUID g_monitorPowerOn;

// The wrapped calls.
BOOL start_dispatcher(const SERVICE_TABLE_ENTRYW* table);
SERVICE_STATUS_HANDLE register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context);
BOOL set_status(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status);
HPOWERNOTIFY register_power_setting(HANDLE recipient, LPCGUID setting, DWORD flags);

} // namespace runner
