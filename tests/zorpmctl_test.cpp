// The control program beside the service on many schedules, and the header for clients against what the
// service does. What each command says is in scenarios/zorpmctl.txt.
#include <zorpm/zorpm.h>

#include "sim/windows/messages.h"
#include "tests/support/sweep.h"

// A word and the event of the same change of posture come in one instant; whoever presses, and how often, the
// setting ends as both want it.
TEST(ControlProgram, RotationWordsBesideTheService) {
    static const char setup[] = R"(
        registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GDET40W"
        registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
        windows rotation follows | start | advance 1s
        registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
    )";
    static const char change[] = R"(
        together | event %s | run "zorpmctl" %s
        %s
        end | advance 4s | expect no process * ended 1
        check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable = %u
    )";
    static const char notebook[] = "TabletToClamshellForHarrow";
    static const char tablet[] = "ClamshellToTabletForHarrow";
    run_seeds(150, [](Bench& bench) {
        bench.run(setup);
        for (const char* second : {"", "run \"zorpmctl\" "}) {
            const bool twice = *second != '\0';
            const std::string again_notebook = twice ? std::string(second) + notebook : "";
            const std::string again_tablet = twice ? std::string(second) + tablet : "";
            bench.run(sim::format(change, "0x500A", notebook, again_notebook.c_str(), 0u));
            bench.run(sim::format(change, "0x5009", tablet, again_tablet.c_str(), 1u));
        }
    });
}

// A choice made while the watch takes a new handle of its key, after many writes that changed nothing, is
// pushed.
TEST(ControlProgram, ChoiceWhileTheWatchIsRenewed) {
    run_seeds(60, [](Bench& bench) {
        sim::registry_remembers_changes(true); // of the former handle, not of the new one
        bench.started("firmware MHKV = 0x100\nfirmware MHKA = 0xFFFFFFFF");
        for (int i = 0; i < 49; ++i)
            bench.run("registry set SVC\\Parameters\\CurrentSetting @ dword 0");
        bench.run(R"(
            together | registry set SVC\Parameters\CurrentSetting @ dword 0
            run "zorpmctl" hotkey notify 5 | end | advance 1s | expect request MHKM(5, 1)
        )");
    });
}

// And so is a key that is taken over then.
TEST(ControlProgram, TakenOverWhileTheWatchIsRenewed) {
    run_seeds(240, [](Bench& bench) {
        sim::registry_remembers_changes(true);
        bench.started("firmware MHKN(1) = 1\nfirmware MHKA(1) = 0x804");
        for (int i = 0; i < 49; ++i)
            bench.run("registry set SVC\\Parameters\\OverrideSetting @ dword 0");
        bench.run(R"(
            together | registry set SVC\Parameters\OverrideSetting @ dword 0
            run "zorpmctl" hotkey override 12 | end | advance 1s | mark | event 0x100C | expect no call *
        )");
    });
}

// What a watch that begins before the service tells of cooling: the first state of each value.
TEST(ControlProgram, AWatchOfTheWholeStart) {
    static const struct {
        const char* firmware;
        const char* told;
    } rows[] = {
        {"firmware DYTC(0) = 0x20000001 | firmware DYTC(0x100) = 0x20010000 | firmware DYTC(3) = 0x201 | "
         "firmware GOPT(0) = 0x103 | firmware GOPT(0x100) = 4 | firmware GOPT(0x200) = 3",
         "TMCT.Capability=1 TMCT.CurrentSetting=1 "},
        {"firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001 | "
         "firmware GOPT(0) = 0x100 | firmware GOPT(0x100) = 1 | firmware GOPT(0x200) = 2",
         "TIO.CurrentSetting=1 TIO.CurrentStatus=1 MPH.CurrentSetting=1 MPH.CurrentStatus=1 "
         "CQH.CurrentSetting=1 CQH.CurrentStatus=0 DCC.CurrentSetting=1 DCC.CurrentStatus=0 "
         "DMC.CurrentSetting=1 DMC.CurrentStatus=0 FHP.CurrentSetting=1 FHP.CurrentStatus=0 "
         "TIO.CurrentOptionStatus=2 "}};
    for (const auto& row : rows) {
        Bench bench;
        bench.run(std::string(row.firmware) + R"(
            windows console redirected | run "zorpmctl" watch all --json --timeout 9 | advance 1s
            start | advance 8s | expect process "zorpmctl watch *" ended 0)");
        std::string told;
        for (const sim::TraceLine& line : bench.machine.trace) {
            char function[8];
            char value[32];
            unsigned number = 0;
            const size_t at = line.text.find("\"function\"");
            if (at != std::string::npos &&
                std::sscanf(line.text.c_str() + at, R"("function":"%7[^"]","value":"%31[^"]","number":%u)",
                            function, value, &number) == 3)
                told += sim::format("%s.%s=%u ", function, value, number);
        }
        EXPECT_EQ(row.told, told);
    }
}

