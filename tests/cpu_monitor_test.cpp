// The CPU idle-state monitor: what it asks, writes and selects, and when it ends.
#include "cpu/cpu_monitor.h"
#include "tests/support/bench.h"

#define KEY "HKLM\\Software\\ZOR\\ZORPM\\CPUControl"

static const char g_wanted[] =
    "firmware QCPULEVELCTRL(0) = 1\nfirmware QCPULEVELCTRL(1) = 5\nfirmware QCPULEVELCTRL(2) = 1000\n";
// A key that asks for the control, and whose own values count.
static const char g_own[] =
    "registry set " KEY " Workaround dword 1\nregistry set " KEY " UseRegValue dword 1\n";

// CPU stands for the key.
static void run_cpu_cases(const std::string& beginning, std::initializer_list<ScriptCase> rows) {
    for (const ScriptCase& row : rows) {
        std::string script = beginning + "\n" + row.script;
        for (size_t at; (at = script.find(" CPU")) != std::string::npos;)
            script.replace(at, 4, " " KEY);
        run_case(row.name, script);
    }
}

TEST(CpuMonitor, NewKey) {
    run_cpu_cases("", {{"not wanted", R"(
        start | advance 1s | expect registry create CPU | expect next request QCPULEVELCTRL(0x0) = 0x0
        expect next registry delete CPU | expect no request GETTIMERRESOL*
        expect count 1 request QCPULEVELCTRL* | check registry CPU absent | check handles 0)"},
                       {"an answer of no byte", R"(
        firmware QCPULEVELCTRL(0) = 5 bytes 0 | start | advance 1s | expect registry delete CPU)"},
                       {"no byte when asked again", R"(
        firmware QCPULEVELCTRL(0) = 1 times 1 | firmware QCPULEVELCTRL(0) = 1 bytes 0 | start
        advance 1s | expect no request GETTIMERRESOL*)"},
                       {"not told", R"(
        firmware QCPULEVELCTRL(0) fails | start | advance 1s | expect registry delete CPU
        expect no registry CPU Workaround*)"},
                       {"wanted only when asked first", R"(
        firmware QCPULEVELCTRL(0) = 2 times 1 | start | advance 1s
        expect registry CPU Workaround = 0x2 | expect next request QCPULEVELCTRL(0x1) = 0x0
        expect next request QCPULEVELCTRL(0x2) = 0x0 | expect registry CPU UseRegValue = 0x0
        expect next request QCPULEVELCTRL(0x0) = 0x0 | expect no registry delete CPU
        expect no request GETTIMERRESOL*)"},
                       {"refused", R"(
        registry refuse CPU | start | advance 1s | check status RUNNING
        expect no request QCPULEVELCTRL* | check handles 0 | stop | check status STOPPED 0/0)"}});
}

TEST(CpuMonitor, ExistingKey) {
    run_cpu_cases(g_wanted + std::string("registry set CPU Workaround dword 1"),
                  {{"defaults are refreshed", R"(
        registry set CPU PollingDuration dword 77 | start | advance 1s | expect no registry create CPU
        expect registry CPU PollingDuration = 0x5 | expect next registry CPU C4TimerReso = 0x3e8
        expect next registry CPU UseRegValue = 0x0)"},
                   {"defaults that the driver refuses", R"(
        firmware QCPULEVELCTRL(1) fails | firmware QCPULEVELCTRL(2) fails | start | advance 2ms
        expect registry CPU PollingDuration = 0x0 | expect next registry CPU C4TimerReso = 0x0)"},
                   {"the registry's own", R"(
        registry set CPU UseRegValue dword 1 | registry set CPU PollingDuration dword 10
        registry set CPU C4TimerReso dword 20000 | start | advance 1s
        expect no request QCPULEVELCTRL(0x1)* | expect no registry CPU *
        expect request GETTIMERRESOL() = 0x2625a | expect no request CSTATEPARAMS*
        mark | advance 30s | expect count 3 request GETTIMERRESOL() = 0x2625a)"},
                   {"turned off by a client", R"(
        registry set CPU Workaround dword 0 | start | advance 1s
        expect count 1 request QCPULEVELCTRL(0x0) = 0x1 | expect no request GETTIMERRESOL*)"},
                   {"a flag of another type counts as missing", R"(
        registry set CPU Workaround sz "1" | start | advance 1s | expect no request GETTIMERRESOL*)"},
                   {"no resolution at all", R"(
        firmware GETTIMERRESOL fails | start | advance 20s
        expect count 1 request GETTIMERRESOL() failed | expect no request CSTATESELECT*)"}});
}

// Threshold, resolution and current selection; what is then selected, if anything.
TEST(CpuMonitor, Selection) {
    static const struct {
        DWORD threshold, resolution, current;
        const char* selected;
    } rows[] = {{1000, 156250, 3, "0x4"},
                {1000, 5000, 4, "0x3"},
                {1000, 10000, 4, "0x3"},
                {1000, 10009, 4, "0x3"},
                {1000, 10010, 3, "0x4"},
                {1000, 156250, 4, nullptr},
                {1000, 5000, 3, nullptr},
                {0, 9, 4, "0x3"},
                {0, 10, 3, "0x4"},
                {0, 0, 0, "0x3"},
                {0xFFFFFFFF, 0xFFFFFFFF, 4, "0x3"},
                {0x19999998, 0xFFFFFFFF, 3, "0x4"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(
            sim::format("threshold %u resolution %u current %u", row.threshold, row.resolution, row.current));
        Bench bench;
        bench.run(g_wanted);
        bench.run(sim::format(R"(
            firmware QCPULEVELCTRL(2) = %u | firmware GETTIMERRESOL = %u
            firmware CSTATESELECT = %u | start | advance 1s
        )",
                              row.threshold, row.resolution, row.current) +
                  (row.selected != nullptr ? std::string("expect request CSTATEPARAMS(") + row.selected + ")"
                                           : "expect no request CSTATEPARAMS*"));
    }
}

// Polling durations in the registry, and the passes of the thread, which runs alone here, within a time.
TEST(CpuMonitor, PollingDuration) {
    static const struct {
        DWORD duration;
        sim::Ms watch;
        unsigned passes;
    } rows[] = {{1, 10000, 10},           {5000000, 3999999999, 0}, {5000000, 4000000000, 1},
                {4000000, 4000000000, 1}, {3999999, 3999999000, 1}, {0xFFFFFFFF, 8000000000, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.duration);
        Bench bench;
        bench.run(std::string(g_wanted) + g_own);
        sim::registry_set_dword(KEY, "PollingDuration", row.duration);
        sim::start_thread(bench.machine.host, "monitor",
                          [] { return CPUStateC3C4MonitorThreadProc(nullptr); });
        bench.run(sim::format(R"(
                advance 0s | mark | advance %llums
                expect count %u request GETTIMERRESOL() = 0x2625a)",
                              static_cast<unsigned long long>(row.watch), row.passes));
    }
}

// A missing duration is 0: no pause between the passes, and still the service answers and stops.
TEST(CpuMonitor, NoPause) {
    Bench bench;
    bench.machine.keep_trace = false;
    bench.run(std::string(g_wanted) + g_own);
    unsigned passes = 0;
    sim::set_request_hook(
        [&passes](const std::string& method, const DWORD*, DWORD) { passes += method == "GETTIMERRESOL"; });
    bench.run(R"(
        start | advance 10ms | check status RUNNING)");
    EXPECT_GT(passes, 1000u);
    bench.run(R"(
        event 0x5010 | stop | check status STOPPED 0/0)");
}

// A selection that cannot be read counts as what was read last, not as what was asked for.
TEST(CpuMonitor, UnreadableSelection) {
    run_cases(g_wanted, {
                            {"the selection before stays", R"(
                                firmware CSTATESELECT = 4 times 1 | firmware CSTATESELECT fails
                                start | advance 12s | expect request CSTATESELECT() failed
                                expect request CSTATESELECT() failed
                                expect no request CSTATEPARAMS*)"},
                            {"what was asked for is asked for again", R"(
                                firmware CSTATESELECT = 3 times 1 | firmware CSTATESELECT fails
                                start | advance 11s | expect count 3 request CSTATEPARAMS(0x4))"},
                        });
}

// The stop control ends the sleep of the monitor; the selection stays as it is.
TEST(CpuMonitor, EndsWithTheService) {
    run_cases(g_wanted, {
                            {"asleep", R"(start
                      advance 2s | stop | check status STOPPED 0/0
                      expect no request CSTATEPARAMS*
                      mark | advance 1m | expect no request *)"},
                            {"ended by itself", R"(start
                      advance 1s | firmware GETTIMERRESOL fails | advance 10s | stop
                      check status STOPPED 0/0)"},
                            {"short answers keep what was there", R"(firmware CSTATESELECT = 4 bytes 0
                      firmware GETTIMERRESOL = 0x1ff00 bytes 2 | start | advance 1s
                      expect request GETTIMERRESOL() = 0xff00 bytes 2
                      expect request CSTATEPARAMS(0x4) | check status RUNNING)"},
                        });
}
