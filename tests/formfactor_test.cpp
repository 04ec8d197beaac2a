// Postures, options and rotation through the whole service: every row of every table.
#include "tests/support/formfactor_races.h"

namespace {

using sim::format;
using sim::indicator_state;
using sim::Interface;

constexpr char STATUS_KEY[] = "SVC\\Transform\\CurrentStatus";
constexpr char PARAMETERS_KEY[] = "SVC\\Transform\\Parameters";
constexpr char MULTIMODE_KEY[] = "HKLM\\SOFTWARE\\Mestra\\MultiMode";
constexpr char ROTATION_KEY[] = "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation";

// The two-in-one commands behind the last reading of the option status.
std::string thermal_commands() {
    std::string commands;
    for (const sim::TraceLine& line : sim::machine().trace) {
        if (line.text.starts_with("request GOPT(0x200)"))
            commands.clear();
        else if (line.text.starts_with("request DYTC("))
            commands += line.text.substr(8);
    }
    return commands;
}

// ---- options ----

constexpr int KEPT = -1;

struct OptionCase {
    DWORD version;
    DWORD status;
    int slate; // where the indicators end, from any state
    int dock;
    const char* thermal = ""; // flip mode
};

constexpr char ENTER_FLIP[] = "DYTC(0xf2001) = 0x1";
constexpr char EXIT_FLIP[] = "DYTC(0x1f2001) = 0x1";

// clang-format off
const OptionCase g_options[] = {
    {0x100, 0x0, 0, 0},          {0x100, 0x1, 0, 1},            {0x100, 0x10, 1, 0},   {0x100, 0x100, 1, 1},
    {0x100, 0x1000, 0, 1},       {0x100, 0x2, KEPT, KEPT},      {0x100, 0x10001, KEPT, KEPT},
    {0x101, 0x0, KEPT, KEPT},    {0x101, 0x1, KEPT, KEPT},      {0xFF, 0x1, KEPT, KEPT},
    {0x102, 0x0, 0, 0},          {0x102, 0x1, 0, 1, EXIT_FLIP}, {0x102, 0x2, 1, 0},    {0x102, 0x4, 1, 1},
    {0x102, 0x8, 0, 1},          {0x102, 0x12, 0, 0},           {0x102, 0x10001, 0, 1, ENTER_FLIP},
    {0x102, 0x3, KEPT, KEPT},    {0x102, 0x100, KEPT, KEPT},    {0x7FFFFFFF, 0x2, 1, 0},
};
// clang-format on

// Thermal control of version 3 with the two-in-one function, so that flip mode shows.
constexpr char THERMAL[] = R"(
    firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x40001)";

TEST(FormFactorOptions, EveryRowFromEveryState) {
    for (const OptionCase& test : g_options) {
        for (int from = 0; from < 4; ++from) {
            SCOPED_TRACE(format("version 0x%x status 0x%x from %d", test.version, test.status, from));
            const int slate = from & 1;
            const int dock = from >> 1;
            Bench bench;
            bench.run(THERMAL);
            // Posture 0 leaves the indicator to the options.
            bench.run(format(R"(
                firmware GMMS = 0 | firmware GOPT(0) = 0x%x | firmware GOPT(0x200) = 0x3 | start
                advance 2s | device slate = %d | device dock = %d | firmware GOPT(0x200) = 0x%x
                event 0x4012 | event 0x4012 | check handles 0)",
                             test.version, slate, dock, test.status));
            const int slate_after = test.slate == KEPT ? slate : test.slate;
            const int dock_after = test.dock == KEPT ? dock : test.dock;
            EXPECT_EQ(indicator_state(Interface::Slate), slate_after);
            EXPECT_EQ(indicator_state(Interface::Dock), dock_after);
            // Written once at most: the second event finds it done.
            EXPECT_EQ(traced("write slate "), slate_after != slate);
            EXPECT_EQ(traced("write dock "), dock_after != dock);
            if (test.version >= 0x100) {
                EXPECT_EQ(thermal_commands(), test.thermal);
            }
        }
    }
}

// A machine with the options of version 0x102 and posture 0, which leaves the indicator to them.
constexpr char WITH_OPTIONS[] = R"(
    firmware GMMS = 0 | firmware GOPT(0) = 0x102 | firmware GOPT(0x200) = 3 | start | advance 2s)";

