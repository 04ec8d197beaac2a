// The five kernel events through which the driver wakes the service, and the announcement of the service.
#pragma once

#include <windows.h>

// Index in the wait array, which is also the wait result.
enum : DWORD {
    EVENT_PMD_EVENT_NOTIFY_START,
    EVENT_PMD_EVENT_NOTIFY_STOP,
    EVENT_PMD_EVENT_NOTIFY_SLEEP,
    EVENT_PMD_EVENT_NOTIFY_RESUME,
    EVENT_PMD_EVENT_NOTIFY_NOTIFYEVENT,
    DRIVER_NOTIFICATION_EVENT_COUNT
};

// The events, in index order; null where an event could not be created. TerminalThread only.
extern HANDLE g_hDriverNotificationEvents[DRIVER_NOTIFICATION_EVENT_COUNT];

// Creates the five manual-reset events. A failure leaves a null entry.
void CreateDriverNotificationEvents();

// Hand the five handles to the driver, or withdraw them (48 zero bytes). Nothing is sent when the device
// cannot be opened; the request's result is of no interest.
void RegisterDriverNotificationEvents();
void UnregisterDriverNotificationEvents();

// Unregisters, then closes the five handles.
void CloseDriverNotificationEvents();

// Announces (TRUE) or withdraws (FALSE) the service at the driver and publishes or removes its capability
// values. FALSE at the first failing step.
BOOL MakeConnect(BOOL connect);
