#include "recorder/record/os.h"

#include "recorder/real.h"

namespace record::os {

#define OS_FUNCTION(name, wrapper) decltype(&::name) name = nullptr;
RECORDED_CALLS(OS_FUNCTION)
#undef OS_FUNCTION

// Before anything else that runs ahead of the program.
__attribute__((constructor(101))) static void find_all() {
#define FIND(name, wrapper) name = reinterpret_cast<decltype(name)>(real::find(#name));
    RECORDED_CALLS(FIND)
#undef FIND
}

} // namespace record::os
