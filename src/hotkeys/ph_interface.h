// The PH interface: hot-key personalisation through the registry.
#pragma once

#include <windows.h>
#include <atomic>

// Thread slots of the classic watches, null while the thread does not run.
extern std::atomic<HANDLE> g_hPHThread;
extern std::atomic<HANDLE> g_hPHOverrideThread;

// Build the interface and start its watches; service start, in this order. The result of the second is TRUE
// when the whole extended interface stands.
void InitPHInterface();
BOOL InitPHInterfaceEx();
