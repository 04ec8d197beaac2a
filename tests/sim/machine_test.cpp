// The simulated machine itself: where it and the platform's documentation could differ.
#include "tests/support/bench.h"

using namespace sim;

TEST(Sim, MisuseIsAViolation) {
    expect_violation("buffers of", [] {
        HANDLE device = CreateFileW(L"\\\\.\\ZORPmDrv", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    0, nullptr);
        DWORD value = 0;
        DWORD returned = 0;
        EXPECT_FALSE(DeviceIoControl(device, 0x22270C, &value, 2, &value, 4, &returned, nullptr));
        CloseHandle(device);
    });
    expect_violation("is not open", [] {
        HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event, 0));
        CloseHandle(event);
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(event, 0));
    });
    expect_violation("without a wait", [] {
        while (true)
            GetCurrentProcess(), CreateFileW(L"x", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    });
}

TEST(Sim, WaitsOfNoLengthMoveTheClock) {
    Bench bench;
    run_on_thread([] {
        const Ms start = machine().now;
        for (int i = 0; i < 2500; ++i)
            Sleep(0);
        EXPECT_EQ(start + 2, machine().now);
    });
}

// Refusing a key makes neither it nor what it would lie below, and takes away none that is there.
TEST(Sim, RefusedKeys) {
    Bench bench;
    registry_create("HKLM\\Software\\A");
    registry_refuse("HKLM\\Software\\C\\D");
    registry_refuse("HKLM\\software\\A");
    EXPECT_FALSE(registry_has_key("HKLM\\Software\\C"));
    EXPECT_TRUE(registry_has_key("HKLM\\Software\\A"));
    run_on_thread([] {
        HKEY key = nullptr;
        for (const WCHAR* path : {L"SOFTWARE\\C\\D", L"SOFTWARE\\a", L"SOFTWARE\\A\\E"})
            EXPECT_EQ(static_cast<LSTATUS>(ERROR_ACCESS_DENIED),
                      RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                                      nullptr));
    });
}

TEST(Sim, TheSameSeedGivesTheSameTraceAndSeedsDiffer) {
    auto hash_of = [](std::uint64_t seed) {
        Bench bench(seed);
        bench.run(R"(
            together
            start
            end
            advance 2s
            together
            control 133
            handler power resume
            event 0x60C0
            event 0x5001
            control 131
            end
            advance 10s
            stop)");
        return bench.machine.trace_hash;
    };
    EXPECT_EQ(hash_of(5), hash_of(5));
    std::vector<std::uint64_t> hashes;
    for (std::uint64_t seed = 0; seed < 20; ++seed)
        hashes.push_back(hash_of(seed));
    std::sort(hashes.begin(), hashes.end());
    EXPECT_LT(5, std::unique(hashes.begin(), hashes.end()) - hashes.begin());
}

TEST(Sim, PatternsAndMarks) {
    const ScriptCase cases[] = {
        {"order", R"(
            event 0x5001
            expect REQUEST getevent() = 0x5001 *
            expect registry SVC\Transform\CurrentStatus Lid = 0x1
            expect no request GETEVENT() = 0x5002*
            expect count 1 request GETEVENT*
            mark
            expect no *)"},
        {"a lone quote in a pattern, and what was refused", R"(
            expect registry * PrevMode = "UNK*
            expect next * CurrentMode = 0x1
            signal Stop
            signal Sleep
            expect next refused signal Sleep)"},
        {"numbered answers come before the lasting one", R"(
            firmware LCDCSGETSTATE = 5
            firmware LCDCSGETSTATE = 6 times 1
            firmware LCDCSGETSTATE fails times 1
            control 133
            expect request LCDCSGETSTATE() = 0x6
            control 133
            expect request LCDCSGETSTATE() failed
            control 133
            expect request LCDCSGETSTATE() = 0x5)"},
    };
    run_cases("start\nadvance 1s", cases);
    Bench bench;
    EXPECT_EQ(1, run_text("start\nexpect next refused stop").exit_code);
    EXPECT_EQ(1, run_text("start\nexpect no refused start").exit_code);
    const std::string check = "check registry HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion = ";
    EXPECT_EQ(0, run_text("\xEF\xBB\xBF" + check + "\"Q1AET40W\"").exit_code);
    EXPECT_EQ(1, run_text(check + "\"q1aet40w\"").exit_code);
    EXPECT_EQ(0, run_text("registry set HKLM\\X D dword 010\ncheck registry HKLM\\X D = 010").exit_code);
    EXPECT_EQ("expected registry HKLM\\Y present", run_text("check registry HKLM\\Y present").message);
}
