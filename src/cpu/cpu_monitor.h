// The CPU idle-state monitor: keeps the processor's deepest idle state at C3 or C4 according to the system
// timer's resolution, on machines whose driver asks for it.
#pragma once

#include <windows.h>
#include <atomic>

// The monitor's thread, null when none runs. Set by StartCPUMonitorThread, emptied by the thread when it ends
// (except when its registry key could not be created). The handle stays open for the life of the process, so
// that a stop control that has just read the slot never terminates a stranger that got the same handle value.
extern std::atomic<HANDLE> g_hCPUMonitorThread;

// Starts the thread unless the slot is taken. A failure leaves the slot empty and is otherwise ignored.
// Service thread only.
void StartCPUMonitorThread();

// Thread procedure; the parameter is not used. Returns 0.
DWORD WINAPI CPUStateC3C4MonitorThreadProc(void* parameter);
