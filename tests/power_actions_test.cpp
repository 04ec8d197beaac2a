// The lid beep, sleep, hibernation, power-off, and the return to sleep after an unattended wake-up.
#include "sim/windows/modules.h"
#include "sim/windows/power.h"
#include "tests/support/bench.h"

static const std::string g_desktopKey = R"("HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path" @ )";
static const std::string g_desktopPath = "registry set " + g_desktopKey + R"(sz "C:\Desk")";

namespace {

// Runs rows behind a started service; each row's setup comes before the start.
struct PowerCase {
    const char* name;
    const char* setup;
    const char* script;
};

} // namespace

template <size_t N> static void run_started(const std::string& common, const PowerCase (&cases)[N]) {
    for (const PowerCase& row : cases) {
        SCOPED_TRACE(row.name);
        Bench bench;
        bench.started(common + "\n" + row.setup);
        bench.run(row.script);
        EXPECT_EQ(0u, sim::loaded_modules());
        EXPECT_EQ(0u, sim::handle_count(sim::Kind::Token));
        EXPECT_EQ(0u, sim::service_process()->local_blocks);
    }
}

TEST(Power, LidBeep) {
    const char* beeps = "event 0x5001\nexpect request SETLIDBEEP(0x1)";
    const char* silent = "event 0x5001\nexpect no request SETLIDBEEP*";
    const char* desk0 = R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 0)";
    const std::string both = g_desktopPath + "\n" + R"(ini "C:\Windows\LidBeep.ini" LidCloseBeep Status 1)";
    const PowerCase with_both[] = {
        {"the desktop file alone decides", desk0, silent},
        {"any value but 1 is silent", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 2)", silent},
        {"without it the Windows file decides", "", beeps},
        {"a sentinel is no value", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 57005)", beeps},
        {"other sections and keys do not matter", R"(
            ini "C:\Desk\LidBeep.ini" LidCloseBeep State 0
            ini "C:\Desk\LidBeep.ini" Beep Status 0)",
         beeps},
        {"no lid-close action: the firmware is told instead", "windows lid-action 0", R"(
            event 0x5001 | expect request LIDCLOSEACTIONNONE() | expect no request SETLIDBEEP*)"},
        {"no policy, no decision", "windows lid-action fails", silent},
        {"no library, no decision", "windows powrprof missing", silent},
        {"no function, no decision", "windows powrprof without CallNtPowerInformation", silent},
        {"a request that fails is ignored", "firmware SETLIDBEEP fails", R"(
            event 0x5001 | expect request SETLIDBEEP(0x1) failed
            check registry SVC\Transform\CurrentStatus Lid = 1)"},
        {"a path as long as the limit, without an end", nullptr, beeps},
    };
    for (const PowerCase& row : with_both) {
        const std::string units = [] {
            std::string hex;
            for (int i = 0; i < 130; ++i)
                hex += "7800";
            return hex;
        }();
        const std::string raw = sim::format("registry set %sraw 1 %s", g_desktopKey.c_str(), units.c_str());
        const PowerCase one[] = {{row.name, row.setup != nullptr ? row.setup : raw.c_str(), row.script}};
        run_started(both, one);
    }
    const PowerCase alone[] = {
        {"neither file", "", silent},
        {"no Windows directory", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 1
          fail GetWindowsDirectoryW)",
         silent},
        {"the desktop file", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 1)", beeps},
        {"an odd byte at the end", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 1
          registry set "HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path" @ raw 1 43003a005c004400650073006b0099)",
         beeps},
        {"a path of another type is none", R"(ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 1
          registry set "HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path" @ expand "C:\Desk")",
         silent},
        {"a path that came after the start",
         "registry delete "
         R"("HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path")",
         R"(registry set "HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path" @ sz "C:\Desk"
            ini "C:\Desk\LidBeep.ini" LidCloseBeep Status 1 | event 0x5001
            expect no request SETLIDBEEP*)"},
    };
    run_started(g_desktopPath, alone);
}

