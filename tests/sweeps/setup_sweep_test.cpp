// Idle-state monitor, panel frequency, task registration and clean-up: each platform and COM call failing
// once, and the task thread, events and the stop in any order.
#include <set>

#include "cpu/cpu_monitor.h"
#include "sim/notebook/panel.h"
#include "sim/windows/com.h"
#include "sim/windows/disk.h"
#include "sim/windows/programs.h"
#include "sim/windows/resources.h"
#include "sim/windows/task_scheduler.h"
#include "tests/support/sweep.h"

static const char g_inf[] = "C:\\Windows\\system32\\ZORPMDRV.INF";
static const char g_task[] = "Mestra Power Management Driver PnP Task";
static const char g_oldRelease[] =
    "registry set \"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\" ReleaseId "
    "sz \"1809\"\n";

// The clean-up run has ended with nothing left, whatever failed; a started uninstall has a whole copy to work
// on.
static void clean_up_left_nothing(const std::string& failed) {
    const auto& processes = sim::machine().processes;
    sim::Process* process = std::find_if(processes.begin(), processes.end(), [](const auto& one) {
                                return one->command_line == "-PnPTask";
                            })->get();
    EXPECT_TRUE(process->ended) << failed;
    EXPECT_EQ(0u, process->handles_left) << failed;
    EXPECT_EQ(0u, process->blocks_left) << failed;
    EXPECT_EQ("", process->left) << failed;
    if (traced("call CreateProcessW") == 0)
        return;
    const sim::PlainFile* copy = sim::find_file(g_inf);
    ASSERT_NE(nullptr, copy) << failed;
    EXPECT_EQ(sim::embedded_inf(), copy->bytes) << failed;
    EXPECT_EQ(1u, copy->dacl.size()) << failed;
}

TEST(SetupSweep, CleanUp) {
    const std::string removal =
        std::string("registry set SVC Owners multi \"gone.inf\"\nfile \"") + g_inf +
        "\" present\nwindows task \"Mestra\" \"Mestra Platform Task\" present\nrun \"-PnPTask\"";
    std::uint64_t calls = sweep_failures(removal, clean_up_left_nothing);
    const std::string installed = R"(
        registry set SVC Owners multi "gone.inf" "oem8.inf"
        file "C:\Windows\INF\oem8.inf" present
        run "-PnPTask")";
    calls += sweep_failures(installed, [](const std::string& failed) {
        clean_up_left_nothing(failed);
        for (const char* effect : {"call ", "file ", "registry "})
            EXPECT_EQ(0u, traced(effect)) << failed << ": uninstalled on doubt";
    });
    figure("setup: calls of the clean-up run, each failed once, nothing left", std::to_string(calls));
}

// The task is registered in the end, unless its thread has not come to the first attempt.
TEST(SetupSweep, TaskRegistration) {
    static const std::set<std::string> decisive = {"CoInitializeEx", "CoInitializeSecurity", "CreateThread"};
    const std::uint64_t calls =
        sweep_failures(std::string(g_oldRelease) + "start\nadvance 20s", [](const std::string& failed) {
            sim::Process* service = sim::service_process();
            if (sim::service_status().dwCurrentState != SERVICE_RUNNING)
                return; // the start itself has failed
            EXPECT_EQ(0u, sim::com_references(service)) << failed;
            EXPECT_EQ(0u, sim::com_strings(service)) << failed;
            EXPECT_EQ(0u, sim::com_initialisations(service)) << failed;
            EXPECT_TRUE(decisive.count(failed) != 0 || sim::task_count("\\") == 1) << failed;
        });
    figure("setup: calls of a start that registers the task, each failed once", std::to_string(calls));
}

