// Standby: the monitor is turned off at a hot key's or a client's request.
#pragma once

#include <windows.h>
#include <atomic>

// Asks for the monitor to be turned off through the interactive user's power scheme; does not wait for it.
void StandbySystem();

// Thread slot of a client's request, null while none runs. The thread closes its own handle as it empties the
// slot.
extern std::atomic<HANDLE> g_hMonitorOffThread;

// StandbySystem on a thread of its own; a request while another one runs is dropped. Control handler's thread
// only.
void StartMonitorOff();

// Called before the stop control looks at the slot: a thread that empties it after that look leaves its
// handle open, so that no closed one is terminated by.
void KeepMonitorOffThreadHandle();
