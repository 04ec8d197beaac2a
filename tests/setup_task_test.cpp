// The scheduled task: what is registered, what each failing step says, the deletions, the release of Windows.
#include <objbase.h>
#include <taskschd.h>

#include "setup/pnp_task.h"
#include "sim/windows/com.h"
#include "sim/windows/system.h"
#include "sim/windows/task_scheduler.h"
#include "tests/support/bench.h"

#define VERSION_KEY "\"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\""

static const char g_name[] = "Mestra Power Management Driver PnP Task";

// Runs `work` on a thread that has COM as the service's own threads have it, and asks that nothing is left of
// it.
static void with_com(const std::function<void()>& work) {
    sim::run_on_thread([&work] {
        ASSERT_TRUE(InitTaskSchedulerCom());
        work();
        sim::Process* process = sim::current_process();
        EXPECT_EQ(0u, sim::com_references(process));
        EXPECT_EQ(0u, sim::com_strings(process));
        CoUninitialize();
        EXPECT_EQ(0u, sim::com_initialisations(process));
    });
}

TEST(PnPTask, Properties) {
    Bench bench;
    with_com([] { EXPECT_TRUE(CreatePnPTask()); });
    const sim::ScheduledTask* task = sim::find_task("\\", g_name);
    ASSERT_NE(nullptr, task);
    EXPECT_EQ(1u, sim::task_count("\\"));
    EXPECT_EQ("Trigger1", task->trigger_id);
    EXPECT_EQ("<QueryList><Query Id=\"0\" Path=\"Microsoft-Windows-Kernel-PnP/Configuration\">"
              "<Select Path=\"Microsoft-Windows-Kernel-PnP/Configuration\">"
              "*[System[Provider[@Name='Microsoft-Windows-Kernel-PnP'] and "
              "EventID=420]]</Select></Query></QueryList>",
              task->subscription);
    EXPECT_EQ("C:\\Windows\\System32\\zorpmsvc.exe", task->path);
    EXPECT_EQ("-PnPTask", task->arguments);
    EXPECT_FALSE(task->allow_demand_start);
    EXPECT_FALSE(task->disallow_start_on_batteries);
    EXPECT_FALSE(task->stop_on_batteries);
    EXPECT_EQ(6u, task->flags);
    EXPECT_EQ("NT AUTHORITY\\System", task->user);
    EXPECT_FALSE(task->has_password);
    EXPECT_EQ(5u, task->logon);
    EXPECT_EQ("", task->security);
}

TEST(PnPTask, LongestPath) {
    for (const size_t length : {MAX_PATH - 1, MAX_PATH}) {
        Bench bench;
        sim::set_executable(std::string(length, 'x'));
        with_com([length] { EXPECT_EQ(length < MAX_PATH, CreatePnPTask() != FALSE); });
    }
}

// The messages of CreatePnPTask in the order of its steps. Every call that can fail does so in turn: the
// attempt fails with the message of its step (none for the three whose result does not count) and leaves
// nothing behind.
TEST(PnPTask, EveryStepSaysItsMessage) {
#ifdef NDEBUG
    GTEST_SKIP() << "the messages are discarded in this build";
#endif
    static const char* const messages[] = {
        "\nGetModulePath returned empty",
        "Failed to create an instance of ITaskService: ",
        "ITaskService::Connect failed: ",
        "Cannot get Root Folder pointer: ",
        "Failed to create a task definition: ",
        "\nCannot get trigger collection: ",
        "\nCannot create the event trigger: ",
        "\nCannot put trigger ID: ",
        "\nQueryInterface call failed on IEventTrigger: ",
        "\nCannot put subscription: ",
        "\nCannot get Task collection pointer: ",
        "\nCannot create the action: ",
        "\nQueryInterface call failed on IExecAction: ",
        "\nCannot add path for executable action: ",
        "\nCannot add command line arg for executable action: ",
        "\nCannot get Task setting pointer: ",
        "\nCannot add idle setting for task setting: ",
        "\nError saving the Task : ",
    };
    size_t at = 0;
    std::string ignored;
    for (std::uint64_t number = 1;; ++number) {
        Bench bench;
        bench.machine.keep_details = true;
        BOOL created = FALSE;
        with_com([&] {
            bench.machine.fail_at = bench.machine.calls + number;
            created = CreatePnPTask();
        });
        if (bench.machine.failed_call.empty())
            break;
        SCOPED_TRACE(bench.machine.failed_call);
        EXPECT_EQ(created != FALSE, sim::find_task("\\", g_name) != nullptr);
        if (created) {
            ignored += bench.machine.failed_call + " ";
            continue;
        }
        std::string said;
        for (const sim::TraceLine& line : bench.machine.trace) {
            if (line.text.starts_with("says ") && !line.text.starts_with("says Enter") &&
                !line.text.starts_with("says Return") && !line.text.starts_with("says Exit"))
                said += line.text.substr(5) + "|";
        }
        EXPECT_EQ(said.size() - 1, said.find('|')) << said; // it ends there
        while (at < std::size(messages) && !said.starts_with(messages[at]))
            ++at;
        ASSERT_LT(at, std::size(messages)) << said;
    }
    EXPECT_EQ(std::size(messages) - 1, at);
    // Deleting the earlier task (with the string for it) and the first two settings may fail.
    EXPECT_EQ("SysAllocString DeleteTask put_AllowDemandStart put_DisallowStartIfOnBatteries ", ignored);
}

