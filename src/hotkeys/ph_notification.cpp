#include "hotkeys/ph_notification.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "driver/firmware_words.h"
#include "hotkeys/ph_masks.h"

namespace {

// A notification value. No key is ever created for it.
struct PHNotification {
    const wchar_t* key;
    const wchar_t* value; // null: the key's default value
    // What becomes of a value that is not there or no DWORD: a hot key's counts as 0, while clients turn
    // event notifications off by deleting theirs.
    bool absent_is_0;
    const wchar_t* write_failed;
};

} // namespace

// clang-format off
static const PHNotification g_classicPage = {ZORPM_NOTIFICATION_KEY,       nullptr,      true,  TRACE_NAME(L"NotifyPHHotKey: Couldn't write registry value.\n")};
static const PHNotification g_page2       = {ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE12, true,  TRACE_NAME(L"NotifyPHHotKey: Couldn't write registry value.\n")};
static const PHNotification g_page3       = {ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE13, true,  TRACE_NAME(L"NotifyPHHotKey: Couldn't write registry value.\n")};
static const PHNotification g_type2       = {ZORPM_NOTIFICATION_KEY,       ZORPM_TYPE2,  false, TRACE_NAME(L"NotifyPHType2Event: Couldn't write registry value.\n")};
static const PHNotification g_type22      = {ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE22, false, TRACE_NAME(L"NotifyPHType22Event: Couldn't write registry value.\n")};
// clang-format on

static void FlipBits(const PHNotification& notification, DWORD mask) {
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, notification.key, KEY_ALL_ACCESS)) {
        Trace(L"FlipBits(0x%lx): no key %ls, nobody is told\n", mask, notification.key);
        return;
    }
    DWORD bits = 0;
    if (!QueryDword(key.key, notification.value, &bits) && !notification.absent_is_0) {
        Trace(L"FlipBits(0x%lx): no value in %ls, nobody is told\n", mask, notification.key);
        return;
    }
    if (!SetDword(key.key, notification.value, bits ^ mask))
        Trace(notification.write_failed);
}

static void FlipEventBit(const PHNotification& notification, DWORD k) {
    if (k != 0)
        FlipBits(notification, 1u << ((k - 1) % 32));
}

OPERATION(bool, FirmwareHasPHPages, (HANDLE device), device) {
    DWORD version = 0;
    OneWordRequest(device, IOCTL_PMDRV_MHKV, 0, &version);
    return version == MHKV_SECOND;
}

namespace {

// The pages, each with the mask that lets its presses through.
struct PHPage {
    DWORD page;
    const std::atomic<DWORD>* current_setting;
    const PHNotification* notification;
};

} // namespace

static const PHPage g_pages[] = {
    {PH_PAGE_CLASSIC, &g_PHCurrentSetting, &g_classicPage},
    {PH_PAGE_2, &g_Type12CurrentSetting, &g_page2},
    {PH_PAGE_3, &g_Type13CurrentSetting, &g_page3},
};

OPERATION(void, NotifyPHHotKey, (DWORD page, DWORD key_mask), page, key_mask) {
    for (const PHPage& row : g_pages) {
        if (row.page != page)
            continue;
        if (*row.current_setting != 0)
            FlipBits(*row.notification, key_mask);
        else
            Trace(L"NotifyPHHotKey(): no hot key of page 0x%lx is handed over\n", page);
    }
}

OPERATION(bool, IsPHHotKeyOverridden, (DWORD key_mask), key_mask) {
    return (key_mask & g_PHOverrideSetting & PH_OVERRIDE_CAPABILITY) != 0;
}

OPERATION(void, NotifyPHType2Event, (DWORD k), k) {
    FlipEventBit(g_type2, k);
}

OPERATION(void, NotifyPHType22Event, (DWORD k), k) {
    FlipEventBit(g_type22, k);
}
