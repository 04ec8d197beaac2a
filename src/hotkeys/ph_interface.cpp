// The classic PH interface: one page of 32 hot keys, for firmware of interface version 0x100 or 0x200.
#include "hotkeys/ph_interface.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "driver/firmware_words.h"
#include "hotkeys/ph_watch.h"

#define PH_KEY SERVICE_KEY L"\\Parameters"

std::atomic<DWORD> g_PHCurrentSetting;
std::atomic<DWORD> g_PHOverrideSetting;
std::atomic<HANDLE> g_hPHThread;
std::atomic<HANDLE> g_hPHOverrideThread;

// Event notifications 1 to 31.
constexpr DWORD TYPE2_CAPABILITY = 0x7fffffff;

static BOOL CreateClassicKey(KeyHolder* holder, const wchar_t* path) {
    return CreateKey(holder, HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS);
}

// Leaves the key open for the watch, for the life of the process. Null when there is none.
static HKEY KeepForWatch(KeyHolder* holder, PHWatchIndex watch) {
    HKEY key = holder->key;
    holder->key = nullptr;
    SetPHWatchKey(watch, key);
    return key;
}

static void PublishNoCapability() {
    KeyHolder key;
    if (CreateClassicKey(&key, PH_KEY L"\\Capability"))
        SetDword(key.key, nullptr, 0);
}

static void PublishCapability(HANDLE device, DWORD page) {
    DWORD hot_keys = 0;
    OneWordRequest(device, IOCTL_PMDRV_MHKA, page, &hot_keys);
    KeyHolder key;
    if (!CreateClassicKey(&key, PH_KEY L"\\Capability"))
        return;
    SetDword(key.key, nullptr, hot_keys);
    SetDword(key.key, L"IsExistPMInternalFunction", PH_OVERRIDE_CAPABILITY);
    SetDword(key.key, L"OverrideCapability", PH_OVERRIDE_CAPABILITY);
    SetDword(key.key, L"Type2", TYPE2_CAPABILITY);
}

static void PublishInterfaceVersion(DWORD version) {
    KeyHolder key;
    if (CreateClassicKey(&key, PH_KEY L"\\InterfaceVersion"))
        SetDword(key.key, nullptr, version == MHKV_FIRST ? 0x102 : version + 1);
}

// What a client left there before the service started gives way to the firmware's own state.
static void PublishCurrentSetting(DWORD mask) {
    KeyHolder holder;
    if (!CreateClassicKey(&holder, PH_KEY L"\\CurrentSetting"))
        return;
    SetDword(KeepForWatch(&holder, PH_WATCH_CURRENT), nullptr, mask);
}

// What a client claimed before the service started stays claimed.
static void LoadOverrideSetting() {
    KeyHolder holder;
    DWORD mask = 0;
    if (CreateClassicKey(&holder, PH_KEY L"\\OverrideSetting")) {
        HKEY key = KeepForWatch(&holder, PH_WATCH_OVERRIDE);
        if (!QueryDword(key, nullptr, &mask))
            SetDword(key, nullptr, 0);
    }
    g_PHOverrideSetting = mask;
}

static void PublishNotification(DWORD version, DWORD mask) {
    KeyHolder key;
    if (!CreateClassicKey(&key, PH_KEY L"\\Notification"))
        return;
    DWORD kept = 0;
    if (version == MHKV_FIRST || !QueryDword(key.key, nullptr, &kept))
        SetDword(key.key, nullptr, mask);
    SetDword(key.key, L"Type2", 0);
}

static HANDLE StartClassicWatch(PHWatchIndex watch) {
    CreatePHWatchEvent(watch);
    ArmPHWatch(watch);
    return CreatePHWatchThread(watch);
}

// Says nothing in the trace: on a notebook without the interface all of this is the normal course.
void InitPHInterface() {
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
    g_hPHThread = StartClassicWatch(PH_WATCH_CURRENT);
    g_hPHOverrideThread = StartClassicWatch(PH_WATCH_OVERRIDE);
}

// One of the two values whose bits tell of events other than hot keys.
struct EventNotification {
    const wchar_t* key;
    const wchar_t* value;
    const wchar_t* write_failed;
};

// Flips bit k-1. A value that is not there or not a DWORD stays as it is.
static void FlipNotificationBit(const EventNotification& notification, DWORD k) {
    if (k == 0)
        return;
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, notification.key, KEY_ALL_ACCESS))
        return;
    DWORD bits = 0;
    if (!QueryDword(key.key, notification.value, &bits))
        return;
    bits ^= 1u << ((k - 1) % 32);
    if (!SetDword(key.key, notification.value, bits))
        Trace(notification.write_failed);
}

void NotifyPHType2Event(DWORD k) {
    FlipNotificationBit(
        {PH_KEY L"\\Notification", L"Type2", L"NotifyPHType2Event: Couldn't write registry value.\n"}, k);
}

void NotifyPHType22Event(DWORD k) {
    FlipNotificationBit({SERVICE_KEY L"\\Parameters2\\Type20\\Notification", L"Type22",
                         L"NotifyPHType22Event: Couldn't write registry value.\n"},
                        k);
}
