// The lid inhibit: the clients' requests, and its five-minute limit with the timer thread and the watchdog.
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

// Start and stop an inhibit: TRUE when the driver accepted it, which it is also taken to have done when it
// cannot be reached. The limit's watch then starts, or ends with one last poll. The control handler's thread
// only; neither waits for a thread.
BOOL LCDCSStartInhibit();
BOOL LCDCSStopInhibit();

// The driver's inhibit capability word; 0 when there is none or the driver cannot be reached.
DWORD LCDCSGetInhibitCapability();
