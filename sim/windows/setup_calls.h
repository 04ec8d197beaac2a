// What the clean-up run meets: other services, started programs, the redirection of a 32-bit process.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// The platform service MPLATSVC: installed and stopped on a new machine.
void set_platform_service(bool installed, bool running);
// Makes the redirection calls act as in a 32-bit process; a 64-bit one has nothing to turn off.
void set_redirection_works(bool works);
bool redirection_off(Process* process);
// Starts a program that `windows program` has made known, by its command line. Null when there is none.
HANDLE start_plain_program(const std::string& line);
// The embedded INF, as the executable's resource shows it.
std::string embedded_inf();

} // namespace sim
