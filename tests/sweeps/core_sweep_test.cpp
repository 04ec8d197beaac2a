// The service as a whole: every platform call of a start, ten events and a stop failing once; a thousand
// schedules of controls, events and stop at once.
#include <set>

#include "tests/support/busy_machine.h"
#include "tests/support/sweep.h"

// A machine with work for every event, started; then the events that touch the most. The waits let retries
// and timers come round.
static const std::string g_start = std::string(g_busyMachine) + R"(
    firmware MHKN = 0x81
    start
    advance 5s)";
static const std::string g_events = R"(
    event 0x1005
    event 0x1102
    event 0x4012
    event 0x4010
    event 0x5001
    event 0x5002
    event 0x60C0
    event 0x60F0
    event 0x6031)";

// For the control program.
static const std::string g_control = "firmware MHKA = 0xFFF\nfirmware LCDCSGETSTATE = 3" + g_start + R"(
    registry set SVC\Configurations\ScreenRotation HRSPMode dword 1
    registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
    windows program "backup.exe" takes 15s
    windows rotation follows
)";

// Calls without which the stop cannot be heard or answered.
static bool answers_the_stop(const std::string& call) {
    static const std::set<std::string> calls = {
        "StartServiceCtrlDispatcherW", "RegisterServiceCtrlHandlerExW", "SetServiceStatus", "SetEvent"};
    return calls.count(call) != 0;
}

TEST(CoreSweep, EveryCallFailingOnce) {
    const std::uint64_t failed =
        sweep_failures(g_start + g_events + R"(
            event 0x100C
            advance 10s
            stop
            advance 20s)",
                       [](const std::string& call) {
                           if (!answers_the_stop(call)) {
                               EXPECT_EQ(SERVICE_STOPPED, sim::service_status().dwCurrentState) << call;
                               EXPECT_EQ(nullptr, sim::service_process()) << call;
                           }
                           // What the machine holds open now belongs to nobody: everything of the service
                           // went with its process.
                           if (sim::service_process() == nullptr) {
                               EXPECT_EQ(0u, sim::handle_count()) << call;
                           }
                       });
    figure("core: platform calls of start, ten events, stop, each failed once", std::to_string(failed));
}

// The same of a start during which the first notification comes.
TEST(CoreSweep, EveryCallFailingOnceInAStartWithANotification) {
    const std::uint64_t failed =
        sweep_failures("windows power-settings at-registration\n" + g_start + "\nstop\nadvance 20s",
                       [](const std::string& call) {
                           if (!answers_the_stop(call)) {
                               EXPECT_EQ(SERVICE_STOPPED, sim::service_status().dwCurrentState) << call;
                           }
                       });
    figure("core: platform calls of a start with a notification, stop, each failed once",
           std::to_string(failed));
}

// No operation may hold more afterwards than before, also when one of its calls fails: the handles in use
// after a failed round and a good one are those after a good round.
static std::uint64_t expect_no_leak(const std::string& round) {
    const size_t usual = held_after(g_start + round + round);
    EXPECT_EQ(usual, held_after(g_start + round + round + round));
    return fail_each_call(g_start + round, round, [&](Bench& bench) {
        bench.run(round);
        EXPECT_EQ(usual, held());
        bench.run(round + R"(
            stop
            advance 1s
            check status STOPPED)");
    });
}

TEST(CoreSweep, AFailedCallLeaksNothing) {
    std::uint64_t calls = expect_no_leak(g_events + R"(
        control 133
        control 134
        control 135
        handler power resume
        advance 3s)");
    std::string controls;
    for (const int code : {130, 131, 132, 136, 137, 138, 139, 140, 141, 142})
        controls += "\ncontrol " + std::to_string(code);
    calls += expect_no_leak(controls + "\nadvance 3s");
    figure("core: calls of a round of events and controls, each failed once, no leak", std::to_string(calls));
}

// The driver's Stop closes what the pump holds, whatever else fails.
TEST(CoreSweep, TheDriversStopLeaksNothing) {
    const std::string stop = "signal Stop\nadvance 3s";
    const size_t left = held_after(g_start + "\n" + stop);
    fail_each_call(g_start, stop, [left](Bench&) { EXPECT_EQ(left, held()); });
}