// A log-off that is called off ends no inhibit; nor does any other message to its window.
TEST(ControlProgram, ALogOffThatIsCalledOff) {
    Bench bench;
    bench.started("firmware LCDCSGETSTATE = 3");
    bench.run("run \"zorpmctl\" inhibit-lid");
    const HWND window = sim::find_window("ZorpmctlSessionWindow");
    EXPECT_TRUE(sim::send_message(window, WM_ENDSESSION, FALSE, 0, nullptr));
    EXPECT_TRUE(sim::post_message(window, WM_TIMER, TRUE, 0));
    bench.run("advance 1s | expect no request LCDCSCONTROL* | expect no process *");
    bench.run("interrupt zorpmctl log-off | expect request LCDCSCONTROL(0x2) = *");
}

static unsigned lines_of(const Bench& bench, const char* text) {
    unsigned count = 0;
    for (const sim::TraceLine& line : bench.machine.trace)
        count += line.text.starts_with(text);
    return count;
}

static unsigned handles_left(const Bench& bench) {
    unsigned count = 0;
    for (const auto& process : bench.machine.processes)
        count += process->program == "zorpmctl" ? static_cast<unsigned>(process->handles_left) : 0;
    return count;
}

// What cannot wait for its end is refused before it begins, or ended when it has begun.
TEST(ControlProgram, WithoutAnEventToWaitFor) {
    for (const char* command : {"watch", "watch --timeout 3", "inhibit-lid", "inhibit-lid --timeout 3"}) {
        for (const auto& [call, error] : {std::pair{"CreateEventW 1", ERROR_NO_SYSTEM_RESOURCES},
                                          {"CreateEventW 2", ERROR_NO_SYSTEM_RESOURCES},
                                          {"WaitForMultipleObjects", ERROR_NOT_ENOUGH_MEMORY}}) {
            SCOPED_TRACE(sim::format("%s, fail %s", command, call));
            const bool begins = error == ERROR_NOT_ENOUGH_MEMORY && command[0] == 'i';
            Bench bench;
            bench.started("firmware LCDCSGETSTATE = 3");
            bench.run(sim::format(R"(
                windows console redirected | fail %s | run "zorpmctl" %s
                expect output zorpmctl "zorpmctl: cannot *, error %u" | expect process "zorpmctl *" ended 1)",
                                  call, command, error));
            EXPECT_EQ(1u, lines_of(bench, "output zorpmctl \"zorpmctl: "));
            EXPECT_EQ(begins, lines_of(bench, "request LCDCSCONTROL(0x1)"));
            EXPECT_EQ(begins, lines_of(bench, "request LCDCSCONTROL(0x2)"));
            EXPECT_EQ(begins, lines_of(bench, "window ZorpmctlSessionWindow created"));
        }
    }
}

