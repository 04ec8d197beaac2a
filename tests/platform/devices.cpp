// Enumerations of devices and of device interfaces.
#include <windows.h>
#include <setupapi.h>

#include "tests/platform/probe.h"

static const GUID g_noClass = {0x5A6F7270, 0x6D50, 0x726F, {0x62, 0x65, 0, 0, 0, 0, 0, 1}};

static void probe_sets(HDEVINFO devices) {
    group("device-set");
    fact("opened", devices != INVALID_HANDLE_VALUE);
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof(device);
    fact("first", ERROR_OF(SetupDiEnumDeviceInfo(devices, 0, &device)));
    fact("end", ERROR_OF(SetupDiEnumDeviceInfo(devices, 100000, &device)));
    fact("of-null", ERROR_OF(SetupDiEnumDeviceInfo(nullptr, 0, &device)));
    fact("of-invalid", ERROR_OF(SetupDiEnumDeviceInfo(INVALID_HANDLE_VALUE, 0, &device)));
    device.cbSize = 31;
    HDEVINFO none = SetupDiGetClassDevsW(&g_noClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    fact("unknown-class", none != INVALID_HANDLE_VALUE);
    SP_DEVICE_INTERFACE_DATA record = {};
    record.cbSize = sizeof(record);
    fact("unknown-class-first", ERROR_OF(SetupDiEnumDeviceInterfaces(none, nullptr, &g_noClass, 0, &record)));
    device.cbSize = sizeof(device);
    fact("unknown-class-device", ERROR_OF(SetupDiEnumDeviceInfo(none, 0, &device)));
    record.cbSize = 8;
    fact("interface-wrong-size",
         ERROR_OF(SetupDiEnumDeviceInterfaces(none, nullptr, &g_noClass, 0, &record)));
    fact("destroy", SetupDiDestroyDeviceInfoList(none));
    fact("destroy-null", ERROR_OF(SetupDiDestroyDeviceInfoList(nullptr)));
    fact("destroy-invalid", ERROR_OF(SetupDiDestroyDeviceInfoList(INVALID_HANDLE_VALUE)));
}

// The first device with hardware ids.
static void probe_property(HDEVINFO devices) {
    group("device-property");
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof(device);
    static BYTE buffer[4096];
    DWORD type = 99;
    DWORD required = 99;
    bool found = false;
    for (DWORD i = 0; !found && SetupDiEnumDeviceInfo(devices, i, &device); ++i)
        found = SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID, &type, buffer,
                                                  sizeof(buffer), &required);
    fact("found", found);
    fact("type", type);
    fact("ends-twice", required >= 4 && buffer[required - 1] == 0 && buffer[required - 4] == 0);
    const DWORD whole = required;
    fact("no-buffer", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID, nullptr,
                                                                 nullptr, 0, &required)));
    fact("no-buffer-required", required == whole);
    fact("short", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID, nullptr,
                                                             buffer, whole - 1, &required)));
    fact("exact", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID, nullptr,
                                                             buffer, whole, nullptr)));
    fact("unknown", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(devices, &device, 0x777, nullptr, buffer,
                                                               whole, nullptr)));
    fact("of-null", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(nullptr, &device, SPDRP_HARDWAREID, nullptr,
                                                               buffer, whole, nullptr)));
    device.cbSize = 31;
    fact("wrong-size", ERROR_OF(SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID, nullptr,
                                                                  buffer, whole, nullptr)));
}

static void probe_interfaces() {
    group("device-interface");
    const GUID* wanted = probe_interface_class();
    HDEVINFO set = SetupDiGetClassDevsW(wanted, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    SP_DEVICE_INTERFACE_DATA record = {};
    record.cbSize = sizeof(record);
    fact("first", ERROR_OF(SetupDiEnumDeviceInterfaces(set, nullptr, wanted, 0, &record)));
    fact("active", record.Flags);
    fact("class", record.InterfaceClassGuid == *wanted);
    fact("end", ERROR_OF(SetupDiEnumDeviceInterfaces(set, nullptr, wanted, 1000, &record)));
    fact("other-class", ERROR_OF(SetupDiEnumDeviceInterfaces(set, nullptr, &g_noClass, 0, &record)));
    SetupDiEnumDeviceInterfaces(set, nullptr, wanted, 0, &record);
    DWORD required = 0;
    alignas(8) BYTE buffer[1024] = {};
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer);
    fact("no-detail",
         ERROR_OF(SetupDiGetDeviceInterfaceDetailW(set, &record, nullptr, 0, &required, nullptr)));
    fact("no-detail-required", required > 10);
    detail->cbSize = sizeof(*detail);
    fact("detail-bytes", sizeof(*detail));
    const DWORD whole = required;
    fact("short",
         ERROR_OF(SetupDiGetDeviceInterfaceDetailW(set, &record, detail, whole - 2, &required, nullptr)));
    fact("short-required", required == whole);
    fact("exact", ERROR_OF(SetupDiGetDeviceInterfaceDetailW(set, &record, detail, whole, nullptr, nullptr)));
    fact("path", detail->DevicePath[0] == L'\\' && detail->DevicePath[1] == L'\\');
    fact("path-fills", offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) +
                               sizeof(WCHAR) * (static_cast<DWORD>(lstrlenW(detail->DevicePath)) + 1) ==
                           whole);
    detail->cbSize = 5;
    fact("wrong-size",
         ERROR_OF(SetupDiGetDeviceInterfaceDetailW(set, &record, detail, whole, nullptr, nullptr)));
    fact("null-with-size",
         ERROR_OF(SetupDiGetDeviceInterfaceDetailW(set, &record, nullptr, whole, nullptr, nullptr)));
    SetupDiDestroyDeviceInfoList(set);
}

void probe_devices() {
    HDEVINFO devices = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
    probe_sets(devices);
    probe_property(devices);
    probe_interfaces();
}
