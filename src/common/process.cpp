#include "common/process.h"

HINSTANCE g_hInstance = nullptr;
DWORD IsNtPlatform = 0;
DWORD IsVistaOrLater = 0;