TEST(Power, SleepAndHibernation) {
    const PowerCase cases[] = {
        {"forced sleep the privilege refused", "windows privilege SeShutdownPrivilege refused",
         "event 0x6012\nexpect no call *"},
        {"forced sleep without the function", "windows powrprof without SetSuspendState",
         "event 0x6012\nexpect no call *"},
        {"forced sleep with the library whole again", "windows powrprof without SetSuspendState", R"(
            windows powrprof present | event 0x6012 | expect call SetSuspendState(0, 1, 1) = 1)"},
        {"hibernation", "", R"(
            event 0x100C | expect call SetSystemPowerState(0, 0) = 1 | expect count 1 call *)"},
        {"hibernation the privilege refused", "windows privilege SeShutdownPrivilege refused",
         "event 0x100C\nexpect no call *"},
        {"nor is the file made", "windows hibernate forbidden\nwindows privilege SeShutdownPrivilege refused",
         "event 0x100C\nexpect no call *"},
        {"the privilege lost meanwhile", "", "fail AdjustTokenPrivileges 2\nevent 0x100C\nexpect no call *"},
        {"the hibernation file is made", "windows hibernate forbidden", R"(
            event 0x100C | expect call CallNtPowerInformation(10) = 0
            expect call SetSystemPowerState(0, 0) = 1)"},
        {"it cannot be made", "windows hibernate forbidden\nwindows hiberfile fails", R"(
            event 0x100C | expect call CallNtPowerInformation(10) = 0x*
            expect call SetSuspendState(0, 0, 1) = 1 | expect no call SetSystem*)"},
        {"it may not be made", "windows hibernate forbidden", R"(
            registry set HKLM\Software\ZOR\ZORPM HibFileCreation dword 0 | event 0x100C
            expect call SetSuspendState(0, 0, 1) = 1 | expect count 1 call *)"},
        {"with hibernation allowed the ban says nothing", "", R"(
            registry set HKLM\Software\ZOR\ZORPM HibFileCreation dword 0 | event 0x100C
            expect call SetSystemPowerState(0, 0) = 1)"},
        {"a ban of another type is none", "windows hibernate forbidden", R"(
            registry set HKLM\Software\ZOR\ZORPM HibFileCreation binary 00000000 | event 0x100C
            expect call CallNtPowerInformation(10) = 0)"},
        {"nor is one of another size", "windows hibernate forbidden", R"(
            registry set HKLM\Software\ZOR\ZORPM HibFileCreation raw 4 0000000000000000
            event 0x100C | expect call CallNtPowerInformation(10) = 0)"},
        {"nor one that is gone", "windows hibernate forbidden", R"(
            registry delete HKLM\Software\ZOR\ZORPM HibFileCreation | event 0x100C
            expect call CallNtPowerInformation(10) = 0)"},
        {"no library, no power action", "windows powrprof missing", "event 0x100C\nexpect no call *"},
    };
    run_started("", cases);
}

// Enabling a privilege that the token does not hold succeeds, and the call itself fails.
TEST(Power, APrivilegeThatIsNotHeld) {
    const PowerCase cases[] = {
        {"forced sleep", "windows privilege SeShutdownPrivilege denied", R"(
            event 0x6012 | expect call SetSuspendState(0, 1, 1) = 0 | expect count 1 call *)"},
        {"hibernation", "windows privilege SeShutdownPrivilege denied", R"(
            event 0x100C | expect call SetSystemPowerState(0, 0) = 0 | expect count 1 call *)"},
        {"the hibernation file",
         "windows hibernate forbidden\nwindows privilege SeCreatePagefilePrivilege denied", R"(
            event 0x100C | expect call CallNtPowerInformation(10) = 0xc0000061
            expect call SetSuspendState(0, 0, 1) = 1 | expect no call SetSystem*)"},
        {"battery wake-up", "windows privilege SeShutdownPrivilege denied", R"(
            event 0x2013 | advance 1h | expect count 3 call SetSuspendState(1, 1, 1) = 0)"},
        {"power-off", "windows hibernate forbidden\nwindows privilege SeShutdownPrivilege denied", R"(
            event 0x2013 | advance 1h | expect call ExitWindowsEx(12, 0) = 0
            expect count 1 call *)"},
    };
    run_started("", cases);
}

TEST(Power, BatteryWakeup) {
    const PowerCase cases[] = {
        {"two attempts fail", "windows suspend fails times 2", R"(
            event 0x2013 | advance 4999ms | expect no call *
            advance 1ms | expect call SetSuspendState(1, 1, 1) = 0
            advance 4999ms | expect count 1 call *
            advance 1ms | expect call SetSuspendState(1, 1, 1) = 0
            advance 5s | expect call SetSuspendState(1, 1, 1) = 1
            advance 1h | expect count 3 call *)"},
        {"all fail: three attempts, and the last pause too holds the next event", "windows suspend fails", R"(
            event 0x2013 | event 0x7000 | advance 19999ms
            expect no request GETEVENT() = 0x7000*
            advance 1ms | expect request GETEVENT() = 0x7000 0x0)"},
        {"three and no more", "windows suspend fails", R"(
            event 0x2013 | advance 1h | expect count 3 call *)"},
        {"hibernation forbidden", "windows hibernate forbidden", R"(
            event 0x2013 | advance 4999ms | expect no call *
            advance 1ms | expect call ExitWindowsEx(12, 0) = 1
            advance 1h | expect count 1 call *)"},
        {"the privilege refused all three are still made", "windows privilege SeShutdownPrivilege refused",
         R"(
            event 0x2013 | advance 1h | expect count 3 call SetSuspendState(1, 1, 1) = 0)"},
        {"no library counts as forbidden", "windows powrprof missing", R"(
            event 0x2013 | advance 5s | expect call ExitWindowsEx(12, 0) = 1)"},
        {"power-off the privilege refused",
         "windows hibernate forbidden\nwindows privilege SeShutdownPrivilege refused", R"(
             event 0x2013 | advance 1h | expect no call *)"},
        {"a suspend call that takes its time", "windows suspend takes 2h", R"(
            event 0x2013 | advance 5s | event 0x7000 | advance 7199s
            expect no request GETEVENT() = 0x7000*
            advance 1s | expect request GETEVENT() = 0x7000 0x0)"},
    };
    run_started("", cases);
}

