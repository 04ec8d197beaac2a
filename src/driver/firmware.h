// Firmware methods: one 32-bit argument in, one 32-bit result out, on a device that one operation opens for
// itself.
#pragma once

#include "driver/device.h"

// The device handles of one operation; a local of that operation, never shared between threads. Each device
// is opened by the first request on it and closed when the holder goes.
struct DriverHandles {
    HANDLE primary = nullptr;
    HANDLE secondary = nullptr;

    DriverHandles() = default;
    DriverHandles(const DriverHandles&) = delete;
    DriverHandles& operator=(const DriverHandles&) = delete;
    ~DriverHandles() { Release(); }

    void Release();
};

// One request on the primary (PMDriverIoControl) or secondary (PMDRVSIoControl) device. FALSE when the device
// cannot be opened (nothing is sent) or the request fails. *result as with OneWordRequest.
BOOL PMDriverIoControl(DriverHandles* holder, DWORD code, DWORD argument, DWORD* result);
BOOL PMDRVSIoControl(DriverHandles* holder, DWORD code, DWORD argument, DWORD* result);
