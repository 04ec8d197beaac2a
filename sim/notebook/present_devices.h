// The devices that the machine knows, with their hardware ids.
#pragma once

#include <string>
#include <vector>

namespace sim {

struct KnownDevice {
    std::vector<std::string> hardware_ids; // the first one names it; none: it has no such property
    bool present = true;                   // else known from before
    bool unended = false;                  // the list is stored without any null
    bool growing = false;                  // the list has always become longer than the caller thought
};

std::vector<KnownDevice> known_devices(bool present_only);
void set_hardware(const std::string& hardware_id, bool present);

} // namespace sim
