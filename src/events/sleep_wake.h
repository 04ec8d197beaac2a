// Lid beep, sleep, hibernate, power-off and the return to sleep after an unattended wake-up.
#pragma once

#include <windows.h>

// Builds the paths of the two lid-beep INI files; service start.
void InitLidBeepIniPaths();

void HandleLidCloseBeep();
void SetLidBeep(DWORD on);

// `ulstate`: 3 sleep, 4 hibernate.
void HandleWakeupEvent(BOOL bWakeup, BOOL bDisconnect, DWORD ulstate);

// Asks for the monitor to be turned off through the interactive user's power scheme.
void StandbySystem();

void ForceSuspendSystem();
void HibernateSystem();

// TRUE when the power-off was accepted.
BOOL ForcePowerOff();
