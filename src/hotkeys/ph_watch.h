// The watches that carry a client's registry changes to the service: for each watched key a thread that
// sleeps on a named event which the registry's change notification signals.
#pragma once

#include <windows.h>

#include "common/holders.h"

// Index into the table of watches.
enum PHWatchIndex : DWORD {
    PH_WATCH_CURRENT,
    PH_WATCH_OVERRIDE,
    PH_WATCH_TYPE12,
    PH_WATCH_TYPE12_OVERRIDE,
    PH_WATCH_TYPE13,
    PH_WATCH_TYPE13_OVERRIDE,
};

// Leaves the key to the watch, which listens on it and reads from it for the life of the process; null when
// the holder is empty. It needs query and notify access.
HKEY KeepPHWatchKey(PHWatchIndex index, KeyHolder* holder);

// Starts a watch: its event, the key's change notification, its thread; their handles live as long as the
// process. An extended watch opens its key itself and ends at the first failure, which it traces. A classic
// one goes on: without its key or event it sleeps for good. The thread, or null when there is none.
HANDLE StartPHWatch(PHWatchIndex index);
