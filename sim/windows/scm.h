// The service control manager.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// How a control comes: through the manager, which passes on what the service accepts, or from the script
// straight to the handler, on the dispatcher's thread, as long as the service runs, is paused or continues.
enum class Via { Manager, Handler };

void service_start(); // as `start`: traces a refusal, as all of these do
void service_stop();
void service_control(DWORD code, Via via = Via::Manager);
void service_power_event(DWORD type, Via via = Via::Manager);
void service_power_setting(const GUID& setting, DWORD value, Via via = Via::Manager);
// Whether a setting's present value is told as soon as the setting is registered.
void set_power_settings_at_registration(bool at_registration);
SERVICE_STATUS service_status();
Process* service_process(); // null while it does not run

bool read_guid(const std::string& text, GUID* guid); // with or without its braces; false for anything else
extern const GUID g_monitorPowerOn;
extern const char* const g_stateNames[SERVICE_PAUSED + 1];

struct ControlRule {
    DWORD first;
    DWORD last;
    DWORD accepted_with; // SERVICE_ACCEPT_...; 0: always
    DWORD right;         // of the handle with which a program sends it
};
const ControlRule* control_rule(DWORD code); // null: no program may send it
// Why a service in this state does not get the control; NO_ERROR when it does.
DWORD control_error(DWORD code, DWORD state, DWORD accepted);
// For the platform call ControlService: sends a control to the service as another program, and waits for the
// handler. NO_ERROR, or an error code. `status` is left alone with 87 and 1053.
DWORD service_send_control(DWORD code, SERVICE_STATUS* status);

} // namespace sim
