// The registry.
#pragma once

#include "sim_base.h"

#define HKEY_CLASSES_ROOT  (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000000ull)))
#define HKEY_CURRENT_USER  (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000001ull)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000002ull)))
#define HKEY_USERS         (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000003ull)))

#define REG_NONE      0u
#define REG_SZ        1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY    3u
#define REG_DWORD     4u
#define REG_MULTI_SZ  7u

#define KEY_QUERY_VALUE        0x0001u
#define KEY_SET_VALUE          0x0002u
#define KEY_CREATE_SUB_KEY     0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY             0x0010u
#define KEY_READ               0x20019u
#define KEY_WRITE              0x20006u
#define KEY_ALL_ACCESS         0xF003Fu

#define REG_OPTION_NON_VOLATILE      0u
#define REG_OPTION_VOLATILE          1u
#define REG_CREATED_NEW_KEY          1u
#define REG_OPENED_EXISTING_KEY      2u
#define REG_NOTIFY_CHANGE_NAME       0x1u
#define REG_NOTIFY_CHANGE_ATTRIBUTES 0x2u
#define REG_NOTIFY_CHANGE_LAST_SET   0x4u
#define REG_NOTIFY_THREAD_AGNOSTIC   0x10000000u

extern "C" {
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result);
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR type, DWORD options,
                               REGSAM access, const LPSECURITY_ATTRIBUTES security, PHKEY result,
                               LPDWORD disposition);
LSTATUS WINAPI RegCloseKey(HKEY key);
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD bytes);
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD bytes);
LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR path);
LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name);
LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous);
}
