#include <windows.h>
#include <strsafe.h>

#include "common/registry.h"
#include "ctl/ctl.h"
#include "ctl/hotkey_pages.h"
#include "ctl/interrupts.h"
#include "ctl/output.h"
#include "ctl/service_link.h"
#include "ctl/words.h"

// Between two looks at the service's state, which no registry value tells.
constexpr DWORD LOOK_PERIOD_MS = 2000;

namespace {

enum Group : DWORD { HOTKEYS = 1, EVENTS = 2, COOLING = 4, ALL = 7 };

struct WatchedValue;

// Tells of a change. `before` is 0 for a value that was not there.
using TellChange = void (*)(const WatchedValue& value, DWORD before, DWORD now);

struct WatchedValue {
    Group group;
    const wchar_t* key;
    const wchar_t* value; // null: the default value
    TellChange tell;
    bool toggles;        // bits that flip with what they tell of, and that a start of the service resets
    DWORD page;          // of hot keys
    const wchar_t* name; // of a thermal function
};

} // namespace

constexpr DWORD STAMP_CHARACTERS = 24;

static void NowStamp(wchar_t (&stamp)[STAMP_CHARACTERS]) {
    SYSTEMTIME now = {};
    GetLocalTime(&now);
    StringCchPrintfW(stamp, ARRAYSIZE(stamp), L"%04d-%02d-%02d %02d:%02d:%02d", int{now.wYear},
                     int{now.wMonth}, int{now.wDay}, int{now.wHour}, int{now.wMinute}, int{now.wSecond});
}

namespace {

// A record of this moment; the text for people follows the stamp.
struct StampedRecord : Record {
    wchar_t stamp[STAMP_CHARACTERS];

    explicit StampedRecord(const wchar_t* kind) : Record(kind) {
        NowStamp(stamp);
        AddText(this, L"time", stamp);
    }
};

} // namespace

// ---- one line a change ----

static void TellHotkeyBit(const WatchedValue& value, DWORD key, const wchar_t* what) {
    wchar_t name[KEY_NAME_CHARACTERS];
    NameHotkey(name, value.page, key);
    StampedRecord record(L"hotkey");
    AddNumber(&record, L"page", value.page);
    AddNumber(&record, L"key", key);
    AddText(&record, L"change", what);
    Tell(&record, L"%ls  hot key %ls  %ls", record.stamp, name, what);
}

// Runs `tell` for each bit that differs; `set` is what it is now.
template <typename T> static void ForChangedBits(DWORD before, DWORD now, T tell) {
    for (DWORD n = 1; n <= KEYS_PER_PAGE; ++n) {
        if (((before ^ now) & ZORPM_BIT(n)) != 0)
            tell(n, (now & ZORPM_BIT(n)) != 0);
    }
}

static void TellPress(const WatchedValue& value, DWORD before, DWORD now) {
    ForChangedBits(before, now, [&value](DWORD key, bool) { TellHotkeyBit(value, key, L"pressed"); });
}

static void TellMode(const WatchedValue& value, DWORD before, DWORD now) {
    ForChangedBits(before, now,
                   [&value](DWORD key, bool set) { TellHotkeyBit(value, key, set ? L"NOTIFY" : L"BIOS"); });
}

static void TellOverride(const WatchedValue& value, DWORD before, DWORD now) {
    ForChangedBits(before, now, [&value](DWORD key, bool set) {
        TellHotkeyBit(value, key, set ? L"taken over" : L"released");
    });
}

static void TellNotification(const wchar_t* family, DWORD k, const wchar_t* words) {
    StampedRecord record(L"event");
    AddText(&record, L"value", family);
    AddNumber(&record, L"number", k);
    AddText(&record, L"event", words);
    Tell(&record, L"%ls  event  %ls  (%ls %lu)", record.stamp, words, family, k);
}

static void TellType2(const WatchedValue&, DWORD before, DWORD now) {
    ForChangedBits(before, now, [](DWORD k, bool) { TellNotification(ZORPM_TYPE2, k, Type2Words(k)); });
}

static void TellType22(const WatchedValue&, DWORD before, DWORD now) {
    ForChangedBits(before, now, [](DWORD k, bool) { TellNotification(ZORPM_TYPE22, k, Type22Words(k)); });
}

