// Adaptive cooling at the firmware's edge: interface version, option attach state, readiness, set words,
// DWORD values.
#include "tests/bench.h"

#include "common/registry.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"

namespace {

// A machine on which both interfaces find what they need: the option interface answers, no option is
// attached.
const std::string OPTION = "firmware GOPT(0) = 0x100\n"
                           "firmware GOPT(0x100) = 1\n";
const std::string VERSION_2 = OPTION + "firmware DYTC(0) = 0x20000001\n"
                                       "firmware DYTC(0x100) = 0x20010000\n";
const std::string VERSION_3 = OPTION + "firmware DYTC = 1\n"
                                       "firmware DYTC(0) = 0x30000001\n";

struct Row {
    const char* given;
    const char* then;
};

void Check(const std::string& script) {
    Bench bench;
    bench.run(script);
}

TEST(CoolingFirmware, InterfaceVersionAtStart) {
    const Row rows[] = {
        {"firmware DYTC(0) = 0x30000001", "expect registry SVC\\TMC Version = 0x3000"},
        {"firmware DYTC(0) = 0x20000001", "expect request DYTC(0x100) = 0x0\n"
                                          "check registry SVC\\TMC absent\n"
                                          "check registry SVC\\TMCT\\Parameters Capability = 0\n"
                                          "check registry SVC\\TMCT\\Parameters Version absent"},
        {"firmware DYTC(0) = 0x40000001", "expect count 1 request DYTC*"},
        {"firmware DYTC(0) = 0x30000000", "expect count 1 request DYTC*\ncheck registry SVC\\TMC absent"},
        {"firmware DYTC(0) fails", "expect count 1 request DYTC*"},
        {"firmware DYTC(0) = 0x30000001 bytes 3", "expect count 1 request DYTC*"},
    };
    for (const Row& row : rows)
        Check(OPTION + row.given + "\nstart\nadvance 10m\n" + row.then);
}

TEST(CoolingFirmware, AnUnknownRevisionKeepsTheVersionAndAFailureClearsIt) {
    Check(VERSION_2 + "start\nfirmware DYTC(0) = 0x40000001\ncontrol 138\nexpect request DYTC(0x1) = 0x0\n"
                      "firmware DYTC(0) = 0x20000000\ncontrol 138\nexpect count 1 request DYTC*\n"
                      "firmware DYTC(0) = 0x40000001\ncontrol 136\nexpect count 1 request DYTC*\nadvance 1h\n"
                      "expect count 1 request DYTC*");
}

TEST(CoolingFirmware, SystemControlModeRefinesVersion2) {
    const Row rows[] = {
        {"firmware DYTC(0x100) = 0x20010000",
         "expect request DYTC(0x1) = 0x0\nevent 0x4012\nexpect request DYTC(0x1)*"},
        {"firmware DYTC(0x100) = 0x30000000",
         "expect no request DYTC(0x1)*\nevent 0x4012\nexpect no request DYTC*"},
        {"firmware DYTC(0x100) = 0x20000000", "expect no request DYTC(0x1)*"},
        // Stored, but no version that requests are routed by.
        {"firmware DYTC(0x100) = 0x20020000", "check registry SVC\\TMCT\\Parameters Capability = 0\nevent "
                                              "0x4012\ncontrol 135\nexpect no request DYTC*"},
        {"firmware DYTC(0x100) fails",
         "expect no request GOPT(0)*\ncheck registry SVC\\TMCT\\Parameters Capability absent"},
    };
    for (const Row& row : rows)
        Check(VERSION_2 + row.given + "\nstart\n" + row.then);
}

TEST(CoolingFirmware, OptionAttachState) {
    const char* const attached =
        "expect request DYTC(0x1f2001) = 0x1\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x1";
    const char* const bare =
        "expect request DYTC(0xf2001) = 0x1\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x0";
    const char* const unknown = "expect no request DYTC*\nexpect no registry SVC\\TMC*";
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
    std::string script = VERSION_3 + "firmware DYTC(3) = 0x00040001\nstart\nadvance 1s\n";
    for (const auto& row : rows)
        script += sim::format(
            "firmware GOPT(0) %s\nfirmware GOPT(0x100) %s\nfirmware GOPT(0x200) %s\nevent 0x4012\n%s\n",
            row.version, row.type, row.state, row.then);
    Check(script);
}

TEST(CoolingFirmware, ReadinessProbe) {
    const char* const ready =
        "advance 1s\nexpect request DYTC(0x3)*\nadvance 10m\nexpect count 1 request DYTC(0x1f0001)*";
    // 101 polls at most; then the initialisation runs in any case.
    const char* const not_ready =
        "advance 100s\nexpect no request DYTC(0x3)*\nadvance 1s\nexpect request DYTC(0x3)*\n"
        "advance 10m\nexpect count 101 request DYTC(0x1f0001)*";
    const Row rows[] = {
        {"= 0x1", ready},        {"= 0x0", ready},     {"= 0x3", ready},     {"= 0x7 bytes 0", ready},
        {"= 0xfffffff8", ready}, {"= 0x2", not_ready}, {"= 0x4", not_ready}, {"fails", not_ready},
    };
    for (const Row& row : rows)
        Check(VERSION_3 + "firmware DYTC(0x1f0001) " + row.given + "\nstart\n" + row.then);
    Check(VERSION_3 +
          "firmware DYTC(0x1f0001) = 2 times 2\nstart\nadvance 2s\nexpect no request DYTC(0x3)*\nadvance 1s\n"
          "expect request DYTC(0x3)*");
    Check(
        VERSION_3 +
        "firmware DYTC(0x1f0001) = 2\nstart\nadvance 99s\ncontrol 137\nadvance 1h\nexpect no request DYTC*");
}

TEST(CoolingFirmware, SetWords) {
    const struct {
        BOOL (*plain)();
        BOOL (*v3)();
        DWORD word;
    } rows[] = {
#define SETTER(name, word) {AdaptiveCoolingSet##name, AdaptiveCoolingSet##name##_v3, word}
        SETTER(TwoInOneStatusToCool, 0x0F2001),
        SETTER(TwoInOneStatusToHighPerformance, 0x1F2001),
        SETTER(MultiPivoHingeStatusToClamShell, 0x0F3001),
        SETTER(MultiPivoHingeStatusToTablet, 0x103001),
        SETTER(MultiPivoHingeStatusToTent, 0x113001),
        SETTER(MultiPivoHingeStatusToLayFlat, 0x123001),
        SETTER(CoolQuietHingeStatusToCool, 0x0F5001),
        SETTER(CoolQuietHingeStatusToHigh, 0x1F5001),
        SETTER(DynamicCpuControlStatusToCool, 0x0F6001),
        SETTER(DynamicCpuControlStatusToHigh, 0x1F6001),
        SETTER(DockModeControlToUndocked, 0x0F8001),
        SETTER(DockModeControlToDocked, 0x1F8001),
#undef SETTER
    };
    Bench bench;
    for (const auto& row : rows) {
        sim::set_answer("DYTC", &row.word, {.value = 1});
        sim::run_on_thread([&] { EXPECT_TRUE(row.plain() && row.v3()) << std::hex << row.word; });
        sim::set_answer("DYTC", &row.word, {.value = 6});
        sim::run_on_thread([&] { EXPECT_FALSE(row.plain()) << std::hex << row.word; });
    }
}

TEST(CoolingFirmware, DwordHelpersLeaveTheirErrorCodes) {
    const WCHAR* const path = SERVICE_KEY L"\\TMC\\XYZ";
    Bench bench;
    sim::registry_set_dword("SVC\\TMC\\XYZ", "Good", 7);
    sim::registry_set_text("SVC\\TMC\\XYZ", "Text", "7");
    sim::registry_set("SVC\\TMC\\XYZ", "Long", REG_DWORD, {1, 2, 3, 4, 5});
    sim::registry_set("SVC\\TMC\\XYZ", "Short", REG_DWORD, {1, 2});
    const struct {
        const WCHAR* key;
        const WCHAR* name;
        BOOL read;
        DWORD error; // 1: as before the call
    } rows[] = {
        {path, L"Good", TRUE, 1},   {path, L"None", FALSE, 0xE1100003},
        {path, L"Text", FALSE, 1},  {path, L"Long", FALSE, 1},
        {path, L"Short", FALSE, 1}, {SERVICE_KEY L"\\TMC\\ABC", L"Good", FALSE, 0xE1100002},
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
    EXPECT_FALSE(sim::registry_has_key("SVC\\TMC\\ABC"));
}

} // namespace
