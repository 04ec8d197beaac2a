// What the runner answers to the tool that drives it, on standard output, a line each:
//     effect MILLISECONDS THREAD LINE   the service has done it
//     value TEXT                        what a request asked for
//     takes METHOD ARGUMENT             asks the tool how long the firmware takes: 0 and its answer, or the
//     time answer METHOD ARGUMENT            asks for the answer, whatever it takes broken WHAT the run goes
//     no further done                              the request is through
#pragma once

#include <windows.h>
#include <string>

#include "recorder/lines.h"

namespace runner {

using namespace lines;

void effect(const char* pattern, ...) __attribute__((format(gnu_printf, 1, 2)));
void effect_of(const char* thread, const std::string& text);
void say_line(const std::string& line);
bool read_line(std::string* line); // of what the tool says; false at its end
[[noreturn]] void broken(const std::string& what);

} // namespace runner
