// Windows' own function of a name, past the wrapper of that name.
#pragma once

#include <windows.h>

namespace real {

void* find(const char* name); // the process ends when no system library has it

} // namespace real

#define REAL(name)                                                                                           \
    ([] {                                                                                                    \
        static const auto function = reinterpret_cast<decltype(&::name)>(real::find(#name));                 \
        return function;                                                                                     \
    }())
