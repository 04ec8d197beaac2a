// Adaptive cooling, interface version 3: initialisation, and what each event and control does to firmware and
// registry.
#include "tests/support/bench.h"

namespace {

// All functions are announced and every command is accepted; no option is attached.
const std::string THERMAL_FIRMWARE = R"(
    firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001
    firmware GOPT(0) = 0x103 | firmware GOPT(0x100) = 1)";
const std::string START = THERMAL_FIRMWARE + R"(
    start | advance 1s)";

TEST(CoolingVersion3, InitialisationWalksTheAnnouncedFunctions) {
    run_case("all", THERMAL_FIRMWARE + R"(
        start | advance 999ms | expect no request DYTC(0x3)*
        advance 1ms | expect request DYTC(0x3)* | expect registry SVC\TMC\TIO Capability = 0x1
        expect registry SVC\TMC\TIO CurrentSetting = 0x1
        expect registry SVC\TMC\TIO CurrentStatus = 0x0
        expect registry SVC\TMC\TIO CurrentOptionStatus = 0x1
        expect request DYTC(0xf2001) = 0x1 | expect registry SVC\TMC\TIO CurrentStatus = 0x0
        expect registry SVC\TMC\MPH Capability = 0x1 | expect request GMMS(0x0) = 0x1
        expect request DYTC(0xf3001) = 0x1 | expect registry SVC\TMC\MPH CurrentStatus = 0x1
        expect registry SVC\TMC\CQH Capability = 0x1 | expect request DYTC(0xf5001) = 0x1
        expect registry SVC\TMC\DCC Capability = 0x1 | expect request DGPUTEMP(0x0) = 0x0
        expect registry SVC\TMC\DCC CurrentStatus = 0x0
        expect registry SVC\TMC\DMC Capability = 0x1 | expect request DYTC(0xf8001) = 0x1
        expect registry SVC\TMC\FHP Capability = 0x1
        expect registry SVC\TMC\FHP CurrentSetting = 0x1
        expect registry SVC\TMC\FHP CurrentStatus = 0x0
        mark | advance 1h | expect no request DYTC*)");
    // Some functions, each initialised alone; a refusal of one does not stop the next.
    run_case("some", THERMAL_FIRMWARE + R"(
        firmware DYTC(3) = 0x00240001 | registry refuse SVC\TMC\TIO | start | advance 1s
        check registry SVC\TMC\CQH Capability = 1 | check registry SVC\TMC\MPH absent
        event 0x4012 | expect no request DYTC*
        event 0x60f0 | expect request DYTC(0xf5001)*)");
    run_case("none", THERMAL_FIRMWARE + R"(
        firmware DYTC(3) = 0x03ff0000 | start | advance 1s | check registry SVC\TMC\TIO absent
        event 0x4012 | event 0x60f0 | event 0x6031 | control 142 | expect no request DYTC*
        event 0x60c0 | expect request DYTC(0xf3001)*
        event 0x4010 | expect request DYTC(0xf8001)*)");
}

// One capability bit, one function; "" where the function is only recognised.
TEST(CoolingVersion3, CapabilityBits) {
    static const char* const keys[] = {"", "", "TIO", "MPH", "", "CQH", "DCC", "", "DMC", "FHP"};
    for (unsigned bit = 0; bit < std::size(keys); ++bit) {
        SCOPED_TRACE(bit);
        Bench bench;
        bench.run(THERMAL_FIRMWARE + sim::format(R"(
            firmware DYTC(3) = 0x%x | start | advance 1s)",
                                                 1u | 1u << (16 + bit)));
        for (const char* key : {"TIO", "MPH", "CQH", "DCC", "DMC", "FHP"})
            EXPECT_EQ(std::string(key) == keys[bit], sim::registry_has_key(std::string("SVC\\TMC\\") + key));
    }
}

