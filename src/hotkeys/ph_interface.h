// The PH interface: hot-key personalisation through the registry.
#pragma once

#include <atomic>
#include <windows.h>

// The masks last pushed to the firmware or read from clients. Written by the watch threads, read by the
// dispatcher.
extern std::atomic<DWORD> g_PHCurrentSetting;
extern std::atomic<DWORD> g_PHOverrideSetting;
extern std::atomic<DWORD> g_Type12CurrentSetting;
extern std::atomic<DWORD> g_Type13CurrentSetting;

// Thread slots of the classic watches, null while the thread does not run.
extern std::atomic<HANDLE> g_hPHThread;
extern std::atomic<HANDLE> g_hPHOverrideThread;

// Hot keys 3 and 12: the only ones whose built-in action a client can take over.
constexpr DWORD PH_OVERRIDE_CAPABILITY = 0x804;

// Build the interface and start its watches; service start, in this order. The result of the second is TRUE
// when the whole extended interface stands.
void InitPHInterface();
BOOL InitPHInterfaceEx();

// Flip bit k-1 of the notification value "Type2" or "Type22". 0 does nothing.
void NotifyPHType2Event(DWORD k);
void NotifyPHType22Event(DWORD k);
