// Device enumeration.
#pragma once

#include "sim_base.h"

using HDEVINFO = PVOID;

#define DIGCF_PRESENT         0x2u
#define DIGCF_ALLCLASSES      0x4u
#define DIGCF_DEVICEINTERFACE 0x10u
#define SPDRP_HARDWAREID      0x1u

struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;
static_assert(sizeof(SP_DEVINFO_DATA) == 32);

struct SP_DEVICE_INTERFACE_DATA {
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};
using PSP_DEVICE_INTERFACE_DATA = SP_DEVICE_INTERFACE_DATA*;
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);

struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
    DWORD cbSize;
    WCHAR DevicePath[1];
};
using PSP_DEVICE_INTERFACE_DETAIL_DATA_W = SP_DEVICE_INTERFACE_DETAIL_DATA_W*;
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == 8);

extern "C" {
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR enumerator, HWND parent, DWORD flags);
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO devices, DWORD index, PSP_DEVINFO_DATA device);
BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO devices, PSP_DEVINFO_DATA device, DWORD property,
                                              PDWORD type, PBYTE buffer, DWORD capacity, PDWORD required);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO devices);
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO devices, PSP_DEVINFO_DATA device, const GUID* class_guid,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA interface_data);
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO devices, PSP_DEVICE_INTERFACE_DATA interface_data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD capacity,
                                             PDWORD required, PSP_DEVINFO_DATA device);
}