TEST(CoolingVersion3, WhatIsForgottenAndWhatIsNot) {
    run_cases("", {{"a key that is refused: the function does not follow", THERMAL_FIRMWARE + R"(
        registry refuse SVC\TMC\MPH | registry refuse SVC\TMC\DMC | start | advance 1s
        expect no request DYTC(0xf3001)* | expect no request DYTC(0xf8001)*)"},
                   {"what was attached before a restart", "firmware GOPT(0x200) = 2" + START + R"(
        firmware GOPT(0) fails | control 138 | advance 1s | control 142
        expect request DYTC(0xf2001)*)"},
                   {"a function that is announced no more", START + R"(
        firmware DYTC(3) = 1 | control 138 | advance 1s | event 0x4012 | expect no request DYTC*)"},
                   {"a turn that the stop has cut off: who waits has it at once",
                    "firmware GOPT(0x200) = 2" + START + R"(
        firmware DYTC(0x1f2001) takes 4s | event 0x4012 | advance 500ms | control 138 | advance 1s
        stop | expect request DYTC(0x3)* | expect registry SVC\TMC\TIO Capability = 0x1
        expect no status STOPPED* | advance 4s | expect status STOPPED 0/0)"},
                   {"a start in the midst of an initialisation has one of its own", R"(
        firmware DYTC(3) takes 4s)" + START + R"(
        advance 1s | handler 136 | advance 20s | expect count 2 request DYTC(0x3)*)"},
                   {"but flip mode outlives the version", START + R"(
        firmware DYTC(0) = 0x20000001 | firmware DYTC(0x100) = 0x20000000 | control 138
        firmware GOPT(0x200) = 0x10001 | event 0x4012 | expect request DYTC(0xf2001)*)"}});
}

TEST(CoolingVersion3, TheUsersSettingIsKept) {
    const struct {
        const char* setting;
        const char* after;
        bool enabled;
    } rows[] = {{"dword 0", "0", false},
                {"dword 7", "7", true},
                {"sz \"00\"", "1", true},
                {"binary 0000", "1", true}};
    for (const auto& row : rows)
        run_case(row.setting,
                 THERMAL_FIRMWARE + sim::format(R"(
            registry set SVC\TMC\CQH CurrentSetting %s
            registry set SVC\TMC\CQH CurrentStatus dword 9
            registry set SVC\TMC\CQH Capability dword 9 | start | advance 1s
            check registry SVC\TMC\CQH CurrentSetting = %s
            check registry SVC\TMC\CQH CurrentStatus = 0
            check registry SVC\TMC\CQH Capability = 1
            firmware THERMALMODE = 3 | event 0x60f0 | expect %srequest DYTC(0x1f5001)*)",
                                                row.setting, row.after, row.enabled ? "" : "no "));
    // Four bytes of any type will do, and stay.
    run_case("binary 00000000", THERMAL_FIRMWARE + R"(
        registry set SVC\TMC\CQH CurrentSetting binary 00000000 | start | mark | advance 1s
        expect no registry SVC\TMC\CQH CurrentSetting*
        event 0x60f0 | expect no request DYTC*)");
    // Hinge and dock do not ask.
    run_case("hinge and dock", R"(
        registry set SVC\TMC\MPH CurrentSetting dword 0
        registry set SVC\TMC\DMC CurrentSetting dword 0)" +
                                   START + R"(
                                       event 0x60c0 | expect request DYTC(0xf3001)*
                                       event 0x4011 | expect request DYTC(0xf8001)*)");
}

struct StatusRow {
    unsigned event;
    const char* method;
    DWORD status;
    DWORD command; // 0: none
    const char* key;
    int published; // -1: nothing
};

const StatusRow g_statusRows[] = {
    {0x60c0, "GMMS", 1, 0xf3001, "MPH", 1},
    {0x60c0, "GMMS", 2, 0x123001, "MPH", 2},
    {0x60c0, "GMMS", 3, 0x103001, "MPH", 3},
    {0x60c0, "GMMS", 4, 0x113001, "MPH", 4},
    {0x60c0, "GMMS", 0xffff0005, 0x113001, "MPH", 5},
    {0x60c0, "GMMS", 7, 0, "MPH", 7},
    {0x60c0, "GMMS", 0, 0, "MPH", 0},
    {0x60f0, "THERMALMODE", 0, 0xf5001, "CQH", 0},
    {0x60f0, "THERMALMODE", 1, 0xf5001, "CQH", 1},
    {0x60f0, "THERMALMODE", 2, 0xf5001, "CQH", 2},
    {0x60f0, "THERMALMODE", 0x10003, 0x1f5001, "CQH", 3},
    {0x60f0, "THERMALMODE", 9, 0xf5001, "CQH", 9},
    {0x6031, "DGPUTEMP", 0, 0, "DCC", 0},
    {0x6031, "DGPUTEMP", 1, 0xf6001, "DCC", 1},
    {0x6031, "DGPUTEMP", 0x20002, 0x1f6001, "DCC", 2},
    {0x6031, "DGPUTEMP", 3, 0xf6001, "DCC", 3},
    {0x6031, "DGPUTEMP", 4, 0, "DCC", 4},
    {0x4010, "DOCKMODE", 0x00000001, 0x1f8001, "DMC", 1},
    {0x4011, "DOCKMODE", 0x00000000, 0xf8001, "DMC", 0},
    {0x4010, "DOCKMODE", 0x00010001, 0x1f8001, "DMC", 1},
    {0x4011, "DOCKMODE", 0xfff1fffe, 0xf8001, "DMC", 0},
    {0x4010, "DOCKMODE", 0x00020001, 0, "DMC", -1},
    {0x4010, "DOCKMODE", 0x00080001, 0, "DMC", -1},
    {0x4010, "DOCKMODE", 0x00050000, 0, "DMC", -1},
};

