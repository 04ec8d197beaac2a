// The notification values, whose bits tell clients of hot keys and of other events: a bit flips once for
// each. Event thread only.
#pragma once

#include <windows.h>

// Pages of hot keys, as an event's code holds them.
constexpr DWORD PH_PAGE_CLASSIC = 0x1000;
constexpr DWORD PH_PAGE_2 = 0x1100;
constexpr DWORD PH_PAGE_3 = 0x1300;

// Whether the firmware tells pages 2 and 3 apart, asked anew on the primary device.
bool FirmwareHasPHPages(HANDLE device);

// Flips the bits of `key_mask` for a hot key of the page, while any hot key of that page is left to clients.
void NotifyPHHotKey(DWORD page, DWORD key_mask);

// Whether a client has taken the classic hot key's built-in action over.
bool IsPHHotKeyOverridden(DWORD key_mask);

// Flip bit k-1 of the notification value "Type2" or "Type22". 0 does nothing.
void NotifyPHType2Event(DWORD k);
void NotifyPHType22Event(DWORD k);
