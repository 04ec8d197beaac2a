// The event pump and the table that names what every hardware event does.
#pragma once

#include <windows.h>

// One record of the driver's event queue.
struct HardwareEvent {
    DWORD code;
    DWORD second; // the event gets its built-in action only when this is 0
};
static_assert(sizeof(HardwareEvent) == 8);

// Fetches one record. Returns 0, or a Win32 error code: 6 when the device cannot be opened, 111 for an answer
// that is no record, else the request's own. The record is zeroed first. Event thread only.
DWORD ChkHotkeyEvent(HardwareEvent* event);

// Publishes the event to clients and runs its built-in action. 0 when handled, 1 when the code is unknown or
// the primary device cannot be opened (the event is then dropped). Event thread only.
DWORD DispatchHotKey(const HardwareEvent& event);
