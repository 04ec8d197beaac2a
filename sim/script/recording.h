// A script in which effects stand, `effect THREAD LINE`, is a recording: the order of its lines is the
// schedule.
#pragma once

#include "sim/script/script.h"

namespace sim {

// Before a line acts: what has come until then has happened.
void recorded_line(const ScriptLine& line);
} // namespace sim
