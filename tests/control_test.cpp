// The control handler: every code, the power events, pause and stop against running threads.
#include "tests/support/bench.h"

TEST(Control, StandardControls) {
    Bench bench;
    bench.started();
    bench.run(R"(
        handler 2 | expect next status PAUSE_PENDING 0/0 checkpoint 1
        expect next status PAUSED 0/0
        event 0x7000 | advance 10s | expect no request*
        control 4 | expect no status*
        handler 3 | expect next status CONTINUE_PENDING 0/0 checkpoint 1
        expect next status RUNNING 0/0 | expect next request GETEVENT() = 0x7000 0x0
        expect registry SVC\Parameters\Notification Type2 = 0x1
        handler 2 | stop | expect status STOPPED 0/0
        control 133 | expect next refused control 133
        stop | expect next refused stop)");
}

TEST(Control, PauseAndContinueCountSuspensions) {
    Bench bench;
    bench.started();
    bench.run(R"(
        handler 2 | handler 2 | handler 3 | event 0x7000 | expect no request GETEVENT*
        handler 3 | expect request GETEVENT() = 0x7000 0x0)");
}

TEST(Control, UnknownCodesChangeNothing) {
    Bench bench;
    bench.started();
    std::string script;
    for (const int code : {0, 5, 12, 14, 127, 128, 129, 143, 200, 250, 251, 252, 253, 254, 255, 256, 100000})
        script += "handler " + std::to_string(code) + "\nexpect no *\n";
    bench.run(script);
}

TEST(Control, LidInhibitRequests) {
    const ScriptCase cases[] = {
        {"accepted", R"(
            control 131 | expect next request LCDCSCONTROL(0x1) = 0x0
            expect next status RUNNING 0/0
            control 132 | expect next request LCDCSCONTROL(0x2) = 0x0
            expect status RUNNING 0/0)"},
        {"refused: no report, no watchdog", R"(
            firmware LCDCSCONTROL = 1 | control 131
            expect next request LCDCSCONTROL(0x1) = 0x1 | expect no status*
            control 132 | expect next request LCDCSCONTROL(0x2) = 0x1 | expect no status*
            advance 5s | expect no request GETLIDSTATUS*)"},
        {"a request that fails counts as accepted", R"(
            firmware LCDCSCONTROL fails | control 131
            expect next request LCDCSCONTROL(0x1) failed | expect next status RUNNING 0/0)"},
        {"so does a driver that is gone", R"(
            driver primary missing | control 131 | expect next status RUNNING 0/0)"},
        {"capability", R"(
            firmware LCDCSGETSTATE = 3 | control 133 | expect next request LCDCSGETSTATE() = 0x3
            expect next status RUNNING 1066/3 | check status RUNNING 1066/3)"},
        {"no capability, no report", R"(
            firmware LCDCSGETSTATE = 0 | control 133 | expect next request LCDCSGETSTATE() = 0x0
            expect no status*)"},
    };
    run_cases("start\nadvance 1s", cases);
}

TEST(Control, CoolingCodesReachTheirOperation) {
    const struct {
        int code;
        const char* effect;
    } rows[] = {
        {134, "request DYTC(0xf2001) = 0x1"},    {135, "request DYTC(0xf2001) = 0x1"},
        {136, "request DYTC(0x0) = 0x30000001"}, {138, "request DYTC(0x0) = 0x30000001"},
        {139, "request DYTC(0xf6001) = 0x1"},    {140, "request DGPUTEMP(0x0) = 0x2"},
        {141, "request DYTC(0x1f2001) = 0x1"},   {142, "request DYTC(0xf2001) = 0x1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code);
        Bench bench;
        bench.started(R"(
            firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001
            firmware DGPUTEMP = 2 | firmware GOPT(0) = 0x100 | firmware GOPT(0x100) = 1)");
        bench.run("control " + std::to_string(row.code) + "\nexpect " + row.effect + "\nexpect no status*");
    }
    Bench bench;
    bench.started("firmware DYTC(0) = 0x20000001\nfirmware DYTC(0x100) = 0x20010000");
    bench.run(R"(
        control 137 | expect no *
        advance 1m | expect no *)"); // the worker is gone: no second initialisation
}

TEST(Control, PowerEventsRefreshTheFormFactor) {
    Bench bench;
    bench.started();
    bench.run(R"(
        handler power resume | expect request GMMS(0x0) = 0x1
        power monitor 1 | expect request GMMS(0x0) = 0x1
        power monitor 0 | expect no *
        power monitor 2 | expect no *
        handler power monitor 1 | expect request GMMS(0x0) = 0x1
        handler power setting {11111111-4510-4526-99E6-E5A17EBD1AEA} 1 | expect no *
        handler power event 4 | expect no *
        handler power event 0x8013 | expect no *)");
}

TEST(Control, MonitorOffRunsOneThreadAtATime) {
    // Two requests in one instant start one thread; later ones start anew, and no handle stays.
    Bench bench;
    bench.started();
    size_t threads = bench.machine.threads.size();
    bench.run(R"(
        together | control 130 | control 130 | end | expect no status*)");
    EXPECT_EQ(threads + 1, bench.machine.threads.size());
    const size_t handles = sim::handle_count();
    bench.run("control 130\ncontrol 130");
    EXPECT_EQ(threads + 3, bench.machine.threads.size());
    EXPECT_EQ(handles, sim::handle_count());
    // A thread that cannot be made or let go leaves the slot free for the next.
    bench.run(R"(
        fail CreateThread | control 130 | fail ResumeThread | control 130 | control 130)");
    EXPECT_EQ(handles, sim::handle_count());
    EXPECT_EQ(threads + 5, bench.machine.threads.size());
    EXPECT_EQ(0u, live_threads("MonitorOffThreadProc"));
}

TEST(Control, StopIsAnsweredDuringASlowFirmwareCall) {
    Bench bench;
    bench.started("firmware DYTC(0) = 0x30000001\nfirmware DYTC = 1");
    bench.run(R"(
        firmware DYTC(0) takes 10s | together | control 136 | control 133 | stop | end
        expect no status*
        advance 10s | expect request DYTC(0x0) = 0x30000001
        expect request LCDCSGETSTATE() = 0x2 | expect status STOP_PENDING 0/0 checkpoint 1
        expect status STOPPED 0/0)");
}
