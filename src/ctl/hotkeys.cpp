#include <windows.h>
#include <strsafe.h>

#include "common/registry.h"
#include "ctl/ctl.h"
#include "ctl/hotkey_pages.h"
#include "ctl/output.h"
#include "ctl/service_link.h"

// clang-format off
const HotkeyPage g_hotkeyPages[HOTKEY_PAGES] = {
    {1, ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_SETTING_KEY, ZORPM_NOTIFICATION_KEY,       nullptr,      nullptr,      nullptr},
    {2, ZORPM_PAGES_CAPABILITY_KEY,  ZORPM_PAGES_SETTING_KEY,  ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE12, nullptr,      ZORPM_TYPE12},
    {3, ZORPM_PAGES_CAPABILITY_KEY,  ZORPM_PAGES_SETTING_KEY,  ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE13, ZORPM_TYPE13, nullptr},
};
// clang-format on

bool ReadPageSetting(const HotkeyPage& page, DWORD* mask) {
    return ReadPublished(page.setting_key, page.setting_value, mask) ||
           (page.initial_value != nullptr && ReadPublished(page.setting_key, page.initial_value, mask));
}

void NameHotkey(wchar_t (&name)[KEY_NAME_CHARACTERS], DWORD page, DWORD key) {
    if (page == 1)
        StringCchPrintfW(name, ARRAYSIZE(name), L"%lu", key);
    else
        StringCchPrintfW(name, ARRAYSIZE(name), L"%lu:%lu", page, key);
}

// ---- list ----

// What the service itself does at a press, unless the key is taken over.
static const wchar_t* OwnAction(DWORD page, DWORD key) {
    if (page != 1)
        return L"none";
    return key == 3 ? L"monitor off, before Windows Vista" : key == 12 ? L"hibernate" : L"none";
}

static void TellHotkey(DWORD page, DWORD key, bool handed_over, bool notify, bool overridden) {
    Record record(L"hotkey");
    AddNumber(&record, L"page", page);
    AddNumber(&record, L"key", key);
    AddFlag(&record, L"can_notify", handed_over);
    AddText(&record, L"mode", notify ? L"NOTIFY" : L"BIOS");
    AddText(&record, L"action", OwnAction(page, key));
    AddFlag(&record, L"overridden", overridden);
    wchar_t name[KEY_NAME_CHARACTERS];
    NameHotkey(name, page, key);
    Tell(&record, L"%6ls  %-6ls  %-10ls  %ls%ls", name, notify ? L"NOTIFY" : L"BIOS",
         handed_over ? L"can notify" : L"fixed", OwnAction(page, key), overridden ? L"; taken over" : L"");
}

// The keys of a page that a client can do something about.
static bool TellPage(const HotkeyPage& page) {
    DWORD capability = 0;
    DWORD setting = 0;
    DWORD own = 0;
    DWORD overridden = 0;
    if (!ReadPublished(page.capability_key, page.capability_value, &capability) ||
        !ReadPageSetting(page, &setting))
        return false;
    if (page.page == 1) {
        ReadPublished(ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_CAN_BE_OVERRIDDEN, &own);
        ReadPublished(ZORPM_HOTKEY_OVERRIDE_KEY, nullptr, &overridden);
        overridden &= own;
    }
    for (DWORD key = 1; key <= KEYS_PER_PAGE; ++key) {
        const DWORD bit = ZORPM_BIT(key);
        if (((capability | setting | own) & bit) != 0)
            TellHotkey(page.page, key, (capability & bit) != 0, (setting & bit) != 0,
                       (overridden & bit) != 0);
    }
    return true;
}

static int ListHotkeys() {
    DWORD pages = 0;
    if (!g_arguments.json)
        Print(L"%6ls  %-6ls  %-10ls  %ls", L"key", L"mode", L"firmware", L"action of the service");
    for (const HotkeyPage& page : g_hotkeyPages)
        pages += TellPage(page) ? 1 : 0;
    if (pages != 0)
        return CTL_DONE;
    Complain(
        L"no hot keys are published: the service has not run, or the firmware has no interface for them");
    return CTL_REFUSED;
}

// ---- changes ----

