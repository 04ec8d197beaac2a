// The timeline: what a run tells, for people (columns, meanings, repeats folded) or as the raw trace.
#pragma once

#include <string>
#include <vector>

#include "sim/tool/moments.h"

namespace sim {

// A moment, as virtual time or as the time of the run's first day.
struct TimeBound {
    bool given = false;
    bool on_the_clock = false;
    Ms ms = 0; // of virtual time, or of the day
};

struct ViewOptions {
    bool read = false;  // for people; else the raw trace
    bool all = false;   // with all details
    unsigned kinds = 0; // only lines of these kinds, one bit each; 0 for all
    std::string thread; // only this one's lines, by its long or its short name
    TimeBound from;
    TimeBound to;
    bool keep = false;    // all moments, for a file
    bool quiet = false;   // nothing is shown: for a run that is written to a file
    unsigned width = 120; // of a line
    bool colour = false;
};

// "requests,waits"; false when a word is none of the kinds.
bool read_kinds(const std::string& text, unsigned* kinds);
// "12605", "3h", "09:30:03"; false for anything else.
bool read_time_bound(const std::string& text, TimeBound* bound);
// For standard output: whether it is a terminal, how wide it is, whether it has colours.
void look_at_terminal(ViewOptions* options);
// Whether a run must keep its details for this view.
bool wants_details(const ViewOptions& options);

// Shows the current machine's run on standard output until `end_timeline`.
void begin_timeline(const ViewOptions& options);
void end_timeline();
// Shows what is kept back so far, for repeats of it that may come.
void flush_timeline();
// All that the run has told, from its beginning, where the view keeps it.
const std::vector<Moment>& moments_of_run();
// Of a run that has crashed: what is not shown yet, as it is. Allocates nothing.
void write_rest();

} // namespace sim
