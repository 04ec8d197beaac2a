// Which thread runs: a point is where more than one could go on, and a schedule is what is chosen at each.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/machine/clock.h"

namespace sim {

struct Thread;

// First: nobody is overtaken, the one that is ready longest comes next (seed 0). Uniform: every choice is as
// likely. Priority: the highest runs, and at one or two calls of an instant it becomes the lowest (PCT).
// Chosen: as listed, First at all other points.
enum class Policy { First, Uniform, Priority, Chosen };

struct Choice {
    std::uint32_t line = 0;  // of the script, in which the point was passed
    std::uint64_t point = 0; // the how manieth of that line
    std::uint32_t pick = 0;  // 0: as Policy::First would
};

// A point at which the pick was not 0.
struct PassedPoint {
    Choice choice;
    bool overtakes = false; // at a call: the thread that runs is overtaken
    Ms time = 0;
    std::string where;  // the call
    std::string thread; // that runs, or would come first
    std::string other;  // that was picked instead
};

// A duration or a moment that the seed has chosen for what a line of the script says.
struct Drawn {
    std::uint32_t line = 0;
    Ms value = 0;
};

// Chooses at a point, instead of a policy.
using Explorer = std::uint32_t (*)(const Choice& point, size_t alternatives, bool overtakes);

struct Schedule {
    Policy policy = Policy::First;
    std::uint64_t random_state = 0;
    unsigned depth = 0;       // of Priority: changes in an instant, and one
    std::uint32_t line = 0;   // that the script is in
    std::uint64_t points = 0; // passed in it so far
    std::unordered_map<std::uint32_t, std::uint64_t> points_of_lines; // of the others
    std::vector<Choice> chosen;                                       // in any order
    Explorer explorer = nullptr;
    bool explored = false; // the explorer chooses, from a block's beginning until the machine rests
    bool block_begins = false;
    bool records = false; // keeps what follows
    std::vector<PassedPoint> passed;
    std::vector<Drawn> drawn;
    // of Priority
    std::uint64_t instants = 0;
    std::uint64_t calls = 0; // in this instant
    std::uint64_t changes[2] = {};
    std::uint64_t lowest = 0; // priority given last

    explicit Schedule(std::uint64_t seed);
};

// A new instant, or a new command: priorities are drawn anew.
void schedule_instant();
// A command that drives has come; what an `explored` one sets off is chosen by the explorer, if there is one.
void schedule_block(bool explored);
// Whether no thread is in the midst of a request that takes time.
bool requests_rest();
// The script has come to this line.
void schedule_line(std::uint32_t line);
void note_drawn(std::uint32_t line, Ms value);
// At a platform call: which of the other threads that can run overtakes; null for none.
Thread* overtaker(const char* call, const std::vector<Thread*>& others);
// Which of these comes next; at least one.
Thread* next_thread(const std::vector<Thread*>& runnable);
// The one that runs gives way: all others come before it.
void give_way(Thread* thread);

// "LINE.POINT:PICK,...": how choices are written on a command line; "none" for none.
std::string shown_choice(const Choice& choice);
std::string shown_choices(const std::vector<Choice>& choices);
bool read_choices(const std::string& text, std::vector<Choice>* choices);

} // namespace sim
