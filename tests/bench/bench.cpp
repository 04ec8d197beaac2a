// Figures that are measured, not asserted: calls per event; speed and memory, beside what they were.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/machine/machine.h"
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"
#include "sim/windows/scm.h"
#include "tests/support/busy_machine.h"

using namespace sim;
using Clock = std::chrono::steady_clock;

static double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A machine on which every event's row has work to do.
static const std::string g_machine = std::string(g_busyMachine) + R"(
    firmware PWMGET = 200
    firmware MHKN = 1
    windows graphics present
    start
    advance 5s)";

static void start_machine() {
    const ScriptResult result = run_text(g_machine);
    if (result.exit_code != 0)
        std::printf("the bench does not start: %s\n", result.message.c_str());
}

namespace {

struct Group {
    const char* name;
    std::initializer_list<const char*> calls;
};

} // namespace

static std::uint64_t count_of(const Group& group) {
    std::uint64_t count = 0;
    for (const char* call : group.calls) {
        const auto found = machine().call_counts.find(call);
        count += found != machine().call_counts.end() ? found->second : 0;
    }
    return count;
}

static const Group g_groups[] = {
    {"opens", {"CreateFileW"}},
    {"requests", {"DeviceIoControl", "ReadFile", "WriteFile"}},
    {"reg opens", {"RegOpenKeyExW", "RegCreateKeyExW"}},
    {"reg reads", {"RegQueryValueExW"}},
    {"reg writes", {"RegSetValueExW", "RegDeleteKeyW", "RegDeleteValueW"}},
    {"closes", {"CloseHandle", "RegCloseKey"}},
};

// Events whose action waits: battery wake-up and bus disconnect.
static Ms pause_of(DWORD code) {
    return code == 0x2013 ? 5000 : code == 0x3003 || code == 0x4003 ? 3000 : 0;
}

static void calls_per_event() {
    static const DWORD codes[] = {
        0x0015, 0x1003, 0x100C, 0x2004, 0x2005, 0x2013, 0x2020, 0x3003, 0x4003, 0x3006, 0x4010,
        0x4011, 0x4012, 0x4013, 0x5001, 0x5002, 0x5007, 0x5008, 0x5009, 0x500A, 0x500B, 0x500C,
        0x500D, 0x5010, 0x5012, 0x5020, 0x5030, 0x6000, 0x6001, 0x6005, 0x6011, 0x6012, 0x6020,
        0x6022, 0x6030, 0x6031, 0x6032, 0x6040, 0x6050, 0x6060, 0x6070, 0x6080, 0x6090, 0x60A0,
        0x60B0, 0x60B1, 0x60C0, 0x60D0, 0x60E0, 0x60F0, 0x7000, 0x1005, 0x1101, 0x1301, 0x8000};
    std::printf(
        "platform calls per event (fetch, dispatch, action; the wait between events included)\n\n  event ");
    for (const Group& group : g_groups)
        std::printf("%11s", group.name);
    std::printf("%11s%11s\n", "other", "all");
    Machine machine;
    start_machine();
    machine.count_calls = true;
    for (const DWORD code : codes) {
        machine.call_counts.clear();
        post_event(code);
        machine.settle();
        machine.advance(pause_of(code)); // the event thread sleeps for exactly that long
        std::uint64_t all = 0;
        for (const auto& [name, count] : machine.call_counts)
            all += count;
        std::printf("  0x%04x", code);
        std::uint64_t grouped = 0;
        for (const Group& group : g_groups) {
            grouped += count_of(group);
            std::printf("%11llu", static_cast<unsigned long long>(count_of(group)));
        }
        std::printf("%11llu%11llu\n", static_cast<unsigned long long>(all - grouped),
                    static_cast<unsigned long long>(all));
    }
}

// ---- the table ----

static void put_row(const char* what, const char* unit, double now, const char* before) {
    std::printf("  %-46s %12.*f   %-14s %s\n", what, now < 10 ? 2 : 0, now, before, unit);
    std::fflush(stdout);
}

static void pump_speed() {
    Machine machine;
    start_machine();
    machine.keep_trace = false;
    constexpr unsigned events = 200000;
    const auto start = Clock::now();
    unsigned posted = 0;
    // The driver always has one more.
    while (posted < events) {
        for (int i = 0; i < 500; ++i, ++posted)
            post_event(0x7000);
        machine.settle();
        machine.advance(10);
    }
    put_row("events through the pump", "per second", events / seconds_since(start), "100000-110000");
}

