// Consoles and standard handles, text as UTF-8, the service as its clients see it: what the control program
// uses.
#pragma once

#include "sim_service.h"

#define STD_OUTPUT_HANDLE     (static_cast<DWORD>(-11))
#define STD_ERROR_HANDLE      (static_cast<DWORD>(-12))
#define FILE_TYPE_UNKNOWN     0u
#define FILE_TYPE_DISK        1u
#define FILE_TYPE_CHAR        2u
#define ATTACH_PARENT_PROCESS 0xFFFFFFFFu
#define CP_UTF8               65001u

#define CTRL_C_EVENT        0u
#define CTRL_CLOSE_EVENT    2u
#define CTRL_LOGOFF_EVENT   5u
#define CTRL_SHUTDOWN_EVENT 6u
#define WM_QUERYENDSESSION  0x0011u
#define WM_ENDSESSION       0x0016u

#define SC_MANAGER_CONNECT           0x1u
#define SERVICE_QUERY_STATUS         0x4u
#define SERVICE_STOP                 0x20u
#define SERVICE_PAUSE_CONTINUE       0x40u
#define SERVICE_INTERROGATE          0x80u
#define SERVICE_USER_DEFINED_CONTROL 0x100u

struct SERVICE_STATUS_PROCESS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwProcessId;
    DWORD dwServiceFlags;
};
static_assert(sizeof(SERVICE_STATUS_PROCESS) == 36);
enum SC_STATUS_TYPE { SC_STATUS_PROCESS_INFO = 0 };

using PHANDLER_ROUTINE = BOOL(WINAPI*)(DWORD type);

extern "C" {
HANDLE WINAPI GetStdHandle(DWORD which);
DWORD WINAPI GetFileType(HANDLE file);
BOOL WINAPI AttachConsole(DWORD process);
BOOL WINAPI GetConsoleMode(HANDLE console, LPDWORD mode);
BOOL WINAPI WriteConsoleW(HANDLE console, const void* text, DWORD characters, LPDWORD written,
                          LPVOID reserved);
BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);
int WINAPI WideCharToMultiByte(UINT page, DWORD flags, LPCWSTR wide, int characters, LPSTR bytes,
                               int capacity, LPCSTR otherwise, LPBOOL used);
HMODULE WINAPI GetModuleHandleW(LPCWSTR name);
BOOL WINAPI GetExitCodeProcess(HANDLE process, LPDWORD code);
BOOL WINAPI QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status);
BOOL WINAPI QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes,
                                 LPDWORD needed);
}
