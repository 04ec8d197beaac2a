// The platform check: is this a Harrow BIOS?
#pragma once

#include <windows.h>

// 1 on a Harrow platform, else 0. Settled by GetSystemBiosVersion at service start, before any event is
// handled, and never changed afterwards.
extern DWORD g_dwHarrowBios;

// Publishes the flag as 1 in its existing key. FALSE when the key cannot be opened.
BOOL SetHRSPMode();
