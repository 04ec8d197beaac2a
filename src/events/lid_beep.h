// The beep that the firmware gives on a lid close.
#pragma once

#include <windows.h>

// Builds the paths of the two lid-beep INI files; service start.
void InitLidBeepIniPaths();

// Decides on a lid close whether the firmware beeps: by the system's lid-close action, then by the INI files.
void HandleLidCloseBeep();

// 1 on, 0 off. A failed request is ignored.
void SetLidBeep(DWORD on);
