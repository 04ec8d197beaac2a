// The CPU idle-state monitor.
#pragma once

#include <atomic>
#include <windows.h>

// Thread slot; the thread empties it when it ends.
extern std::atomic<HANDLE> g_hCPUMonitorThread;

DWORD WINAPI CPUStateC3C4MonitorThreadProc(void* parameter);
