#include "driver/firmware.h"

#include "common/trace.h"

void DriverHandles::Release() {
    if (primary != nullptr)
        CloseHandle(primary);
    primary = nullptr;
    if (secondary != nullptr)
        CloseHandle(secondary);
    secondary = nullptr;
}

static BOOL RequestOn(HANDLE* device, const wchar_t* path, DWORD code, DWORD argument, DWORD* result) {
    if (*device == nullptr) {
        HANDLE opened = OpenDevice(path, QUERY_ACCESS, QUERY_SHARE);
        if (opened == INVALID_HANDLE_VALUE)
            return FALSE;
        *device = opened;
    }
    return OneWordRequest(*device, code, argument, result);
}

OPERATION(BOOL, PMDriverIoControl, (DriverHandles * holder, DWORD code, DWORD argument, DWORD* result),
          holder, code, argument, result) {
    return RequestOn(&holder->primary, PRIMARY_DEVICE, code, argument, result);
}

OPERATION(BOOL, PMDRVSIoControl, (DriverHandles * holder, DWORD code, DWORD argument, DWORD* result), holder,
          code, argument, result) {
    return RequestOn(&holder->secondary, SECONDARY_DEVICE, code, argument, result);
}
