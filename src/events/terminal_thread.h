// The notification thread: waits on the driver's events for the life of the service.
#pragma once

#include <windows.h>

// Thread procedure; the parameter is not used. Returns 0 once the driver has signalled its stop; the service
// goes on without hardware events then.
DWORD WINAPI TerminalThread(void* parameter);
