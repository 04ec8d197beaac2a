// Sleep, hibernate, power-off and the return to sleep after an unattended wake-up.
//
// A power action needs the shutdown privilege; without it, or without powrprof.dll, it is skipped silently.
// An action that puts the machine to sleep may return only after the machine has resumed.
#pragma once

#include <windows.h>

// A wake-up arms the return to `state` (3 sleep, 4 hibernate, anything else nothing) in three minutes; a
// bus disconnect makes an armed return happen at once. Event thread only.
void HandleWakeupEvent(BOOL wakeup, BOOL disconnect, DWORD state);

// The battery runs low in sleep: hibernates (three attempts, 5 s apart) or, where hibernation is not allowed,
// powers off. Takes at least 5 s.
void HandleBatteryWakeup();

void ForceSuspendSystem();

// Sleeps instead when there is no hibernation file and none may or can be made.
void HibernateSystem();
