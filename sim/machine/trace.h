// What the machine tells: the trace, and violations.
#pragma once

#include <string>

#include "sim/machine/clock.h"

namespace sim {

struct TraceLine {
    Ms time = 0;
    std::string thread;
    std::string text;
    bool effect = true; // else: a detail that only --trace-all shows
};

// One line per effect that someone outside the service can see; details show only with --trace-all.
void trace(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
void add_detail(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
// Evaluates its arguments only where details are kept.
#define trace_detail(...) (::sim::keeps_details() ? ::sim::add_detail(__VA_ARGS__) : void())
bool keeps_details();
// A platform call by its name: shown unless the call tells of itself. Code outside all threads makes none.
void note_call(const char* name);
// First line of a call that neither fails nor lets another thread overtake: it only looks at what is the
// caller's own.
#define SIM_NOTE() ::sim::note_call(__func__)
// Before a line that the last call of this name belongs to.
void drop_noted_call(const char* name);
void show_noted_call();
// The product did what no correct program does; fails the run.
void violation(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

} // namespace sim
