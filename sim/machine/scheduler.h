// Waiting, and the gate of every platform call: where a thread hands over to the others.
#pragma once

#include <vector>

#include "sim/machine/clock.h"
#include "sim/machine/handles.h"
#include "sim/machine/process.h"

namespace sim {

// As WaitForMultipleObjects; timeout INFINITE waits for good. The current thread hands over.
DWORD wait_for(std::vector<ObjectRef> objects, bool all, DWORD timeout_ms);
DWORD wait_for_last(bool all, DWORD timeout_ms); // the running thread, for its last_objects
void sleep_for(Ms duration);                     // 0: hands over
// Wakes every thread whose wait can end now (after a change that is no signal, such as a resumption).
void wake_waiting();
// Wakes whoever waits for it.
void signal_object(Object& object);
void reset_object(Object& object);

// First line of each call that can fail: `SIM_CALL(FALSE, ERROR_...)` counts it, may hand over (seeds), and
// returns the given value when this call was chosen to fail, with that last error set.
bool enter_call(const char* name, bool can_fail, DWORD failure_code);
#define SIM_CALL(failure_value, failure_code)                                                                \
    do {                                                                                                     \
        if (!::sim::enter_call(__func__, true, (failure_code)))                                              \
            return failure_value;                                                                            \
    } while (0)
// First line of each call that cannot fail.
#define SIM_VISIT() ((void)::sim::enter_call(__func__, false, 0))

// Where a schedule may let another thread overtake: each platform call is such a place.
void may_hand_over(const char* where);

// For the life of a thread.
void schedule(Thread* thread);        // it can run
void unschedule(Thread* thread);      // it neither runs nor waits any more
void leave_for_good(Thread* thread);  // the one that runs, after unschedule; does not return
void leave_to_others(Thread* thread); // the one that runs; comes back when it is resumed
bool run_next();                      // one thread, until it hands over; false when none can run

} // namespace sim
