// What a run tells, as moments with their meanings: effects, details, what came from outside, headings. The
// views (timeline, page, trace events) are made of them.
#pragma once

#include <string>
#include <vector>

#include "sim/tool/meanings.h"

namespace sim {

constexpr size_t NO_CAUSE = ~size_t{0};

struct Moment {
    enum class Source { Effect, Detail, Outside, Heading };
    Source source = Source::Effect;
    LineKind kind = LineKind::Other;
    Ms time = 0;
    std::string thread; // "" for what comes from outside
    std::string text;   // as in the trace, or the script's command
    Meaning meaning;
    int line = 0;            // of the script
    size_t cause = NO_CAUSE; // index of the moment from outside that it follows from
    bool after_time = false; // time has passed since that
    unsigned count = 1;      // this often in a row
};

// Begins to record the machine's run. `more` is called for each moment, and the list gets it; null: none.
void record(std::vector<Moment>* moments, void (*more)(const Moment& moment));
void stop_recording();

// What the timeline calls a thread of the service.
std::string short_thread_name(const std::string& thread);
// A wait that the thread begins again with nothing done since, of which only the number counts.
bool idle_again(const Moment& moment, std::map<std::string, std::string>* last_of_thread);
// What the service says about its reasons, in plain words; "" for entries, ends and answers.
std::string reason_in(const Moment& moment);
// Local time at a virtual time, in seconds since 1970 as if it were UTC.
std::int64_t local_time(Ms time);
std::string clock_time(std::int64_t seconds); // "09:30:03"
std::string duration_words(Ms duration);      // "30 min", "2 h 59 min"

} // namespace sim
