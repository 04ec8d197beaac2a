// The scenario language: what the seed chooses, blocks, and what is refused.
#include <algorithm>
#include <filesystem>
#include <malloc.h>
#include <set>

#include "sim/script/commands.h"
#include "sim/script/grammar.h"
#include "sim/script/source.h"
#include "tests/support/bench.h"

using namespace sim;

// The clock behind a script that begins 5 s after the start, without those 5 s.
static Ms ends_at(std::uint64_t seed, const std::string& script) {
    Bench bench(seed);
    bench.run("start\nadvance 5s\n" + script);
    return bench.machine.now - 5000;
}

TEST(Script, ASeedChoosesTheMoment) {
    EXPECT_EQ(1000u, ends_at(0, "within 1s event 0x5001"));
    std::set<Ms> moments;
    for (std::uint64_t seed = 1; seed <= 60; ++seed) {
        const Ms moment = ends_at(seed, "within 1s event 0x5001");
        EXPECT_GE(1000u, moment);
        EXPECT_EQ(moment, ends_at(seed, "within 1s event 0x5001"));
        moments.insert(moment);
    }
    EXPECT_LT(20u, moments.size());
}

TEST(Script, ASeedChoosesWhatFallsDue) {
    unsigned times[4] = {}; // 249, 250, 251 ms, and any other
    for (std::uint64_t seed = 1; seed <= 200; ++seed) {
        const Ms moment = ends_at(seed, "driver secondary missing for 250ms\nwithin 100s event 0x5001");
        ++times[moment >= 249 && moment <= 251 ? moment - 249 : 3];
    }
    for (const unsigned count : times)
        EXPECT_LT(0u, count);
}

// When the event was fetched.
static Ms fetched_at(std::uint64_t seed, const std::string& script) {
    Bench bench(seed);
    bench.run("start\nadvance 5s\nmark\n" + script);
    for (const TraceLine& line : bench.machine.trace) {
        if (line.text.starts_with("request GETEVENT() = 0x5001"))
            return line.time - 5000;
    }
    return NEVER;
}

TEST(Script, ASeedChoosesTheDuration) {
    std::set<Ms> durations;
    for (std::uint64_t seed = 0; seed <= 60; ++seed) {
        const Ms duration = fetched_at(seed, "firmware GETEVENT takes 10ms..20ms\nevent 0x5001\nadvance 1s");
        EXPECT_LE(10u, duration);
        EXPECT_GE(20u, duration);
        durations.insert(duration);
        EXPECT_TRUE(seed != 0 || duration == 20);
    }
    EXPECT_EQ(11u, durations.size());
}

TEST(Script, Blocks) {
    const ScriptCase cases[] = {
        {"repeat", R"(
            repeat 3
                event 0x5001
                repeat 2
                    say "twice"
                end
                expect next request GETEVENT() = 0x5001*
            end
            repeat 0
                check handles 1000
            end)"},
        {"repeat inside together", R"(
            together
                repeat 3
                    event 0x5001
                end
                event 0x5002
            end
            expect count 3 request GETEVENT() = 0x5001*)"},
        {"a late answer is that of the beginning", R"(
            firmware GMMS takes 10ms,0ms late
            event 0x60C0
            firmware GMMS = 3
            advance 10ms
            expect request GMMS(0x0) = 0x1
            expect request GMMS(0x0) = 0x3)"},
        {"what comes within a span marks", R"(
            within 100ms event 0x5001
            expect next request GETEVENT() = 0x5001*)"},
    };
    run_cases("start\nadvance 5s", cases);
}

namespace {

struct Refused {
    const char* script;
    const char* why; // of each fault a part, in their order, parted by |
};

} // namespace

