// The worker threads: of version 2, for as long as Adaptive Cooling runs, and of version 3, until the
// firmware is initialised. Workers are created and ended by one thread at a time: the service's own at start
// and stop, the control handler's in between. Results are nonzero on success.
#pragma once

#include <windows.h>

// The first step of every start: ends the worker of an earlier one, of either version, and forgets the attach
// and detach events that nobody has handled. Later ones wait for the next worker. Fails when a worker could
// not be ended; it is then still recorded.
BOOL AdaptiveCoolingRetireWorkers();

// Creates the version 2 worker and starts it; none may be recorded.
BOOL AdaptiveCoolingCreateWorkerThread();

// Tells the worker to end and waits until it has, however long its present firmware request takes. Fails when
// there is no worker.
BOOL AdaptiveCoolingTerminateWorkerThread();

// Hand an attach or detach to the version 2 worker. May be called from any thread. Fail before the first
// start.
BOOL AdaptiveCoolingRiseEventOfOptionAttached();
BOOL AdaptiveCoolingRiseEventOfOptionDetached();

// Create and terminate version 3's initialise worker.
BOOL AdaptiveCoolingCreateInitilizeWorkerThread();
BOOL AdaptiveCoolingTerminateInitilizeWorkerThread();

// Whether version 3's worker exists and still waits for the firmware.
BOOL AdaptiveCoolingInitilizeWorkerWaits();
