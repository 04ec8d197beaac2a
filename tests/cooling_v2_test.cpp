// Adaptive cooling, interface version 2: decisions, the worker's two phases, and its life.
#include "tests/support/bench.h"

namespace {

// The firmware runs in high performance, as the special cooling wants it; no option is attached.
const std::string START_V2 = R"(
    firmware DYTC(0) = 0x20000001 | firmware DYTC(0x100) = 0x20010000 | firmware DYTC(3) = 0x201
    firmware GOPT(0) = 0x100 | firmware GOPT(0x100) = 1)";

TEST(CoolingVersion2, ModeAtStart) {
    const struct {
        const char* option;
        const char* setting; // a registry command, or nothing
        const char* mode;
        const char* setting_after;
    } rows[] = {
        {"0", "", "0x1", "1"},
        {"1 bytes 0", "", "0x1", "1"},
        {"1", "", "0x201", "1"},
        {"1", R"(registry set SVC\TMCT\Parameters CurrentSetting dword 1)", "0x201", "1"},
        {"1", R"(registry set SVC\TMCT\Parameters CurrentSetting dword 0)", "0x1", "0"},
        {"1", R"(registry set SVC\TMCT\Parameters CurrentSetting dword 2)", "0x1", "2"},
        {"1", R"(registry set SVC\TMCT\Parameters)", "0x201", "1"},
        {"1", R"(registry set SVC\TMCT\Parameters CurrentSetting binary 00)", "0x201", "1"},
    };
    for (const auto& row : rows)
        run_case(row.setting, START_V2 + sim::format(R"(
            firmware GOPT(0x200) = %s
            %s
            start | expect request DYTC(%s) = 0x0 | expect count 3 request DYTC*
            check registry SVC\TMCT\Parameters Version = 0x2001
            check registry SVC\TMCT\Parameters Capability = 1
            check registry SVC\TMCT\Parameters CurrentSetting = %s
            check registry SVC\TMCT\Parameters INIT = 20
            check registry SVC\TMCT\Parameters SPCT = 0)",
                                                     row.option, row.setting, row.mode, row.setting_after));
    for (const char* mode : {"0x30010000", "0x60010000"})
        run_case("a mode of another interface is none", START_V2 + sim::format(R"(
        firmware DYTC(0x100) = %s | start | advance 25s | expect count 3 request GOPT(0x100)*)",
                                                                               mode));
    run_case("option unknown", START_V2 + R"(
        firmware GOPT(0) = 0x104 | start | expect no request DYTC(0x1)*
        check registry SVC\TMCT\Parameters Capability absent)");
    run_case("key refused", START_V2 + R"(
        registry refuse SVC\TMCT\Parameters | start | expect no request DYTC(0x1)*
        advance 1s | expect count 2 request DYTC(0x100)*
        advance 1h | expect count 2 request DYTC(0x100)*
        event 0x4012 | expect no request DYTC*)");
    // The 13th event of a start is the one that tells of an attach; a later start makes it.
    run_case("no worker for want of an event", START_V2 + R"(
        fail CreateEventW 13 | start | advance 1m | event 0x4012 | event 0x4013 | advance 1m
        expect no request DYTC* | control 138 | advance 1s | event 0x4012 | expect request DYTC*)");
}

TEST(CoolingVersion2, InitTicks) {
    const struct {
        const char* value;
        unsigned ticks;
    } rows[] = {{"dword 20", 20},   {"dword 1", 1},         {"dword 0", 1},
                {"sz \"3\"", 0x33}, {"binary 05000000", 5}, {"binary 0300", 20}};
    for (const auto& row : rows)
        run_case(row.value, START_V2 + sim::format(R"(
            registry set SVC\TMCT\Parameters INIT %s | start | mark | advance %us
            expect no request DYTC*
            mark | advance 1s | expect request DYTC(0x100)* | expect request DYTC(0x1) = 0x0
            mark | advance 1h | expect no request *)",
                                                   row.value, row.ticks - 1));
    run_case("without end", START_V2 + R"(
        registry set SVC\TMCT\Parameters INIT dword 4000000000 | start | mark | advance 2h
        expect no request *
        event 0x4012 | expect request DYTC(0x1) = 0x0)");
}

// A request beside a decision whose firmware is slow: it waits for its turn once, 5 s, and not again for what
// it calls. When the decision is through, the request holds.
TEST(CoolingVersion2, ARequestWaitsOnce) {
    run_case("enable", START_V2 + R"(
        firmware GOPT(0x200) = 2 | start | advance 25s | firmware GOPT takes 4s | event 0x4012
        advance 100ms | control 135 | mark | advance 4999ms | expect no request DYTC(0x100)*
        advance 1ms | expect request DYTC(0x100)*)");
    run_case("disable", START_V2 + R"(
        firmware GOPT(0x200) = 2 | start | advance 25s | firmware GOPT takes 4s | event 0x4012
        advance 100ms | control 134 | mark | advance 5s | expect request DYTC(0x1) = 0x0
        advance 1m | check registry SVC\TMCT\Parameters CurrentSetting = 0
        mark | event 0x4012 | advance 1m | expect no request DYTC*)");
}

