#include "driver/device.h"

#include <setupapi.h>
#include <strsafe.h>

#include "common/holders.h"
#include "common/registry.h"
#include "common/trace.h"

static HANDLE g_hPMDriver = nullptr;
static DWORD g_dwPMDriverOpen = 0;

HANDLE OpenDevice(const wchar_t* path, DWORD access, DWORD share) {
    return CreateFileW(path, access, share, nullptr, OPEN_EXISTING, 0, nullptr);
}

BOOL SendIoCode(HANDLE device, DWORD code, const void* input, void* output, DWORD* returned) {
    *returned = 0;
    const IoCode* row = FindIoCode(code);
    if (row == nullptr) {
        SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    // The platform declares the input buffer without const although it only reads it.
    return DeviceIoControl(device, code, row->in_bytes != 0 ? const_cast<void*>(input) : nullptr,
                           row->in_bytes, row->out_bytes != 0 ? output : nullptr, row->out_bytes, returned,
                           nullptr);
}

static const wchar_t* DevicePath(Device device) {
    switch (device) {
    case Device::Primary:
        return PRIMARY_DEVICE;
    case Device::Secondary:
        return SECONDARY_DEVICE;
    case Device::PointingStick:
        return POINTING_STICK_DEVICE;
    }
    return PRIMARY_DEVICE;
}

// The row of a code that one word each way is enough for, or null.
static const IoCode* FindOneWordCode(DWORD code) {
    const IoCode* row = FindIoCode(code);
    if (row != nullptr && row->in_bytes <= sizeof(DWORD) && row->out_bytes <= sizeof(DWORD))
        return row;
    SetLastError(ERROR_INVALID_FUNCTION);
    return nullptr;
}

BOOL OneWordRequest(HANDLE device, DWORD code, DWORD argument, DWORD* result) {
    DWORD answer = 0;
    DWORD returned = 0;
    if (FindOneWordCode(code) == nullptr || !SendIoCode(device, code, &argument, &answer, &returned))
        return FALSE;
    if (result != nullptr)
        CopyMemory(result, &answer, returned <= sizeof(answer) ? returned : sizeof(answer));
    return TRUE;
}

OPERATION(BOOL, SendOneWord, (DWORD code, DWORD argument, DWORD* result, DWORD access, DWORD share), code,
          argument, result, access, share) {
    const IoCode* row = FindOneWordCode(code);
    if (row == nullptr)
        return FALSE;
    HANDLE device = OpenDevice(DevicePath(row->device), access, share);
    if (device == INVALID_HANDLE_VALUE)
        return FALSE;
    const BOOL sent = OneWordRequest(device, code, argument, result);
    const DWORD error = sent ? ERROR_SUCCESS : GetLastError();
    CloseHandle(device);
    if (!sent)
        SetLastError(error);
    return sent;
}

OPERATION(BOOL, OpenPMDriver, ()) {
    if (g_dwPMDriverOpen == 1)
        return FALSE;
    g_hPMDriver = OpenDevice(PRIMARY_DEVICE, QUERY_ACCESS, QUERY_SHARE);
    g_dwPMDriverOpen = g_hPMDriver != nullptr && g_hPMDriver != INVALID_HANDLE_VALUE;
    return g_dwPMDriverOpen == 1;
}

OPERATION(BOOL, ClosePMDriver, ()) {
    if (g_hPMDriver == nullptr || g_hPMDriver == INVALID_HANDLE_VALUE || g_dwPMDriverOpen != 1)
        return FALSE;
    CloseHandle(g_hPMDriver);
    g_dwPMDriverOpen = 0;
    return TRUE;
}

// Whether any string of a multi-string of `bytes` bytes contains `id`. The data may lack its final nulls.
static bool MultiStringContains(const wchar_t* strings, DWORD bytes, const wchar_t* id) {
    const DWORD length = bytes / static_cast<DWORD>(sizeof(wchar_t));
    const DWORD id_length = static_cast<DWORD>(lstrlenW(id));
    // A match lies within one string because `id` holds no null.
    for (DWORD start = 0; start + id_length <= length; ++start) {
        DWORD matched = 0;
        while (matched < id_length && strings[start + matched] == id[matched])
            ++matched;
        if (matched == id_length)
            return true;
        // An empty string ends the list.
        if (strings[start] == L'\0' && (start == 0 || strings[start - 1] == L'\0'))
            return false;
    }
    return false;
}

// Whether the device's hardware ids contain `id`. A device whose ids cannot be read does not match.
static bool DeviceMatches(HDEVINFO devices, SP_DEVINFO_DATA* device, const wchar_t* id) {
    LocalBlock buffer;
    DWORD capacity = 0;
    DWORD size = 0;
    DWORD type = 0;
    // The list can grow between two calls; a bound keeps a device that always wants more from holding us
    // here.
    for (int attempt = 0; attempt < 16; ++attempt) {
        if (SetupDiGetDeviceRegistryPropertyW(devices, device, SPDRP_HARDWAREID, &type,
                                              static_cast<BYTE*>(buffer.data), capacity, &size))
            return buffer.data != nullptr && MultiStringContains(static_cast<wchar_t*>(buffer.data),
                                                                 size < capacity ? size : capacity, id);
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size > 0x100000)
            return false;
        buffer.Release();
        capacity = 2 * size;
        buffer.data = LocalAlloc(LPTR, capacity);
        if (buffer.data == nullptr)
            return false;
    }
    return false;
}

OPERATION(BOOL, FindDevice, (const wchar_t* id, DWORD* found), id, found) {
    *found = 0;
    HDEVINFO devices = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
    if (devices == INVALID_HANDLE_VALUE)
        return TRUE;
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof(device);
    DWORD index = 0;
    while (*found == 0 && SetupDiEnumDeviceInfo(devices, index, &device)) {
        if (DeviceMatches(devices, &device, id))
            *found = 1;
        ++index;
    }
    const DWORD error = *found != 0 ? ERROR_SUCCESS : GetLastError();
    SetupDiDestroyDeviceInfoList(devices);
    if (*found != 0)
        return TRUE;
    return error != ERROR_SUCCESS && error != ERROR_NO_MORE_ITEMS;
}

OPERATION(BOOL, GetSystemFamily, (wchar_t * buffer), buffer) {
    KeyHolder key;
    buffer[0] = L'\0';
    return OpenKey(&key, HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\BIOS", KEY_READ) &&
           QueryString(key.key, L"SystemFamily", buffer, SYSTEM_FAMILY_CHARACTERS, 256);
}

OPERATION(BOOL, SendSystemFamilyRequest, ()) {
    // SendOneWord closes the device on every path; the answer is of no interest.
    const BOOL sent = SendOneWord(IOCTL_PMDRV_SYSTEMFAMILY, 0, nullptr, GENERIC_WRITE, FULL_SHARE);
    if (!sent)
        Trace(L"SendSystemFamilyRequest(): Error: request failed. (%lu)\n", GetLastError());
    return sent;
}
