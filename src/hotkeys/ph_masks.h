// The masks of hot keys, one bit a key of a page.
#pragma once

#include <windows.h>
#include <atomic>
#include <zorpm/zorpm.h>

// What the firmware was told last: bit set, the hot key is left to clients. Set at start, then by the
// watches.
extern std::atomic<DWORD> g_PHCurrentSetting;
extern std::atomic<DWORD> g_Type12CurrentSetting;
extern std::atomic<DWORD> g_Type13CurrentSetting;

// What clients have claimed. The two extended ones are kept for clients to come; no decision reads them.
extern std::atomic<DWORD> g_PHOverrideSetting;
extern std::atomic<DWORD> g_Type10OverrideSetting;
extern std::atomic<DWORD> g_Type13OverrideSetting;

// Hot keys 3 and 12: the only ones whose built-in action a client can take over.
constexpr DWORD PH_OVERRIDE_CAPABILITY = ZORPM_OVERRIDE_MASK;
