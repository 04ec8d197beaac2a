// What zorpmsim prints.
#pragma once

#include "sim/machine/trace.h"

// A line of the trace, as it happens.
void print_line(const sim::TraceLine& line);
