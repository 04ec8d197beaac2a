// Adaptive cooling in disorder: requests and events at once under many schedules, and every platform call of
// every operation failing once.
#include "tests/support/sweep.h"

namespace {

// Answers for both versions, every command accepted; the revision is chosen by the script.
const std::string FIRMWARE = R"(
    firmware DYTC = 1
    firmware DYTC(1) = 0
    firmware DYTC(0x101) = 0
    firmware DYTC(0x201) = 0
    firmware DYTC(0x100) = 0x20010000
    firmware DYTC(3) = 0x03ff0201
    firmware GOPT(0) = 0x100
    firmware GOPT(0x100) = 1
)";
const std::string VERSION_2 = "firmware DYTC(0) = 0x20000001\n";
const std::string VERSION_3 = "firmware DYTC(0) = 0x30000001\n";

// The command of one kind that the firmware got last.
std::string last_command(std::initializer_list<const char*> kind) {
    const auto& trace = sim::machine().trace;
    for (size_t i = trace.size(); i-- > 0;) {
        for (const char* word : kind) {
            if (trace[i].text.rfind(std::string("request DYTC(") + word + ")", 0) == 0)
                return word;
        }
    }
    return "none";
}

void expect_mode_by_option(bool version2, bool attached) {
    if (version2) {
        EXPECT_EQ(last_command({"0x1", "0x101", "0x201"}), attached ? "0x201" : "0x1");
        EXPECT_EQ(sim::registry_dword("SVC\\TMCT\\Parameters", "CurrentSetting"), 1u);
        return;
    }
    EXPECT_EQ(last_command({"0xf2001", "0x1f2001"}), attached ? "0x1f2001" : "0xf2001");
    EXPECT_EQ(sim::registry_dword("SVC\\TMC\\TIO", "CurrentSetting"), 1u);
    EXPECT_EQ(sim::registry_dword("SVC\\TMC\\TIO", "CurrentStatus"), attached ? 1u : 0u);
    EXPECT_EQ(sim::registry_dword("SVC\\TMC\\TIO", "CurrentOptionStatus"), attached ? 2u : 1u);
}

// The published switch and the flag that decides agree: the event sends a command, or it does not.
void expect_switch_holds(Bench& bench, const char* key, const char* script) {
    const DWORD setting = sim::registry_dword(key, "CurrentSetting", 0);
    const size_t before = sim::machine().trace.size();
    bench.run(script);
    bool sent = false;
    for (size_t i = before; i < sim::machine().trace.size(); ++i)
        sent = sent || sim::machine().trace[i].text.rfind("request DYTC", 0) == 0;
    EXPECT_EQ(sent, setting != 0) << key;
}

std::string draw_command(bool both_versions) {
    const auto draw = [](std::uint64_t bound) { return static_cast<unsigned>(sim::random_below(bound)); };
    static const unsigned events[] = {0x4012, 0x4013, 0x6031, 0x60f0, 0x60c0, 0x4010};
    switch (draw(both_versions ? 9 : 8)) {
    case 0:
    case 1:
    case 2:
        return sim::format("control %u\n", 134 + draw(9));
    case 3:
    case 4:
        return sim::format("event 0x%x\n", events[draw(std::size(events))]);
    case 5:
        return sim::format("firmware %s takes %ums\n", draw(2) != 0 ? "GOPT" : "DYTC", draw(3));
    case 6:
        return sim::format("firmware GOPT(0x200) = %u\n", 2 * draw(2));
    case 7:
        return sim::format("firmware DGPUTEMP = %u\nregistry set SVC\\TMCT\\Parameters SPCT dword %u\n",
                           draw(5), draw(3));
    default:
        return draw(2) != 0 ? VERSION_2 : VERSION_3;
    }
}

struct Drawn {
    std::uint64_t schedules = 0;
    std::uint64_t commands = 0;
    std::uint64_t seconds = 0;
};

void disorder(Bench& bench, Drawn* drawn) {
    enum { ONLY_2, ONLY_3, BOTH } kind = static_cast<decltype(kind)>(bench.machine.seed % 3);
    // Both workers have run once, so that whatever is kept for good exists.
    bench.run(FIRMWARE + VERSION_2 + "start\ncontrol 137\n" + VERSION_3 + R"(
        control 136
        advance 2s
        control 137
    )" + (kind == ONLY_2 ? VERSION_2 : VERSION_3) +
              "control 136\n");
    sim::Process* service = sim::service_process();
    bench.run("control 137\nadvance 1s\n");
    const size_t handles = sim::handle_count(service);
    bench.run("control 136\n");

    static const char* const pauses[] = {"0ms", "1ms", "1ms", "2ms", "3ms", "1s", "2s", "20s"};
    for (int step = 0; step < 24; ++step) {
        std::string script = "together\n";
        for (std::uint64_t count = 1 + sim::random_below(4); count > 0; --count, ++drawn->commands)
            script += draw_command(kind == BOTH);
        bench.run(script + "end\nadvance " + pauses[sim::random_below(std::size(pauses))] + "\n");
    }

    // Quiet again: the published state holds, and one request brings all of it to what the driver reports.
    bench.run(R"(
        firmware GOPT takes 0ms
        firmware DYTC takes 0ms
        advance 10m)");
    expect_switch_holds(bench, "SVC\\TMC\\DCC", "firmware DGPUTEMP = 2\nevent 0x6031\n");
    if (kind == ONLY_3)
        expect_switch_holds(bench, "SVC\\TMC\\TIO", "event 0x4012\n");
    const bool attached = sim::random_below(2) != 0;
    bench.run(sim::format("firmware GOPT(0x200) = %u\ncontrol 135\n", attached ? 2 : 0));
    if (kind != BOTH)
        expect_mode_by_option(kind == ONLY_2, attached);
    bench.run("control 137\nadvance 1m\n");
    EXPECT_EQ(live_threads("Cooling"), 0u);
    EXPECT_EQ(sim::handle_count(service), handles);
    ++drawn->schedules;
    drawn->seconds += bench.machine.now / 1000;
}

