#include "power/privileges.h"

#include "common/holders.h"
#include "common/trace.h"

OPERATION(BOOL, EnablePrivilege, (const wchar_t* name, BOOL enable), name, enable) {
    HandleHolder token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token.handle)) {
        token.handle = nullptr;
        Trace(L"EnablePrivilege(%ls): Error: OpenProcessToken(). (%lu)\n", name, GetLastError());
        return FALSE;
    }
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    if (!LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid)) {
        Trace(L"EnablePrivilege(%ls): Error: LookupPrivilegeValueW(). (%lu)\n", name, GetLastError());
        return FALSE;
    }
    if (!AdjustTokenPrivileges(token.handle, FALSE, &privileges, 0, nullptr, nullptr)) {
        Trace(L"EnablePrivilege(%ls): Error: AdjustTokenPrivileges(). (%lu)\n", name, GetLastError());
        return FALSE;
    }
    return TRUE;
}

OPERATION(BOOL, EnableShutdownPrivilege, ()) {
    return EnablePrivilege(SE_SHUTDOWN_NAME, TRUE);
}
