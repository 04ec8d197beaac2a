// Other programs, and the redirection of a 32-bit process.
#pragma once

#include "sim/machine/process.h"

namespace sim {

// Makes the redirection calls act as in a 32-bit process; a 64-bit one has nothing to turn off.
void set_redirection_works(bool works);
bool redirection_off(Process* process);

// Starts a program that `windows program` has made known, by its command line. Null when there is none.
Thread* start_plain_program(const std::string& line);

} // namespace sim
