// Adaptive cooling at the firmware's edge: interface version, option attach state, readiness, set words,
// DWORD values.
#include "common/registry.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"
#include "tests/support/bench.h"

namespace {

// A machine on which both interfaces find what they need: the option interface answers, no option is
// attached.
const std::string OPTION = R"(
    firmware GOPT(0) = 0x100 | firmware GOPT(0x100) = 1)";
const std::string VERSION_2 = OPTION + R"(
    firmware DYTC(0) = 0x20000001 | firmware DYTC(0x100) = 0x20010000)";
const std::string VERSION_3 = OPTION + R"(
    firmware DYTC = 1 | firmware DYTC(0) = 0x30000001)";

struct Row {
    const char* given;
    const char* then;
};

TEST(CoolingFirmware, InterfaceVersionAtStart) {
    const Row rows[] = {
        {"firmware DYTC(0) = 0x30000001", R"(expect registry SVC\TMC Version = 0x3000)"},
        {"firmware DYTC(0) = 0x20000001", R"(
            expect request DYTC(0x100) = 0x0 | check registry SVC\TMC absent
            check registry SVC\TMCT\Parameters Capability = 0
            check registry SVC\TMCT\Parameters Version absent)"},
        {"firmware DYTC(0) = 0x40000001", "expect count 1 request DYTC*"},
        {"firmware DYTC(0) = 0x30000000", R"(
            expect count 1 request DYTC* | check registry SVC\TMC absent)"},
        {"firmware DYTC(0) fails", "expect count 1 request DYTC*"},
        {"firmware DYTC(0) = 0x30000001 bytes 3", "expect count 1 request DYTC*"},
    };
    for (const Row& row : rows)
        run_case(row.given, OPTION + sim::format(R"(
            %s
            start | advance 10m
            %s)",
                                                 row.given, row.then));
}

TEST(CoolingFirmware, AnUnknownRevisionKeepsTheVersionAndAFailureClearsIt) {
    Bench bench;
    bench.run(VERSION_2 + R"(
        start | firmware DYTC(0) = 0x40000001 | control 138 | expect request DYTC(0x1) = 0x0
        firmware DYTC(0) = 0x20000000 | control 138 | expect count 1 request DYTC*
        firmware DYTC(0) = 0x40000001 | control 136 | expect count 1 request DYTC*
        advance 1h | expect count 1 request DYTC*)");
}

TEST(CoolingFirmware, SystemControlModeRefinesVersion2) {
    const Row rows[] = {
        {"firmware DYTC(0x100) = 0x20010000", R"(
            expect request DYTC(0x1) = 0x0
            event 0x4012 | expect request DYTC(0x1)*)"},
        {"firmware DYTC(0x100) = 0x30000000", R"(
            expect no request DYTC(0x1)*
            event 0x4012 | expect no request DYTC*)"},
        {"firmware DYTC(0x100) = 0x20000000", "expect no request DYTC(0x1)*"},
        // Stored, but no version that requests are routed by.
        {"firmware DYTC(0x100) = 0x20020000", R"(
            check registry SVC\TMCT\Parameters Capability = 0
            event 0x4012 | control 135 | expect no request DYTC*)"},
        {"firmware DYTC(0x100) fails", R"(
            expect no request DYTC(0x1)* | check registry SVC\TMCT\Parameters Capability absent)"},
    };
    for (const Row& row : rows)
        run_case(row.given, VERSION_2 + sim::format(R"(
            %s
            start
            %s)",
                                                    row.given, row.then));
}

TEST(CoolingFirmware, OptionAttachState) {
    const char* const attached = R"(
        expect request DYTC(0x1f2001) = 0x1 | expect registry SVC\TMC\TIO CurrentStatus = 0x1)";
    const char* const bare = R"(
        expect request DYTC(0xf2001) = 0x1 | expect registry SVC\TMC\TIO CurrentStatus = 0x0)";
    const char* const unknown = R"(
        expect no request DYTC* | expect no registry SVC\TMC*)";
    const struct {
        const char* version;
        const char* type;
        const char* state;
        const char* then;
    } rows[] = {
        {"= 0x100", "= 1", "= 0", bare},
        {"= 0x103", "= 1", "= 3", attached},
        {"= 0x101", "= 2", "= 2", attached},
        {"= 0x100", "= 3", "= 0x80000000", attached},
        {"= 0x100", "= 3", "= 0", bare},
        {"= 0x100", "= 4", "= 3", attached},
        {"= 0x100", "= 4", "= 2", bare},
        {"= 0xff", "= 1", "= 3", unknown},
        {"= 0x104", "= 1", "= 3", unknown},
        {"= 0x100", "= 0", "= 3", unknown},
        {"= 0x100", "= 5", "= 3", unknown},
        {"fails", "= 1", "= 3", unknown},
        {"= 0x100", "fails", "= 3", unknown},
        {"= 0x100", "= 1", "fails", unknown},
        {"= 0x100 bytes 1", "= 1", "= 3", unknown},
        {"= 0x100", "= 1", "= 0x100 bytes 1", bare},
    };
    std::string script = VERSION_3 + R"(
        firmware DYTC(3) = 0x00040001 | start | advance 1s)";
    for (const auto& row : rows)
        script += sim::format(R"(
            firmware GOPT(0) %s | firmware GOPT(0x100) %s | firmware GOPT(0x200) %s
            event 0x4012
            %s)",
                              row.version, row.type, row.state, row.then);
    Bench bench;
    bench.run(script);
}