// When an inhibit is looked at and ended, to the millisecond, and by whom it has been ended. Its two events
// and its window stay until the process ends; at a closed console it ends in the middle.
TEST(ControlProgram, AnInhibitsTimes) {
    static const char look[] = "call ControlService(\"ZORPMSVC\", 133) = 1";
    static const char gone[] =
        "zorpmctl: another program has ended the lid inhibit: the first to end ends all";
    static const char limit[] =
        "zorpmctl: the service has ended the lid inhibit: the lid was closed for five minutes";
    const std::string off_at =
        "firmware GETLIDSTATUS = 2 | event 0x5001 | run \"zorpmctl\" inhibit-lid\n"
        "advance %us | firmware LCDCSGETSTATE = 2 | advance 1s | expect output zorpmctl \"%s\"";
    const struct {
        const char* what;
        std::string script;
        unsigned looks;
        unsigned handles_left;
    } rows[] = {
        {"the look", "run \"zorpmctl\" inhibit-lid | advance 9999ms", 1, 0},
        {"ten seconds later", "run \"zorpmctl\" inhibit-lid | advance 10s", 2, 0},
        {"not yet", "run \"zorpmctl\" inhibit-lid --timeout 20 | advance 19999ms | expect no process *", 2,
         0},
        {"in time, without a look",
         "run \"zorpmctl\" inhibit-lid --timeout 20 | advance 20s | expect process \"zorpmctl *\" ended 0", 2,
         3},
        {"280 seconds closed", sim::format(off_at.c_str(), 279, gone), 29, 3},
        {"290 seconds", sim::format(off_at.c_str(), 289, limit), 30, 3},
        {"the grace at its end",
         "firmware LCDCSCONTROL(0x2) takes 10s | run \"zorpmctl\" inhibit-lid | interrupt zorpmctl close\n"
         "advance 3999ms | expect no process * | advance 1ms | expect process \"zorpmctl inhibit-lid\" ended "
         "*",
         1, 8},
        {"a command line too long by one",
         "run \"zorpmctl\" inhibit-lid " + std::string(8192, 'x') +
             "\nexpect output zorpmctl \"zorpmctl: cannot start *\" | expect process * | expect no call "
             "CreateProcessW*",
         1, 3},
        {"the longest",
         "run \"zorpmctl\" inhibit-lid " + std::string(8191, 'x') +
             "\nexpect call CreateProcessW* | expect process *",
         1, 3},
        {"a program that ends",
         "windows program \"backup.exe\" takes 1s exits 7 | run \"zorpmctl\" inhibit-lid backup.exe\n"
         "advance 1s | expect process \"zorpmctl *\" ended 7 | expect no output zorpmctl *interrupted*",
         1, 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bench bench;
        bench.started("firmware LCDCSGETSTATE = 3 | windows console redirected");
        bench.run("mark\n" + row.script);
        EXPECT_EQ(row.looks, lines_of(bench, look));
        EXPECT_EQ(row.handles_left, handles_left(bench));
    }
}

// A control code that is not answered: given up at the time that was asked for.
TEST(ControlProgram, ATimeout) {
    Bench bench;
    bench.started("firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001");
    bench.run(R"(
        windows console redirected | firmware DYTC takes 20s | run "zorpmctl" cooling disable --timeout 7
        advance 6999ms | expect no process * | advance 1ms | expect process "zorpmctl cooling *" ended 1)");
}

// An inhibit that may have come about is ended, not so another program's.
TEST(ControlProgram, AnInhibitThatIsNotMadeSureOf) {
    static const struct {
        const char* what;
        const char* script;
        unsigned ends;
    } rows[] = {
        {"off all the same",
         "firmware LCDCSGETSTATE = 2 | run \"zorpmctl\" inhibit-lid\n"
         "expect output zorpmctl \"zorpmctl: no lid inhibit: the driver has refused it\"\n"
         "expect call ControlService(\"ZORPMSVC\", 132) = 1",
         1},
        {"another program's", "control 133 | firmware LCDCSCONTROL = 1 | run \"zorpmctl\" inhibit-lid", 0},
        {"not answered in time",
         "firmware LCDCSCONTROL(0x1) takes 40s\n"
         "run \"zorpmctl\" inhibit-lid | advance 100s",
         1},
        {"not allowed", "fail OpenServiceW 2 | run \"zorpmctl\" inhibit-lid", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bench bench;
        bench.started("firmware LCDCSGETSTATE = 3 | windows console redirected");
        bench.run(std::string("mark\n") + row.script + "\nexpect process \"zorpmctl inhibit-lid\" ended *");
        EXPECT_EQ(row.ends, lines_of(bench, "call ControlService(\"ZORPMSVC\", 132)"));
    }
}

// What is not published is neither there nor possible; a hot key without an action cannot be taken over.
TEST(ControlProgram, WithoutPublishedValues) {
    static const ScriptCase rows[] = {
        {"notify", "run \"zorpmctl\" hotkey notify 1 | expect output zorpmctl \"zorpmctl: the firmware "
                   "cannot hand *\"\n"
                   "expect process * ended 1"},
        {"override", "run \"zorpmctl\" hotkey override 1 | expect output zorpmctl \"zorpmctl: the service "
                     "has no action *\"\n"
                     "expect process * ended 1"},
        {"another page's", "registry set SVC\\Parameters\\Capability OverrideCapability dword 0xFFFFFFFF\n"
                           "run \"zorpmctl\" hotkey override 2:1\n"
                           "expect output zorpmctl \"zorpmctl: the service has no action *\""},
        {"a setting of the screen",
         "registry set SVC\\Configurations\\ScreenRotation HRSPMode dword 1\n"
         "run \"zorpmctl\" FlipButtonForHarrow\n"
         "expect output zorpmctl \"zorpmctl: this Windows has no auto-rotation setting\""},
        {"capabilities", "stop | run \"zorpmctl\" status | expect no output zorpmctl \"capabilities*"},
    };
    run_cases("windows console redirected | start | advance 1s\n"
              "registry delete SVC\\Parameters\\Capability | registry delete HKLM\\Software\\ZOR\\ZORPM",
              rows);
}

TEST(ControlProgram, StatusOfWhatIsPublished) {
    run_cases("windows console redirected", {{"masks", R"(
        firmware MHKV = 0x100 | firmware MHKA = 0x84 | start | advance 1s
        registry set SVC\Parameters\OverrideSetting @ dword 4
        run "zorpmctl" status | expect output zorpmctl "hot keys      page 1  * override 0x00000004 *")"},
                                             {"a lid without a reading", R"(
        firmware GETLIDSTATUS fails | start | advance 1s
        run "zorpmctl" status | expect output zorpmctl "lid           unknown")"},
                                             {"the first hot key", R"(
        firmware MHKV = 0x100 | firmware MHKA = 0x80000001 | start | advance 1s
        run "zorpmctl" hotkey list | expect output zorpmctl "     1  BIOS *" | expect output zorpmctl "    32  BIOS *")"},
                                             {"cooling of both interfaces", R"(
        registry set SVC\TMCT\Parameters Capability dword 1 | registry set SVC\TMC\TIO Capability dword 1
        registry set SVC\TMC\TIO CurrentSetting dword 1
        run "zorpmctl" cooling status | expect process * ended 0)"}});
}

// A watch of one group tells of it alone: of a value that has just been made its first state, unless it is
// one of flipping bits, then of each change; of what was there before it begins, of changes alone.
TEST(ControlProgram, AWatchOfOneGroup) {
    static const struct {
        const char* group;
        const char* value;
        bool first;
        const char* told; // when it becomes 3, from 1
    } rows[] = {
        {"hotkeys", "SVC\\Parameters\\CurrentSetting @", true, "hot key 2  NOTIFY"},
        {"hotkeys", "SVC\\Parameters2\\Type10\\CurrentSetting @", true, "hot key 2:2  NOTIFY"},
        {"hotkeys", "SVC\\Parameters2\\Type10\\CurrentSetting Type13", true, "hot key 3:2  NOTIFY"},
        {"hotkeys", "SVC\\Parameters\\OverrideSetting @", true, "hot key 2  taken over"},
        {"hotkeys", "SVC\\Parameters\\Notification @", false, "hot key 2  pressed"},
        {"hotkeys", "SVC\\Parameters2\\Type10\\Notification Type12", false, "hot key 2:2  pressed"},
        {"hotkeys", "SVC\\Parameters2\\Type10\\Notification Type13", false, "hot key 3:2  pressed"},
        {"events", "SVC\\Parameters\\Notification Type2", false, "event * (Type2 2)"},
        {"events", "SVC\\Parameters2\\Type20\\Notification Type22", false, "event * (Type22 2)"},
        {"events", "SVC\\Transform\\CurrentStatus MM", true, "posture  tablet"},
        {"events", "SVC\\Transform\\CurrentStatus Lid", true, "lid *"},
        {"cooling", "SVC\\TMCT\\Parameters Capability", true, "cooling  TMCT Capability = 3"},
        {"cooling", "SVC\\TMCT\\Parameters CurrentSetting", true, "cooling  TMCT CurrentSetting = 3"},
        {"cooling", "SVC\\TMC\\MPH CurrentSetting", true, "cooling  MPH CurrentSetting = 3"},
        {"cooling", "SVC\\TMC\\FHP CurrentStatus", true, "cooling  FHP CurrentStatus = 3"},
        {"cooling", "SVC\\TMC\\TIO CurrentOptionStatus", true, "cooling  TIO CurrentOptionStatus = 3"},
        {"cooling", "SVC\\TMC\\TIO CurrentOnHandStatus", true, "cooling  TIO CurrentOnHandStatus = 3"},
    };
    for (const auto& row : rows) {
        for (const std::string group : {"hotkeys", "events", "cooling"}) {
            for (const bool before : {false, true}) {
                SCOPED_TRACE(sim::format("%s, watch %s, before %d", row.value, group.c_str(), before));
                const std::string set = sim::format("registry set %s dword ", row.value);
                const bool told = group == row.group;
                const char* first =
                    told && row.first && !before ? "expect output zorpmctl *" : "expect no output *";
                const std::string then =
                    told ? sim::format("expect output zorpmctl \"*  %s\"", row.told) : "expect no output *";
                Bench bench;
                if (before)
                    bench.run(set + "1");
                bench.run(sim::format("windows console redirected\nrun \"zorpmctl\" watch %s\nadvance 1s",
                                      group.c_str()));
                bench.run(sim::format("%s1\nadvance 1s\n%s", set.c_str(), first));
                bench.run(sim::format("%s3\nadvance 1s\n%s", set.c_str(), then.c_str()));
                if (std::string("hot key 2  taken over") == row.told && told)
                    bench.run(sim::format(
                        "%s1\nadvance 1s\nexpect output zorpmctl \"*  hot key 2  released\"", set.c_str()));
            }
        }
    }
}

// What a command opens it closes, although its process ends at once.
TEST(ControlProgram, CommandsCloseWhatTheyOpen) {
    std::uint64_t opened = 0;
    for (const char* command :
         {"status --inhibit", "hotkey notify 5", "inhibit-lid --timeout 1", "cooling graphics off",
          "cooling status", "watch --timeout 1", "FlipButtonForHarrow"}) {
        SCOPED_TRACE(command);
        Bench bench;
        bench.started("firmware MHKV = 0x100\nfirmware MHKA = 0xFFFFFFFF");
        bench.machine.count_calls = true;
        bench.run(sim::format("run \"zorpmctl\" %s\nadvance 4s", command));
        auto& counts = bench.machine.call_counts;
        EXPECT_EQ(counts["OpenSCManagerW"] + counts["OpenServiceW"], counts["CloseServiceHandle"]);
        opened += counts["OpenServiceW"];
    }
    EXPECT_LT(0u, opened);
}

namespace {

struct Notification {
    unsigned k;
    unsigned code;
};

} // namespace

// Every notification of the header is the bit that its event flips.
TEST(ClientHeader, NotificationsAreThoseOfTheEvents) {
#define ROW(k, name, code, words) {k, code},
    static const Notification type2[] = {ZORPM_TYPE2_NOTIFICATIONS(ROW)};
    static const Notification type22[] = {ZORPM_TYPE22_NOTIFICATIONS(ROW)};
#undef ROW
    Bench bench;
    bench.started("");
    const auto flips = [&bench](const char* value, const Notification& row) {
        bench.run(sim::format(R"(
            registry set %s dword 0 | event 0x%x | advance 1s | check registry %s = 0x%x
        )",
                              value, row.code, value, ZORPM_BIT(row.k)));
    };
    for (const Notification& row : type2)
        flips("SVC\\Parameters\\Notification Type2", row);
    for (const Notification& row : type22)
        flips("SVC\\Parameters2\\Type20\\Notification Type22", row);
}
