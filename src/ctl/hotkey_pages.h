// The three pages of hot keys, as the registry shows them.
#pragma once

#include "ctl/ctl.h"

constexpr DWORD KEYS_PER_PAGE = 32;

struct HotkeyPage {
    DWORD page; // 1 to 3
    const wchar_t* capability_key;
    const wchar_t* setting_key;
    const wchar_t* notification_key;
    const wchar_t* capability_value; // null: the default value; also of the notification key
    const wchar_t* setting_value;    // that clients write
    const wchar_t* initial_value;    // where the setting starts while there is none; null: nowhere
};

constexpr DWORD HOTKEY_PAGES = 3;
extern const HotkeyPage g_hotkeyPages[HOTKEY_PAGES];

// The hot keys in NOTIFY mode. FALSE when the page is not published.
bool ReadPageSetting(const HotkeyPage& page, DWORD* mask);

// "12" on page 1, "2:12" on the others.
constexpr DWORD KEY_NAME_CHARACTERS = 16;
void NameHotkey(wchar_t (&name)[KEY_NAME_CHARACTERS], DWORD page, DWORD key);
