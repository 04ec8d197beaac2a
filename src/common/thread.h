// Threads whose handle others find in a process-wide slot.
#pragma once

#include <windows.h>
#include <atomic>

// Starts a thread (its parameter is null) and leaves its handle in the slot, which it finds filled; nothing
// is done while the slot is taken. FALSE when there is no new thread; the slot is then as it was. One thread
// at a time may start into a slot.
BOOL StartThreadInSlot(LPTHREAD_START_ROUTINE procedure, std::atomic<HANDLE>* slot);
