// Fibers: stacks of their own on the one real thread, with the sanitizers told of every switch.
#pragma once

namespace sim {

struct Fiber;

// A fiber that will run entry(argument) at its first resumption; entry must never return.
Fiber* fiber_create(void (*entry)(void*), void* argument);
// From the main stack: runs the fiber until it hands back.
void fiber_resume(Fiber* fiber);
// From a fiber: back to the main stack. `last` says that it will not be resumed again.
void fiber_hand_back(bool last);
// Gives the stack back to the pool. Not the one that runs.
void fiber_release(Fiber* fiber);

} // namespace sim