// Stories that go the same way before the initialisation (phase 1) and after it (phase 2).
const ScriptCase g_inBothPhases[] = {
    {"no special cooling", R"(
        firmware GOPT(0x200) = 0 | event 0x4013 | expect count 1 request DYTC(0x1) = 0x0
        firmware GOPT(0x200) = 2 | event 0x4012 | expect request DYTC(0x201) = 0x0
        mark | advance 10m | expect no request DYTC*)"},
    {"no special cooling while its length cannot be read", R"(
        firmware GOPT(0x200) = 0 | fail RegCreateKeyExW | event 0x4013
        expect request DYTC(0x1) = 0x0)"},
    {"special cooling", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware GOPT(0x200) = 0 | event 0x4013
        expect count 1 request DYTC(0x101) = 0x0 | expect count 2 request DYTC*
        mark | advance 29s | expect no request DYTC*
        mark | advance 1s | expect request DYTC(0x1) = 0x0
        mark | advance 10m | expect no request DYTC*)"},
    {"firmware not in high performance", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware DYTC(3) = 0x1
        firmware GOPT(0x200) = 0 | event 0x4013 | expect count 1 request DYTC*
        mark | advance 29s | expect no request DYTC*
        advance 1s | expect request DYTC(0x1) = 0x0)"},
    {"capability refused", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware DYTC(3) = 0x200
        firmware GOPT(0x200) = 0 | event 0x4013 | expect count 1 request DYTC*)"},
    {"an option after all", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | event 0x4013
        expect count 1 request DYTC*
        mark | advance 30s | expect request DYTC(0x201) = 0x0)"},
    {"detached again", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware GOPT(0x200) = 0 | event 0x4013
        advance 20s | registry set SVC\TMCT\Parameters SPCT dword 10 | firmware GOPT(0x200) = 0
        event 0x4013 | mark | advance 9s | expect no request DYTC*
        advance 1s | expect request DYTC(0x1) = 0x0)"},
    {"special cooling of another size", R"(
        registry set SVC\TMCT\Parameters SPCT sz "30" | firmware GOPT(0x200) = 0 | event 0x4013
        expect no registry SVC\TMCT\Parameters SPCT* | expect request DYTC(0x1) = 0x0)"},
    {"disabled by the user", R"(
        registry set SVC\TMCT\Parameters CurrentSetting dword 0 | firmware GOPT(0x200) = 0
        event 0x4013 | expect no request DYTC*
        firmware GOPT(0x200) = 2 | event 0x4012 | expect no request DYTC*)"},
    {"a setting of 2 is none of disabled", R"(
        registry set SVC\TMCT\Parameters CurrentSetting dword 2 | firmware GOPT(0x200) = 2
        event 0x4012 | expect request DYTC(0x201) = 0x0)"},
    {"the key is made anew to look for the setting", R"(
        registry delete SVC\TMCT\Parameters | event 0x4012
        expect registry create SVC\TMCT\Parameters | expect no request DYTC*)"},
    {"setting refused", R"(
        registry refuse SVC\TMCT\Parameters | control 134 | expect no request DYTC*)"},
    {"a mode beyond high performance", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware DYTC(3) = 0x601
        firmware GOPT(0x200) = 0 | event 0x4013 | expect no request DYTC(0x101)*)"},
    {"attached and detached meanwhile: the attach is seen first", R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware DYTC(0x201) takes 10s | event 0x4012
        advance 1s | firmware GOPT(0x200) = 0 | event 0x4013 | event 0x4012 | mark | advance 9s
        expect request DYTC(0x1) = 0x0 | expect request DYTC(0x101) = 0x0)"},
    {"ended before it has begun: the start is seen first", R"(
        control 137 | registry delete SVC\TMCT\Parameters INIT
        together | control 136 | control 137 | end | check registry SVC\TMCT\Parameters INIT = 20)"},
    {"setting missing", R"(
        registry delete SVC\TMCT\Parameters CurrentSetting | firmware GOPT(0x200) = 2
        event 0x4012 | expect no request DYTC*)"},
    {"option unknown", R"(
        firmware GOPT(0) fails | event 0x4012 | expect no request DYTC*)"},
    {"mode refused", R"(
        firmware DYTC(0x201) = 1 | firmware GOPT(0x200) = 2 | event 0x4012
        expect request DYTC(0x201) = 0x1)"},
    {"disable and enable", R"(
        control 134 | expect registry SVC\TMCT\Parameters CurrentSetting = 0x0
        expect request DYTC(0x1) = 0x0
        control 135 | expect registry SVC\TMCT\Parameters CurrentSetting = 0x1
        expect request DYTC(0x100)* | expect request DYTC(0x201) = 0x0)"},
    {"not of this version", R"(
        control 141 | expect no *
        control 142 | expect no *)"},
    {"terminated", R"(
        control 137 | firmware GOPT(0x200) = 2 | event 0x4012 | expect no request DYTC*
        mark | advance 1h | expect no request DYTC*
        control 136 | expect count 1 request DYTC(0x201)*)"},
    {"terminated twice", R"(
        control 137 | control 137 | expect no *
        control 138 | expect request DYTC(0x201) = 0x0)"},
    {"no interface any more", R"(
        firmware DYTC(0) = 0 | control 136 | mark | advance 1h | firmware GOPT(0x200) = 2
        event 0x4012 | control 134 | control 135 | control 137 | expect no request DYTC*
        expect no registry *)"},
    {"version 3 from now on", R"(
        firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 1 | control 138 | advance 1h
        expect count 3 request DYTC*)"},
};

