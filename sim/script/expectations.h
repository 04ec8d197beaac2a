// What a scenario expects: of the trace, and of whatever an area's check looks at.
#pragma once

#include <string>

namespace sim {

// For actions of checks: one more expectation that holds, or the first that does not.
void expectation(bool holds, const std::string& what);

// The expectations of one run of a script; the innermost run counts.
struct Expectations {
    size_t mark = 0;   // index in the trace
    size_t cursor = 0; // behind the line that was matched last
    unsigned held = 0;
    bool failed = false;
    std::string message;
    std::string pattern; // that no line matched
    Expectations* outer = nullptr;

    Expectations();
    ~Expectations();
    Expectations(const Expectations&) = delete;
    Expectations& operator=(const Expectations&) = delete;
};

void set_mark();        // here and now
size_t mark_position(); // among all lines of the run
// The lines since the mark, each behind a line break: those around the one that is nearest to the pattern
// that failed, or around where it was looked for.
std::string lines_around();

} // namespace sim
