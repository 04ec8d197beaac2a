// The watches when the platform does not give them what they need. What clients do is in
// scenarios/hotkeys.txt.
#include "tests/support/bench.h"

// Writes one mask for each page; which of the pages reach the firmware shows in the numbers 1, 33 and 34.
static const char WRITE_ALL[] = R"(
    mark | registry set SVC\Parameters\CurrentSetting @ dword 1
    registry set SVC\Parameters2\Type10\CurrentSetting @ dword 1
    registry set SVC\Parameters2\Type10\CurrentSetting Type13 dword 2
)";

TEST(HotkeyWatch, AWatchWithoutItsEventSleepsForGood) {
    // An object of another kind has the event's name: the event cannot be created.
    const struct {
        const WCHAR* name;
        const char* script;
        const char* missing = "";
    } cases[] = {
        {L"Global\\PHThread", R"(
            expect no request MHKM(1, * | expect request MHKM(33, 1)
            expect request MHKM(34, 1))"},
        {L"Global\\PHOverrideThread", R"(
            expect count 3 request MHKM* | registry set SVC\Parameters\OverrideSetting @ dword 0x800
            event 0x100C | expect call *)"},
        // The extended ones end with the first that cannot be had.
        {L"Global\\PHType12Thread", "expect count 1 request MHKM*\nexpect request MHKM(1, 1)"},
        {L"Global\\PHType12OverrideThread", "expect count 2 request MHKM*\nexpect request MHKM(33, 1)"},
        {L"Global\\PHType13Thread", "expect count 2 request MHKM*\nexpect request MHKM(33, 1)"},
        {L"Global\\PHType13OverrideThread", "expect count 3 request MHKM*", "PHType13OverrideThreadProc"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(sim::narrow(row.name));
        Bench bench;
        HANDLE taken = CreateMutexW(nullptr, FALSE, row.name);
        bench.run("start\n" + std::string(WRITE_ALL) + row.script);
        EXPECT_EQ(0u, live_threads(*row.missing != '\0' ? row.missing : "no such thread"));
        bench.run(R"(
            advance 1d | stop | check status STOPPED 0/0)");
        CloseHandle(taken);
    }
}

TEST(HotkeyWatch, AnEventThatOthersSignalWakesOnceAndChangesNothing) {
    Bench bench;
    // Another program has the events already: such that stay signalled until they are reset.
    HANDLE events[] = {CreateEventW(nullptr, TRUE, TRUE, L"Global\\PHThread"),
                       CreateEventW(nullptr, TRUE, TRUE, L"Global\\PHOverrideThread")};
    bench.run(R"(
        firmware MHKN(1) = 0x4 | start | expect no request MHKM*)");
    bench.machine.count_calls = true;
    for (HANDLE event : events) {
        std::vector<int> renewed; // the key, at these passes
        bench.machine.call_counts.clear();
        bench.machine.fail_name = "RegOpenKeyExW"; // then at the next one
        bench.machine.fail_countdown = 1;
        for (int pass = 1; pass <= 101; ++pass) {
            SetEvent(event);
            bench.machine.settle();
            if (bench.machine.call_counts["RegOpenKeyExW"] != renewed.size())
                renewed.push_back(pass);
        }
        EXPECT_EQ((std::vector<int>{50, 51, 101}), renewed);
    }
    bench.run(R"(
        expect no request MHKM*
        registry set SVC\Parameters\CurrentSetting @ dword 0x5 | expect next request MHKM(1, 1)
        expect count 1 request MHKM*
        registry set SVC\Parameters\OverrideSetting @ dword 0x800 | event 0x100C | expect no call *)");
    for (HANDLE event : events)
        CloseHandle(event);
}

// One mask change costs what the firmware and the registry need for it, and nothing more.
TEST(HotkeyWatch, AMaskChangeTakesSevenCalls) {
    Bench bench;
    bench.started();
    bench.machine.count_calls = true;
    bench.run("registry set SVC\\Parameters\\CurrentSetting @ dword 1");
    std::string calls;
    for (const char* call : {"CreateFileW", "RegQueryValueExW", "DeviceIoControl", "ResetEvent",
                             "RegNotifyChangeKeyValue", "CloseHandle", "WaitForSingleObject"}) {
        EXPECT_EQ(1u, bench.machine.call_counts[call]) << call;
        bench.machine.call_counts.erase(call);
    }
    for (const auto& [call, count] : bench.machine.call_counts) {
        if (call != "OutputDebugStringW")
            ADD_FAILURE() << call << " " << count;
    }
}

// No handle is left behind, however often clients change their minds.
TEST(HotkeyWatch, ChangesLeaveNothingOpen) {
    Bench bench;
    bench.started();
    bench.run(WRITE_ALL);
    const size_t open = sim::handle_count();
    for (DWORD i = 0; i < 50; ++i) {
        sim::registry_set_dword("SVC\\Parameters\\CurrentSetting", "@", i);
        sim::registry_set_dword("SVC\\Parameters\\OverrideSetting", "@", i);
        sim::registry_set_dword("SVC\\Parameters2\\Type10\\CurrentSetting", i % 2 != 0 ? "@" : "Type13", i);
        bench.machine.settle();
    }
    EXPECT_EQ(open, sim::handle_count());
}
