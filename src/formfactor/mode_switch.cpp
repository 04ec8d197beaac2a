#include "formfactor/mode_switch.h"

#include <cstddef>
#include <setupapi.h>

#include "common/holders.h"
#include "common/trace.h"
#include "driver/device.h"
#include "driver/firmware_words.h"

constexpr GUID LAPTOP_SLATE_INTERFACE = {
    0x317FC439, 0x3F77, 0x41C8, {0xB0, 0x9E, 0x08, 0xAD, 0x63, 0x27, 0x2A, 0xA3}};
constexpr GUID DOCK_INTERFACE = {
    0xA84E689B, 0x0DCE, 0x493A, {0xA1, 0x64, 0xAC, 0xDE, 0x05, 0x47, 0x8F, 0xC3}};
constexpr GUID BUTTON_INTERFACE = {
    0x30EBFBF8, 0xDF5F, 0x4D4D, {0x9F, 0xC5, 0xA2, 0x6C, 0x7F, 0xD1, 0xDF, 0x4A}};

constexpr BYTE ROTATION_LOCK_BUTTON = 4;
// The laptop/slate indicator changes on any byte.
constexpr BYTE CONVERSION_TOGGLE = 0;

constexpr size_t PATH_OFFSET = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == 8);
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);

// The code of the step that has just failed; never 0, so that it can stand for the failure.
static DWORD FailureCode() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

// Ends an operation: nothing may come between this and the caller.
static BOOL Finish(DWORD error) {
    SetLastError(error);
    return error == ERROR_SUCCESS;
}

// Fetches the detail record of an interface into a block of its own. The result is an error code.
static DWORD FetchDetail(HDEVINFO devices, SP_DEVICE_INTERFACE_DATA* device, LocalBlock* block) {
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailW(devices, device, nullptr, 0, &size, nullptr);
    if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W))
        return FailureCode();
    block->data = LocalAlloc(LPTR, size);
    if (block->data == nullptr)
        return FailureCode();
    auto* detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(block->data);
    detail->cbSize = sizeof(*detail);
    if (!SetupDiGetDeviceInterfaceDetailW(devices, device, detail, size, nullptr, nullptr))
        return FailureCode();
    detail->DevicePath[(size - PATH_OFFSET) / sizeof(wchar_t) - 1] = L'\0';
    return ERROR_SUCCESS;
}

OPERATION(wchar_t*, GetDevicePath, (const GUID& interface_class), interface_class) {
    HDEVINFO devices =
        SetupDiGetClassDevsW(&interface_class, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    if (devices == INVALID_HANDLE_VALUE)
        return nullptr;
    SP_DEVICE_INTERFACE_DATA device = {};
    device.cbSize = sizeof(device);
    LocalBlock block;
    const DWORD error = SetupDiEnumDeviceInterfaces(devices, nullptr, &interface_class, 0, &device)
                            ? FetchDetail(devices, &device, &block)
                            : FailureCode();
    SetupDiDestroyDeviceInfoList(devices);
    if (error != ERROR_SUCCESS) {
        block.Release();
        SetLastError(error);
        return nullptr;
    }
    auto* detail = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(block.data);
    block.data = nullptr;
    SetLastError(ERROR_SUCCESS);
    return detail->DevicePath;
}

void ReleaseDevicePath(wchar_t* path) {
    LocalFree(reinterpret_cast<BYTE*>(path) - PATH_OFFSET);
}

// Opens the first interface of a class without sharing. The result is an error code.
static DWORD OpenInterface(const GUID& interface_class, DWORD access, HandleHolder* device) {
    wchar_t* path = GetDevicePath(interface_class);
    if (path == nullptr)
        return FailureCode();
    device->handle = OpenDevice(path, access, 0);
    const DWORD error = device->Valid() ? ERROR_SUCCESS : FailureCode();
    ReleaseDevicePath(path);
    return error;
}

static DWORD ReadByte(HANDLE device, BYTE* value) {
    *value = 0;
    DWORD read = 0;
    if (!ReadFile(device, value, sizeof(*value), &read, nullptr))
        return FailureCode();
    // Whatever was read, the byte counts: one that did not come is zero.
    return ERROR_SUCCESS;
}

static BOOL ReadIndicator(const GUID& interface_class, DWORD* state) {
    HandleHolder device;
    BYTE value = 0;
    DWORD error = OpenInterface(interface_class, GENERIC_READ, &device);
    if (error == ERROR_SUCCESS)
        error = ReadByte(device.handle, &value);
    device.Release();
    if (error == ERROR_SUCCESS)
        *state = value;
    else
        Trace(L"ReadIndicator(): Error: indicator not read. (%lu)\n", error);
    return Finish(error);
}

// Writes one byte `count` times, up to the first write that fails.
static BOOL WriteInterface(const GUID& interface_class, DWORD access, BYTE value, int count) {
    HandleHolder device;
    DWORD error = OpenInterface(interface_class, access, &device);
    for (int i = 0; i < count && error == ERROR_SUCCESS; ++i) {
        DWORD written = 0;
        if (!WriteFile(device.handle, &value, sizeof(value), &written, nullptr))
            error = FailureCode();
    }
    device.Release();
    if (error != ERROR_SUCCESS)
        Trace(L"WriteInterface(): Error: not written. (%lu)\n", error);
    return Finish(error);
}

OPERATION(BOOL, GetSystemTransformation, (DWORD * state), state) {
    return ReadIndicator(LAPTOP_SLATE_INTERFACE, state);
}

OPERATION(BOOL, GetSystemDockingTransformation, (DWORD * state), state) {
    return ReadIndicator(DOCK_INTERFACE, state);
}

OPERATION(BOOL, ToggleConversionIndicator, ()) {
    return WriteInterface(LAPTOP_SLATE_INTERFACE, GENERIC_WRITE, CONVERSION_TOGGLE, 1);
}

OPERATION(BOOL, SetSystemDockingTransformation, (BYTE state), state) {
    return WriteInterface(DOCK_INTERFACE, GENERIC_READ | GENERIC_WRITE, state, 1);
}

OPERATION(BOOL, RotationLockButtonPress, ()) {
    // Down and up.
    return WriteInterface(BUTTON_INTERFACE, GENERIC_WRITE, ROTATION_LOCK_BUTTON, 2);
}

OPERATION(BOOL, GetSystemTransformationFromBIOS, (DWORD * state), state) {
    DWORD word = 0;
    if (!SendOneWord(IOCTL_PMDRV_TABGETSTATE, 0, &word, FULL_ACCESS, QUERY_SHARE)) {
        const DWORD error = FailureCode();
        Trace(L"GetSystemTransformationFromBIOS(): Error: state not read. (%lu)\n", error);
        return Finish(error);
    }
    *state = (word & TABLET_STATE_TABLET) != 0 ? TRANSFORMATION_TABLET : TRANSFORMATION_NOTEBOOK;
    return Finish(ERROR_SUCCESS);
}
