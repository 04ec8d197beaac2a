// Facts about the process and the operating system, set once by the entry before any mode runs.
#pragma once

#include <windows.h>

// The instance handle given to the entry; dialog resources load from it.
extern HINSTANCE g_hInstance;

// 1 on the NT family, else 0.
extern DWORD IsNtPlatform;

// 1 on the NT family with a major version above 5, else 0.
extern DWORD IsVistaOrLater;