static const Refused g_refused[] = {
    {"nonsense", "line 1: no such command: nonsense"},
    {"evnet 0x5001", "did you mean event?"},
    {"windows hibernat allowed", "did you mean windows hibernate?"},
    {"advance 5", "duration expected"},
    {"advance 99999999999ms", "duration expected"},
    {"event", "something is missing"},
    {"event 12z", "number expected: 12z"},
    {"event 0x100000000", "32 bits"},
    {"control 99999999999999999999999", "32 bits"},
    {"firmware GOPT(0x100000000) = 1", "32 bits"},
    {"firmware GOPT(1 = 1", "METHOD(ARG)"},
    {"firmware GOPT = 1 times 4294967296", "32 bits"},
    {"firmware DYCT = 1", "did you mean DYTC?"},
    {"firmware DYTC takes 5ms..2ms", "A..B"},
    {"firmware MHKV", "= VALUE"},
    {"expect", "a pattern expected"},
    {"registry set XX a dword 1", "a registry path"},
    {"registry set SVC x sz \"open", "a quote has no end"},
    {"check status WHAT", "no such state"},
    {"start now", "more than the command takes: now"},
    {"start\ntogether\nstart", "line 2: together without end"},
    {"repeat 2\nstart", "repeat without end"},
    {"end", "end without"},
    {"together\ntogether\nend\nend", "together inside together"},
    {"together\nmark\nend", "a check inside together"},
    {"together\nwithin 1s start\nend", "no time passes"},
    {"within 1s expect *", "a command that acts"},
    {"within 1s together\nend", "a command that acts|end without"},
    {"within 1s", "a command that acts"},
    {"within start", "duration expected"},
    {"firmware DYTC takes 5ms,", "A..B"},
    {"after 5ms mark", "a command that acts"},
    {"include /nowhere/at/all", "/nowhere/at/all: No such file or directory"},
    {"include -", "standard input"},
    {"check registry HKML\\X absent", "a registry path expected: HKML\\X; did you mean HKLM?"},
    {"check registry SVC x = 0x100000000", "32 bits"},
    {"show thread", "did you mean threads?"},
    {"expect no requset *", "from \"requset\" on; did you mean request?"},
    {"expect count 2 request DYCT(*", "did you mean DYTC?"},
    {"expect request DYTC(0x1)", "no trace line ends there"},
    {"expect TerminalThread request GMMS*", "from \"TerminalThread\" on"},
    {"expect request DYTC(0x01) *", "from \"0x01\" on"},
    {"expect request GETLIDSTATUS(0x1) *", "no trace line can be so"},
    {"expect next registry HKML\\X *", "did you mean HKLM?"},
    {"expect status RUNING *", "did you mean RUNNING?"},
    {"expect write slate 0x0", "from \"0x0\" on"},
    {"expect cal SetSuspendState*", "did you mean call?"},
    {"nonsense\nstart\nevent x\nevent y", "line 1: |line 3: |line 4: "},
};

static std::string refusal(const std::string& script) {
    std::vector<Fault> faults;
    std::string all;
    EXPECT_EQ(nullptr, compile_script(script, "", &faults)) << script;
    for (const Fault& fault : faults)
        all += (all.empty() ? "" : "|") + shown_place(fault.place) + fault.what;
    return all;
}

TEST(Script, BoundsOfTextAreSaid) {
    EXPECT_NE(std::string::npos,
              refusal("start\n" + std::string(65537, 'x')).find("line 2: longer than 64 KiB"));
    EXPECT_NE(std::string::npos,
              refusal(std::string(size_t{64} * 1024 * 1024 + 1, '#')).find("larger than 64 MiB"));
    EXPECT_NE(std::string::npos, refusal("expect " + std::string(5000, '*')).find("longer than any"));
    std::string nonsense;
    for (int i = 0; i < 1002; ++i)
        nonsense += "x\n";
    EXPECT_TRUE(refusal(nonsense).ends_with("|line 1001: more than 1,000 faults: no further line is read"));
}

