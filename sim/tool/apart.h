// Work that may crash, run on for ever or be interrupted, in a process of its own.
#pragma once

#include <functional>

#include "sim/tool/run.h"

// How the product has ended a process, in memory that is shared with it; "" when it has not.
struct End {
    char text[128];
};

// From here on SIGINT ends what runs apart, and no more than that in this process.
void watch_for_stop();
// Whether it has come.
bool stopped();

// Whether `work` came to its end. The product may end it otherwise: by a crash, or because no thread makes a
// platform call any more. After `limit_s` seconds it is ended without a word; 0: it has all the time. Once
// stopped, it has two seconds.
bool run_apart(const std::function<void()>& work, End* end, unsigned limit_s);

// What a run has left, also one that ended its process.
struct Outcome {
    bool known = false; // it was not ended from outside
    bool ended_process = false;
    int exit_code = 0;
    bool rests = false;
    std::string message;
    std::vector<sim::PassedPoint> passed;
    std::vector<sim::Drawn> drawn;
};
Outcome outcome_apart(const Source& source, const Options& options);
