// The moments that a seed chooses.
#pragma once

#include "sim/machine/clock.h"

namespace sim {

// Lets time pass to a moment of the next `span` that the machine's seed chooses: half the seeds take any,
// half one at which something falls due, or a millisecond beside. What falls due at that very moment has not
// run yet. Seed 0: the whole span passes, with all that it brings.
void pass_to_a_moment(Ms span);
// The whole span passes; what falls due at its very end can run, but has not yet.
void pass_to_moment(Ms span);

} // namespace sim