// One report per ended attempt; the next event puts everything right.
TEST(SetupSweep, PanelFrequency) {
    const std::uint64_t calls =
        fail_each_call(R"(
            firmware PWMGET = 200
            windows graphics present
            start
            advance 2s)",
                       "event 0x5010", [](Bench& bench) {
                           static const std::set<std::string> of_a_request = {
                               "CreateFileW", "DeviceIoControl", "WaitForMultipleObjects"};
                           const size_t reports = traced("request PWMSET");
                           EXPECT_LE(reports, 1u);
                           EXPECT_TRUE(reports == 1 || of_a_request.count(bench.machine.failed_call) != 0);
                           bench.run(R"(
            advance 3s
            event 0x5010
            expect request PWMSET(0xc8) = 0x0)");
                           EXPECT_EQ(200u, sim::inverter().frequency);
                           EXPECT_EQ(1u, sim::com_references(sim::service_process()));
                           EXPECT_EQ(1u, sim::com_initialisations(sim::service_process()));
                       });
    figure("display: calls of a frequency change, each failed once", std::to_string(calls));
}

// The monitor's thread alone: it sleeps with its two devices open, or has ended with none.
TEST(SetupSweep, IdleStateMonitor) {
    std::uint64_t number = 1;
    for (bool more = true; more; number += share()) {
        Bench bench;
        bench.run(R"(
            firmware QCPULEVELCTRL(0) = 1
            firmware QCPULEVELCTRL(1) = 5
            firmware QCPULEVELCTRL(2) = 1000)");
        bench.machine.fail_at = number;
        sim::Thread* thread = sim::start_thread(bench.machine.host, "monitor",
                                                [] { return CPUStateC3C4MonitorThreadProc(nullptr); });
        bench.machine.advance(2);
        if (bench.machine.calls < 100) // else the duration could not be read: it goes on without pause
            bench.machine.advance(7000);
        more = !bench.machine.failed_call.empty();
        const size_t devices = thread->run == sim::Run::Ended               ? 0
                               : bench.machine.failed_call == "CreateFileW" ? 1
                                                                            : 2;
        EXPECT_EQ(devices, sim::handle_count()) << bench.machine.failed_call;
    }
    figure("cpu: calls of the monitor's first passes, each failed once", std::to_string(number));
}

// Task thread, event thread, a clean-up run and the stop at once; then all faults stop, and a new start
// publishes what the machine says.
TEST(SetupSweep, Schedules) {
    constexpr std::uint64_t SEEDS = 300;
    std::uint64_t switches = 0;
    run_seeds(SEEDS, [&switches](Bench& bench) {
        bench.run(std::string(g_oldRelease) + R"(
            firmware PWMGET = 200
            firmware QCPULEVELCTRL(0) = 1
            firmware QCPULEVELCTRL(1) = 5
            firmware QCPULEVELCTRL(2) = 1000
            registry set SVC Owners multi "gone.inf"
            start)");
        const bool faults = sim::random_below(2) != 0; // else a clean-up run stops the service at some time
        for (int round = 0; round < 4; ++round) {
            sim::set_graphics_present(sim::random_below(2) != 0);
            bench.run(sim::random_below(2) != 0 ? "windows scheduler missing" : "windows scheduler present");
            if (faults)
                bench.machine.fail_at = bench.machine.calls + 1 + sim::random_below(60);
            sim::post_event(0x5010);
            if (!faults && sim::random_below(4) == 0)
                sim::start_process("-PnPTask");
            bench.machine.advance(sim::random_below(6000));
        }
        bench.machine.fail_at = 0;
        sim::set_graphics_present(true);
        bench.run("windows scheduler present\nadvance 6s");
        if (sim::service_process() != nullptr) {
            sim::post_event(0x5010);
            sim::service_stop();
            bench.run("advance 1s");
        }
        bench.run(R"(
            check status STOPPED
            start
            advance 6s
            event 0x5010
            expect request PWMSET(0xc8) = 0x0
            check status RUNNING)");
        EXPECT_EQ(1u, sim::task_count("\\"));
        EXPECT_EQ(200u, sim::inverter().frequency);
        EXPECT_NE(0u, traced("request CSTATEPARAMS(0x4)"));
        EXPECT_EQ(0u, sim::com_strings(sim::service_process()));
        bench.run("stop\ncheck status STOPPED 0/0");
        switches += bench.machine.switches;
    });
    figure("setup: schedules of task, events, clean-up and stop", std::to_string(SEEDS));
    figure("setup: thread switches in them", std::to_string(switches));
}