TEST(CoolingFirmware, ReadinessProbe) {
    const char* const ready = R"(
        advance 1s | expect request DYTC(0x3)*
        advance 10m | expect count 1 request DYTC(0x1f0001)*)";
    // 101 polls at most; then the initialisation runs in any case.
    const char* const not_ready = R"(
        advance 100s | expect no request DYTC(0x3)*
        advance 1s | expect request DYTC(0x3)*
        advance 10m | expect count 101 request DYTC(0x1f0001)*)";
    const Row rows[] = {
        {"= 0x1", ready},        {"= 0x0", ready},     {"= 0x3", ready},     {"= 0x7 bytes 0", ready},
        {"= 0xfffffff8", ready}, {"= 0x2", not_ready}, {"= 0x4", not_ready}, {"fails", not_ready},
    };
    for (const Row& row : rows)
        run_case(row.given, VERSION_3 + sim::format(R"(
            firmware DYTC(0x1f0001) %s | start
            %s)",
                                                    row.given, row.then));
    run_cases(VERSION_3, {{"ready at the third poll", R"(
        firmware DYTC(0x1f0001) = 2 times 2 | start | advance 2s | expect no request DYTC(0x3)*
        advance 1s | expect request DYTC(0x3)*)"},
                          {"terminated while it polls", R"(
                              firmware DYTC(0x1f0001) = 2 | start | advance 99s | control 137
                              advance 1h | expect no request DYTC*)"}});
}

TEST(CoolingFirmware, SetWords) {
    const struct {
        ThermalWord word;
        DWORD sent;
    } rows[] = {
        {TWO_IN_ONE_COOL, 0x0F2001},    {TWO_IN_ONE_HIGH_PERFORMANCE, 0x1F2001},
        {HINGE_CLAMSHELL, 0x0F3001},    {HINGE_TABLET, 0x103001},
        {HINGE_TENT, 0x113001},         {HINGE_LAYFLAT, 0x123001},
        {QUIET_HINGE_COOL, 0x0F5001},   {QUIET_HINGE_HIGH, 0x1F5001},
        {CPU_CONTROL_COOL, 0x0F6001},   {CPU_CONTROL_HIGH, 0x1F6001},
        {DOCK_MODE_UNDOCKED, 0x0F8001}, {DOCK_MODE_DOCKED, 0x1F8001},
    };
    Bench bench;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sent);
        sim::set_answer("DYTC", &row.sent, {.value = 7});
        sim::run_on_thread([&] {
            DWORD result = 0;
            EXPECT_TRUE(AdaptiveCoolingSetCommand_v3(row.word, &result));
            EXPECT_EQ(7u, result);
        });
        sim::set_answer("DYTC", &row.sent, {.value = 6});
        sim::run_on_thread([&] { EXPECT_FALSE(AdaptiveCoolingSetCommand_v3(row.word)); });
    }
}

TEST(CoolingFirmware, AFunctionThatTheMachineLacksIsPublishedAsDisabled) {
    Bench bench;
    sim::registry_set_dword(R"(SVC\TMC\DCC)", "CurrentSetting", 1);
    sim::run_on_thread([] {
        DWORD setting = 5;
        EXPECT_TRUE(AdaptiveCoolingInitRegKey_v3(TMC_DCC, 0, &setting));
        EXPECT_EQ(0u, setting);
    });
    bench.run(R"(
        check registry SVC\TMC\DCC Capability = 0
        check registry SVC\TMC\DCC CurrentSetting = 0
        check registry SVC\TMC\DCC CurrentStatus = 0)");
}

TEST(CoolingFirmware, DwordHelpersLeaveTheirErrorCodes) {
    const WCHAR* const path = ZORPM_SERVICE_KEY L"\\TMC\\XYZ";
    Bench bench;
    sim::registry_set_dword(R"(SVC\TMC\XYZ)", "Good", 7);
    sim::registry_set_text(R"(SVC\TMC\XYZ)", "Text", "77");
    sim::registry_set(R"(SVC\TMC\XYZ)", "Binary", REG_BINARY, {7, 0, 0, 0});
    sim::registry_set(R"(SVC\TMC\XYZ)", "Long", REG_DWORD, {1, 2, 3, 4, 5});
    sim::registry_set(R"(SVC\TMC\XYZ)", "Short", REG_DWORD, {1, 2});
    const struct {
        const WCHAR* key;
        const WCHAR* name;
        BOOL read;
        DWORD error; // 1: as before the call
    } rows[] = {
        {path, L"Good", TRUE, 1},
        {path, L"None", FALSE, 0xE1100003},
        {path, L"Text", FALSE, 1},
        {path, L"Long", FALSE, 1},
        {path, L"Short", FALSE, 1},
        {path, L"Binary", TRUE, 1},
        {ZORPM_SERVICE_KEY L"\\TMC\\ABC", L"Good", FALSE, 0xE1100002},
    };
    sim::run_on_thread([&] {
        for (const auto& row : rows) {
            DWORD value = 5;
            SetLastError(1);
            EXPECT_EQ(AdaptiveCoolingGetRegKeyDwordValue(row.key, row.name, &value), row.read);
            EXPECT_EQ(GetLastError(), row.error) << sim::narrow(row.name);
            EXPECT_EQ(value, row.read ? 7u : 5u);
        }
        EXPECT_FALSE(AdaptiveCoolingGetRegKeyDwordValue(path, L"Good", nullptr));
    });
    EXPECT_FALSE(sim::registry_has_key(R"(SVC\TMC\ABC)"));
}

} // namespace