TEST(CoolingVersion3, StatusValuesOfHingeGraphicsAndDock) {
    Bench bench;
    bench.run(START);
    for (const StatusRow& row : g_statusRows) {
        SCOPED_TRACE(sim::format("%s = 0x%x", row.method, row.status));
        const std::string command = row.command != 0
                                        ? sim::format("expect request DYTC(0x%x) = 0x1", row.command)
                                        : "expect no request DYTC*";
        const std::string published =
            row.published >= 0
                ? sim::format("expect registry SVC\\TMC\\%s CurrentStatus = 0x%x", row.key, row.published)
                : sim::format("expect no registry SVC\\TMC\\%s*", row.key);
        bench.run(sim::format(R"(
            firmware %s = 0x%x | event 0x%x | expect request %s(0x0) = 0x%x
            %s
            %s)",
                              row.method, row.status, row.event, row.method, row.status, command.c_str(),
                              published.c_str()));
        // A refused command, and a status that cannot be read, leave the registry alone.
        if (row.command != 0)
            bench.run(sim::format(R"(
                firmware DYTC(0x%x) = 0x6 times 1 | event 0x%x | expect request DYTC(0x%x) = 0x6
                expect no registry SVC\TMC*)",
                                  row.command, row.event, row.command));
        bench.run(sim::format(R"(
            firmware %s fails | event 0x%x | expect no request DYTC*
            expect no registry SVC\TMC*)",
                              row.method, row.event));
    }
}

TEST(CoolingVersion3, TwoInOne) {
    Bench bench;
    bench.run(START);
    // Bare tablet: held in the hand and put down.
    bench.run(R"(
        control 142 | expect next registry SVC\TMC\TIO CurrentOnHandStatus = 0x1
        expect next request DYTC(0xf2001) = 0x1
        expect next registry SVC\TMC\TIO CurrentStatus = 0x1
        control 141 | expect next registry SVC\TMC\TIO CurrentOnHandStatus = 0x0
        expect next request DYTC(0x1f2001) = 0x1
        expect next registry SVC\TMC\TIO CurrentStatus = 0x0
        firmware DYTC(0x1f2001) = 0 times 1 | control 141 | expect request DYTC(0x1f2001) = 0x0
        expect no registry SVC\TMC\TIO CurrentStatus*)");
    // With an option only the report is published.
    bench.run(R"(
        firmware GOPT(0x200) = 2 | event 0x4012
        expect registry SVC\TMC\TIO CurrentOptionStatus = 0x2
        expect request DYTC(0x1f2001) = 0x1 | expect registry SVC\TMC\TIO CurrentStatus = 0x1
        control 142 | expect next registry SVC\TMC\TIO CurrentOnHandStatus = 0x1
        expect count 1 *
        firmware DYTC(0xf2001) = 0 times 1 | firmware GOPT(0x200) = 0 | event 0x4013
        expect registry SVC\TMC\TIO CurrentOptionStatus = 0x1
        expect request DYTC(0xf2001) = 0x0 | expect no registry SVC\TMC\TIO CurrentStatus*)");
}

TEST(CoolingVersion3, TwoInOneSwitch) {
    Bench bench;
    bench.run(START);
    bench.run(R"(
        control 142 | firmware DYTC(0xf2001) = 0 times 1 | control 134
        expect next request DYTC(0xf2001) = 0x0 | expect count 1 *
        control 134 | expect next request DYTC(0xf2001) = 0x1
        expect next registry SVC\TMC\TIO CurrentStatus = 0x1
        expect next registry SVC\TMC\TIO CurrentSetting = 0x0 | expect count 3 *
        event 0x4012 | expect no request DYTC*
        control 142 | expect no *
        control 141 | expect no *
        control 135 | expect request DYTC(0xf2001) = 0x1
        expect registry SVC\TMC\TIO CurrentStatus = 0x0
        expect next registry SVC\TMC\TIO CurrentSetting = 0x1)");
    // Enabled all the same when its first command is refused, but not stored.
    bench.run(R"(
        control 134 | firmware DYTC(0xf2001) = 0 times 1 | control 135
        expect no registry SVC\TMC\TIO CurrentSetting*
        event 0x4013 | expect request DYTC(0xf2001) = 0x1)");
    // Initialised functions outlive a stop of the cooling.
    bench.run(R"(
        control 137 | event 0x4013 | expect request DYTC(0xf2001) = 0x1)");
}

TEST(CoolingVersion3, OptionStateAfterInitialisation) {
    // Force High Performance is initialised last and leaves the option state as Two In One has found it.
    Bench bench;
    bench.run("firmware GOPT(0x200) = 2" + START);
    bench.run(R"(
        control 142 | expect count 1 *)");
}