// Whatever an order of threads or a failing call brings forth: each line has a form.
TEST(Script, PatternsThatSomeLineMatches) {
    for (const char* pattern :
         {"*", "no call *", "request DYTC(0x1f2001) = 0x1", "REQUEST dytc(*", "*GETEVENT*",
          "request MHKM(12, 1)", "registry SVC\\A b c = \"x\"", "registry HKLM\\* *", "write slate#2 0",
          "status STOPPED 1066/3", "call CallNtPowerInformation(10) = 0xc0000022",
          "window 101 placed -5 280 266 95 top shown"}) {
        const std::string line = pattern;
        EXPECT_EQ("", impossible_pattern(line.starts_with("no ") ? line.substr(3) : line));
    }
}

// What a line says that the grammar does not know, no script can expect.
TEST(Script, EveryLineOfTheScenariosIsInTheGrammar) {
    std::set<std::string> lines;
    for (const auto& entry : std::filesystem::directory_iterator(ZORPM_SOURCE_DIR "/scenarios")) {
        std::string text;
        ASSERT_EQ("", read_script(entry.path(), &text));
        Bench bench;
        bench.run(text);
        for (const TraceLine& line : bench.machine.trace)
            lines.insert(line.text);
    }
    EXPECT_LT(300u, lines.size());
    for (const std::string& line : lines)
        EXPECT_EQ("", impossible_pattern(line)) << line;
}

TEST(Script, Completions) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(Words{"GMMS"}, completions("firmware GM"));
    EXPECT_EQ(Words{"firmware"}, completions("fir"));
    EXPECT_EQ((Words{"allowed", "forbidden"}), completions("windows hibernate "));
    EXPECT_EQ((Words{"hiberfile", "hibernate"}), completions("windows hib"));
    EXPECT_EQ(Words{}, completions("bogus "));
}

TEST(Script, DurationsInTurn) {
    const std::string takes = "firmware GETEVENT takes 10ms,20ms\n";
    const std::string other = "event 0x1\nadvance 1s\n";
    EXPECT_EQ(10u, fetched_at(0, takes + "event 0x5001\nadvance 1s"));
    EXPECT_EQ(1020u, fetched_at(0, takes + other + "event 0x5001\nadvance 1s"));
    EXPECT_EQ(2025u, fetched_at(0, takes + other + other + "after 5ms event 0x5001\nadvance 1s"));
}

TEST(Script, ManyEventsInOneInstant) {
    // Each is waited for, so nobody runs on; every one of them is looked at.
    Bench bench;
    bench.started("firmware GOPT(0) = 0x102\nfirmware GOPT(0x100) = 1");
    bench.run("repeat 10000\nevent 0x7000\nend\nadvance 1s\nexpect request GETEVENT() = 0x7000*");
    bench.run("mark\ntogether\nrepeat 10000\nevent 0x7000\nend\nend\nadvance 1s\n"
              "expect count 10000 request GETEVENT() = 0x7000*");
    bench.run("mark\ntogether\nrepeat 3000\nevent 0x4012\nend\nend\n"
              "expect count 3000 request GETEVENT() = 0x4012*");
    EXPECT_EQ(4000u, bench.machine.now); // which stands: none of their waits is one of no length
}

TEST(Script, WaitsOfNoLengthMoveTheClock) {
    Bench bench;
    start_thread(bench.machine.host, "busy", [] {
        for (int i = 0; i < 2500; ++i)
            sleep_for(0);
        return DWORD{0};
    });
    bench.machine.settle();
    EXPECT_EQ(1u, bench.machine.now);
    bench.machine.advance(10);
    EXPECT_EQ(Run::Ended, bench.machine.threads.back()->run);
    EXPECT_EQ(11u, bench.machine.now);
}

TEST(Script, TheLinesAroundAFailure) {
    Bench bench;
    bench.started();
    const ScriptResult result = run_text("together\nrepeat 30\nevent 0x7000\nend\nevent 0x7101\nrepeat 30\n"
                                         "event 0x7000\nend\nend\nexpect request GETEVENT() = 0x7102 0x0");
    EXPECT_EQ("expected request GETEVENT() = 0x7102 0x0", result.message);
    EXPECT_EQ(21, std::count(result.context.begin(), result.context.end(), '\n'));
    EXPECT_NE(std::string::npos,
              result.context.find("nearest: 2.000 TerminalThread request GETEVENT() = 0x7101 0x0"))
        << result.context;
}

