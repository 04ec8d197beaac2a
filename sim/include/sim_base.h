// The platform's base types and constants, with its own names and sizes.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define WINAPI
#define CALLBACK
#define APIENTRY
#define STDAPICALLTYPE
#define STDMETHODCALLTYPE
#define CONST const
#define VOID  void

using BYTE = unsigned char;
using UCHAR = unsigned char;
using BOOLEAN = unsigned char;
using CHAR = char;
using WORD = unsigned short;
using USHORT = unsigned short;
using SHORT = short;
using ATOM = WORD;
using BOOL = int;
using INT = int;
using UINT = unsigned int;
using LONG = int; // 4 bytes on the platform
using ULONG = unsigned int;
using DWORD = unsigned int;
using HRESULT = int;
using LSTATUS = LONG;
using NTSTATUS = LONG;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using DWORD64 = unsigned long long;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using WCHAR = wchar_t;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PCWSTR = const WCHAR*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPVOID = void*;
using PVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using LPBYTE = BYTE*;
using PBYTE = BYTE*;
using LPBOOL = BOOL*;
using PULONG = ULONG*;
using LPARAM = LONG_PTR;
using WPARAM = UINT_PTR;
using LRESULT = LONG_PTR;
using HANDLE = void*;
using HLOCAL = HANDLE;
using FARPROC = INT_PTR (*)();

static_assert(sizeof(WCHAR) == 2 && sizeof(LONG) == 4 && sizeof(HANDLE) == 8);

#define DECLARE_HANDLE(name)                                                                                 \
    struct name##__ {                                                                                        \
        int unused;                                                                                          \
    };                                                                                                       \
    using name = name##__*
DECLARE_HANDLE(HINSTANCE);
using HMODULE = HINSTANCE;
DECLARE_HANDLE(HKEY);
DECLARE_HANDLE(SC_HANDLE);
DECLARE_HANDLE(SERVICE_STATUS_HANDLE);
DECLARE_HANDLE(HWND);
DECLARE_HANDLE(HMENU);
DECLARE_HANDLE(HICON);
DECLARE_HANDLE(HBRUSH);
DECLARE_HANDLE(HDESK);
DECLARE_HANDLE(HRSRC);
using HCURSOR = HICON;
using HGLOBAL = HANDLE;
using PHKEY = HKEY*;
using REGSAM = DWORD;
using ACCESS_MASK = DWORD;
using HPOWERNOTIFY = PVOID;

#define FALSE 0
#define TRUE  1

#define INVALID_HANDLE_VALUE        (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define MAX_PATH                    260
#define INFINITE                    0xFFFFFFFFu
#define ARRAYSIZE(array)            (sizeof(array) / sizeof((array)[0]))
#define CopyMemory(to, from, bytes) std::memcpy((to), (from), (bytes))
#define ZeroMemory(at, bytes)       std::memset((at), 0, (bytes))
#define LOBYTE(w)                   (static_cast<BYTE>(static_cast<DWORD_PTR>(w) & 0xff))
#define LOWORD(l)                   (static_cast<WORD>(static_cast<DWORD_PTR>(l) & 0xffff))
#define HIWORD(l)                   (static_cast<WORD>((static_cast<DWORD_PTR>(l) >> 16) & 0xffff))
#define MAKEINTRESOURCEW(i)         (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(i))))
#define MAKEINTRESOURCE             MAKEINTRESOURCEW
#define UNREFERENCED_PARAMETER(p)   (static_cast<void>(p))

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr)    (static_cast<HRESULT>(hr) < 0)
#define HRESULT_FROM_WIN32(code)                                                                             \
    (static_cast<HRESULT>(code) <= 0                                                                         \
         ? static_cast<HRESULT>(code)                                                                        \
         : static_cast<HRESULT>((static_cast<DWORD>(code) & 0xFFFF) | 0x80070000u))
#define S_OK          (static_cast<HRESULT>(0))
#define S_FALSE       (static_cast<HRESULT>(1))
#define E_FAIL        (static_cast<HRESULT>(0x80004005u))
#define E_OUTOFMEMORY (static_cast<HRESULT>(0x8007000Eu))
#define E_NOINTERFACE (static_cast<HRESULT>(0x80004002u))
#define E_INVALIDARG  (static_cast<HRESULT>(0x80070057u))
#define E_POINTER     (static_cast<HRESULT>(0x80004003u))

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
static_assert(sizeof(GUID) == 16);
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using LPCGUID = const GUID*;
inline bool operator==(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}
inline bool IsEqualGUID(REFGUID a, REFGUID b) {
    return a == b;
}

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

struct OVERLAPPED;
using LPOVERLAPPED = OVERLAPPED*;

// Error codes.
#define ERROR_SUCCESS                           0u
#define NO_ERROR                                0u
#define ERROR_INVALID_FUNCTION                  1u
#define ERROR_FILE_NOT_FOUND                    2u
#define ERROR_PATH_NOT_FOUND                    3u
#define ERROR_ACCESS_DENIED                     5u
#define ERROR_INVALID_HANDLE                    6u
#define ERROR_NOT_ENOUGH_MEMORY                 8u
#define ERROR_GEN_FAILURE                       31u
#define ERROR_SHARING_VIOLATION                 32u
#define ERROR_NOT_SUPPORTED                     50u
#define ERROR_FILE_EXISTS                       80u
#define ERROR_INVALID_DATA                      13u
#define ERROR_INVALID_PARAMETER                 87u
#define ERROR_BUFFER_OVERFLOW                   111u
#define ERROR_CALL_NOT_IMPLEMENTED              120u
#define ERROR_INSUFFICIENT_BUFFER               122u
#define ERROR_INVALID_NAME                      123u
#define ERROR_INVALID_LEVEL                     124u
#define ERROR_MOD_NOT_FOUND                     126u
#define ERROR_PROC_NOT_FOUND                    127u
#define ERROR_SIGNAL_REFUSED                    156u
#define ERROR_BAD_PATHNAME                      161u
#define ERROR_ALREADY_EXISTS                    183u
#define ERROR_MORE_DATA                         234u
#define ERROR_NO_MORE_ITEMS                     259u
#define ERROR_NOT_OWNER                         288u
#define ERROR_KEY_DELETED                       1018u
#define ERROR_CHILD_MUST_BE_VOLATILE            1021u
#define ERROR_INVALID_SERVICE_CONTROL           1052u
#define ERROR_SERVICE_REQUEST_TIMEOUT           1053u
#define ERROR_SERVICE_ALREADY_RUNNING           1056u
#define ERROR_SERVICE_DOES_NOT_EXIST            1060u
#define ERROR_SERVICE_CANNOT_ACCEPT_CTRL        1061u
#define ERROR_SERVICE_NOT_ACTIVE                1062u
#define ERROR_FAILED_SERVICE_CONTROLLER_CONNECT 1063u
#define ERROR_EXCEPTION_IN_SERVICE              1064u
#define ERROR_SERVICE_SPECIFIC_ERROR            1066u
#define ERROR_PROCESS_ABORTED                   1067u
#define ERROR_NONE_MAPPED                       1332u
#define ERROR_NO_SYSTEM_RESOURCES               1450u
#define ERROR_NO_SUCH_DEVINST                   0xE000020Bu

// Access rights.
#define DELETE        0x00010000u
#define READ_CONTROL  0x00020000u
#define SYNCHRONIZE   0x00100000u
#define GENERIC_READ  0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_ALL   0x10000000u
