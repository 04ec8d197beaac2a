// Events, waits, threads, devices and files, versions, text.
#pragma once

#include "sim_base.h"

#define WAIT_OBJECT_0        0u
#define WAIT_ABANDONED       0x80u
#define WAIT_ABANDONED_0     0x80u
#define WAIT_TIMEOUT         258u
#define WAIT_FAILED          0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64
#define STILL_ACTIVE         259u
#define CREATE_SUSPENDED     0x4u

#define EVENT_MODIFY_STATE        0x2u
#define EVENT_ALL_ACCESS          0x1F0003u
#define MUTEX_ALL_ACCESS          0x1F0001u
#define THREAD_TERMINATE          0x1u
#define THREAD_SUSPEND_RESUME     0x2u
#define THREAD_QUERY_INFORMATION  0x40u
#define THREAD_ALL_ACCESS         0x1FFFFFu
#define PROCESS_QUERY_INFORMATION 0x400u
#define PROCESS_ALL_ACCESS        0x1FFFFFu

#define FILE_SHARE_READ              0x1u
#define FILE_SHARE_WRITE             0x2u
#define FILE_SHARE_DELETE            0x4u
#define CREATE_NEW                   1u
#define CREATE_ALWAYS                2u
#define OPEN_EXISTING                3u
#define FILE_ATTRIBUTE_DIRECTORY     0x10u
#define FILE_ATTRIBUTE_ARCHIVE       0x20u
#define FILE_ATTRIBUTE_NORMAL        0x80u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x400u
#define INVALID_FILE_ATTRIBUTES      0xFFFFFFFFu

#define LMEM_FIXED    0x0u
#define LMEM_ZEROINIT 0x40u
#define LPTR          0x40u

#define VER_PLATFORM_WIN32_NT 2u

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
static_assert(sizeof(OSVERSIONINFOW) == 276);

using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID);

extern "C" {
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR command_line, int show);

DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD code);
BOOL WINAPI CloseHandle(HANDLE handle);
void WINAPI OutputDebugStringW(LPCWSTR text);
BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version);

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manual_reset, BOOL initial, LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name);
BOOL WINAPI ReleaseMutex(HANDLE mutex);
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD timeout_ms);
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout_ms);
DWORD WINAPI SignalObjectAndWait(HANDLE signal, HANDLE wait, DWORD timeout_ms, BOOL alertable);
void WINAPI Sleep(DWORD duration_ms);

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                           LPVOID parameter, DWORD flags, LPDWORD id);
[[noreturn]] void WINAPI ExitThread(DWORD exit_code);
DWORD WINAPI SuspendThread(HANDLE thread);
DWORD WINAPI ResumeThread(HANDLE thread);
BOOL WINAPI TerminateThread(HANDLE thread, DWORD exit_code);
BOOL WINAPI GetExitCodeThread(HANDLE thread, LPDWORD exit_code);
HANDLE WINAPI GetCurrentProcess();
HANDLE WINAPI GetCurrentThread();
DWORD WINAPI GetCurrentProcessId();
DWORD WINAPI GetCurrentThreadId();

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE pattern);
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, LPDWORD read, LPOVERLAPPED overlapped);
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped);
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD in_bytes, LPVOID out, DWORD out_bytes,
                            LPDWORD returned, LPOVERLAPPED overlapped);

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes);
HLOCAL WINAPI LocalFree(HLOCAL block);

int WINAPI lstrlenW(LPCWSTR text);
int WINAPI lstrcmpW(LPCWSTR a, LPCWSTR b);
int WINAPI lstrcmpiW(LPCWSTR a, LPCWSTR b);
LPWSTR WINAPI lstrcpynW(LPWSTR to, LPCWSTR from, int capacity);

void WINAPI GetLocalTime(SYSTEMTIME* time);
ULONGLONG WINAPI GetTickCount64();
UINT WINAPI GetWindowsDirectoryW(LPWSTR buffer, UINT characters);
UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT characters);
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD characters);
}
