// Adaptive cooling, interface version 2: decisions, the worker's two phases, and its life.
#include "sim/registry.h"
#include "sim/scm.h"
#include "tests/bench.h"

namespace {

// The firmware runs in high performance, as the special cooling wants it; no option is attached.
const std::string START = "firmware DYTC(0) = 0x20000001\n"
                          "firmware DYTC(0x100) = 0x20010000\n"
                          "firmware DYTC(3) = 0x201\n"
                          "firmware GOPT(0) = 0x100\n"
                          "firmware GOPT(0x100) = 1\n";

void Check(const std::string& name, const std::string& script) {
    SCOPED_TRACE(name);
    Bench bench;
    bench.run(START + script);
}

TEST(CoolingVersion2, ModeAtStart) {
    const struct {
        const char* option;
        const char* setting; // a registry command, or nothing
        const char* mode;
        const char* setting_after;
    } rows[] = {
        {"0", "", "0x1", "1"},
        {"1", "", "0x201", "1"},
        {"1", "registry set SVC\\TMCT\\Parameters CurrentSetting dword 1", "0x201", "1"},
        {"1", "registry set SVC\\TMCT\\Parameters CurrentSetting dword 0", "0x1", "0"},
        {"1", "registry set SVC\\TMCT\\Parameters CurrentSetting dword 2", "0x1", "2"},
        {"1", "registry set SVC\\TMCT\\Parameters", "0x201", "1"},
        {"1", "registry set SVC\\TMCT\\Parameters CurrentSetting binary 00", "0x201", "1"},
    };
    for (const auto& row : rows)
        Check(row.setting, sim::format("firmware GOPT(0x200) = %s\n%s\nstart\nexpect request DYTC(%s) = 0x0\n"
                                       "expect count 3 request DYTC*\n"
                                       "check registry SVC\\TMCT\\Parameters Version = 0x2001\n"
                                       "check registry SVC\\TMCT\\Parameters Capability = 1\n"
                                       "check registry SVC\\TMCT\\Parameters CurrentSetting = %s\n"
                                       "check registry SVC\\TMCT\\Parameters INIT = 20\n"
                                       "check registry SVC\\TMCT\\Parameters SPCT = 0",
                                       row.option, row.setting, row.mode, row.setting_after));
    Check("option unknown", "firmware GOPT(0) = 0x104\nstart\nexpect no request DYTC(0x1)*\n"
                            "check registry SVC\\TMCT\\Parameters Capability absent");
    Check("key refused",
          "registry refuse SVC\\TMCT\\Parameters\nstart\nexpect no request DYTC(0x1)*\nadvance 1s\n"
          "expect count 2 request DYTC(0x100)*\nadvance 1h\nexpect count 2 request DYTC(0x100)*\n"
          "event 0x4012\nexpect no request DYTC*");
}

TEST(CoolingVersion2, InitTicks) {
    const struct {
        const char* value;
        unsigned ticks;
    } rows[] = {{"dword 20", 20}, {"dword 1", 1}, {"dword 0", 1}, {"sz \"3\"", 20}, {"binary 0300", 20}};
    for (const auto& row : rows)
        Check(row.value,
              sim::format("registry set SVC\\TMCT\\Parameters INIT %s\nstart\nmark\nadvance %us\n"
                          "expect no request DYTC*\nmark\nadvance 1s\nexpect request DYTC(0x100)*\n"
                          "expect request DYTC(0x1) = 0x0\nmark\nadvance 1h\nexpect no request *",
                          row.value, row.ticks - 1));
    Check("without end", "registry set SVC\\TMCT\\Parameters INIT dword 4000000000\nstart\nmark\nadvance 2h\n"
                         "expect no request *\nevent 0x4012\nexpect request DYTC(0x1) = 0x0");
}

// Each story begins after the initialisation (phase 2) or before (phase 1), with an option attached.
TEST(CoolingVersion2, Stories) {
    const std::string phase1 =
        "registry set SVC\\TMCT\\Parameters INIT dword 1000\nfirmware GOPT(0x200) = 1\nstart\nadvance 5s\n";
    const std::string phase2 = "firmware GOPT(0x200) = 1\nstart\nadvance 25s\n";
    const std::string spct = "registry set SVC\\TMCT\\Parameters SPCT dword ";
    const std::string detach = "firmware GOPT(0x200) = 0\nevent 0x4013\n";
    const std::string attach = "firmware GOPT(0x200) = 1\nevent 0x4012\n";
    const struct {
        const char* name;
        std::string script;
    } in_both_phases[] = {
        {"no special cooling",
         detach + "expect count 1 request DYTC(0x1) = 0x0\n" + attach +
             "expect request DYTC(0x201) = 0x0\nmark\nadvance 10m\nexpect no request DYTC*"},
        {"special cooling",
         spct + "30\n" + detach +
             "expect count 1 request DYTC(0x101) = 0x0\nexpect count 2 request DYTC*\nmark\nadvance 29s\n"
             "expect no request DYTC*\nmark\nadvance 1s\nexpect request DYTC(0x1) = 0x0\n"
             "mark\nadvance 10m\nexpect no request DYTC*"},
        {"firmware not in high performance",
         spct + "30\nfirmware DYTC(3) = 0x1\n" + detach +
             "expect count 1 request DYTC*\nmark\nadvance 29s\nexpect no request DYTC*\n"
             "advance 1s\nexpect request DYTC(0x1) = 0x0"},
        {"capability refused",
         spct + "30\nfirmware DYTC(3) = 0x200\n" + detach + "expect count 1 request DYTC*"},
        {"an option after all", spct + "30\nevent 0x4013\nexpect count 1 request DYTC*\nmark\nadvance 30s\n"
                                       "expect request DYTC(0x201) = 0x0"},
        {"detached again",
         spct + "30\n" + detach + "advance 20s\n" + spct + "10\n" + detach +
             "mark\nadvance 9s\nexpect no request DYTC*\nadvance 1s\nexpect request DYTC(0x1) = 0x0"},
        {"special cooling of another type",
         "registry set SVC\\TMCT\\Parameters SPCT sz \"30\"\n" + detach +
             "expect registry SVC\\TMCT\\Parameters SPCT = 0x0\nexpect request DYTC(0x1) = 0x0"},
        {"disabled by the user", "registry set SVC\\TMCT\\Parameters CurrentSetting dword 0\n" + detach +
                                     "expect no request DYTC*\n" + attach + "expect no request DYTC*"},
        {"setting missing",
         "registry delete SVC\\TMCT\\Parameters CurrentSetting\n" + attach + "expect no request DYTC*"},
        {"option unknown", "firmware GOPT(0) fails\nevent 0x4012\nexpect no request DYTC*"},
        {"mode refused", "firmware DYTC(0x201) = 1\n" + attach + "expect request DYTC(0x201) = 0x1\n"},
        {"disable and enable", "control 134\nexpect registry SVC\\TMCT\\Parameters CurrentSetting = 0x0\n"
                               "expect request DYTC(0x1) = 0x0\n"
                               "control 135\nexpect registry SVC\\TMCT\\Parameters CurrentSetting = 0x1\n"
                               "expect request DYTC(0x100)*\nexpect request DYTC(0x201) = 0x0"},
        {"not of this version", "control 141\nexpect no *\ncontrol 142\nexpect no *"},
        {"terminated", "control 137\n" + attach +
                           "expect no request DYTC*\nmark\nadvance 1h\nexpect no request DYTC*\n"
                           "control 136\nexpect count 1 request DYTC(0x201)*"},
        {"terminated twice",
         "control 137\ncontrol 137\nexpect no *\ncontrol 138\nexpect request DYTC(0x201) = 0x0"},
        {"no interface any more",
         "firmware DYTC(0) = 0\ncontrol 136\nmark\nadvance 1h\n" + attach +
             "control 134\ncontrol 135\ncontrol 137\nexpect no request DYTC*\nexpect no registry *"},
        {"version 3 from now on",
         "firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 1\ncontrol 138\nadvance 1h\n"
         "expect count 3 request DYTC*"},
    };
    for (const auto& row : in_both_phases) {
        Check(std::string("phase 1: ") + row.name, phase1 + row.script);
        Check(std::string("phase 2: ") + row.name, phase2 + row.script);
    }
    Check("attached during special cooling, phase 1",
          phase1 + spct + "30\n" + detach + "advance 10s\n" + attach +
              "expect count 1 request DYTC(0x201) = 0x0\nmark\nadvance 10m\nexpect no request DYTC*");
    // The rest of the special cooling passes in no time, however much it is.
    for (const char* ticks : {"30", "4000000000", "0xffffffff"})
        Check("attached during special cooling, phase 2",
              phase2 + spct + ticks + "\n" + detach + "advance 10s\n" + attach +
                  "expect count 2 request DYTC(0x201) = 0x0\n" + attach +
                  "expect count 2 request DYTC(0x201) = 0x0\nmark\nadvance 10m\nexpect no request DYTC*");
    Check("special cooling across the initialisation",
          "firmware GOPT(0x200) = 1\nstart\nadvance 5s\n" + spct + "30\n" + detach +
              "mark\nadvance 29s\nexpect count 1 request DYTC(0x100)*\nmark\nadvance 1s\nexpect request "
              "DYTC(0x1) = 0x0\n"
              "mark\nadvance 10m\nexpect no request DYTC*");
    Check("restarted: INIT counts anew",
          phase2 + "control 136\nmark\nadvance 19s\nexpect no request DYTC*\nadvance 1s\n"
                   "expect count 1 request DYTC(0x100)*\nadvance 1h\n"
                   "expect count 1 request DYTC(0x100)*");
}

TEST(CoolingVersion2, TerminationWaitsForASlowFirmware) {
    Check("terminate, then a later control, then stop",
          "start\nfirmware GOPT(0) takes 10s\nfirmware GOPT(0x200) = 1\nevent 0x4012\ncontrol 137\ncontrol "
          "134\n"
          "expect no request DYTC*\nadvance 10s\nexpect request DYTC(0x201) = 0x0\nexpect request DYTC(0x1) "
          "= 0x0\n"
          "check registry SVC\\TMCT\\Parameters CurrentSetting = 0\nevent 0x4012\nadvance 1h\nexpect no "
          "request DYTC*\n"
          "stop\nadvance 1m\ncheck status STOPPED");
    Check("stop",
          "start\nfirmware GOPT(0) takes 10s\nevent 0x4012\nstop\nadvance 9s\ncheck status STOP_PENDING\n"
          "advance 1s\ncheck status STOPPED");
    Check("start", "start\nfirmware GOPT(0) takes 10s\nevent 0x4012\ncontrol 136\nadvance 1h\n"
                   "expect count 2 request DYTC(0x100)*");
}

TEST(CoolingVersion2, NoHandleIsLeft) {
    Bench bench;
    bench.run(START + "start\nadvance 1m\ncontrol 137\n");
    const size_t terminated = sim::handle_count(sim::service_process());
    for (int i = 0; i < 20; ++i)
        bench.run(
            "control 136\nevent 0x4012\ncontrol 136\ncontrol 138\nadvance 1m\nevent 0x4013\ncontrol 137\n");
    EXPECT_EQ(sim::handle_count(sim::service_process()), terminated);
}

} // namespace
