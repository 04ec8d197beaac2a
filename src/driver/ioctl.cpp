#include "driver/ioctl.h"

static const IoCode g_ioCodes[] = {
#define IOCTL_ROW(name, device, function, in, out) {PmdrvCode(function), Device::device, in, out},
    PMDRV_IOCTL_CATALOGUE(IOCTL_ROW)
#undef IOCTL_ROW
        {IOCTL_POINTING_STICK_MOUSE_DATA, Device::PointingStick, 4, 0},
};

const IoCode* FindIoCode(DWORD code) {
    for (const IoCode& row : g_ioCodes) {
        if (row.code == code)
            return &row;
    }
    return nullptr;
}
