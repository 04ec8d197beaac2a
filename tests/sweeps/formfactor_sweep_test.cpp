// Form factor under failing calls and random schedules.
#include "tests/support/formfactor_races.h"

namespace {

using namespace formfactor_races;

// Every event and control of the form factor; ends with all at rest.
const char g_day[] = R"(
    firmware GMMS = 3
    event 0x60C0
    firmware GOPT(0x200) = 1
    event 0x4012
    firmware GOPT(0x200) = 0
    event 0x4013
    event 0x5009
    event 0x500A
    firmware GMMS = 1
    handler power resume
    firmware LCDCSGETSTATE = 3
    firmware GETLIDSTATUS = 2
    control 131
    advance 3s
    firmware LCDCSGETSTATE = 2
    control 132
    control 133
    firmware GETLIDSTATUS = 3
    advance 5s
)";
// The last seconds of a lid inhibit that reaches its limit.
const char g_longInhibit[] = R"(
    firmware LCDCSGETSTATE = 3
    firmware GETLIDSTATUS = 2
    control 131
    advance 300s
)";
const char g_limit[] = R"(
    advance 2s
    firmware LCDCSGETSTATE = 2
    control 132
    firmware GETLIDSTATUS = 3
    advance 5s
)";

// Fails each call of `acts` once, behind a `beginning` that goes well. Nothing stays behind, the next day is
// a normal one, and the service still stops.
std::uint64_t fail_every_call(const char* beginning, const char* acts) {
    const std::string started = format("%s start\n advance 5s\n %s", g_setup, g_day);
    const size_t usual = held_after(started);
    return fail_each_call(started + beginning, acts, [usual](Bench& bench) {
        bench.run(g_day);
        EXPECT_EQ(held(), usual);
        bench.run(R"(
            handler power resume
            check device slate = 0
            check device dock = 0
            check registry SVC\Transform\CurrentStatus MM = 1
            stop
            advance 10s
            check status STOPPED)");
    });
}

TEST(FormFactorSweep, EveryCallFailsOnce) {
    figure("form factor: calls failed in a day of events", std::to_string(fail_every_call("", g_day)));
    figure("form factor: calls failed at the lid-inhibit limit",
           std::to_string(fail_every_call(g_longInhibit, g_limit)));
}

TEST(FormFactorSweep, RefreshAgainstEvents) {
    std::uint64_t switches = 0;
    run_seeds(1000, [&](Bench& bench) {
        refresh_against_events(bench);
        switches += bench.machine.switches;
    });
    figure("form factor: refresh against events, 1000 seeds, switches", std::to_string(switches));
}

TEST(FormFactorSweep, AnswersChange) {
    run_seeds(2000, answers_change);
    figure("form factor: answers that change while several threads ask, seeds", "2000");
}

TEST(FormFactorSweep, LidInhibit) {
    run_seeds(200, lid_inhibit);
    figure("form factor: lid-inhibit orders, seeds", "200");
}

} // namespace
