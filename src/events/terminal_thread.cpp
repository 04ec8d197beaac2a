#include "events/terminal_thread.h"

#include "common/trace.h"
#include "driver/notification_events.h"
#include "events/dispatch.h"

constexpr DWORD WAIT_PERIOD_MS = 2000;
constexpr DWORD FAILED_FETCH_PAUSE_MS = 20;

// Fetches one hardware event and dispatches it; pauses when none could be fetched.
static OPERATION(void, HandleNotifyEvent, ()) {
    HardwareEvent event = {};
    const DWORD error = ChkHotkeyEvent(&event);
    if (error != ERROR_SUCCESS) {
        Trace(L"HandleNotifyEvent(): Error: no event fetched. (%lu)\n", error);
        Sleep(FAILED_FETCH_PAUSE_MS);
        return;
    }
    DispatchHotKey(event);
}

// Waits for any of the five events. The result is the event's index, or what the wait reports otherwise.
// An event that could not be created is left out; the lowest index still wins.
static DWORD WaitForDriver() {
    HANDLE events[DRIVER_NOTIFICATION_EVENT_COUNT];
    DWORD indexes[DRIVER_NOTIFICATION_EVENT_COUNT];
    DWORD count = 0;
    for (DWORD i = 0; i < DRIVER_NOTIFICATION_EVENT_COUNT; ++i) {
        if (g_hDriverNotificationEvents[i] == nullptr)
            continue;
        events[count] = g_hDriverNotificationEvents[i];
        indexes[count] = i;
        ++count;
    }
    const DWORD result =
        count != 0 ? WaitForMultipleObjects(count, events, FALSE, WAIT_PERIOD_MS) : WAIT_FAILED;
    if (result < WAIT_OBJECT_0 + count)
        return indexes[result - WAIT_OBJECT_0];
    // A wait that fails does so at once; without a pause the loop would spin.
    if (result == WAIT_FAILED)
        Sleep(WAIT_PERIOD_MS);
    return result;
}

OPERATION(DWORD WINAPI, TerminalThread, ([[maybe_unused]] void* parameter), parameter) {
    CreateDriverNotificationEvents();
    RegisterDriverNotificationEvents();
    bool running = true;
    while (running) {
        const DWORD index = WaitForDriver();
        switch (index) {
        case EVENT_PMD_EVENT_NOTIFY_START:
        case EVENT_PMD_EVENT_NOTIFY_SLEEP:
        case EVENT_PMD_EVENT_NOTIFY_RESUME:
            ResetEvent(g_hDriverNotificationEvents[index]);
            break;
        case EVENT_PMD_EVENT_NOTIFY_STOP:
            running = false;
            break;
        case EVENT_PMD_EVENT_NOTIFY_NOTIFYEVENT:
            // The driver resets this one when its queue is empty; until then every pass fetches one more.
            HandleNotifyEvent();
            break;
        default: // a period without events, or a failed wait
            break;
        }
    }
    ResetEvent(g_hDriverNotificationEvents[EVENT_PMD_EVENT_NOTIFY_STOP]);
    CloseDriverNotificationEvents();
    return 0;
}