TEST(CoolingSweep, ManySchedules) {
    Drawn drawn;
    run_seeds(1000, [&](Bench& bench) { disorder(bench, &drawn); });
    figure("cooling: schedules run", sim::format("%lu", drawn.schedules));
    figure("cooling: commands in them", sim::format("%lu", drawn.commands));
    figure("cooling: simulated hours", sim::format("%lu", drawn.seconds / 3600));
}

// Asking for a start again and again does not put the initialisation off; a restart, or a start of what has
// ended, does begin anew.
TEST(CoolingSweep, RepeatedStarts) {
    const struct {
        const char* name;
        const char* acts;
        unsigned seconds; // from the first start to the initialisation; 0: none comes
    } rows[] = {
        {"started", "control 136", 101},
        {"restarted", "control 138", 191},
        {"ended and started", "control 137\ncontrol 136", 191},
        {"no revision", "firmware DYTC(0) fails times 1\ncontrol 136", 0},
        {"no revision, then one", "firmware DYTC(0) fails times 1\ncontrol 136\ncontrol 136", 191},
        {"version 2 in between", "firmware DYTC(0) = 0x20000001 times 1\ncontrol 136\ncontrol 136", 191},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Bench bench;
        bench.run(FIRMWARE + VERSION_3 + "firmware DYTC(0x1f0001) = 6\nstart\nadvance 90s\n" + row.acts);
        EXPECT_EQ(live_threads("Cooling"), row.seconds != 0 ? 1u : 0u);
        bench.run("mark\n" + (row.seconds == 0
                                  ? std::string("advance 10m\nexpect no registry create SVC\\TMC\\TIO")
                                  : sim::format(R"(
                                                    advance %ums
                                                    expect no registry create SVC\TMC\TIO
                                                    advance 1ms
                                                    expect registry create SVC\TMC\TIO
                                                )",
                                                (row.seconds - 90) * 1000 - 1)));
        EXPECT_EQ(live_threads("Cooling"), 0u);
    }
}

// Fails the calls of one act. Afterwards a restart and one request must bring everything to what the driver
// reports. Returns the number of calls failed.
std::uint64_t fail_each_call_of(const std::string& version, const std::string& act) {
    SCOPED_TRACE(act);
    const std::string begin = FIRMWARE + version + R"(
        registry set SVC\TMCT\Parameters SPCT dword 3
        start
        advance 30s
        control 137
    )";
    const size_t usual = held_after(begin);
    const std::string started = begin + R"(
        control 136
        advance 30s
        firmware GOPT(0x200) = 2)";
    return fail_each_call(started, act + "\nadvance 1m\n", [&](Bench& bench) {
        bench.run(R"(
            control 138
            advance 1m
            control 135)");
        expect_mode_by_option(version == VERSION_2, true);
        EXPECT_LE(live_threads("Cooling"), 1u);
        bench.run("control 137\nadvance 1m\n");
        EXPECT_EQ(live_threads("Cooling"), 0u);
        EXPECT_EQ(held(), usual);
        bench.run(R"(
            stop
            advance 1m
            check status STOPPED)");
    });
}

TEST(CoolingSweep, EveryCallFails) {
    const char* const detach_and_attach = R"(
        firmware GOPT(0x200) = 0
        event 0x4013
        advance 3s
        firmware GOPT(0x200) = 2)";
    std::uint64_t failed = 0;
    for (const char* act : {"control 136\nadvance 21s", "control 138\nadvance 21s", "control 137",
                            "control 134", "control 135", "event 0x4012", detach_and_attach})
        failed += fail_each_call_of(VERSION_2, act);
    for (const char* act :
         {"control 136\nadvance 2s", "control 138\nadvance 2s", "control 137", "control 134", "control 135",
          "control 139", "control 140", "control 141", "control 142", "event 0x4012", "event 0x4013",
          "event 0x4010", "event 0x6031", "event 0x60c0", "event 0x60f0"})
        failed += fail_each_call_of(VERSION_3, act);
    figure("cooling: platform calls failed, each once", sim::format("%lu", failed));
}

} // namespace
