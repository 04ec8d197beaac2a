// The per-session helper process: one hidden window that answers the registered message "PmHelperMessage"
// (wParam a command, lParam its argument, the message's result the command's) with power-scheme operations
// under the user's own account.
#pragma once

#include "power/powrprof.h"

// Runs the helper window until its message loop ends; no message of the window's own ends it.
void PmHelperMain();

// The same policy with display and disk timeouts of one second.
POWER_POLICY WithOneSecondTimeouts(const POWER_POLICY& policy);
