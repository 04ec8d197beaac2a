// All present devices, with their hardware ids.
#pragma once

#include <string>
#include <vector>

namespace sim {

struct PresentDevice {
    std::vector<std::string> hardware_ids; // the first one names it
};

const std::vector<PresentDevice>& present_devices();
void set_hardware(const std::string& hardware_id, bool present);

} // namespace sim
