// soak: a year of random use on one machine; what the service holds stays the same, day by day.
#include "sim/hunt/machines.h"
#include "sim/hunt/runner.h"
#include "sim/machine/machine.h"

namespace hunt {

constexpr unsigned DAYS = 365;

static const char g_days[] = R"(
first_day:
    $machine; $good; start; advance 2s; $round_of_all; $quiet; check resources
day:
    *6 $hour*4-10; $night
    $hour*4-10; $night; $restart
    advance 7d
    repeat 200; $event; advance 5m; end; $night
hour:
    $disorder*2-6; advance {1-120}m
night:
    advance 6h; $quiet; check resources; $truth; check resources
restart:
    stop; advance 1m; check status STOPPED; start; advance 2s; $round_of_all; $quiet; check resources
)";

static Tables& soak_tables() {
    static Tables all = read_tables(std::string(g_machines) + g_days);
    return all;
}

static void run_soak(Case& seed) {
    sim::machine().forget_trace = true; // no expectation looks back
    bool holds = play(seed, draw_row(soak_tables(), "first_day", seed.draw));
    while (holds && sim::machine().now < sim::Ms{DAYS} * 86400 * 1000)
        holds = play(seed, draw_row(soak_tables(), "day", seed.draw));
    if (holds)
        play(seed, draw_row(soak_tables(), "end", seed.draw));
}

const Generator g_soak = {
    "soak",  "years of random use, each in one run: what the service holds stays the same",
    nullptr, run_soak,
    1800,    2,
    0};

} // namespace hunt
