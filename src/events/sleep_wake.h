// Lid beep, sleep, hibernate, power-off and the return to sleep after an unattended wake-up.
//
// A power action needs the shutdown privilege; without it, or without powrprof.dll, it is skipped silently.
// An action that puts the machine to sleep may return only after the machine has resumed.
#pragma once

#include <windows.h>

// Builds the paths of the two lid-beep INI files; service start.
void InitLidBeepIniPaths();

// Decides on a lid close whether the firmware beeps: by the system's lid-close action, then by the INI files.
void HandleLidCloseBeep();

// 1 on, 0 off. A failed request is ignored.
void SetLidBeep(DWORD on);

// A wake-up arms the return to `ulstate` (3 sleep, 4 hibernate, anything else nothing) in three minutes; a
// bus disconnect makes an armed return happen at once. Event thread only.
void HandleWakeupEvent(BOOL bWakeup, BOOL bDisconnect, DWORD ulstate);

// The battery runs low in sleep: hibernates (three attempts, 5 s apart) or, where hibernation is not allowed,
// powers off. Takes at least 5 s.
void HandleBatteryWakeup();

// Asks for the monitor to be turned off through the interactive user's power scheme; does not wait for it.
void StandbySystem();

void ForceSuspendSystem();

// Sleeps instead when there is no hibernation file and none may or can be made.
void HibernateSystem();

// TRUE when the power-off was accepted.
BOOL ForcePowerOff();