TEST(FormFactorOptions, Steps) {
    run_cases(THERMAL + std::string(WITH_OPTIONS), {{"slate, dock, cooling", R"(
        device slate = 1 | device dock = 0 | firmware GOPT(0x200) = 0x10001 | event 0x4012
        expect write slate 0 | expect next write dock 0 | expect next request DYTC(0xf2001)*)"},
                                                    {"a state that is neither is left alone", R"(
        device slate = 7 | device dock = 7 | firmware GOPT(0x200) = 2 | event 0x4012
        firmware GOPT(0x200) = 1 | event 0x4012 | expect no write *)"},
                                                    {"without its type nothing is followed", R"(
        firmware GOPT(0x100) fails | handler power resume | expect request GOPT(0x100) failed
        expect no request GOPT(0x200)*)"}});
}

// ---- postures ----

struct PostureCase {
    DWORD word;
    DWORD state;
    const char* name;
    int slate;
};

const PostureCase g_postures[] = {
    {0, 0, "UNKNOWN", KEPT},   {1, 1, "LAPTOP", 1},
    {2, 2, "LAYFLAT", 1},      {3, 3, "TABLET", 0},
    {4, 4, "STAND", 0},        {5, 5, "TENT", 0},
    {6, 6, "UNKNOWN", KEPT},   {65535, 65535, "UNKNOWN", KEPT},
    {0x50003, 3, "TABLET", 0}, {0xFFFF0001, 1, "LAPTOP", 1},
};

TEST(FormFactorPostures, EveryStateIsPublished) {
    for (const PostureCase& test : g_postures) {
        for (int from = 0; from < 2; ++from) {
            SCOPED_TRACE(format("word 0x%x from %d", test.word, from));
            Bench bench;
            bench.run(format(R"(
                registry set HKLM\SOFTWARE\Dolby\DAX | firmware GMMS = 0 | start
                device slate = %d | firmware GMMS = 0x%x | event 0x60C0)",
                             from, test.word));
            EXPECT_EQ(indicator_state(Interface::Slate), test.slate == KEPT ? from : test.slate);
            EXPECT_EQ(sim::registry_dword(STATUS_KEY, "MM"), test.state);
            EXPECT_EQ(sim::registry_dword(MULTIMODE_KEY, "CurrentMode"), test.state);
            EXPECT_EQ(sim::registry_dword("HKLM\\SOFTWARE\\Dolby\\DAX", "MultimodeFormFactor"), test.state);
            // The name is seen when the state has become the previous one.
            bench.run("event 0x60C0");
            EXPECT_EQ(sim::registry_text(MULTIMODE_KEY, "PrevMode"), test.name);
        }
    }
}

TEST(FormFactorPostures, TimeStamps) {
    static const struct {
        const char* time;
        const char* stamp;
    } cases[] = {
        {"2021-06-01 00:05:09", "6/1/2021 0:05:09 AM"},
        {"2024-02-29 12:05:09", "2/29/2024 12:05:09 AM"},
        {"2021-12-31 13:05:09", "12/31/2021 1:05:09 PM"},
        {"2021-12-31 23:59:59", "12/31/2021 11:59:59 PM"},
        {"30000-12-31 12:59:59", "12/31/30000 12:59:59 AM"},
    };
    for (const auto& test : cases) {
        Bench bench;
        bench.run(format(R"(
            start | windows time "%s" | event 0x60C0)",
                         test.time));
        EXPECT_EQ(sim::registry_text(MULTIMODE_KEY, "ModeChangeTimeStamp"), test.stamp);
        EXPECT_EQ(sim::registry_value(MULTIMODE_KEY, "ModeChangeTimeStamp")->bytes.size(),
                  2 * (std::string(test.stamp).size() + 1));
    }
}

// What another program may have left as the last time stamp. Copied byte by byte, or not at all beyond 50
// bytes.
TEST(FormFactorPostures, ForeignTimeStamps) {
    for (const size_t bytes : {0u, 1u, 7u, 49u, 50u, 51u, 400u}) {
        SCOPED_TRACE(bytes);
        Bench bench;
        bench.run("start\n event 0x60C0");
        const std::vector<BYTE> before = sim::registry_value(MULTIMODE_KEY, "PrevTimeStamp")->bytes;
        const std::vector<BYTE> foreign(bytes, 0x41);
        sim::registry_set(MULTIMODE_KEY, "ModeChangeTimeStamp", REG_SZ, foreign);
        bench.run("event 0x60C0");
        EXPECT_EQ(sim::registry_value(MULTIMODE_KEY, "PrevTimeStamp")->bytes, bytes <= 50 ? foreign : before);
        EXPECT_EQ(sim::registry_text(MULTIMODE_KEY, "ModeChangeTimeStamp"), "6/1/2021 9:00:00 AM");
    }
}

