// Every I/O control code the service sends: the catalogue.
#pragma once

#include <windows.h>

// Device names.
#define PRIMARY_DEVICE        L"\\\\.\\ZORPmDrv"
#define SECONDARY_DEVICE_NAME L"PMDRVS"
#define SECONDARY_DEVICE      L"\\\\.\\" SECONDARY_DEVICE_NAME
#define POINTING_STICK_DEVICE L"\\\\.\\sx4track"

enum class Device { Primary, Secondary, PointingStick };

// Device type 0x22, METHOD_BUFFERED, FILE_ANY_ACCESS; the function number is bits 2 to 13.
constexpr DWORD PmdrvCode(DWORD function) {
    return (0x22u << 16) | (function << 2);
}

// clang-format off
//  X(name, device, function, bytes in, bytes out) - "in" is the fixed input size; the firmware methods pass one
//  DWORD, 0 where they take no argument.
#define PMDRV_IOCTL_CATALOGUE(X)                        \
    X(LIDCLOSEACTIONNONE, Primary,   0x904,  0, 0)      \
    X(SETLIDBEEP,         Primary,   0x908,  4, 0)      \
    X(MHKV,               Primary,   0x90D,  4, 4)      \
    X(MHKA,               Primary,   0x90E,  4, 4)      \
    X(MHKN,               Primary,   0x90F,  4, 4)      \
    X(QCPULEVELCTRL,      Primary,   0x911,  4, 4)      \
    X(CSTATESELECT,       Primary,   0x912,  0, 4)      \
    X(CSTATEPARAMS,       Primary,   0x913,  4, 0)      \
    X(TABGETSTATE,        Primary,   0x944,  4, 4)      \
    X(PWMGET,             Primary,   0x947,  4, 4)      \
    X(PWMSET,             Primary,   0x948,  4, 4)      \
    X(GETLIDSTATUS,       Primary,   0x961,  4, 4)      \
    X(LCDCSGETSTATE,      Primary,   0x964,  4, 4)      \
    X(LCDCSCONTROL,       Primary,   0x965,  4, 4)      \
    X(DOCKMODE,           Primary,   0x969,  4, 4)      \
    X(GMMS,               Primary,   0x9C0,  4, 4)      \
    X(DYTC,               Primary,   0x9C3,  4, 4)      \
    X(GOPT,               Primary,   0x9CA,  4, 4)      \
    X(THERMALMODE,        Primary,   0x9D2,  4, 4)      \
    X(DGPUTEMP,           Primary,   0x9D3,  4, 4)      \
    X(CONNECT,            Secondary, 0x901,  4, 4)      \
    X(GETEVENT,           Secondary, 0x902,  0, 8)      \
    X(MHKM,               Secondary, 0x910,  8, 8)      \
    X(GETTIMERRESOL,      Secondary, 0x914,  0, 4)      \
    X(REGISTEREVENTS,     Secondary, 0x9F5, 48, 8)      \
    X(UNREGISTEREVENTS,   Secondary, 0x9F6, 48, 8)      \
    X(SYSTEMFAMILY,       Secondary, 0x9F9,  4, 4)
// clang-format on

enum : DWORD {
#define IOCTL_CODE(name, device, function, in, out) IOCTL_PMDRV_##name = PmdrvCode(function),
    PMDRV_IOCTL_CATALOGUE(IOCTL_CODE)
#undef IOCTL_CODE
};

// The pointing stick's mouse-data switch: device type 0xF, function 0xC36; 4 bytes in, none out.
constexpr DWORD IOCTL_POINTING_STICK_MOUSE_DATA = 0xF30D8;

struct IoCode {
    DWORD code;
    Device device;
    DWORD in_bytes;
    DWORD out_bytes;
};

// The catalogue row of a code, or null.
const IoCode* FindIoCode(DWORD code);
