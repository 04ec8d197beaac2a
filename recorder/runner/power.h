// The power manager's functions, which Wine lacks or which would end the machine.
#pragma once

#include <windows.h>

namespace runner {

void* power_function(const char* name); // of powrprof.dll; null: none of that name

bool privilege_enabled(const wchar_t* name);
void take_service_token(); // the privileges of the account that a service runs under: enabled as they are
                           // there

// The wrapped calls.
BOOL WINAPI set_system_power_state(BOOL suspend, BOOL force);
BOOL WINAPI exit_windows(UINT flags, DWORD reason);
BOOL WINAPI adjust_privileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* privileges, DWORD bytes,
                              TOKEN_PRIVILEGES* previous, DWORD* previous_bytes);

} // namespace runner