// An option is attached in both.
const std::string PHASE_1 = START_V2 + R"(
    registry set SVC\TMCT\Parameters INIT dword 1000 | firmware GOPT(0x200) = 2 | start
    advance 5s)";
const std::string PHASE_2 = START_V2 + R"(
    firmware GOPT(0x200) = 2 | start | advance 25s)";

TEST(CoolingVersion2, StoriesOfBothPhases) {
    for (const ScriptCase& row : g_inBothPhases) {
        run_case("phase 1: " + row.name, PHASE_1 + row.script);
        run_case("phase 2: " + row.name, PHASE_2 + row.script);
    }
}

TEST(CoolingVersion2, StoriesOfOnePhase) {
    run_case("attached during special cooling, phase 1", PHASE_1 + R"(
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware GOPT(0x200) = 0 | event 0x4013
        advance 10s | firmware GOPT(0x200) = 2 | event 0x4012
        expect count 1 request DYTC(0x201) = 0x0
        mark | advance 10m | expect no request DYTC*)");
    // The rest of the special cooling passes in no time, however much it is.
    for (const char* ticks : {"30", "4000000000", "0xffffffff"})
        run_case("attached during special cooling, phase 2", PHASE_2 + sim::format(R"(
            registry set SVC\TMCT\Parameters SPCT dword %s | firmware GOPT(0x200) = 0
            event 0x4013 | advance 10s | firmware GOPT(0x200) = 2 | event 0x4012
            expect count 2 request DYTC(0x201) = 0x0
            firmware GOPT(0x200) = 2 | event 0x4012 | expect count 2 request DYTC(0x201) = 0x0
            mark | advance 10m | expect no request DYTC*)",
                                                                                   ticks));
    run_case("special cooling across the initialisation", START_V2 + R"(
        firmware GOPT(0x200) = 2 | start | advance 5s
        registry set SVC\TMCT\Parameters SPCT dword 30 | firmware GOPT(0x200) = 0 | event 0x4013
        mark | advance 29s | expect count 1 request DYTC(0x100)*
        mark | advance 1s | expect request DYTC(0x1) = 0x0
        mark | advance 10m | expect no request DYTC*)");
    run_case("restarted: INIT counts anew", PHASE_2 + R"(
        control 136 | mark | advance 19s | expect no request DYTC*
        advance 1s | expect count 1 request DYTC(0x100)*
        advance 1h | expect count 1 request DYTC(0x100)*)");
    for (const char* call : {"SetEvent", "ResetEvent 2", "WaitForSingleObject"}) {
        SCOPED_TRACE(call);
        Bench bench;
        bench.run(PHASE_2 + sim::format("\nfail %s | handler 136 | advance 1h", call));
        EXPECT_EQ(call == std::string("SetEvent") ? 1u : 0u, live_threads("AdaptiveCoolingWorkerThread_v1"));
    }
}

TEST(CoolingVersion2, TerminationWaitsForASlowFirmware) {
    run_case("terminate, then a later control, then stop", START_V2 + R"(
        start | firmware GOPT(0) takes 10s | firmware GOPT(0x200) = 1 | event 0x4012
        control 137 | control 134 | expect no request DYTC*
        advance 10s | expect request DYTC(0x201) = 0x0 | expect request DYTC(0x1) = 0x0
        check registry SVC\TMCT\Parameters CurrentSetting = 0
        event 0x4012 | advance 1h | expect no request DYTC*
        stop | advance 1m | check status STOPPED)");
    run_case("stop", START_V2 + R"(
        start | firmware GOPT(0) takes 10s | event 0x4012 | stop | advance 9s
        check status STOP_PENDING
        advance 1s | check status STOPPED)");
    run_case("start", START_V2 + R"(
        start | firmware GOPT(0) takes 10s | event 0x4012 | control 136 | advance 1h
        expect count 2 request DYTC(0x100)*)");
}

TEST(CoolingVersion2, NoHandleIsLeft) {
    Bench bench;
    bench.run(START_V2 + R"(
        start | advance 1m | control 137)");
    const size_t terminated = sim::handle_count(sim::service_process());
    for (int i = 0; i < 20; ++i)
        bench.run(R"(
            control 136 | event 0x4012 | control 136 | control 138 | advance 1m | event 0x4013
            control 137)");
    EXPECT_EQ(sim::handle_count(sim::service_process()), terminated);
}

} // namespace
