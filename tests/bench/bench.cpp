// Figures that are measured, not asserted: calls per event, speed of the pump, idle time, switches.
#include <chrono>
#include <cstdio>
#include <map>

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
    const double seconds = seconds_since(start);
    std::printf("\nevents through the pump                  %10.0f per second\n", events / seconds);
}

static void idle_year() {
    Machine machine;
    start_machine();
    const auto start = Clock::now();
    const std::uint64_t switches = machine.switches;
    machine.advance(Ms{365} * 86400 * 1000);
    const double seconds = seconds_since(start);
    std::printf("a year with the service idle             %10.2f s\n", seconds);
    std::printf("simulated time per real second, idle     %10.1f days\n", 365 / seconds);
    std::printf("fiber switches while idle                %10.0f per second\n",
                static_cast<double>(machine.switches - switches) / seconds);
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
    std::printf("fiber switches, two threads handing over %10.0f per second\n",
                static_cast<double>(machine.switches) / seconds_since(start));
}

int main() {
    calls_per_event();
    pump_speed();
    idle_year();
    switch_speed();
    return 0;
}
