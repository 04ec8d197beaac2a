// Sleep, hibernate, power-off and the return to sleep after an unattended wake-up.
//
// A power action enables the shutdown privilege first and is left out when that fails; only the battery
// wake-up tries to hibernate all the same. Without powrprof.dll nothing sleeps, and hibernation counts as not
// allowed. An action that puts the machine to sleep may return only after the machine has resumed.
#pragma once

#include <windows.h>

// A wake-up arms the return to `state` (3 sleep, 4 hibernate, anything else nothing) in three minutes; a
// bus disconnect makes an armed return happen at once. Event thread only.
void HandleWakeupEvent(BOOL wakeup, BOOL disconnect, DWORD state);

// The battery runs low in sleep: hibernates (three attempts, 5 s apart) or, where hibernation is not allowed,
// powers off. Takes at least 5 s, and 5 s more after each attempt that fails.
void HandleBatteryWakeup();

void ForceSuspendSystem();

// Sleeps instead when hibernation is not allowed and a hibernation file may not or cannot be made.
void HibernateSystem();
