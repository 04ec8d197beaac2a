// The service control manager.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

void service_start();             // as `start`: traces a refusal
void service_control(DWORD code); // as `control` (and `stop` with code 1, which asks the controls accepted)
void service_stop();
void service_power_event(DWORD type);
void service_power_setting(const GUID& setting, DWORD value);
SERVICE_STATUS service_status();
Process* service_process(); // null while it does not run
// For the platform call ControlService: sends a control to the service as another program. 0, or an error
// code.
DWORD service_send_control(DWORD code, SERVICE_STATUS* status);

} // namespace sim
