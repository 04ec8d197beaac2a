// Privileges of the process's own token.
#pragma once

#include <windows.h>

// Enables (nonzero) or disables a privilege, named as the system names it. TRUE when the adjustment
// succeeded; a privilege that the token does not hold at all is no failure.
BOOL EnablePrivilege(const wchar_t* name, BOOL enable);

// What every power action needs first.
BOOL EnableShutdownPrivilege();
