// The command line of zorpmsim: a table of options in options.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine/schedule.h"
#include "sim/tool/timeline.h"

// What is done with each file.
enum class Mode { Run, Interactive, Seeds, Explore, Shrink, Diff, Help, Version };

struct Options {
    Mode mode = Mode::Run;
    std::uint64_t seed = 0;
    std::uint64_t first_seed = 0; // of Seeds, and the last
    std::uint64_t last_seed = 0;
    unsigned jobs = 0;       // processes at once; 0: one for each processor
    std::uint64_t limit = 0; // of schedules that an exploration tries; 0: none
    bool strict = false;
    bool atomics = false;   // threads are overtaken between two atomics too
    bool scheduled = false; // by `choices`
    std::vector<sim::Choice> choices;
    std::string command;     // of --help
    bool every_seed = false; // goes on behind the first that fails
    sim::ViewOptions view;
    std::string page;     // file to write the run to, as a page; "": none
    std::string perfetto; // and as trace events
    std::vector<std::string> files;
};

constexpr int EXIT_HOLDS = 0;
constexpr int EXIT_FAILS = 1;
constexpr int EXIT_UNUSABLE = 2; // a script, or the command line
constexpr int EXIT_OUTPUT = 3;   // cannot be written
constexpr int EXIT_INTERRUPTED = 130;

// One line for each option.
std::string shown_options();
// " --atomics" where it was given, for a command that repeats a run.
std::string atomics_option(const Options& options);
// False, and the reason on standard error, for a command line that cannot be used.
bool read_options(int count, char** arguments, Options* options);
