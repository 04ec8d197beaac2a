// Tokens, privileges, accounts, user hives; libraries loaded at run time; settings files.
#pragma once

#include "sim_base.h"

#define ERROR_NOT_ALL_ASSIGNED   1300u
#define ERROR_NO_SUCH_PRIVILEGE  1313u
#define ERROR_BADDB              1009u
#define ERROR_PRIVILEGE_NOT_HELD 1314u
#define ERROR_INVALID_SID        1337u

#define TOKEN_QUERY             0x8u
#define TOKEN_ADJUST_PRIVILEGES 0x20u
#define SE_PRIVILEGE_ENABLED    0x2u
#define SE_SHUTDOWN_NAME        L"SeShutdownPrivilege"
#define SE_RESTORE_NAME         L"SeRestorePrivilege"

struct LUID {
    DWORD LowPart;
    LONG HighPart;
};

struct LUID_AND_ATTRIBUTES {
    LUID Luid;
    DWORD Attributes;
};

struct TOKEN_PRIVILEGES {
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1];
};
static_assert(sizeof(TOKEN_PRIVILEGES) == 16);

#define SID_REVISION            1
#define SID_MAX_SUB_AUTHORITIES 15

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};

struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};
static_assert(sizeof(SID) == 12);
using PSID = PVOID;

enum SID_NAME_USE { SidTypeUser = 1, SidTypeUnknown = 8 };

#define LOAD_LIBRARY_SEARCH_SYSTEM32 0x800u

extern "C" {
BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);
BOOL WINAPI LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, LUID* luid);
BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* state,
                                  DWORD previous_bytes, TOKEN_PRIVILEGES* previous, LPDWORD required);

BOOL WINAPI IsValidSid(PSID sid);
BYTE* WINAPI GetSidSubAuthorityCount(PSID sid);
DWORD* WINAPI GetSidSubAuthority(PSID sid, DWORD index);
SID_IDENTIFIER_AUTHORITY* WINAPI GetSidIdentifierAuthority(PSID sid);
BOOL WINAPI LookupAccountNameW(LPCWSTR system, LPCWSTR account, PSID sid, LPDWORD sid_bytes, LPWSTR domain,
                               LPDWORD domain_characters, SID_NAME_USE* use);

LSTATUS WINAPI RegLoadKeyW(HKEY key, LPCWSTR name, LPCWSTR file);
LSTATUS WINAPI RegUnLoadKeyW(HKEY key, LPCWSTR name);

HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE file, DWORD flags);
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE module);

UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT otherwise, LPCWSTR path);
DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR from, LPWSTR to, DWORD characters);
}