TEST(CoolingVersion3, FlipMode) {
    Bench bench;
    bench.run(START + R"(
        firmware GOPT(0x200) = 0x10001 | event 0x4012 | expect request DYTC(0x1f2001)*
        expect request DYTC(0xf2001) = 0x1 | expect no registry SVC\TMC\TIO CurrentStatus = 0x0
        firmware GOPT(0x200) = 1 | event 0x4012 | expect count 2 request DYTC(0x1f2001) = 0x1
        firmware DYTC(0x1f2001) = 0 | firmware DYTC(0xf2001) = 0 | event 0x4012
        expect count 2 request DYTC(0x1f2001) = 0x0 | expect no registry SVC\TMC\TIO CurrentStatus*
        firmware GOPT(0x200) = 0x10001 | event 0x4012 | expect request DYTC(0xf2001) = 0x0
        firmware DYTC(0x1f2001) = 1 | firmware DYTC(0xf2001) = 1
        control 134 | event 0x4012 | expect no request DYTC*
        firmware GOPT(0x200) = 1 | event 0x4012 | expect no request DYTC*)");
}

TEST(CoolingVersion3, DynamicCpuControlSwitch) {
    const std::string switching = R"(
        control 139 | expect next request DYTC(0xf6001) = 0x1
        expect next registry SVC\TMC\DCC CurrentStatus = 0x0
        expect next registry SVC\TMC\DCC CurrentSetting = 0x0 | expect count 3 *
        firmware DGPUTEMP = 2 | event 0x6031 | expect no request DYTC*
        control 140 | expect next request DGPUTEMP(0x0) = 0x2
        expect next request DYTC(0x1f6001) = 0x1
        expect next registry SVC\TMC\DCC CurrentStatus = 0x2
        expect next registry SVC\TMC\DCC CurrentSetting = 0x1 | expect count 4 *
        event 0x6031 | expect request DYTC(0x1f6001) = 0x1
        firmware DYTC(0xf6001) = 0 | control 139 | expect count 1 *
        firmware DGPUTEMP fails | control 140 | expect count 1 *)";
    run_case("with an interface", START + switching);
    run_case("without one, too", R"(
        registry set SVC\TMC\DCC | firmware DYTC = 1 | firmware DYTC(0) = 0 | start)" +
                                     switching + R"(
            event 0x60c0 | expect request DYTC(0xf3001) = 0x1
            event 0x4010 | expect request DYTC(0xf8001) = 0x1
            control 134 | control 135 | control 137 | control 141 | control 142 | expect no *)");
}

// One registry write of an act fails: what is still done?
TEST(CoolingVersion3, FailingWrites) {
    const struct {
        const char* act;
        int write;
        const char* then;
    } rows[] = {
        {"event 0x4012", 1, R"(
            expect request DYTC(0xf2001)* | expect registry SVC\TMC\TIO CurrentStatus = 0x0)"},
        {"control 142", 1, R"(
            expect request DYTC(0xf2001)* | expect registry SVC\TMC\TIO CurrentStatus = 0x1)"},
        {"control 134", 1, R"(expect registry SVC\TMC\TIO CurrentSetting = 0x0)"},
        // Of the two that enable, only Two In One counts a failing status write as failure.
        {"control 135", 2, R"(
            expect request DYTC(0xf2001)* | expect no registry SVC\TMC\TIO CurrentSetting*)"},
        {"control 140", 1, R"(expect registry SVC\TMC\DCC CurrentSetting = 0x1)"},
        {"control 139", 1, R"(expect registry SVC\TMC\DCC CurrentSetting = 0x0)"},
        // An initialisation ends at the first write that fails, and the next function begins.
        {R"(
            control 137 | control 136 | advance 1s)",
         2, R"(
             expect request DYTC(0x3)* | expect next registry SVC\TMC\MPH Capability = 0x1
             event 0x4012 | expect no request DYTC*)"},
        {R"(
            control 137 | control 136 | advance 1s)",
         3, R"(
             expect registry SVC\TMC\TIO Capability = 0x1
             expect next registry SVC\TMC\MPH Capability = 0x1)"},
    };
    std::string script = START;
    for (const auto& row : rows)
        script += sim::format(R"(
            fail RegSetValueExW %d
            %s
            %s)",
                              row.write, row.act, row.then);
    Bench bench;
    bench.run(script);
}

TEST(CoolingVersion3, NoHandleIsLeft) {
    Bench bench;
    bench.run(START + R"(
        control 138 | advance 1s | control 137)");
    const size_t terminated = sim::handle_count(sim::service_process());
    for (int i = 0; i < 20; ++i)
        bench.run(R"(
            control 136 | event 0x4012 | control 138 | advance 1s | event 0x4013 | control 142
            control 137)");
    EXPECT_EQ(sim::handle_count(sim::service_process()), terminated);
}

} // namespace
