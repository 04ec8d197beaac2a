// The power manager: suspending, hibernating, power schemes.
#pragma once

#include <map>
#include <powrprof.h>

#include "sim/machine/machine.h"

namespace sim {

struct Power {
    bool hibernate_allowed = true;
    bool hiberfile_works = true;
    bool lid_action_fails = false;
    DWORD lid_action = 1;
    bool suspend_fails = false;
    std::uint64_t suspend_failures = 0; // how many of the next attempts fail
    Ms suspend_takes = 0;
    bool scheme_fails = false;
    DWORD active_scheme = 0;
    std::map<DWORD, POWER_POLICY> schemes; // the user's; a record comes when it is first read or written
    POWER_POLICY applied = {};             // what the last activation put into force
    GLOBAL_POWER_POLICY global = {};
};

Power& power();
// A scheme's stored record, for tests.
POWER_POLICY& power_scheme(DWORD index);

} // namespace sim