TEST(PnPTask, NoRetryAfterTheStop) {
    Bench bench;
    bench.run("registry set " VERSION_KEY R"( ReleaseId sz "1809"
                 windows scheduler missing | start | advance 12s | stop
                 check status STOPPED 0/0
                 windows scheduler present | mark | advance 1m | expect no *)");
}

TEST(PnPTask, TriedAgainAfterFiveSeconds) {
    Bench bench;
    bench.run("registry set " VERSION_KEY R"( ReleaseId sz "1809"
                 windows scheduler missing | start | windows scheduler present
                 advance 4999ms | expect no call RegisterTaskDefinition*
                 advance 1ms | expect call RegisterTaskDefinition*)");
}

TEST(PnPTask, Release) {
    static const struct {
        const char* value; // as registry data, "" missing
        BOOL later;
    } rows[] = {
        {"sz \"1809\"", FALSE},
        {"sz \"1902\"", FALSE},
        {"sz \"1903\"", TRUE},
        {"sz \"2009\"", TRUE},
        {"sz \"20H2\"", FALSE},
        {"sz \"1903b\"", TRUE},
        {"sz \"\"", FALSE},
        {"sz \"-1903\"", FALSE},
        {"sz \"00001903\"", TRUE},
        {"dword 2009", FALSE},
        {"expand \"2009\"", FALSE},
        {"", FALSE},
        {"sz \"99999999999999999999999999999999\"", TRUE},
        {"sz \"1809999999999999999999999999999999999999999999999999999999999999999999999\"", FALSE},
        {"raw 1 3100390030003300", TRUE}, // no end
        {"raw 1 31003900300033", FALSE},  // nor the second half of the 3
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        Bench bench;
        bench.run("registry delete " VERSION_KEY " ReleaseId");
        if (row.value[0] != 0)
            bench.run(std::string("registry set " VERSION_KEY " ReleaseId ") + row.value);
        BOOL later = FALSE;
        sim::run_on_thread([&later] { later = IsReleaseId1903OrLater(); });
        EXPECT_EQ(row.later, later);
        bench.run("start\nadvance 6s");
        bench.run(later ? "check task \"\\\" \"Mestra Power Management Driver PnP Task\" absent"
                        : "check task \"\\\" \"Mestra Power Management Driver PnP Task\" present");
    }
}

TEST(PnPTask, Deletions) {
    static const struct {
        const char* setup;
        BOOL pnp, platform;
    } rows[] = {{"", TRUE, TRUE}, // neither is there, nor the platform's folder
                {R"(
            windows task "\" "Mestra Power Management Driver PnP Task" present
            windows task "Mestra" "Mestra Platform Task" present)",
                 TRUE, TRUE},
                {"windows task \"Mestra\" \"Another\" present", TRUE, TRUE},
                {"windows scheduler missing", FALSE, FALSE}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setup);
        Bench bench;
        bench.run(row.setup);
        with_com([&row] {
            EXPECT_EQ(row.pnp, DeletePnPTask());
            EXPECT_EQ(row.platform, DeletePlatformTask());
        });
        EXPECT_EQ(nullptr, sim::find_task("\\", g_name));
        EXPECT_EQ(nullptr, sim::find_task("Mestra", "Mestra Platform Task"));
    }
}

// A deletion that failed for any other reason than that there is no task is none.
TEST(PnPTask, FailedDeletions) {
    for (std::uint64_t number = 1;; ++number) {
        Bench bench;
        bench.run(R"(
            windows task "\" "Mestra Power Management Driver PnP Task" present
            windows task "Mestra" "Mestra Platform Task" present)");
        with_com([&] {
            bench.machine.fail_at = bench.machine.calls + number;
            const bool pnp_deleted = DeletePnPTask() != FALSE;
            EXPECT_EQ(pnp_deleted, sim::find_task("\\", g_name) == nullptr);
            const bool platform_deleted = DeletePlatformTask() != FALSE;
            EXPECT_EQ(platform_deleted, sim::find_task("Mestra", "Mestra Platform Task") == nullptr);
        });
        if (bench.machine.failed_call.empty())
            break;
    }
}

// Set once per process; a failure leaves COM as it was.
TEST(PnPTask, ComSecurity) {
    Bench bench;
    bench.machine.keep_details = true;
    sim::run_on_thread([] {
        EXPECT_TRUE(InitTaskSchedulerCom());
        EXPECT_FALSE(InitTaskSchedulerCom()); // set already
        EXPECT_EQ(1u, sim::com_initialisations(sim::current_process()));
        CoUninitialize();
        sim::machine().fail_name = "CoInitializeEx";
        sim::machine().fail_countdown = 1;
        EXPECT_FALSE(InitTaskSchedulerCom()); // and nothing set
    });
    EXPECT_EQ(1u, details("CoInitializeSecurity(null, -1, 4, 3, 0)"));
    EXPECT_EQ(2u, details("CoInitializeEx(0)"));
}

TEST(PnPTask, SchedulerInTheOwnProcess) {
    Bench bench;
    bench.machine.keep_details = true;
    with_com([] { EXPECT_TRUE(CreatePnPTask()); });
    EXPECT_LT(0u, details("CoCreateInstance(0x1)"));
    EXPECT_EQ(details("CoCreateInstance(*"), details("CoCreateInstance(0x1)"));
}
