// The lid inhibit: the clients' requests, and its five-minute limit with the timer thread and the watchdog.
#pragma once

#include <windows.h>
#include <atomic>

// Thread slots. The timer's is set once; the watchdog's holds the last one, which may have ended. The control
// handler terminates both at a stop, by the handles it finds here. A watchdog's handle is closed when the
// next takes its place.
extern std::atomic<HANDLE> g_hLCDCSTimerThread;
extern std::atomic<HANDLE> g_hLCDCSWatchdogThread;

// Creates the timer thread; once, at service start.
void StartLCDCSTimerThread();

// Start and stop an inhibit: TRUE when the driver accepted it, which it is also taken to have done when it
// cannot be reached. The limit's watch then starts, or ends with one last poll. Neither waits for the end
// of a thread; each waits at most SUBSYSTEM_WAIT_MS for another's request.
BOOL LCDCSStartInhibit();
BOOL LCDCSStopInhibit();

// The driver's inhibit capability word; 0 when there is none or the driver cannot be reached.
DWORD LCDCSGetInhibitCapability();