static const PowerCase g_returnToSleep[] = {
    {"three minutes later", "", R"(
        event 0x2304 | advance 179999ms | expect no call *
        advance 1ms | expect call SetSuspendState(0, 0, 1) = 1
        advance 1h | expect count 1 call *)"},
    {"to hibernation", "", R"(
        event 0x2404 | advance 3m | expect call SetSystemPowerState(0, 0) = 1)"},
    {"no other state", "", R"(
        event 0x2504 | advance 1h | expect no call *)"},
    {"at once when the bus disconnects, and not again", "", R"(
        event 0x2304 | advance 10s | event 0x3003 | advance 2999ms | expect no call *
        advance 1ms | expect call SetSuspendState(0, 0, 1) = 1
        advance 1h | expect count 1 call * | check handles 0)"},
    {"without the pause before Vista", "windows version 5.2", R"(
        event 0x2404 | advance 10s | event 0x4003 | expect call SetSystemPowerState(0, 0) = 1)"},
    {"with it since Vista", "windows version 6.0", R"(
        event 0x2404 | advance 10s | event 0x4003 | advance 2999ms | expect no call *)"},
    {"a disconnect with nothing armed", "", R"(
        event 0x3003 | advance 1h | expect no call *)"},
    {"a disconnect after the timer", "", R"(
        event 0x2304 | advance 3m | expect call SetSuspendState*
        event 0x3003 | advance 1h | expect no call *)"},
    {"both timers act, on the later state", "", R"(
        event 0x2304 | advance 1m | event 0x2404 | advance 2m
        expect call SetSystemPowerState(0, 0) = 1
        advance 1m | expect call SetSystemPowerState(0, 0) = 1 | expect count 2 call *)"},
    {"a disconnect takes the state from both", "", R"(
        event 0x2304 | advance 1m | event 0x2304 | advance 30s | event 0x3003 | advance 1h
        expect count 1 call *)"},
    {"between two timers it finds none armed, but takes the state from the second", "", R"(
        event 0x2304 | advance 1m | event 0x2304 | advance 2m | event 0x3003 | advance 1h
        expect no call *)"},
    {"armed again after a disconnect", "", R"(
        event 0x2304 | event 0x3003 | advance 3s | expect call SetSuspendState*
        event 0x2404 | advance 179999ms | expect no call *
        advance 1ms | expect call SetSystemPowerState*)"},
    {"awake again hours later", "windows suspend takes 5h", R"(
        event 0x2304 | advance 10s | event 0x3003 | event 0x2404 | advance 5h | advance 3s
        expect count 1 call *
        advance 3m | expect count 2 call *)"},
    {"the privilege refused", "windows privilege SeShutdownPrivilege refused", R"(
        event 0x2304 | advance 1h | expect no call *)"},
    {"no timer thread: a disconnect still acts", "", R"(
        fail CreateThread | event 0x2304 | advance 1h | expect no call *
        event 0x3003 | advance 3s | expect call SetSuspendState(0, 0, 1) = 1)"},
    {"a thread that cannot be asked is dropped, not ended", "", R"(
        event 0x2304 | fail GetExitCodeThread | event 0x3003 | advance 1h
        expect count 1 call *)"},
};

TEST(Power, ReturnToSleep) {
    run_started("", g_returnToSleep);
}

TEST(Power, NothingGrowsWithEveryWakeup) {
    Bench bench;
    bench.started();
    const size_t at_rest = sim::handle_count(sim::service_process());
    bench.run("event 0x2304\nadvance 10s\nevent 0x3003\nadvance 10s");
    EXPECT_EQ(at_rest,
              sim::handle_count(sim::service_process())); // a disconnect lets go of the timer's thread
    // The latest timer thread's handle stays until the next event.
    bench.run(R"(
        event 0x2304 | advance 4m | event 0x2013 | advance 1m)");
    const size_t handles = sim::handle_count(sim::service_process());
    const size_t loads = sim::module_loads("powrprof.dll");
    for (int i = 0; i < 20; ++i)
        bench.run(R"(
            event 0x2304 | event 0x2404 | advance 4m | event 0x5001 | event 0x100C
            event 0x6012 | event 0x2013 | advance 1m)");
    EXPECT_EQ(handles, sim::handle_count(sim::service_process()));
    EXPECT_EQ(0u, sim::loaded_modules());
    // Two returns (one function each), the policy, one function for hibernation, one for sleep, two for the
    // battery.
    EXPECT_EQ(loads + size_t{20} * 7, sim::module_loads("powrprof.dll"));
}