// N, or PAGE:N.
static bool ReadHotkey(const wchar_t* text, DWORD* page, DWORD* key) {
    wchar_t number[ARGUMENT_CHARACTERS];
    StringCchCopyW(number, ARRAYSIZE(number), text);
    *page = 1;
    if (number[0] != L'\0' && number[1] == L':') {
        number[1] = L'\0';
        if (!ReadNumber(number, page))
            return false;
        StringCchCopyW(number, ARRAYSIZE(number), text + 2);
    }
    return ReadNumber(number, key) && *page >= 1 && *page <= HOTKEY_PAGES && *key >= 1 &&
           *key <= KEYS_PER_PAGE;
}

namespace {

// Holds the mutex that clients change masks under. Whoever is not let at it changes the mask all the same:
// the mutex guards against a lost change, not against a wrong one.
struct MaskLock {
    HandleHolder mutex;
    bool owned = false;

    MaskLock() : mutex(CreateMutexW(nullptr, FALSE, ZORPM_MASK_MUTEX)) {
        if (!mutex.Valid())
            return;
        const DWORD wait = WaitForSingleObject(mutex.handle, g_arguments.timeout_s * 1000);
        owned = wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
    }
    MaskLock(const MaskLock&) = delete;
    MaskLock& operator=(const MaskLock&) = delete;
    ~MaskLock() {
        if (owned)
            ReleaseMutex(mutex.handle);
    }
};

// One mask that a client may change.
struct Mask {
    const wchar_t* key;
    const wchar_t* value;   // null: the default value
    const wchar_t* initial; // where it starts while it is absent; null: it must be there
};

} // namespace

static int ChangeMask(const Mask& mask, DWORD bit, bool set) {
    const MaskLock lock;
    KeyHolder key;
    HKEY opened = nullptr;
    const LSTATUS error =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, mask.key, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, &opened);
    if (error == ERROR_ACCESS_DENIED)
        return NotAllowed(Right::ChangeHotKeys);
    key.key = opened;
    DWORD bits = 0;
    if (error != ERROR_SUCCESS || (!QueryDword(key.key, mask.value, &bits) &&
                                   (mask.initial == nullptr || !QueryDword(key.key, mask.initial, &bits)))) {
        Complain(L"the mask of this page is not published");
        return CTL_REFUSED;
    }
    if (!SetDword(key.key, mask.value, set ? bits | bit : bits & ~bit)) {
        Complain(L"the mask could not be written");
        return CTL_REFUSED;
    }
    return CTL_DONE;
}

static int ChangeMode(DWORD page_number, DWORD number, bool notify) {
    const HotkeyPage& page = g_hotkeyPages[page_number - 1];
    DWORD capability = 0;
    ReadPublished(page.capability_key, page.capability_value, &capability);
    if ((capability & ZORPM_BIT(number)) == 0) {
        Complain(L"the firmware cannot hand this hot key over; see zorpmctl hotkey list");
        return CTL_REFUSED;
    }
    return ChangeMask({page.setting_key, page.setting_value, page.initial_value}, ZORPM_BIT(number), notify);
}

static int ChangeOverride(DWORD page, DWORD number, bool take) {
    DWORD capability = 0;
    ReadPublished(ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_CAN_BE_OVERRIDDEN, &capability);
    if (page != 1 || (capability & ZORPM_BIT(number)) == 0) {
        Complain(L"the service has no action for this hot key that could be taken over");
        return CTL_REFUSED;
    }
    return ChangeMask({ZORPM_HOTKEY_OVERRIDE_KEY, nullptr, nullptr}, ZORPM_BIT(number), take);
}

int RunHotkey() {
    static const struct {
        const wchar_t* word;
        int (*change)(DWORD page, DWORD number, bool set);
        bool set;
    } rows[] = {
        {L"notify", ChangeMode, true},
        {L"bios", ChangeMode, false},
        {L"override", ChangeOverride, true},
        {L"release", ChangeOverride, false},
    };
    if (ArgumentIs(0, L"list") && g_arguments.count == 1)
        return ListHotkeys();
    DWORD page = 0;
    DWORD number = 0;
    for (const auto& row : rows) {
        if (!ArgumentIs(0, row.word))
            continue;
        if (g_arguments.count != 2 || !ReadHotkey(g_arguments.words[1], &page, &number))
            return WrongUse();
        // What is written while it does not run is overwritten at its next start.
        const int running = RequireRunningService();
        return running == CTL_DONE ? row.change(page, number, row.set) : running;
    }
    return WrongUse();
}
