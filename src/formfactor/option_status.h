// Keyboard-option and dock status, and the drivers of Windows' laptop/slate and dock indicators.
#pragma once

#include <windows.h>
#include <atomic>

#include "common/subsystem_lock.h"

// Spans what a refresh, a posture, option or lid event reads and does, so that of two the later one has the
// last word. An indicator's own mutex and cooling's lock are taken below it.
extern SubsystemLock g_formFactorLock;

// 1 allows the indicator drivers to act. The form-factor refresh clears it first and sets it when the
// platform qualifies.
extern std::atomic<DWORD> g_dwFormFactorSupport;

// Reads the option interface's version and type, then applies the option status. 1 also where there is no
// option interface; 0 when a request fails.
BOOL OptionStatusInit();

// Applies the option status that the firmware reports now. 0 when the option interface is not supported or
// the status cannot be read, else 1.
BOOL SetOptionStatus();

// Move the laptop/slate indicator to the named state unless it is there already. 0 when the support flag is
// 0, the indicator cannot be read or written, or another thread holds it for longer than INDICATOR_WAIT_MS.
// Any thread.
BOOL SystemTransformationSetLaptopIndicatorToLaptop();
BOOL SystemTransformationSetLaptopIndicatorToTablet();

// A held indicator is free again within milliseconds, unless its holder is suspended. A refresh takes
// indicators three times, and the control handler that runs it must stay well within the control manager's
// patience (30 s).
constexpr DWORD INDICATOR_WAIT_MS = 2000;