// What the control program says to be done is done, and every lid inhibit that it has started it ends or says
// that it cannot, whatever call fails beside it or in the service.
TEST(CoreSweep, EveryCallOfTheControlProgramFails) {
    static const struct {
        const char* words;
        const char* done;
    } rows[] = {
        {"hotkey notify 2", R"(check registry SVC\Parameters\CurrentSetting @ = 0x83)"},
        {"hotkey notify 3:2", R"(check registry SVC\Parameters2\Type10\CurrentSetting Type13 = 0x83)"},
        {"hotkey override 12", R"(check registry SVC\Parameters\OverrideSetting @ = 0x800)"},
        {"hotkey list", ""},
        {"cooling status", ""},
        {"cooling graphics off", R"(check registry SVC\TMC\DCC CurrentSetting = 0)"},
        {"FlipButtonForHarrow",
         R"(check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable = 0)"},
        {"TabletToClamshellForHarrow",
         R"(check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable = 0)"},
        {"inhibit-lid --timeout 15", ""},
        {"inhibit-lid backup.exe", ""},
        {"status --inhibit", ""},
        {"watch --timeout 1", ""},
    };
    const std::string sent = "call ControlService(\"ZORPMSVC\", ";
    std::uint64_t failed = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        const std::string run = sim::format("run \"zorpmctl\" %s\nadvance 40s", row.words);
        const std::string ended = sim::format("process \"zorpmctl %s\" ended ", row.words);
        run_case(row.words, g_control + sim::format("%s\nexpect %s0", run.c_str(), ended.c_str()));
        failed += fail_each_call(g_control, run, [&](Bench& bench) {
            EXPECT_EQ(1u, traced(ended));
            if (traced(ended + "0") != 0)
                bench.run(row.done);
            EXPECT_TRUE(traced(sent + "131) = 1") == 0 || traced(sent + "132) = 1") != 0 ||
                        traced("output zorpmctl \"zorpmctl: ") != 0);
        });
    }
    figure("core: platform calls beside the control program's commands, each failed once",
           std::to_string(failed));
}

// Controls, events, client writes and the stop in one instant, threads in any order.
TEST(CoreSweep, AThousandSchedules) {
    std::uint64_t events = 0;
    std::uint64_t switches = 0;
    run_seeds(1000, [&](Bench& bench) {
        sim::set_power_settings_at_registration(sim::random_below(2) == 0);
        bench.run(g_start);
        static const DWORD codes[] = {0x1005, 0x100C, 0x4010, 0x4012, 0x4013,
                                      0x5001, 0x5002, 0x60C0, 0x60F0, 0x6031};
        static const DWORD controls[] = {2, 3, 4, 130, 131, 132, 133, 134, 135, 137, 138, 139, 140, 141, 142};
        for (int round = 0; round < 3; ++round) {
            for (int i = 0; i < 4; ++i) {
                sim::post_event(codes[sim::random_below(std::size(codes))]);
                sim::service_control(controls[sim::random_below(std::size(controls))], sim::Via::Handler);
                ++events;
            }
            sim::service_power_event(PBT_APMRESUMESUSPEND, sim::Via::Handler);
            sim::registry_set_dword("SVC\\Parameters\\CurrentSetting", "@",
                                    static_cast<DWORD>(sim::random_below(0x100)));
            bench.machine.advance(sim::random_below(1500));
        }
        // The disorder is over: whatever was suspended goes on, and what is published is what the firmware
        // says.
        // (A pump paused in its turn holds up each of the 15 requests before for 5 s, a refresh for two waits
        // more.)
        for (int i = 0; i < 12; ++i)
            sim::service_control(SERVICE_CONTROL_CONTINUE, sim::Via::Handler);
        bench.machine.advance(180000);
        EXPECT_EQ(0u, sim::pending_events());
        bench.run(R"(
            control 135
            event 0x60C0
            advance 1s
            check registry SVC\Transform\CurrentStatus MM = 1
            check registry SVC\TMC\TIO CurrentSetting = 1
            check registry SVC\TMC\TIO CurrentStatus = 0
            check handles 0)");
        // A stop in the midst of new events and controls.
        sim::post_event(0x4012);
        sim::service_control(138);
        sim::service_stop();
        sim::post_event(0x60C0);
        bench.machine.advance(60000);
        EXPECT_EQ(SERVICE_STOPPED, sim::service_status().dwCurrentState);
        EXPECT_EQ(nullptr, sim::service_process());
        EXPECT_EQ(0u, sim::handle_count());
        switches += bench.machine.switches;
    });
    figure("core: schedules of controls, events and stop", std::to_string(runs_of(1000)));
    figure("core: random events and controls in them", std::to_string(events));
    figure("core: fiber switches in them", std::to_string(switches));
}
