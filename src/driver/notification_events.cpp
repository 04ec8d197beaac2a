#include "driver/notification_events.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/firmware.h"

HANDLE g_hDriverNotificationEvents[DRIVER_NOTIFICATION_EVENT_COUNT];

static const wchar_t* const g_eventNames[DRIVER_NOTIFICATION_EVENT_COUNT] = {
    L"Global\\MestraPowerManagementDriverEventNotifyStart",
    L"Global\\MestraPowerManagementDriverEventNotifyStop",
    L"Global\\MestraPowerManagementDriverEventNotifySleep",
    L"Global\\MestraPowerManagementDriverEventNotifyResume",
    L"Global\\MestraPowerManagementDriverEventNotifyNotifyEvent",
};

namespace {

// Input of the register and unregister requests.
struct EventRegistration {
    ULONGLONG reserved;
    ULONGLONG handles[DRIVER_NOTIFICATION_EVENT_COUNT];
};
static_assert(sizeof(EventRegistration) == 48);

} // namespace

OPERATION(void, CreateDriverNotificationEvents, ()) {
    for (DWORD i = 0; i < DRIVER_NOTIFICATION_EVENT_COUNT; ++i) {
        g_hDriverNotificationEvents[i] = CreateEventW(nullptr, TRUE, FALSE, g_eventNames[i]);
        if (g_hDriverNotificationEvents[i] == nullptr)
            Trace(L"CreateDriverNotificationEvents(): Error: event %lu not created. (%lu)\n", i,
                  GetLastError());
    }
}

static void SendRegistration(DWORD code, const EventRegistration& registration) {
    HandleHolder device(OpenDevice(SECONDARY_DEVICE, FULL_ACCESS, FULL_SHARE));
    if (!device.Valid()) {
        Trace(L"SendRegistration(): Error: device not opened. (%lu)\n", GetLastError());
        return;
    }
    ULONGLONG answer = 0;
    DWORD returned = 0;
    if (!SendIoCode(device.handle, code, &registration, &answer, &returned))
        Trace(L"SendRegistration(): Error: request 0x%lx failed. (%lu)\n", code, GetLastError());
}

OPERATION(void, RegisterDriverNotificationEvents, ()) {
    EventRegistration registration = {};
    for (DWORD i = 0; i < DRIVER_NOTIFICATION_EVENT_COUNT; ++i)
        registration.handles[i] = reinterpret_cast<ULONG_PTR>(g_hDriverNotificationEvents[i]);
    SendRegistration(IOCTL_PMDRV_REGISTEREVENTS, registration);
}

OPERATION(void, UnregisterDriverNotificationEvents, ()) {
    SendRegistration(IOCTL_PMDRV_UNREGISTEREVENTS, EventRegistration{});
}

OPERATION(void, CloseDriverNotificationEvents, ()) {
    UnregisterDriverNotificationEvents();
    for (HANDLE& event : g_hDriverNotificationEvents) {
        if (event != nullptr)
            CloseHandle(event);
        event = nullptr;
    }
}

static BOOL PublishCapabilities() {
    KeyHolder key;
    if (!CreateKey(&key, HKEY_LOCAL_MACHINE, ZORPM_CAPABILITY_KEY, KEY_READ | KEY_WRITE))
        return FALSE;
    if (!SetDword(key.key, ZORPM_CAPABILITY_LID_BEEP, 1))
        return FALSE;
    // Capability mask of the custom control codes, for clients.
    if (!SetDword(key.key, ZORPM_CAPABILITY_CODES, 3))
        return FALSE;
    DWORD creation = 0;
    if (!QueryDword(key.key, ZORPM_CAPABILITY_HIBERFILE, &creation))
        SetDword(key.key, ZORPM_CAPABILITY_HIBERFILE, 1);
    return TRUE;
}

OPERATION(BOOL, MakeConnect, (BOOL connect), connect) {
    DriverHandles holder;
    DWORD result = 0;
    if (!PMDRVSIoControl(&holder, IOCTL_PMDRV_CONNECT, connect ? 1 : 0, &result)) {
        Trace(L"MakeConnect(): Error: connect request failed. (%lu)\n", GetLastError());
        return FALSE;
    }
    if (connect)
        return PublishCapabilities();
    // A key that still has subkeys stays; so be it.
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, ZORPM_CAPABILITY_KEY);
    return TRUE;
}
