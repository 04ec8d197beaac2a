// Keyboard-option and dock status, and the indicator drivers.
#pragma once

#include <windows.h>

// 0 when the option interface is not supported or the status cannot be read, else 1.
BOOL SetOptionStatus();
BOOL OptionStatusInit();
