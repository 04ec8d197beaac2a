// The five-minute limit of a lid inhibit: the timer thread and the watchdog.
#pragma once

#include <atomic>
#include <windows.h>

// Thread slots. The timer's is set once; the watchdog's is null while none runs. The control handler
// terminates both at a stop, by the handles it finds here: none of them is closed but by the control
// handler's own thread.
extern std::atomic<HANDLE> g_hLCDCSTimerThread;
extern std::atomic<HANDLE> g_hLCDCSWatchdogThread;

// Creates the timer thread; once, at service start.
void StartLCDCSTimerThread();

// After the driver accepted an inhibit change: TRUE starts the watchdog, FALSE ends it and polls once. The
// control handler's thread only; never waits for a thread.
void LCDCSWatchdogControl(BOOL start);
