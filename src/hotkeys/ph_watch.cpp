#include "hotkeys/ph_watch.h"

#include <utility>

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "hotkeys/ph_masks.h"

std::atomic<DWORD> g_PHCurrentSetting{0};
std::atomic<DWORD> g_Type12CurrentSetting{0};
std::atomic<DWORD> g_Type13CurrentSetting{0};
std::atomic<DWORD> g_PHOverrideSetting{0};
std::atomic<DWORD> g_Type10OverrideSetting{0};
std::atomic<DWORD> g_Type13OverrideSetting{0};

// Hot keys of one page, which is the number of bits of a mask.
constexpr DWORD PAGE_HOT_KEYS = 32;

namespace {

// Input of MHKM.
struct HotKeyMode {
    DWORD hot_key;
    DWORD mode; // 1 NOTIFY, 0 BIOS
};
static_assert(sizeof(HotKeyMode) == 8);

struct PHWatch {
    const wchar_t* name; // of the event; the thread procedure's without "Proc"
    LPTHREAD_START_ROUTINE procedure;
    std::atomic<DWORD>* cache;
    const wchar_t* path;  // of the key that the watch opens; null where it is given one
    const wchar_t* value; // null: the key's default value
    DWORD first_hot_key;  // number of the hot key of bit 0; 0 where a change is only remembered
    bool publish;         // the mask is written to the value before the watch is armed
    // Trace texts; null where a failure needs none and stops nothing.
    const wchar_t* read_failed;
    const wchar_t* event_failed;
    const wchar_t* thread_failed;
    HKEY key = nullptr;
    HANDLE event = nullptr;
    DWORD idle_passes = 0; // since the mask last differed, or the key was opened anew
};

} // namespace

// Passes without a change after which a watch listens on a new handle. Its event has a name that others can
// set: each pass asks for one more notification, and all of them stay pending until the key changes or its
// handle is closed.
constexpr DWORD MOST_IDLE_PASSES = 50;

// The thread procedures, one a watch. They ignore their parameter and never return.
static DWORD WINAPI PHThreadProc(LPVOID);
static DWORD WINAPI PHOverrideThreadProc(LPVOID);
static DWORD WINAPI PHType12ThreadProc(LPVOID);
static DWORD WINAPI PHType12OverrideThreadProc(LPVOID);
static DWORD WINAPI PHType13ThreadProc(LPVOID);
static DWORD WINAPI PHType13OverrideThreadProc(LPVOID);

