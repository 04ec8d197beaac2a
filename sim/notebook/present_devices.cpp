#include "sim/notebook/present_devices.h"

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

namespace {

struct Hardware {
    std::vector<KnownDevice> devices = {{{"ACPI\\PNP0C0A", "*PNP0C0A"}}, {{"PCI\\VEN_8086&DEV_9D2F"}}};
};

} // namespace

static std::vector<KnownDevice>& hardware() {
    return machine_state<Hardware>().devices;
}

std::vector<KnownDevice> known_devices(bool present_only) {
    std::vector<KnownDevice> devices = hardware();
    std::erase_if(devices, [=](const KnownDevice& device) { return present_only && !device.present; });
    return devices;
}

static void put_device(const KnownDevice& made) {
    std::erase_if(hardware(), [&](const KnownDevice& old) {
        return !made.hardware_ids.empty() && !old.hardware_ids.empty() &&
               old.hardware_ids[0] == made.hardware_ids[0];
    });
    hardware().push_back(made);
}

void set_hardware(const std::string& hardware_id, bool present) {
    put_device({{hardware_id}, present});
}

// ---- commands ----

static Action compile_hardware(Tokens& tokens) {
    const std::string id = tokens.text();
    const size_t how = tokens.choice({"absent", "present", "unended", "growing"});
    return [=] { put_device({{id}, how != 0, how == 2, how == 3}); };
}

static Action compile_nameless_hardware(Tokens&) {
    return [] { put_device({}); };
}

static const Commands g_commands({
    {"hardware", Use::Machine, compile_hardware,
     "\"HARDWARE-ID\" present|absent|unended|growing - a device among all present devices"},
    {"hardware nameless", Use::Machine, compile_nameless_hardware,
     "- one more present device, without hardware ids"},
});

} // namespace sim
