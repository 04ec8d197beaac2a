// The five-minute limit of a lid inhibit: the timer thread and the watchdog.
#pragma once

#include <atomic>
#include <windows.h>

// Thread slots, null while the thread does not run. The control handler terminates both at a stop.
extern std::atomic<HANDLE> g_hLCDCSTimerThread;
extern std::atomic<HANDLE> g_hLCDCSWatchdogThread;

// Creates the timer thread; once, at service start.
void StartLCDCSTimerThread();

// After the driver accepted an inhibit change: TRUE starts the watchdog, FALSE ends it and polls once.
void LCDCSWatchdogControl(BOOL start);
