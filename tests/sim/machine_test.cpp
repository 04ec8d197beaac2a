// The simulated machine itself: where it and the platform's documentation could differ.
#include "tests/support/bench.h"

using namespace sim;

TEST(Sim, MisuseIsAViolationAndNullHandlesAreNone) {
    expect_violation("CloseHandle", [] {
        HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        EXPECT_TRUE(CloseHandle(event));
        EXPECT_FALSE(CloseHandle(event));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    });
    expect_violation("SetEvent", [] { SetEvent(CreateMutexW(nullptr, FALSE, nullptr)); });
    expect_violation("RegSetValueExW", [] {
        HKEY key = nullptr;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC", 0, KEY_READ,
                      &key);
        const DWORD value = 1;
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_ACCESS_DENIED),
                  RegSetValueExW(key, L"x", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), 4));
        RegCloseKey(key);
    });
    expect_violation("buffers of", [] {
        HANDLE device = CreateFileW(L"\\\\.\\ZORPmDrv", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    0, nullptr);
        DWORD value = 0;
        DWORD returned = 0;
        EXPECT_FALSE(DeviceIoControl(device, 0x22270C, &value, 2, &value, 4, &returned, nullptr));
        CloseHandle(device);
    });
    expect_violation("without a wait", [] {
        while (true)
            GetCurrentProcess(), CreateFileW(L"x", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    });
    Bench bench;
    run_on_thread([] {
        EXPECT_FALSE(CloseHandle(nullptr));
        EXPECT_FALSE(SetEvent(nullptr));
        EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE)); // the process itself: no effect
        EXPECT_FALSE(SetEvent(INVALID_HANDLE_VALUE));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(INVALID_HANDLE_VALUE, 0));
        EXPECT_FALSE(TerminateThread(nullptr, 0));
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(nullptr, 0));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    });
}

namespace {

struct Shared {
    HANDLE events[3];
    HANDLE mutex;
    int order;
};

} // namespace

TEST(Sim, Waits) {
    Bench bench;
    run_on_thread([] {
        HANDLE events[3];
        for (HANDLE& event : events)
            event = CreateEventW(nullptr, &event == &events[2], FALSE, nullptr);
        const Ms start = machine().now;
        EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(3, events, FALSE, 2000));
        EXPECT_EQ(start + 2000, machine().now);
        SetEvent(events[2]);
        SetEvent(events[1]);
        EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(3, events, FALSE, INFINITE)); // lowest index
        EXPECT_EQ(WAIT_OBJECT_0 + 2,
                  WaitForMultipleObjects(3, events, FALSE, INFINITE));             // auto-reset took it
        EXPECT_EQ(WAIT_OBJECT_0 + 2, WaitForMultipleObjects(3, events, FALSE, 0)); // manual stays
        EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(3, events, TRUE, 0));
        SetEvent(events[0]);
        SetEvent(events[1]);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(3, events, TRUE, 0));
        EXPECT_EQ(WAIT_TIMEOUT, SignalObjectAndWait(events[0], events[1], 10, FALSE));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(events[0], 0));
    });
}

TEST(Sim, SuspensionTerminationAndAbandonedMutexes) {
    Bench bench;
    static Shared shared;
    shared = {};
    run_on_thread([] {
        shared.events[0] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        shared.mutex = CreateMutexW(nullptr, FALSE, nullptr);
        HANDLE thread = CreateThread(
            nullptr, 0,
            [](LPVOID) -> DWORD {
                WaitForSingleObject(shared.mutex, INFINITE);
                WaitForSingleObject(shared.events[0], INFINITE);
                shared.order = 1;
                Sleep(INFINITE);
                return 0;
            },
            nullptr, 0, nullptr);
        Sleep(1);
        EXPECT_EQ(0u, SuspendThread(thread));
        SetEvent(shared.events[0]);
        Sleep(1000);
        EXPECT_EQ(0, shared.order); // it cannot take the event while suspended
        EXPECT_EQ(1u, ResumeThread(thread));
        Sleep(1);
        EXPECT_EQ(1, shared.order);
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeThread(thread, &code));
        EXPECT_EQ(STILL_ACTIVE, code);
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(shared.mutex, 5));
        TerminateThread(thread, 7);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 0));
        EXPECT_TRUE(GetExitCodeThread(thread, &code));
        EXPECT_EQ(7u, code);
        EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(shared.mutex, 0));
        EXPECT_TRUE(ReleaseMutex(shared.mutex));
        CloseHandle(thread);
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

TEST(Sim, RegistryRules) {
    Bench bench;
    run_on_thread([] {
        HKEY key = nullptr;
        DWORD disposition = 0;
        EXPECT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\A\\B", 0, nullptr, 0, KEY_ALL_ACCESS,
                                     nullptr, &key, &disposition));
        EXPECT_EQ(REG_CREATED_NEW_KEY, disposition);
        BYTE data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        EXPECT_EQ(0, RegSetValueExW(key, nullptr, 0, REG_BINARY, data, 8));
        DWORD size = 4;
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_MORE_DATA),
                  RegQueryValueExW(key, L"", nullptr, nullptr, data, &size));
        EXPECT_EQ(8u, size);
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND),
                  RegQueryValueExW(key, L"x", nullptr, nullptr, nullptr, nullptr));
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_ACCESS_DENIED),
                  RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\a"));
        EXPECT_EQ(0, RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\a\\b"));
        // A handle outlives its key, and says so.
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_KEY_DELETED), RegSetValueExW(key, L"y", 0, REG_BINARY, data, 8));
        RegCloseKey(key);
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND),
                  RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\a\\b", 0, KEY_READ, &key));
    });
    // Refusing a key makes neither it nor what it would lie below, and takes away none that is there.
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
