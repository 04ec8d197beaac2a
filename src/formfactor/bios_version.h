// The platform check: is this a Harrow BIOS?
#pragma once

#include <windows.h>

// 1 on a Harrow platform, else 0. Settled by GetSystemBiosVersion at service start, before any event is
// handled, and never changed afterwards.
extern DWORD g_dwHarrowBios;

// Start-up step, service thread: decides on the flag, and sets a Harrow platform up. FALSE when the BIOS's
// texts cannot be read.
BOOL GetSystemBiosVersion();
