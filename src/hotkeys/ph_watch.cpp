#include "hotkeys/ph_watch.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "hotkeys/ph_interface.h"

std::atomic<DWORD> g_Type10OverrideSetting;
std::atomic<DWORD> g_Type13OverrideSetting;

// Hot keys of one page, which is the number of bits of a mask.
constexpr DWORD PAGE_HOT_KEYS = 32;

// Input of MHKM.
struct HotKeyMode {
    DWORD hot_key;
    DWORD mode; // 1 NOTIFY, 0 BIOS
};
static_assert(sizeof(HotKeyMode) == 8);

struct PHWatch {
    const wchar_t* name; // of the event; the thread procedure's without "Proc"
    LPTHREAD_START_ROUTINE procedure;
    const wchar_t* value; // null: the key's default value
    std::atomic<DWORD>* cache;
    DWORD first_hot_key;        // number of the hot key of bit 0; 0 where a change is only remembered
    const wchar_t* read_failed; // trace text; null where an unreadable value needs none
    HKEY key;
    HANDLE event;
    HANDLE thread;
};

// Both extended pages number their hot keys 33 to 64: the firmware tells them apart, or does not.
static PHWatch g_PHWatches[PH_WATCH_COUNT] = {
    {L"PHThread", PHThreadProc, nullptr, &g_PHCurrentSetting, 1,
     L"PHThreadProc(): Couldn't get currentset value.\n", nullptr, nullptr, nullptr},
    {L"PHOverrideThread", PHOverrideThreadProc, nullptr, &g_PHOverrideSetting, 0, nullptr, nullptr, nullptr,
     nullptr},
    {L"PHType12Thread", PHType12ThreadProc, nullptr, &g_Type12CurrentSetting, 33,
     L"PHType12ThreadProc: RegQueryValueEx is failed.\n", nullptr, nullptr, nullptr},
    {L"PHType12OverrideThread", PHType12OverrideThreadProc, nullptr, &g_Type10OverrideSetting, 0, nullptr,
     nullptr, nullptr, nullptr},
    {L"PHType13Thread", PHType13ThreadProc, L"Type13", &g_Type13CurrentSetting, 33,
     L"PHType13ThreadProc: RegQueryValueEx is failed.\n", nullptr, nullptr, nullptr},
    {L"PHType13OverrideThread", PHType13OverrideThreadProc, nullptr, &g_Type13OverrideSetting, 0, nullptr,
     nullptr, nullptr, nullptr},
};

void SetPHWatchKey(PHWatchIndex index, HKEY key) {
    g_PHWatches[index].key = key;
}

HANDLE CreatePHWatchEvent(PHWatchIndex index) {
    PHWatch* watch = &g_PHWatches[index];
    watch->event = CreateEventW(nullptr, FALSE, FALSE, watch->name);
    return watch->event;
}

static BOOL Arm(const PHWatch* watch) {
    return RegNotifyChangeKeyValue(watch->key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, watch->event, TRUE) ==
           ERROR_SUCCESS;
}

void ArmPHWatch(PHWatchIndex index) {
    (void)Arm(&g_PHWatches[index]);
}

HANDLE CreatePHWatchThread(PHWatchIndex index) {
    PHWatch* watch = &g_PHWatches[index];
    watch->thread = CreateThread(nullptr, 0, watch->procedure, nullptr, 0, nullptr);
    return watch->thread;
}

// Sends one MHKM for each hot key whose bit differs, in ascending order. A device that could not be opened
// fails every request. Nothing is tried again: the next change starts from the new mask.
static void PushChangedHotKeys(HANDLE device, DWORD first_hot_key, DWORD former, DWORD mask) {
    for (DWORD i = 0; i < PAGE_HOT_KEYS; ++i) {
        const DWORD bit = 1u << i;
        if (((former ^ mask) & bit) == 0)
            continue;
        const HotKeyMode request = {first_hot_key + i, (mask & bit) != 0 ? 1u : 0u};
        Trace(L"ZORPMSVC <::> Set Hotkey%X to %ls\n", request.hot_key,
              request.mode == 1 ? L"NOTIFY" : L"BIOS");
        ULONGLONG answer = 0;
        DWORD returned = 0;
        if (!SendIoCode(device, IOCTL_PMDRV_MHKM, &request, &answer, &returned))
            Trace(L"ZORPMSVC <::> Fail to invoke MHKM..\n");
    }
}

// The registry tells of one change and no more until the watch is armed again. What a client writes after the
// value was read and before that is seen with the next change only, unless the registry remembers it for the
// key handle.
static void Rearm(const PHWatch* watch) {
    ResetEvent(watch->event);
    if (!Arm(watch))
        Trace(L"%lsProc(): RegNotifyChangeKeyValue is failed.\n", watch->name);
}

static void HandleSettingChange(const PHWatch* watch) {
    // Opened for this pass alone, and closed after the watch is armed again.
    HandleHolder device(OpenDevice(SECONDARY_DEVICE, QUERY_ACCESS, QUERY_SHARE));
    const DWORD former = *watch->cache;
    DWORD mask = former;
    if (!QueryDword(watch->key, watch->value, &mask))
        Trace(watch->read_failed);
    PushChangedHotKeys(device.handle, watch->first_hot_key, former, mask);
    *watch->cache = mask;
    Rearm(watch);
}

static void HandleOverrideChange(const PHWatch* watch) {
    DWORD mask = 0;
    if (QueryDword(watch->key, watch->value, &mask))
        *watch->cache = mask;
    Rearm(watch);
}

[[noreturn]] static void RunPHWatch(PHWatchIndex index) {
    const PHWatch* watch = &g_PHWatches[index];
    Trace(L"Enter %lsProc\n", watch->name);
    for (;;) {
        if (WaitForSingleObject(watch->event, INFINITE) != WAIT_OBJECT_0) {
            // Without an event no change will ever be told, and a failing wait must not become a busy loop.
            Trace(L"%lsProc(): Error: no event to wait on. (%lu)\n", watch->name, GetLastError());
            Sleep(INFINITE);
        } else if (watch->first_hot_key != 0) {
            HandleSettingChange(watch);
        } else {
            HandleOverrideChange(watch);
        }
    }
}

DWORD WINAPI PHThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_CURRENT);
}

DWORD WINAPI PHOverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_OVERRIDE);
}

DWORD WINAPI PHType12ThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE12);
}

DWORD WINAPI PHType12OverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE12_OVERRIDE);
}

DWORD WINAPI PHType13ThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE13);
}

DWORD WINAPI PHType13OverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE13_OVERRIDE);
}
