#include "sim/script/moments.h"

#include <algorithm>

#include "sim/machine/machine.h"

namespace sim {

// A moment at which something falls due is chosen among the next 1, 2, 4, ... 64 of them, so that the first
// ones and those behind a hundred polls are both found.
constexpr std::uint64_t DUE_REACHES = 7;

// To `at`: what falls due before it has run, what falls due at it can run.
static void pass_to(Ms at) {
    Machine& m = machine();
    if (at <= m.now)
        return;
    m.advance(at - 1 - m.now);
    m.now = at;
    wake_waiting();
}

static void pass_to_due(Ms end) {
    Machine& m = machine();
    const std::uint64_t beside = random_below(4); // before, at (twice as often), behind
    std::uint64_t skipped = random_below(std::uint64_t{1} << random_below(DUE_REACHES));
    while (skipped-- > 0 && m.next_deadline() < end)
        m.advance(m.next_deadline() - m.now);
    const Ms due = std::min(m.next_deadline(), end);
    if (beside == 0)
        pass_to(due - 1);
    else if (beside == 1)
        pass_to(std::min(due + 1, end));
    else
        pass_to(due);
}

void pass_to_moment(Ms span) {
    pass_to(machine().now + span);
}

void pass_to_a_moment(Ms span) {
    Machine& m = machine();
    const Ms end = m.now + span;
    const Ms begun = m.now;
    if (m.seed == 0 || span == 0)
        m.advance(span);
    else if (random_below(2) == 0)
        pass_to(m.now + random_below(span + 1));
    else
        pass_to_due(end);
    note_drawn(m.schedule.line, m.now - begun);
}

} // namespace sim
