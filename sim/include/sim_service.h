// The service control manager and power notifications.
#pragma once

#include "sim_base.h"

#define SERVICE_WIN32_OWN_PROCESS 0x10u

#define SERVICE_STOPPED          1u
#define SERVICE_START_PENDING    2u
#define SERVICE_STOP_PENDING     3u
#define SERVICE_RUNNING          4u
#define SERVICE_CONTINUE_PENDING 5u
#define SERVICE_PAUSE_PENDING    6u
#define SERVICE_PAUSED           7u

#define SERVICE_ACCEPT_STOP           0x1u
#define SERVICE_ACCEPT_PAUSE_CONTINUE 0x2u
#define SERVICE_ACCEPT_PARAMCHANGE    0x8u
#define SERVICE_ACCEPT_NETBINDCHANGE  0x10u
#define SERVICE_ACCEPT_POWEREVENT     0x40u

#define SERVICE_CONTROL_STOP           1u
#define SERVICE_CONTROL_PAUSE          2u
#define SERVICE_CONTROL_CONTINUE       3u
#define SERVICE_CONTROL_INTERROGATE    4u
#define SERVICE_CONTROL_PARAMCHANGE    6u
#define SERVICE_CONTROL_NETBINDADD     7u
#define SERVICE_CONTROL_NETBINDDISABLE 10u
#define SERVICE_CONTROL_POWEREVENT     13u

#define DEVICE_NOTIFY_SERVICE_HANDLE 1u
#define PBT_APMRESUMESUSPEND         7u
#define PBT_POWERSETTINGCHANGE       0x8013u

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;
static_assert(sizeof(SERVICE_STATUS) == 28);

struct POWERBROADCAST_SETTING {
    GUID PowerSetting;
    DWORD DataLength;
    UCHAR Data[1];
};
static_assert(offsetof(POWERBROADCAST_SETTING, Data) == 20);

using LPSERVICE_MAIN_FUNCTIONW = void(WINAPI*)(DWORD, LPWSTR*);
using LPHANDLER_FUNCTION_EX = DWORD(WINAPI*)(DWORD, DWORD, LPVOID, LPVOID);

struct SERVICE_TABLE_ENTRYW {
    LPWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

extern "C" {
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR name, LPHANDLER_FUNCTION_EX handler,
                                                           LPVOID context);
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE service, LPSERVICE_STATUS status);
HPOWERNOTIFY WINAPI RegisterPowerSettingNotification(HANDLE recipient, LPCGUID setting, DWORD flags);
}
