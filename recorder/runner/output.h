// What the runner answers to the tool that drives it, on standard output, a line each:
//     effect MILLISECONDS THREAD LINE     the service has done it
//     value TEXT                          what a request asked for
//     takes | answer METHOD ARGUMENT      asks the tool for the firmware's answer, unless it takes time; whatever it takes
//     broken WHAT                         the run goes no further
//     done | ended STATE CONTROLS WIN32 SPECIFIC      the command is through; the service's process has ended
//     with it
#pragma once

#include <windows.h>
#include <string>

namespace runner {

void effect(const char* pattern, ...) __attribute__((format(gnu_printf, 1, 2)));
void effect_of(const char* thread, const std::string& text);
void say_line(const std::string& line);
bool read_line(std::string* line); // of what the tool says; false at its end
[[noreturn]] void broken(const std::string& what);

std::string narrow(const wchar_t* text);
std::wstring widen(const std::string& text);

} // namespace runner