void expect_support(const std::string& setup, bool supported) {
    SCOPED_TRACE(setup);
    Bench bench;
    bench.run(setup + "\nfirmware GMMS = 3\nstart");
    EXPECT_EQ(traced("write slate "), supported);
}

struct SupportCase {
    const char* given;
    bool supported;
};

TEST(FormFactorPostures, SupportDecision) {
    static const SupportCase with_inode[] = {
        {"", false}, // the key without the value: the default
        {"ChkINode dword 1", false},
        {"ChkINode dword 0", true},
        {"ChkINode dword 2", true},
        // The type does not matter, up to 4 bytes; a longer value counts as the default.
        {"ChkINode sz \"\"", true},
        {"ChkINode binary 01000000", false},
        {"ChkINode raw 4 0000000000", false},
        {"ChkINode raw 4 00", true},
        {"ChkINode raw 4", false},
    };
    for (const SupportCase& test : with_inode)
        expect_support(format(R"(
            hardware "ACPI\INT33D6" present | registry set SVC\Transform\Parameters %s)",
                              test.given),
                       test.supported);
    static const SupportCase builds[] = {
        {"sz \"9600\"", false},
        {"sz \"9601\"", true},
        {"sz \"19041 (x)\"", true},
        {"sz \"x19041\"", false},
        {"sz \"99999999999999999999\"", true},
        {"raw 1 31003900300034003100", true}, // without its end
        {"raw 1 310039003000340031", false},  // half a character less: 1904
        {"dword 19041", false},
    };
    for (const SupportCase& test : builds)
        expect_support(format(R"(
            registry set SVC\Transform\Parameters ChkOSV dword 1
            registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion" CurrentBuildNumber %s)",
                              test.given),
                       test.supported);
    static const SupportCase others[] = {
        {"", true},
        // Nobody asks for the build.
        {R"(registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion" CurrentBuildNumber sz "9600")",
         true},
        {R"(
            registry set SVC\Transform\Parameters ChkOSV dword 1
            registry delete "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion")",
         false},
        {R"(registry refuse SVC\Transform\Parameters)", false},
        {R"(registry refuse SVC\Transform\CurrentStatus)", false},
        {R"(registry refuse HKLM\SOFTWARE\Mestra\MultiMode)", true},
    };
    for (const SupportCase& test : others)
        expect_support(test.given, test.supported);
}

// Without support the indicators stay, but the states are published all the same and flip mode begins.
TEST(FormFactorPostures, WithoutSupport) {
    Bench bench;
    bench.run(std::string(THERMAL) + R"(
        hardware "ACPI\INT33D6" present | registry set SVC\Transform\Parameters
        firmware GMMS = 3 | firmware GOPT(0) = 0x102 | firmware GOPT(0x200) = 0x10001 | start
        advance 2s | check registry SVC\Transform\CurrentStatus MM = 3
        event 0x4012 | expect no write *)");
    EXPECT_EQ(thermal_commands(), ENTER_FLIP);
}

TEST(FormFactorPostures, Refresh) {
    run_cases("registry set HKLM\\SOFTWARE\\Dolby\\DAX\nstart",
              {{"without its keys there is no support", R"(
        registry refuse SVC\Transform\Parameters | firmware GMMS = 3 | handler power resume
        expect no write *)"},
               {"a posture that is not written is not passed on", R"(
        firmware GMMS = 5 | fail RegSetValueExW 6 | event 0x60C0
        expect no registry HKLM\SOFTWARE\Dolby*)"},
               {"a short posture counts", R"(
        registry set SVC\Transform\CurrentStatus MM raw 4 03 | mark | handler power resume
        expect registry HKLM\SOFTWARE\Dolby\DAX MultimodeFormFactor = 0x3)"}});
    static const struct {
        const char* word;
        unsigned lid;
    } lids[] = {{"= 2", 1}, {"= 3", 2}, {"= 6", 0}, {"= 7", 0}, {"= 1", 0}, {"= 3 bytes 0", 0}, {"fails", 0}};
    for (const auto& row : lids)
        run_case(row.word, format(R"(
            start | firmware GETLIDSTATUS %s | handler power resume
            check registry SVC\Transform\CurrentStatus Lid = %u)",
                                  row.word, row.lid));
}

// ---- rotation ----

// A posture event presses the button when auto-rotation is not as the posture wants it and the posture is
// new.
TEST(FormFactorRotation, PostureEvents) {
    for (int bits = 0; bits < 16; ++bits) {
        const int harrow = bits & 1;
        const int posture = bits >> 1 & 1;
        const int previous = bits >> 2 & 1;
        const int rotation = bits >> 3 & 1;
        SCOPED_TRACE(
            format("harrow %d posture %d previous %d rotation %d", harrow, posture, previous, rotation));
        Bench bench;
        if (harrow != 0)
            bench.run("registry set HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion sz \"GD1\"");
        // Only bit 0 of the setting counts.
        bench.run(format(R"(
            start | registry set SVC\Status LastSystemTransformation dword %d
            registry set %s Enable dword %d | event %s)",
                         previous, ROTATION_KEY, rotation | 6, posture != 0 ? "0x500A" : "0x5009"));
        EXPECT_EQ(traced("write button "),
                  harrow != 0 && rotation == posture && previous != posture ? 2u : 0u);
        EXPECT_EQ(sim::registry_dword("SVC\\Status", "LastSystemTransformation"),
                  static_cast<DWORD>(harrow != 0 ? posture : previous));
    }
}

