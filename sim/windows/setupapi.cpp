// The enumeration of all present devices with their hardware ids.
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"

#include <setupapi.h>

namespace sim {

struct PresentDevice {
    std::vector<std::string> hardware_ids;
};

struct Hardware {
    std::vector<PresentDevice> devices = {{{"ACPI\\PNP0C0A", "*PNP0C0A"}}, {{"PCI\\VEN_8086&DEV_9D2F"}}};
};

static Hardware& hardware() {
    return machine_state<Hardware>();
}

void set_hardware(const std::string& hardware_id, bool present) {
    std::vector<PresentDevice>& devices = hardware().devices;
    std::erase_if(devices,
                  [&](const PresentDevice& device) { return device.hardware_ids[0] == hardware_id; });
    if (present)
        devices.push_back({{hardware_id}});
}

static Action compile_hardware(Tokens& tokens) {
    const std::string id = tokens.text();
    const bool present = tokens.choice({"absent", "present"}) == 1;
    return [=] { set_hardware(id, present); };
}

static const Commands g_commands({{"hardware", Use::Machine, compile_hardware}});

// Body of a device-set handle without interfaces; the set is fixed when it is made.
struct DeviceSet {
    std::vector<PresentDevice> devices;
};

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    HandleEntry* entry = handle_entry(set, Kind::DeviceSet, "SetupDiEnumDeviceInfo");
    if (entry == nullptr)
        return FALSE;
    if (device->cbSize != sizeof(*device)) {
        violation("SetupDiEnumDeviceInfo: size field %u", device->cbSize);
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
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
    if (property != SPDRP_HARDWAREID || device->DevInst == 0 || device->DevInst > devices.size()) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::u16string strings;
    for (const std::string& id : devices[device->DevInst - 1].hardware_ids)
        strings += widen(id) + u'\0';
    strings += u'\0';
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

} // extern "C"

#include "sim/notebook/device_sets.h"

namespace sim {

static InterfaceSetMaker g_interfaceSetMaker = nullptr;

void set_interface_set_maker(InterfaceSetMaker maker) {
    g_interfaceSetMaker = maker;
}

} // namespace sim

extern "C" HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* class_guid, PCWSTR, HWND, DWORD flags) {
    SIM_CALL(INVALID_HANDLE_VALUE, ERROR_GEN_FAILURE);
    ObjectRef object;
    if ((flags & DIGCF_DEVICEINTERFACE) != 0 && class_guid != nullptr) {
        if (g_interfaceSetMaker != nullptr)
            object = g_interfaceSetMaker(*class_guid);
        return object != nullptr ? open_handle(object) : INVALID_HANDLE_VALUE;
    }
    if (class_guid != nullptr || flags != (DIGCF_PRESENT | DIGCF_ALLCLASSES)) {
        violation("SetupDiGetClassDevsW: flags 0x%x", flags);
        set_last_error(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    object = make_object(Kind::DeviceSet, "all present devices");
    auto set = std::make_shared<DeviceSet>();
    set->devices = hardware().devices;
    object->body = set;
    return open_handle(object);
}
