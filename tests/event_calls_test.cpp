// What each event's row costs, call by call, so that a call too many is seen.
#include <map>

#include "tests/support/bench.h"
#include "tests/support/busy_machine.h"

namespace {

struct Cost {
    std::initializer_list<DWORD> codes;
    const char* calls; // from the driver's signal until the pump waits again
};

#define EVENT_ROW(code, ...) code,
constexpr DWORD g_rows[] = {
#include "events/event_rows.h"
};
#undef EVENT_ROW

const Cost g_costs[] = {
    {{}, ""},
};

std::string calls_of(DWORD code) {
    Bench bench;
    bench.started(std::string(g_busyMachine) +
                  "firmware PWMGET = 200\nfirmware MHKN = 1\nwindows graphics present\n");
    bench.machine.count_calls = true;
    sim::post_event(code);
    bench.machine.settle();
    std::map<std::string, std::uint64_t> sorted(bench.machine.call_counts.begin(),
                                                bench.machine.call_counts.end());
    sorted.erase("OutputDebugStringW");
    std::string text;
    for (const auto& [call, count] : sorted)
        text += (text.empty() ? "" : " ") + call + (count > 1 ? "*" + std::to_string(count) : "");
    return text;
}

TEST(Events, EachRowsCalls) {
    std::map<DWORD, std::string> expected;
    for (const Cost& cost : g_costs) {
        for (const DWORD code : cost.codes)
            expected[code] = cost.calls;
    }
    for (const DWORD code : g_rows)
        EXPECT_EQ(expected[code], calls_of(code)) << sim::format("0x%04X", code);
}

} // namespace