TEST(FormFactorRotation, Script) {
    const ScriptCase cases[] = {
        {"no auto-rotation: the posture is recorded all the same", R"(
            start | event 0x500A | expect no write *
            check registry SVC\Status LastSystemTransformation = 1
            check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation absent
            event 0x5009 | expect no write *)"},
        {"no previous posture: nothing is recorded", R"(
            registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
            start | registry delete SVC\Status LastSystemTransformation | event 0x500A
            expect no write * | check registry SVC\Status LastSystemTransformation absent)"},
        {"tablet at start: rotation on", R"(
            registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 0
            firmware TABGETSTATE = 8 | start
            check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable = 1)"},
        {"firmware silent at start: left alone", R"(
            registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 3
            firmware TABGETSTATE fails | start
            check registry HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable = 3)"},
    };
    run_cases(R"(registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD1")", cases);
}

// Start-up alignment does not look at the platform, only at what was recorded.
TEST(FormFactorRotation, Alignment) {
    for (int bits = 0; bits < 6; ++bits) {
        const int tablet = bits & 1;
        const int last = bits >> 1; // 2: some other number
        SCOPED_TRACE(format("tablet %d last %d", tablet, last));
        Bench bench;
        bench.run(format(R"(
            registry set SVC\Status LastSystemTransformation dword %d
            registry set %s Enable dword 5 | firmware TABGETSTATE = %d | start)",
                         last, ROTATION_KEY, tablet != 0 ? 8 : 0));
        const DWORD enable = tablet == 0 && last != 1 ? 0 : tablet != 0 && last == 0 ? 1 : 5;
        EXPECT_EQ(sim::registry_dword(ROTATION_KEY, "Enable"), enable);
    }
}

TEST(FormFactorRotation, LegacyModels) {
    static const struct {
        const char* family;
        bool listed;
    } cases[] = {
        {"Corbel K11 Tablet", true},
        {"Corbel K11s Tablet", true},
        {"Corbel K21 Tablet", true},
        {"Corbel K21s Tablet", true},
        {"Corbel K31 Tablet", true},
        {"Corbel K31s Tablet", true},
        {"Corbel K11 Tablet ", false},
        {"Corbel K11 Table", false},
        {"corbel K11 Tablet", false},
        {"Corbel K41 Tablet", false},
        {"", false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.family);
        Bench bench;
        sim::registry_set_text("HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS", "SystemFamily", test.family);
        bench.run(format("start\n expect count %d request SYSTEMFAMILY(0x0)*", test.listed ? 1 : 0));
    }
}

// ---- the lid-inhibit limit ----

// Other programs wait for these by their names: a run begins, a poll begins; who has seen it resets it.
TEST(FormFactorLidInhibit, EventsOfOthers) {
    Bench bench;
    bench.started("firmware GETLIDSTATUS = 1\nfirmware LCDCSGETSTATE = 3\n");
    bench.run("control 131");
    sim::run_on_thread([] {
        HANDLE run = CreateEventW(nullptr, TRUE, FALSE, L"Global\\PMDRVLCDCSTIMERSIGNAL");
        EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
        HANDLE poll = CreateEventW(nullptr, TRUE, FALSE, L"Global\\PMDRVLCDCSWATCHDOGTIMERSIGNAL");
        EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(run, 0));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(poll, 0));
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(poll, 0));
        CloseHandle(run);
        CloseHandle(poll);
    });
}