static void TellWords(const wchar_t* kind, const wchar_t* words) {
    StampedRecord record(kind);
    AddText(&record, L"state", words);
    Tell(&record, L"%ls  %ls  %ls", record.stamp, kind, words);
}

static void TellPostureChange(const WatchedValue&, DWORD, DWORD now) {
    TellWords(L"posture", PostureWords(now));
}

static void TellLidChange(const WatchedValue&, DWORD, DWORD now) {
    TellWords(L"lid", LidWords(now));
}

static void TellCoolingValue(const WatchedValue& value, DWORD, DWORD now) {
    StampedRecord record(L"cooling");
    AddText(&record, L"function", value.name);
    AddText(&record, L"value", value.value);
    AddNumber(&record, L"number", now);
    Tell(&record, L"%ls  cooling  %ls %ls = %lu", record.stamp, value.name, value.value, now);
}

// ---- what is watched ----

#define FUNCTION_VALUES(bit, subkey, name, status)                                                           \
    {COOLING,    ZORPM_COOLING_V3_KEY L"\\" #subkey, ZORPM_COOLING_SETTING, TellCoolingValue, false, 0,      \
     L"" #subkey},                                                                                           \
        {COOLING,    ZORPM_COOLING_V3_KEY L"\\" #subkey, ZORPM_COOLING_STATUS, TellCoolingValue, false, 0,   \
         L"" #subkey},
#define TIO_KEY ZORPM_COOLING_V3_KEY L"\\TIO"

// clang-format off
static const WatchedValue g_watched[] = {
    {HOTKEYS, ZORPM_HOTKEY_SETTING_KEY,      nullptr,      TellMode,          false, 1, nullptr},
    {HOTKEYS, ZORPM_PAGES_SETTING_KEY,       nullptr,      TellMode,          false, 2, nullptr},
    {HOTKEYS, ZORPM_PAGES_SETTING_KEY,       ZORPM_TYPE13, TellMode,          false, 3, nullptr},
    {HOTKEYS, ZORPM_HOTKEY_OVERRIDE_KEY,     nullptr,      TellOverride,      false, 1, nullptr},
    {HOTKEYS, ZORPM_NOTIFICATION_KEY,        nullptr,      TellPress,         true,  1, nullptr},
    {HOTKEYS, ZORPM_PAGES_NOTIFICATION_KEY,  ZORPM_TYPE12, TellPress,         true,  2, nullptr},
    {HOTKEYS, ZORPM_PAGES_NOTIFICATION_KEY,  ZORPM_TYPE13, TellPress,         true,  3, nullptr},
    {EVENTS,  ZORPM_NOTIFICATION_KEY,        ZORPM_TYPE2,  TellType2,         true,  0, nullptr},
    {EVENTS,  ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE22, TellType22,        true,  0, nullptr},
    {EVENTS,  ZORPM_POSTURE_KEY,             ZORPM_POSTURE, TellPostureChange, false, 0, nullptr},
    {EVENTS,  ZORPM_POSTURE_KEY,             ZORPM_LID,    TellLidChange,     false, 0, nullptr},
    {COOLING, ZORPM_COOLING_V2_KEY, ZORPM_COOLING_CAPABILITY, TellCoolingValue, false, 0, L"TMCT"},
    {COOLING, ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SETTING,    TellCoolingValue, false, 0, L"TMCT"},
    ZORPM_COOLING_FUNCTIONS(FUNCTION_VALUES)
    {COOLING, TIO_KEY, ZORPM_TIO_OPTION,  TellCoolingValue, false, 0, L"TIO"},
    {COOLING, TIO_KEY, ZORPM_TIO_ON_HAND, TellCoolingValue, false, 0, L"TIO"},
};
// clang-format on

namespace {

struct SeenValue {
    bool there;
    DWORD number;
};

struct Watch {
    DWORD groups;
    DWORD state;   // of the service
    DWORD process; // its id, 0 while there is none
    SeenValue seen[ARRAYSIZE(g_watched)];
};

} // namespace

static SeenValue ReadWatched(const WatchedValue& value) {
    SeenValue seen = {};
    seen.there = ReadPublished(value.key, value.value, &seen.number);
    return seen;
}

// Reads every value and tells what differs. `fresh`: the service has started since the last look, so flipped
// bits are its resetting them.
static void LookAtValues(Watch* watch, bool fresh) {
    for (DWORD i = 0; i < ARRAYSIZE(g_watched); ++i) {
        const WatchedValue& value = g_watched[i];
        if ((value.group & watch->groups) == 0)
            continue;
        const SeenValue before = watch->seen[i];
        const SeenValue now = ReadWatched(value);
        watch->seen[i] = now;
        const bool changed = now.there && (before.number != now.number || !before.there);
        // A value of bits that has just been made tells nothing, any other one its first state.
        if (changed && !(value.toggles && (fresh || !before.there)))
            value.tell(value, before.there ? before.number : 0, now.number);
    }
}

// True when the values may have been reset since the last look.
static bool LookAtService(Watch* watch) {
    SERVICE_STATUS_PROCESS status = {};
    QueryZorpmService(&status);
    const bool reset = status.dwProcessId != watch->process ||
                       status.dwCurrentState == SERVICE_START_PENDING ||
                       watch->state == SERVICE_START_PENDING;
    if (status.dwCurrentState != watch->state)
        TellWords(L"service", ServiceStateName(status.dwCurrentState));
    watch->process = status.dwProcessId;
    watch->state = status.dwCurrentState;
    return reset;
}

// Armed before every reading: what changes afterwards signals the event. Written values and new keys, of the
// service's key and all below it.
static bool Arm(HKEY key, HANDLE changed) {
    return RegNotifyChangeKeyValue(key, TRUE, REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET, changed,
                                   TRUE) == ERROR_SUCCESS;
}

static int WatchValues(DWORD groups, HKEY key) {
    HANDLE interrupted = CatchInterrupts();
    if (interrupted == nullptr)
        return CTL_REFUSED;
    const HandleHolder changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const HANDLE handles[] = {interrupted, changed.handle};
    Watch watch = {};
    watch.groups = groups;
    if (!Arm(key, changed.handle)) {
        Complain(L"the service's key cannot be watched");
        return CTL_REFUSED;
    }
    LookAtService(&watch);
    for (DWORD i = 0; i < ARRAYSIZE(g_watched); ++i)
        watch.seen[i] = ReadWatched(g_watched[i]);
    // However often something changes meanwhile, it ends in time.
    const ULONGLONG end_ms = GetTickCount64() + g_arguments.timeout_s * ULONGLONG{1000};
    for (;;) {
        const ULONGLONG now_ms = GetTickCount64();
        if (g_arguments.timed && now_ms >= end_ms)
            break;
        const bool last = g_arguments.timed && end_ms - now_ms < LOOK_PERIOD_MS;
        const DWORD period_ms = last ? static_cast<DWORD>(end_ms - now_ms) : LOOK_PERIOD_MS;
        const DWORD result = WaitForMultipleObjects(ARRAYSIZE(handles), handles, FALSE, period_ms);
        if (result == WAIT_OBJECT_0)
            break;
        if (result == WAIT_FAILED) {
            Complain(L"cannot wait, error %lu", GetLastError());
            return CTL_REFUSED;
        }
        if (result != WAIT_TIMEOUT && !Arm(key, changed.handle)) {
            Complain(L"the service's key has been deleted");
            return CTL_NOT_RUNNING;
        }
        const bool reset = LookAtService(&watch);
        LookAtValues(&watch, reset);
    }
    InterruptHandled();
    return CTL_DONE;
}

int RunWatch() {
    static const struct {
        const wchar_t* word;
        DWORD groups;
    } rows[] = {{L"hotkeys", HOTKEYS}, {L"events", EVENTS}, {L"cooling", COOLING}, {L"all", ALL}};
    DWORD groups = 0;
    if (g_arguments.count == 0)
        groups = ALL;
    for (const auto& row : rows) {
        if (ArgumentIs(0, row.word))
            groups = row.groups;
    }
    if (groups == 0)
        return WrongUse();
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, ZORPM_SERVICE_KEY, KEY_NOTIFY)) {
        Complain(L"the service is not installed");
        return CTL_NOT_RUNNING;
    }
    return WatchValues(groups, key.key);
}
