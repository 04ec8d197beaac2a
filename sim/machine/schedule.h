// Which thread runs: a point is where more than one could go on, and a schedule is what is chosen at each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine/clock.h"

namespace sim {

struct Thread;

// First: nobody is overtaken, the one that is ready longest comes next (seed 0). Uniform: every choice is as
// likely. Priority: the highest runs, and at one or two calls of an instant it becomes the lowest (PCT).
// Chosen: as listed, First at all other points.
enum class Policy { First, Uniform, Priority, Chosen };

struct Choice {
    std::uint64_t point = 0;
    std::uint32_t pick = 0; // 0: as Policy::First would
};

// A point as it was passed.
struct PassedPoint {
    Choice choice;
    std::uint32_t alternatives = 0;
    bool overtakes = false; // at a call: a pick other than 0 overtakes the thread that runs
    Ms time = 0;
    std::string where;  // the call
    std::string thread; // that runs, or would come first
    std::string other;  // that was picked instead; "" for pick 0
};

struct Schedule {
    Policy policy = Policy::First;
    std::uint64_t random_state = 0;
    unsigned depth = 0; // of Priority: changes in an instant, and one
    std::uint64_t points = 0;
    std::vector<Choice> chosen; // by their points
    size_t next_chosen = 0;
    bool explores = false;       // the script records all points of its `together` blocks
    bool record_changes = false; // keeps the points at which the pick was not 0
    bool record_all = false;     // keeps every point (while an exploration looks)
    std::vector<PassedPoint> passed;
    // of Priority
    std::uint64_t instants = 0;
    std::uint64_t calls = 0; // in this instant
    std::uint64_t changes[2] = {};
    std::uint64_t lowest = 0; // priority given last

    explicit Schedule(std::uint64_t seed);
};

// A new instant, or a new command: priorities are drawn anew.
void schedule_instant();
// At a platform call: which of the other threads that can run overtakes; null for none.
Thread* overtaker(const char* call, const std::vector<Thread*>& others);
// Which of these comes next; at least one.
Thread* next_thread(const std::vector<Thread*>& runnable);
// The one that runs gives way: all others come before it.
void give_way(Thread* thread);

// "POINT:PICK,...": how choices are written on a command line.
std::string shown_choices(const std::vector<Choice>& choices);
bool read_choices(const std::string& text, std::vector<Choice>* choices);

} // namespace sim