TEST(FormFactorLidInhibit, Watch) {
    run_cases("firmware GETLIDSTATUS = 2\nstart",
              {{"only one state is an inhibit", R"(
        firmware LCDCSGETSTATE = 1 | control 131 | advance 10m
        expect no request LCDCSCONTROL(0x2)*)"},
               {"a watch that could not begin", R"(
        fail CreateThread | control 131 | control 131 | advance 5s | expect request GETLIDSTATUS*)"},
               {"asked for again between two polls", R"(
        firmware LCDCSGETSTATE = 3 | control 131 | advance 500ms | control 131 | mark | advance 499ms
        expect no request GETLIDSTATUS* | advance 1ms | expect count 1 request GETLIDSTATUS*)"},
               {"an end that was set before", R"(
        windows object "PMDRVLCDCSWATCHDOG" event | windows object "PMDRVLCDCSWATCHDOG" set
        control 131 | advance 5s | expect count 5 request GETLIDSTATUS*)"},
               {"a poll that cannot read the lid does not stop the timer", R"(
        firmware LCDCSGETSTATE = 3 | control 131 | advance 2s | firmware GETLIDSTATUS fails | advance 2s
        firmware GETLIDSTATUS = 2 | advance 295s | expect no request LCDCSCONTROL(0x2)*
        advance 2s | expect request LCDCSCONTROL(0x2)*)"}});
}

// Its handle is forgotten with the watch: a request that comes before the next watch has one sets nothing.
TEST(FormFactorLidInhibit, AnEndThatAnotherProgramSets) {
    run_seeds(150, [](Bench& bench) {
        bench.run(R"(
            firmware GETLIDSTATUS = 2 | start | advance 1s | control 131 | advance 2s
            windows object "PMDRVLCDCSWATCHDOG" event | windows object "PMDRVLCDCSWATCHDOG" set
            mark | advance 2s | expect no request *
            together | control 131 | control 132 | end | advance 2s | check status RUNNING)");
    });
}

TEST(FormFactorLidInhibit, AnotherProgramStartsTheTimer) {
    Bench bench;
    // A run that is told to stop, then one that only the start event's name has begun.
    bench.run(R"(firmware GETLIDSTATUS = 2
                 firmware LCDCSGETSTATE = 3 | start | control 131 | advance 10s)");
    for (const char* name : {"TIMERSIGNAL", "TIMERRESET", "WATCHDOG", "WATCHDOGTIMERSIGNAL"})
        EXPECT_NE(nullptr, sim::find_named(std::string("PMDRVLCDCS") + name)) << name;
    bench.run("firmware LCDCSGETSTATE = 2\nadvance 1s");
    sim::run_on_thread([] {
        HANDLE signal = CreateEventW(nullptr, TRUE, FALSE, L"Global\\PMDRVLCDCSTIMERSIGNAL");
        HANDLE start = CreateEventW(nullptr, TRUE, FALSE, L"Global\\PMDRVLCDCSTIMERSTART");
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
        EXPECT_EQ(WaitForSingleObject(signal, 0), DWORD{WAIT_TIMEOUT}); // no run
        SetEvent(start);
        CloseHandle(start);
        CloseHandle(signal);
    });
    bench.run(R"(mark
                 advance 299s | expect no request *
                 advance 1s | expect count 1 request LCDCSCONTROL(0x2) = 0x0)");
}

// A run that is stopped before the timer's thread has begun it: it does not go on, and the next one has its
// whole time.
TEST(FormFactorLidInhibit, StoppedBeforeTheRunBegins) {
    Bench bench;
    const auto hold_timer = [](int suspended) {
        for (const auto& thread : sim::machine().threads) {
            if (thread->name == "LCDCSTimerThreadProc")
                thread->suspended = suspended;
        }
        sim::wake_waiting();
    };
    bench.run(R"(firmware GETLIDSTATUS = 2
                 firmware LCDCSGETSTATE = 3 | start | control 131)");
    hold_timer(1);
    bench.run(R"(advance 1s
                 firmware LCDCSGETSTATE = 2 | control 132
                 expect request LCDCSCONTROL(0x2) = 0x0)");
    hold_timer(0);
    bench.run(R"(firmware LCDCSGETSTATE = 3
                 control 131 | advance 300s | expect no request LCDCSCONTROL(0x2) *
                 advance 1s | expect count 1 request LCDCSCONTROL(0x2) = 0x0)");
}

// ---- races, with more seeds in the sweeps ----

TEST(FormFactorRaces, RefreshAgainstEvents) {
    run_seeds(30, formfactor_races::refresh_against_events);
}

TEST(FormFactorRaces, LidInhibit) {
    run_seeds(20, formfactor_races::lid_inhibit);
}

} // namespace
