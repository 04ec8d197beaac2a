// Adaptive cooling, interface version 3: initialisation, and what each event and control does to firmware and
// registry.
#include "sim/registry.h"
#include "sim/scm.h"
#include "tests/bench.h"

namespace {

// All functions are announced and every command is accepted; no option is attached.
const std::string FIRMWARE = "firmware DYTC = 1\n"
                             "firmware DYTC(0) = 0x30000001\n"
                             "firmware DYTC(3) = 0x03ff0001\n"
                             "firmware GOPT(0) = 0x103\n"
                             "firmware GOPT(0x100) = 1\n";
const std::string START = FIRMWARE + "start\nadvance 1s\n";

void Check(const std::string& script) {
    Bench bench;
    bench.run(script);
}

TEST(CoolingVersion3, InitialisationWalksTheAnnouncedFunctions) {
    Check(FIRMWARE + "start\nadvance 999ms\nexpect no request DYTC(0x3)*\nadvance 1ms\n"
                     "expect request DYTC(0x3)*\n"
                     "expect registry SVC\\TMC\\TIO Capability = 0x1\n"
                     "expect registry SVC\\TMC\\TIO CurrentSetting = 0x1\n"
                     "expect registry SVC\\TMC\\TIO CurrentStatus = 0x0\n"
                     "expect registry SVC\\TMC\\TIO CurrentOptionStatus = 0x1\n"
                     "expect request DYTC(0xf2001) = 0x1\n"
                     "expect registry SVC\\TMC\\TIO CurrentStatus = 0x0\n"
                     "expect registry SVC\\TMC\\MPH Capability = 0x1\n"
                     "expect request GMMS(0x0) = 0x1\n"
                     "expect request DYTC(0xf3001) = 0x1\n"
                     "expect registry SVC\\TMC\\MPH CurrentStatus = 0x1\n"
                     "expect registry SVC\\TMC\\CQH Capability = 0x1\n"
                     "expect request DYTC(0xf5001) = 0x1\n"
                     "expect registry SVC\\TMC\\DCC Capability = 0x1\n"
                     "expect request DGPUTEMP(0x0) = 0x0\n"
                     "expect registry SVC\\TMC\\DCC CurrentStatus = 0x0\n"
                     "expect registry SVC\\TMC\\DMC Capability = 0x1\n"
                     "expect request DYTC(0xf8001) = 0x1\n"
                     "expect registry SVC\\TMC\\FHP Capability = 0x1\n"
                     "expect registry SVC\\TMC\\FHP CurrentSetting = 0x1\n"
                     "expect registry SVC\\TMC\\FHP CurrentStatus = 0x0\n"
                     "mark\nadvance 1h\nexpect no request DYTC*");
    // Some functions, each initialised alone; a refusal of one does not stop the next.
    Check(FIRMWARE + "firmware DYTC(3) = 0x00240001\nregistry refuse SVC\\TMC\\TIO\nstart\nadvance 1s\n"
                     "check registry SVC\\TMC\\CQH Capability = 1\ncheck registry SVC\\TMC\\MPH absent\n"
                     "event 0x4012\nexpect no request DYTC*\nevent 0x60f0\nexpect request DYTC(0xf5001)*");
    Check(FIRMWARE +
          "firmware DYTC(3) = 0x03ff0000\nstart\nadvance 1s\ncheck registry SVC\\TMC\\TIO absent\n"
          "event 0x4012\nevent 0x60f0\nevent 0x6031\ncontrol 142\nexpect no request DYTC*\n"
          "event 0x60c0\nexpect request DYTC(0xf3001)*\nevent 0x4010\nexpect request DYTC(0xf8001)*");
}

TEST(CoolingVersion3, TheUsersSettingIsKept) {
    const struct {
        const char* setting;
        const char* after;
        bool enabled;
    } rows[] = {
        {"dword 0", "0", false}, {"dword 7", "7", true}, {"sz \"0\"", "1", true}, {"binary 0000", "1", true}};
    for (const auto& row : rows)
        Check(FIRMWARE +
              sim::format("registry set SVC\\TMC\\CQH CurrentSetting %s\n"
                          "registry set SVC\\TMC\\CQH CurrentStatus dword 9\n"
                          "registry set SVC\\TMC\\CQH Capability dword 9\nstart\nadvance 1s\n"
                          "check registry SVC\\TMC\\CQH CurrentSetting = %s\n"
                          "check registry SVC\\TMC\\CQH CurrentStatus = 0\n"
                          "check registry SVC\\TMC\\CQH Capability = 1\n"
                          "firmware THERMALMODE = 3\nevent 0x60f0\nexpect %srequest DYTC(0x1f5001)*",
                          row.setting, row.after, row.enabled ? "" : "no "));
    // Hinge and dock do not ask.
    Check("registry set SVC\\TMC\\MPH CurrentSetting dword 0\nregistry set SVC\\TMC\\DMC CurrentSetting "
          "dword 0\n" +
          START + "event 0x60c0\nexpect request DYTC(0xf3001)*\nevent 0x4011\nexpect request DYTC(0xf8001)*");
}

TEST(CoolingVersion3, StatusValuesOfHingeGraphicsAndDock) {
    const struct {
        unsigned event;
        const char* method;
        DWORD status;
        DWORD command; // 0: none
        const char* key;
        int published; // -1: nothing
    } rows[] = {
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
    std::string script = START;
    for (const auto& row : rows) {
        script += sim::format("firmware %s = 0x%x\nevent 0x%x\nexpect request %s(0x0) = 0x%x\n", row.method,
                              row.status, row.event, row.method, row.status);
        script += row.command != 0 ? sim::format("expect request DYTC(0x%x) = 0x1\n", row.command)
                                   : "expect no request DYTC*\n";
        script += row.published >= 0 ? sim::format("expect registry SVC\\TMC\\%s CurrentStatus = 0x%x\n",
                                                   row.key, row.published)
                                     : sim::format("expect no registry SVC\\TMC\\%s*\n", row.key);
        // A refused command, and a status that cannot be read, leave the registry alone.
        if (row.command != 0)
            script +=
                sim::format("firmware DYTC(0x%x) = 0x6 times 1\nevent 0x%x\nexpect request DYTC(0x%x) = 0x6\n"
                            "expect no registry SVC\\TMC*\n",
                            row.command, row.event, row.command);
        script += sim::format(
            "firmware %s fails\nevent 0x%x\nexpect no request DYTC*\nexpect no registry SVC\\TMC*\n",
            row.method, row.event);
    }
    Check(script);
}

TEST(CoolingVersion3, TwoInOne) {
    Check(
        START +
        // Bare tablet: held in the hand and put down.
        "control 142\nexpect next registry SVC\\TMC\\TIO CurrentOnHandStatus = 0x1\nexpect next request "
        "DYTC(0xf2001) = 0x1\n"
        "expect next registry SVC\\TMC\\TIO CurrentStatus = 0x1\n"
        "control 141\nexpect next registry SVC\\TMC\\TIO CurrentOnHandStatus = 0x0\nexpect next request "
        "DYTC(0x1f2001) = 0x1\n"
        "expect next registry SVC\\TMC\\TIO CurrentStatus = 0x0\n"
        "firmware DYTC(0x1f2001) = 0 times 1\ncontrol 141\nexpect request DYTC(0x1f2001) = 0x0\n"
        "expect no registry SVC\\TMC\\TIO CurrentStatus*\n"
        // With an option only the report is published.
        "firmware GOPT(0x200) = 2\nevent 0x4012\nexpect registry SVC\\TMC\\TIO CurrentOptionStatus = 0x2\n"
        "expect request DYTC(0x1f2001) = 0x1\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x1\n"
        "control 142\nexpect next registry SVC\\TMC\\TIO CurrentOnHandStatus = 0x1\nexpect count 1 *\n"
        "firmware DYTC(0xf2001) = 0 times 1\nfirmware GOPT(0x200) = 0\nevent 0x4013\n"
        "expect registry SVC\\TMC\\TIO CurrentOptionStatus = 0x1\nexpect request DYTC(0xf2001) = 0x0\n"
        "expect no registry SVC\\TMC\\TIO CurrentStatus*\n"
        // The switch.
        "firmware DYTC(0xf2001) = 0 times 1\ncontrol 134\nexpect next request DYTC(0xf2001) = 0x0\nexpect "
        "count 1 *\n"
        "control 134\nexpect next request DYTC(0xf2001) = 0x1\nexpect next registry SVC\\TMC\\TIO "
        "CurrentStatus = 0x1\n"
        "expect next registry SVC\\TMC\\TIO CurrentSetting = 0x0\nexpect count 3 *\n"
        "event 0x4012\nexpect no request DYTC*\ncontrol 142\nexpect no *\ncontrol 141\nexpect no *\n"
        "control 135\nexpect request DYTC(0xf2001) = 0x1\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x0\n"
        "expect next registry SVC\\TMC\\TIO CurrentSetting = 0x1\n"
        // Enabled all the same when its first command is refused, but not stored.
        "control 134\nfirmware DYTC(0xf2001) = 0 times 1\ncontrol 135\nexpect no registry SVC\\TMC\\TIO "
        "CurrentSetting*\n"
        "event 0x4013\nexpect request DYTC(0xf2001) = 0x1\n"
        // Initialised functions outlive a stop of the cooling.
        "control 137\nevent 0x4013\nexpect request DYTC(0xf2001) = 0x1");
}

TEST(CoolingVersion3, OptionStateAfterInitialisation) {
    // Force High Performance is initialised last and leaves the option state as Two In One has found it.
    Check("firmware GOPT(0x200) = 2\n" + START + "control 142\nexpect count 1 *");
}

TEST(CoolingVersion3, FlipMode) {
    Check(START + "firmware GOPT(0x200) = 0x10001\nevent 0x4012\nexpect request DYTC(0x1f2001)*\nexpect "
                  "request DYTC(0xf2001) = 0x1\n"
                  "expect no registry SVC\\TMC\\TIO CurrentStatus = 0x0\n"
                  "firmware GOPT(0x200) = 1\nevent 0x4012\nexpect count 2 request DYTC(0x1f2001) = 0x1\n"
                  "control 134\nevent 0x4012\nexpect no request DYTC*");
}

TEST(CoolingVersion3, DynamicCpuControlSwitch) {
    const std::string switching =
        "control 139\nexpect next request DYTC(0xf6001) = 0x1\n"
        "expect next registry SVC\\TMC\\DCC CurrentStatus = 0x0\n"
        "expect next registry SVC\\TMC\\DCC CurrentSetting = 0x0\nexpect count 3 *\n"
        "firmware DGPUTEMP = 2\nevent 0x6031\nexpect no request DYTC*\n"
        "control 140\nexpect next request DGPUTEMP(0x0) = 0x2\nexpect next request DYTC(0x1f6001) = 0x1\n"
        "expect next registry SVC\\TMC\\DCC CurrentStatus = 0x2\n"
        "expect next registry SVC\\TMC\\DCC CurrentSetting = 0x1\nexpect count 4 *\n"
        "event 0x6031\nexpect request DYTC(0x1f6001) = 0x1\n"
        "firmware DYTC(0xf6001) = 0\ncontrol 139\nexpect count 1 *\n"
        "firmware DGPUTEMP fails\ncontrol 140\nexpect count 1 *\n";
    Check(START + switching);
    // It works without an interface, too.
    Check(
        "registry set SVC\\TMC\\DCC\nfirmware DYTC = 1\nfirmware DYTC(0) = 0\nstart\n" + switching +
        "event 0x60c0\nexpect request DYTC(0xf3001) = 0x1\nevent 0x4010\nexpect request DYTC(0xf8001) = 0x1\n"
        "control 134\ncontrol 135\ncontrol 137\ncontrol 141\ncontrol 142\nexpect no *");
}

// One registry write of an act fails: what is still done?
TEST(CoolingVersion3, FailingWrites) {
    const struct {
        const char* act;
        int write;
        const char* then;
    } rows[] = {
        {"event 0x4012", 1,
         "expect request DYTC(0xf2001)*\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x0"},
        {"control 142", 1,
         "expect request DYTC(0xf2001)*\nexpect registry SVC\\TMC\\TIO CurrentStatus = 0x1"},
        {"control 134", 1, "expect registry SVC\\TMC\\TIO CurrentSetting = 0x0"},
        // Of the two that enable, only Two In One counts a failing status write as failure.
        {"control 135", 2, "expect request DYTC(0xf2001)*\nexpect no registry SVC\\TMC\\TIO CurrentSetting*"},
        {"control 140", 1, "expect registry SVC\\TMC\\DCC CurrentSetting = 0x1"},
        {"control 139", 1, "expect registry SVC\\TMC\\DCC CurrentSetting = 0x0"},
        // An initialisation ends at the first write that fails, and the next function begins.
        {"control 137\ncontrol 136\nadvance 1s", 2,
         "expect request DYTC(0x3)*\nexpect next registry SVC\\TMC\\MPH Capability = 0x1\n"
         "event 0x4012\nexpect no request DYTC*"},
        {"control 137\ncontrol 136\nadvance 1s", 3,
         "expect registry SVC\\TMC\\TIO Capability = 0x1\nexpect next registry SVC\\TMC\\MPH Capability = "
         "0x1"},
    };
    std::string script = START;
    for (const auto& row : rows)
        script += sim::format("fail RegSetValueExW %d\n%s\n%s\n", row.write, row.act, row.then);
    Check(script);
}

TEST(CoolingVersion3, NoHandleIsLeft) {
    Bench bench;
    bench.run(START + "control 138\nadvance 1s\ncontrol 137\n");
    const size_t terminated = sim::handle_count(sim::service_process());
    for (int i = 0; i < 20; ++i)
        bench.run(
            "control 136\nevent 0x4012\ncontrol 138\nadvance 1s\nevent 0x4013\ncontrol 142\ncontrol 137\n");
    EXPECT_EQ(sim::handle_count(sim::service_process()), terminated);
}

} // namespace