// One current-setting key serves both extended pages: a client writes its page-2 mask to the key's default
// value and its page-3 mask to "Type13". "Type12" only tells the state at start; writing it moves nothing. At
// start the firmware's page-2 mask takes the place of one that a client left there: the next change of
// whatever value would push the old mask. The family has one override value, which stands for both pages.
// Both pages number their hot keys 33 to 64: the firmware tells them apart, or does not.
static PHWatch g_PHWatches[] = {
    {L"PHThread", PHThreadProc, &g_PHCurrentSetting, nullptr, nullptr, 1, false,
     TRACE_NAME(L"PHThreadProc(): Couldn't get currentset value.\n"), nullptr, nullptr},
    {L"PHOverrideThread", PHOverrideThreadProc, &g_PHOverrideSetting, nullptr, nullptr, 0, false, nullptr,
     nullptr, nullptr},
    {L"PHType12Thread", PHType12ThreadProc, &g_Type12CurrentSetting, ZORPM_PAGES_SETTING_KEY, nullptr, 33,
     true, TRACE_NAME(L"PHType12ThreadProc: RegQueryValueEx is failed.\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type12 event. (%d)\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type12 thread. (%d)\n")},
    {L"PHType12OverrideThread", PHType12OverrideThreadProc, &g_Type10OverrideSetting,
     ZORPM_PAGES_OVERRIDE_KEY, nullptr, 0, false, nullptr,
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type12OverrideEvent. (%d)\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type12 Override thread. (%d)\n")},
    {L"PHType13Thread", PHType13ThreadProc, &g_Type13CurrentSetting, ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE13,
     33, false, TRACE_NAME(L"PHType13ThreadProc: RegQueryValueEx is failed.\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type13 event. (%d)\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type13 thread. (%d)\n")},
    {L"PHType13OverrideThread", PHType13OverrideThreadProc, &g_Type13OverrideSetting,
     ZORPM_PAGES_OVERRIDE_KEY, nullptr, 0, false, nullptr,
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type13 Override event. (%d)\n"),
     TRACE_NAME(L"Error: Initialize_PH_Ex_Thread(): fail to create Type13 Override thread. (%d)\n")},
};

HKEY KeepPHWatchKey(PHWatchIndex index, KeyHolder* holder) {
    HKEY key = holder->key;
    holder->key = nullptr;
    g_PHWatches[index].key = key;
    return key;
}

static void OpenWatchedKey(PHWatch* watch) {
    KeyHolder holder;
    const REGSAM access = KEY_QUERY_VALUE | KEY_NOTIFY | (watch->publish ? KEY_SET_VALUE : 0);
    if (!OpenKey(&holder, HKEY_LOCAL_MACHINE, watch->path, access))
        return;
    if (watch->publish && !SetDword(holder.key, watch->value, *watch->cache))
        Trace(L"OpenWatchedKey(): Error: the mask of %ls not written.\n", watch->name);
    watch->key = holder.key;
    holder.key = nullptr;
}

static BOOL Arm(const PHWatch* watch) {
    return RegNotifyChangeKeyValue(watch->key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, watch->event, TRUE) ==
           ERROR_SUCCESS;
}

OPERATION(HANDLE, StartPHWatch, (PHWatchIndex index), index) {
    PHWatch* watch = &g_PHWatches[index];
    watch->event = CreateEventW(nullptr, FALSE, FALSE, watch->name);
    if (watch->event == nullptr && watch->event_failed != nullptr) {
        Trace(watch->event_failed, GetLastError());
        return nullptr;
    }
    if (watch->path != nullptr)
        OpenWatchedKey(watch);
    Arm(watch);
    HANDLE thread = CreateThread(nullptr, 0, watch->procedure, nullptr, 0, nullptr);
    if (thread == nullptr && watch->thread_failed != nullptr)
        Trace(watch->thread_failed, GetLastError());
    return thread;
}

// Sends one MHKM for each hot key whose bit differs, in ascending order. A device that could not be opened
// fails every request. Nothing is tried again: the next change starts from the new mask.
static void PushChangedHotKeys(HANDLE device, DWORD first_hot_key, DWORD former, DWORD mask) {
    if (former == mask)
        Trace(L"PushChangedHotKeys(): mask 0x%lx as before, nothing to push\n", mask);
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

// A new handle of the watched key takes the former one's place; what is pending there ends.
static bool RenewKey(PHWatch* watch) {
    KeyHolder key;
    if (!OpenKey(&key, watch->key, L"", KEY_QUERY_VALUE | KEY_NOTIFY))
        return false;
    std::swap(key.key, watch->key);
    watch->idle_passes = 0;
    return true;
}

// The registry tells of one change and no more until the watch is armed again. What a client writes after the
// value was read and before that is seen with the next change only, unless the registry remembers it for the
// key handle. TRUE: that handle is a new one, which remembers nothing: read once more.
static bool Rearm(PHWatch* watch, bool changed) {
    watch->idle_passes = changed ? 0 : watch->idle_passes + 1;
    const bool renewed = watch->idle_passes >= MOST_IDLE_PASSES && RenewKey(watch);
    ResetEvent(watch->event);
    if (!Arm(watch))
        Trace(L"%lsProc(): RegNotifyChangeKeyValue is failed.\n", watch->name);
    return renewed;
}

// Reads the mask and pushes what differs from the former one; whether anything does.
static bool PushSetting(const PHWatch* watch, HANDLE device) {
    const DWORD former = *watch->cache;
    DWORD mask = former;
    if (!QueryDword(watch->key, watch->value, &mask))
        Trace(watch->read_failed);
    PushChangedHotKeys(device, watch->first_hot_key, former, mask);
    *watch->cache = mask;
    return mask != former;
}

static void HandleSettingChange(PHWatch* watch) {
    // Opened for this pass alone, and closed after the watch is armed again.
    HandleHolder device(OpenDevice(SECONDARY_DEVICE, QUERY_ACCESS, QUERY_SHARE));
    if (Rearm(watch, PushSetting(watch, device.handle)))
        PushSetting(watch, device.handle);
}

// Whether the mask is another one now.
static bool ReadOverride(const PHWatch* watch) {
    const DWORD former = *watch->cache;
    DWORD mask = former;
    if (QueryDword(watch->key, watch->value, &mask))
        *watch->cache = mask;
    return *watch->cache != former;
}

static void HandleOverrideChange(PHWatch* watch) {
    if (Rearm(watch, ReadOverride(watch)))
        ReadOverride(watch);
}

[[noreturn]] static void RunPHWatch(PHWatchIndex index) {
    PHWatch* watch = &g_PHWatches[index];
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

static DWORD WINAPI PHThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_CURRENT);
}

static DWORD WINAPI PHOverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_OVERRIDE);
}

static DWORD WINAPI PHType12ThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE12);
}

static DWORD WINAPI PHType12OverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE12_OVERRIDE);
}

static DWORD WINAPI PHType13ThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE13);
}

static DWORD WINAPI PHType13OverrideThreadProc(LPVOID) {
    RunPHWatch(PH_WATCH_TYPE13_OVERRIDE);
}
