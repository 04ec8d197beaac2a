#include "sim/notebook/present_devices.h"

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

namespace {

struct Hardware {
    std::vector<PresentDevice> devices = {{{"ACPI\\PNP0C0A", "*PNP0C0A"}}, {{"PCI\\VEN_8086&DEV_9D2F"}}};
};

} // namespace

static Hardware& hardware() {
    return machine_state<Hardware>();
}

const std::vector<PresentDevice>& present_devices() {
    return hardware().devices;
}

void set_hardware(const std::string& hardware_id, bool present) {
    std::vector<PresentDevice>& devices = hardware().devices;
    std::erase_if(devices,
                  [&](const PresentDevice& device) { return device.hardware_ids[0] == hardware_id; });
    if (present)
        devices.push_back({{hardware_id}});
}

// ---- commands ----

static Action compile_hardware(Tokens& tokens) {
    const std::string id = tokens.text();
    const bool present = tokens.choice({"absent", "present"}) == 1;
    return [=] { set_hardware(id, present); };
}

static const Commands g_commands({{"hardware", Use::Machine, compile_hardware}});

} // namespace sim