static void idle_year() {
    Machine machine;
    start_machine();
    const auto start = Clock::now();
    machine.advance(Ms{365} * 86400 * 1000);
    put_row("a year with the service idle", "seconds", seconds_since(start), "3.6");
}

static void switch_speed() {
    Machine machine;
    constexpr int rounds = 500000;
    const auto start = Clock::now();
    for (int thread = 0; thread < 2; ++thread)
        start_thread(machine.host, "switcher", [] {
            for (int i = 0; i < rounds; ++i) {
                sleep_for(0);
                current()->zero_waits = 0;
            }
            return DWORD{0};
        });
    machine.settle();
    put_row("fiber switches, two threads handing over", "per second",
            static_cast<double>(machine.switches) / seconds_since(start), "-");
}

namespace {

struct Cost {
    double wall_s = 0;
    double user_s = 0; // of processor
    long megabytes = 0;
};

} // namespace

static std::string g_directory; // of the programs

// Runs one of the programs, silently.
static Cost cost_of(const std::string& command) {
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const std::string line = "exec " + g_directory + command + " >/dev/null 2>&1";
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0)
        std::printf("  it fails: %s\n", command.c_str());
    const double user_s =
        static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
    return {seconds_since(start), user_s, usage.ru_maxrss / 1024};
}

static std::string script_file(const char* text) {
    std::string path = g_directory + "bench_script.txt";
    std::ofstream(path) << text;
    return path;
}

static void seeds_per_second() {
    static const struct {
        const char* name;
        const char* test;
        double seeds;
        const char* before;
    } rows[] = {
        {"seeds of the core sweep", "CoreSweep.AThousandSchedules", 1000, "270-304"},
        {"seeds of cooling's", "CoolingSweep.ManySchedules", 1000, "271"},
        {"seeds of the form factor's", "FormFactorSweep.RefreshAgainstEvents", 1000, "227"},
        {"seeds of lid inhibit's", "FormFactorSweep.LidInhibit", 200, "54"},
        {"seeds of the hot keys'", "HotkeySweep.TheLastMaskReachesTheFirmware", 1000, "410"},
    };
    for (const auto& row : rows)
        put_row(row.name, "per second of processor",
                row.seeds / cost_of(std::string("zorpm_sweeps --gtest_filter=") + row.test).user_s,
                row.before);
}

static void searches() {
    const std::string race = script_file("start\nadvance 5s\ntogether\ncontrol 133\nevent 0x60C0\nend\n"
                                         "advance 1h\ncheck status RUNNING\n");
    constexpr unsigned seeds = 4000;
    const std::string search = format("zorpmsim --seeds %u %s", seeds, race.c_str());
    const double one = cost_of(search + " --jobs 1").wall_s;
    put_row("zorpmsim --seeds, one processor", "seeds per second", seeds / one, "-");
    put_row("  all processors against one (aim: 1.8 of two)", "times", one / cost_of(search).wall_s, "-");
    script_file("start\nadvance 5s\nrepeat 1000000\nevent 0x7000\nend\ncheck status RUNNING\n");
    put_row("memory at a million events", "MB", static_cast<double>(cost_of("zorpmsim " + race).megabytes),
            "512");
}

// Schedules a second, of a block that `--explore` runs to its end.
static void exploration() {
    const std::string block = script_file("start\nadvance 5s\ntogether\ncontrol 133\nevent 0x60C0\nend\n"
                                          "advance 1s\ncheck status RUNNING\n");
    const auto start = Clock::now();
    FILE* answer = popen((g_directory + "zorpmsim --explore --limit 500 " + block).c_str(), "r");
    unsigned long schedules = 0;
    char line[512];
    while (answer != nullptr && std::fgets(line, sizeof(line), answer) != nullptr) {
        const char* colon = std::strstr(line, ": ");
        if (colon != nullptr && std::strstr(line, " schedules") != nullptr)
            schedules = std::strtoul(colon + 2, nullptr, 10);
    }
    if (answer != nullptr)
        pclose(answer);
    put_row("schedules explored", "per second", static_cast<double>(schedules) / seconds_since(start), "-");
}

int main(int, char** arguments) {
    const std::string own = arguments[0];
    g_directory = own.substr(0, own.rfind('/') + 1);
    calls_per_event();
    std::printf("\n  %-46s %12s   %s\n\n", "", "now", "before");
    pump_speed();
    idle_year();
    switch_speed();
    seeds_per_second();
    searches();
    exploration();
    std::remove((g_directory + "bench_script.txt").c_str());
    return 0;
}
