// The watches that carry a client's registry changes to the service: for each watched key a thread that
// sleeps on a named event which the registry's change notification signals.
#pragma once

#include <atomic>
#include <windows.h>

// Index into the table of watches. The classic two come first, the extended four in their order of starting.
enum PHWatchIndex : DWORD {
    PH_WATCH_CURRENT,
    PH_WATCH_OVERRIDE,
    PH_WATCH_TYPE12,
    PH_WATCH_TYPE12_OVERRIDE,
    PH_WATCH_TYPE13,
    PH_WATCH_TYPE13_OVERRIDE,
    PH_WATCH_COUNT
};

// The extended override value. Kept up to date for clients to come; no decision reads either.
extern std::atomic<DWORD> g_Type10OverrideSetting;
extern std::atomic<DWORD> g_Type13OverrideSetting;

// The thread procedures, one a watch. They ignore their parameter and never return.
DWORD WINAPI PHThreadProc(LPVOID);
DWORD WINAPI PHOverrideThreadProc(LPVOID);
DWORD WINAPI PHType12ThreadProc(LPVOID);
DWORD WINAPI PHType12OverrideThreadProc(LPVOID);
DWORD WINAPI PHType13ThreadProc(LPVOID);
DWORD WINAPI PHType13OverrideThreadProc(LPVOID);

// Gives the watch the key that it listens on and reads from; the watch keeps it open for the life of the
// process. It needs query and notify access. A watch without a key sleeps for good.
void SetPHWatchKey(PHWatchIndex index, HKEY key);

// The three steps of starting a watch, in this order; the handles live as long as the process. The first and
// the last return null on failure, with the system's last error; arming is worth trying whatever happened
// before.
HANDLE CreatePHWatchEvent(PHWatchIndex index);
void ArmPHWatch(PHWatchIndex index);
HANDLE CreatePHWatchThread(PHWatchIndex index);
