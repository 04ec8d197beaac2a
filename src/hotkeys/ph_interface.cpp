// The classic PH interface: one page of 32 hot keys, for firmware of interface version 0x100 or 0x200.
#include "hotkeys/ph_interface.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "driver/firmware_words.h"
#include "hotkeys/ph_masks.h"
#include "hotkeys/ph_watch.h"

std::atomic<HANDLE> g_hPHThread{nullptr};
std::atomic<HANDLE> g_hPHOverrideThread{nullptr};

// Event notifications 1 to 31.
constexpr DWORD TYPE2_CAPABILITY = 0x7fffffff;

static BOOL CreateClassicKey(KeyHolder* holder, const wchar_t* path) {
    return CreateKey(holder, HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS);
}

static void PublishNoCapability() {
    KeyHolder key;
    if (CreateClassicKey(&key, ZORPM_HOTKEY_CAPABILITY_KEY))
        SetDword(key.key, nullptr, 0);
}

static void PublishCapability(HANDLE device, DWORD page) {
    DWORD hot_keys = 0;
    OneWordRequest(device, IOCTL_PMDRV_MHKA, page, &hot_keys);
    KeyHolder key;
    if (!CreateClassicKey(&key, ZORPM_HOTKEY_CAPABILITY_KEY))
        return;
    SetDword(key.key, nullptr, hot_keys);
    SetDword(key.key, ZORPM_HOTKEY_INTERNAL, PH_OVERRIDE_CAPABILITY);
    SetDword(key.key, ZORPM_HOTKEY_CAN_BE_OVERRIDDEN, PH_OVERRIDE_CAPABILITY);
    SetDword(key.key, ZORPM_HOTKEY_EVENTS, TYPE2_CAPABILITY);
}

static void PublishInterfaceVersion(DWORD version) {
    KeyHolder key;
    if (CreateClassicKey(&key, ZORPM_HOTKEY_VERSION_KEY))
        SetDword(key.key, nullptr, version == MHKV_FIRST ? 0x102 : version + 1);
}

// What a client left there before the service started gives way to the firmware's own state.
static void PublishCurrentSetting(DWORD mask) {
    KeyHolder holder;
    if (!CreateClassicKey(&holder, ZORPM_HOTKEY_SETTING_KEY))
        return;
    SetDword(KeepPHWatchKey(PH_WATCH_CURRENT, &holder), nullptr, mask);
}

// What a client claimed before the service started stays claimed.
static void LoadOverrideSetting() {
    KeyHolder holder;
    DWORD mask = 0;
    if (CreateClassicKey(&holder, ZORPM_HOTKEY_OVERRIDE_KEY)) {
        HKEY key = KeepPHWatchKey(PH_WATCH_OVERRIDE, &holder);
        if (!QueryDword(key, nullptr, &mask))
            SetDword(key, nullptr, 0);
    }
    g_PHOverrideSetting = mask;
}

static void PublishNotification(DWORD version, DWORD mask) {
    KeyHolder key;
    if (!CreateClassicKey(&key, ZORPM_NOTIFICATION_KEY))
        return;
    DWORD kept = 0;
    if (version == MHKV_FIRST || !QueryDword(key.key, nullptr, &kept))
        SetDword(key.key, nullptr, mask);
    SetDword(key.key, ZORPM_TYPE2, 0);
}

// Says nothing in the trace: on a notebook without the interface all of this is the normal course.
OPERATION(void, InitPHInterface, ()) {
    HandleHolder device(OpenDevice(PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE));
    if (!device.Valid())
        return;
    DWORD version = 0;
    if (!OneWordRequest(device.handle, IOCTL_PMDRV_MHKV, 0, &version) || version < MHKV_FIRST) {
        g_PHCurrentSetting = 0;
        PublishNoCapability();
        return;
    }
    const bool classic = version == MHKV_FIRST || version == MHKV_SECOND;
    const DWORD page = version == MHKV_SECOND ? MHK_PAGE_1 : MHK_ONLY_PAGE;
    if (classic)
        PublishCapability(device.handle, page);
    PublishInterfaceVersion(version);
    if (classic) {
        DWORD mask = 0;
        OneWordRequest(device.handle, IOCTL_PMDRV_MHKN, page, &mask);
        g_PHCurrentSetting = mask;
        PublishCurrentSetting(mask);
        LoadOverrideSetting();
        PublishNotification(version, mask);
    }
    device.Release();
    // Without the classic keys the two threads sleep for good.
    g_hPHThread = StartPHWatch(PH_WATCH_CURRENT);
    g_hPHOverrideThread = StartPHWatch(PH_WATCH_OVERRIDE);
}
