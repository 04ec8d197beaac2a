// Enumerations: all present devices, and the interfaces of one class.
#include <cstddef>
#include <cstring>
#include <setupapi.h>

#include "sim/machine/machine.h"
#include "sim/notebook/device_interfaces.h"
#include "sim/notebook/present_devices.h"

namespace sim {

namespace {

// Body of a device-set handle, fixed when it is made: the devices, or the interfaces of a class.
struct DeviceSet {
    bool of_interfaces = false;
    std::vector<KnownDevice> devices;
    GUID interface_class = {};
    std::vector<std::string> paths;
};

} // namespace

static HDEVINFO open_set(const DeviceSet& set) {
    ObjectRef object =
        make_object(Kind::DeviceSet, set.of_interfaces ? "interfaces of a class" : "all devices");
    object->body = std::make_shared<DeviceSet>(set);
    return open_handle(object);
}

constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

static bool right_size(DWORD size, size_t right, const char* call) {
    if (size == right)
        return true;
    violation("%s: size field %u", call, size);
    set_last_error(ERROR_INVALID_USER_BUFFER);
    return false;
}

// The set behind a handle, if the interface record that goes with it has its size.
static DeviceSet* interface_set(HDEVINFO handle, const SP_DEVICE_INTERFACE_DATA* record, const char* call) {
    HandleEntry* entry = handle_entry(handle, Kind::DeviceSet, call);
    if (entry == nullptr)
        return nullptr;
    auto& set = entry->object->as<DeviceSet>();
    if (!set.of_interfaces) {
        violation("%s: set without interfaces", call);
        set_last_error(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return right_size(record->cbSize, sizeof(*record), call) ? &set : nullptr;
}

constexpr DWORD INTERFACE_ACTIVE = 1;

} // namespace sim

using namespace sim;

extern "C" {

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR, HWND, DWORD flags) {
    SIM_CALL(INVALID_HANDLE_VALUE, ERROR_GEN_FAILURE);
    const bool present_only = (flags & DIGCF_PRESENT) != 0;
    const DWORD kind = flags & ~DIGCF_PRESENT;
    if (kind == DIGCF_DEVICEINTERFACE && class_guid != nullptr)
        return open_set({true, {}, *class_guid, interfaces_of_class(*class_guid, present_only)});
    if (class_guid != nullptr || kind != DIGCF_ALLCLASSES) {
        violation("SetupDiGetClassDevsW: flags 0x%x", flags);
        set_last_error(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    return open_set({false, known_devices(present_only), {}, {}});
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    HandleEntry* entry = handle_entry(set, Kind::DeviceSet, "SetupDiEnumDeviceInfo");
    if (entry == nullptr)
        return FALSE;
    if (!right_size(device->cbSize, sizeof(*device), "SetupDiEnumDeviceInfo"))
        return FALSE;
    if (index >= entry->object->as<DeviceSet>().devices.size()) {
        set_last_error(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    device->DevInst = index + 1;
    return TRUE;
}

BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, DWORD property,
                                              PDWORD type, PBYTE buffer, DWORD capacity, PDWORD required) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    HandleEntry* entry = handle_entry(set, Kind::DeviceSet, "SetupDiGetDeviceRegistryPropertyW");
    if (entry == nullptr)
        return FALSE;
    auto& devices = entry->object->as<DeviceSet>().devices;
    if (property != SPDRP_HARDWAREID)
        violation("SetupDiGetDeviceRegistryPropertyW: property %u is not known here", property);
    if (property != SPDRP_HARDWAREID || device->DevInst == 0 || device->DevInst > devices.size()) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!right_size(device->cbSize, sizeof(*device), "SetupDiGetDeviceRegistryPropertyW"))
        return FALSE;
    const KnownDevice& known = devices[device->DevInst - 1];
    if (known.hardware_ids.empty()) {
        set_last_error(ERROR_INVALID_DATA);
        return FALSE;
    }
    std::u16string strings;
    for (const std::string& id : known.hardware_ids)
        strings += widen(id) + u'\0';
    if (known.unended)
        strings.pop_back();
    else
        strings += u'\0';
    if (known.growing)
        strings.resize(std::max<size_t>(strings.size(), capacity / sizeof(char16_t) + 1));
    const auto bytes = static_cast<DWORD>(strings.size() * sizeof(char16_t));
    if (type != nullptr)
        *type = REG_MULTI_SZ;
    if (required != nullptr)
        *required = bytes;
    if (buffer == nullptr || capacity < bytes) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, strings.data(), bytes);
    return TRUE;
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
    SIM_VISIT();
    if (handle_entry(set, Kind::DeviceSet, "SetupDiDestroyDeviceInfoList") == nullptr)
        return FALSE;
    return close_handle(set, "SetupDiDestroyDeviceInfoList");
}

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO devices, PSP_DEVINFO_DATA, const GUID* interface_class,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA record) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    const DeviceSet* set = interface_set(devices, record, "SetupDiEnumDeviceInterfaces");
    if (set == nullptr)
        return FALSE;
    if (!(set->interface_class == *interface_class) || index >= set->paths.size()) {
        set_last_error(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    record->InterfaceClassGuid = *interface_class;
    record->Flags = INTERFACE_ACTIVE;
    record->Reserved = index + 1;
    return TRUE;
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO devices, PSP_DEVICE_INTERFACE_DATA record,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD capacity,
                                             PDWORD required, PSP_DEVINFO_DATA) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    const DeviceSet* set = interface_set(devices, record, "SetupDiGetDeviceInterfaceDetailW");
    if (set == nullptr)
        return FALSE;
    if (record->Reserved == 0 || record->Reserved > set->paths.size() ||
        (detail == nullptr) != (capacity == 0)) {
        violation("SetupDiGetDeviceInterfaceDetailW: no interface of this set");
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (detail != nullptr && !right_size(detail->cbSize, sizeof(*detail), "SetupDiGetDeviceInterfaceDetailW"))
        return FALSE;
    const std::u16string path = widen(set->paths[record->Reserved - 1]);
    const size_t bytes = (path.size() + 1) * sizeof(char16_t);
    const auto whole = static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + bytes);
    if (required != nullptr)
        *required = whole;
    if (detail == nullptr || capacity < whole) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(detail->DevicePath, path.c_str(), bytes);
    return TRUE;
}

} // extern "C"
