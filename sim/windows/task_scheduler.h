// The Task Scheduler: folders and their tasks.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct ScheduledTask {
    std::string name;
    std::string trigger_id;
    std::string subscription;
    std::string path;
    std::string arguments;
    bool allow_demand_start = true;
    bool disallow_start_on_batteries = true;
    bool stop_on_batteries = true;
    std::string user;
    std::string security;
    bool has_password = false;
    DWORD logon = 0;
    DWORD flags = 0;
};

// A registered task, or null. The root folder is "\"; names and folders in any case.
const ScheduledTask* find_task(const std::string& folder, const std::string& name);
size_t task_count(const std::string& folder); // 0 for a folder that is not there

} // namespace sim