// Of the sanitizers where they are, which count for themselves.
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));
static size_t allocated() {
    const bool sanitized = __sanitizer_get_current_allocated_bytes != nullptr;
    return sanitized ? __sanitizer_get_current_allocated_bytes() : mallinfo2().uordblks;
}

TEST(Script, ManyEventsLeaveNoMemoryBehind) {
    Bench bench;
    bench.machine.forget_trace = true; // as zorpmsim does
    bench.started();
    const auto run_events = [] { EXPECT_EQ("", run_text("repeat 4000\nevent 0x7000\nend").message); };
    run_events();
    const size_t before = allocated();
    run_events();
    EXPECT_GT(before + 4096, allocated());
}

// Lines that no expectation can ask for are not kept until the next mark.
TEST(Script, LinesThatNobodyAsksForAreForgotten) {
    const std::string events = "together\nrepeat 3000\nevent 0x7000\nend\nend\n";
    for (const auto& [behind, kept] : std::initializer_list<std::pair<const char*, bool>>{
             {"", false},
             {"mark\nexpect no request DYTC*", false},
             {"check status RUNNING", false},
             {"expect count 3000 request GETEVENT() = 0x7000 0x0", true},
             {"repeat 2\nexpect count 3000 request GETEVENT() = 0x7000 0x0\nend", true},
         }) {
        Bench bench;
        bench.machine.forget_trace = true;
        bench.started();
        const size_t before = bench.machine.forgotten;
        EXPECT_EQ("", run_text(events + behind).message) << behind;
        EXPECT_EQ(kept, bench.machine.trace.size() > 200) << behind;
        EXPECT_LE(3000u, bench.machine.forgotten - before + bench.machine.trace.size()) << behind;
    }
}

// What a check of the machine at rest says at the end of a script; "" when all holds.
static std::string verdict(const std::string& script) {
    Bench bench;
    bench.machine.forget_trace = true; // as zorpmsim does
    const std::string thermal =
        "firmware DYTC(0) = 0x30000001\nfirmware DYTC = 1\nfirmware DYTC(3) = 0x03ff0001\n";
    return run_text(thermal + "start\nadvance 30s\n" + script).message;
}

TEST(Script, ResourcesAndOrders) {
    // The worker of cooling has four events and a thread; without it the handle of the last one stays.
    EXPECT_EQ("", verdict("check resources\ncontrol 137\ncontrol 136\nadvance 1m\ncheck resources"));
    EXPECT_TRUE(verdict("check resources\ncontrol 137\nadvance 1m\ncheck resources")
                    .starts_with("expected resources: "));
    const std::string two =
        "together\nfirmware GMMS = 3\nevent 0x60C0\ncontrol 134\nend\nwithin 5ms control 135\n";
    EXPECT_EQ("", verdict(two + "advance 1m\ncheck orders"));
    // The answer is still to come, which no order leaves.
    EXPECT_TRUE(verdict("firmware GMMS takes 10s\n" + two + "advance 5s\ncheck orders")
                    .starts_with("expected orders: none leaves SVC\\TMC\\MPH CurrentStatus"));
    EXPECT_NE("", verdict("check orders"));
}

TEST(Script, MistakesAreRefused) {
    for (const Refused& row : g_refused) {
        const std::string all = refusal(row.script) + "|";
        const std::string wanted = std::string(row.why) + "|";
        size_t at = 0;
        size_t fault = 0;
        for (size_t end = wanted.find('|'); end != std::string::npos;
             at = end + 1, end = wanted.find('|', at)) {
            const std::string part = wanted.substr(at, end - at);
            const size_t fault_end = all.find('|', fault);
            EXPECT_NE(std::string::npos, all.substr(fault, fault_end - fault).find(part))
                << row.script << all;
            fault = fault_end + 1;
        }
        EXPECT_EQ(all.size(), fault) << row.script << ": " << all;
    }
}
