// The event pump and the table: fetching, notification, claims by clients, every row's action.
#include "driver/device.h"
#include "events/dispatch.h"
#include "tests/support/bench.h"
#include "tests/support/busy_machine.h"

TEST(Pump, FetchErrors) {
    const ScriptCase cases[] = {
        {"a failed fetch pauses 20 ms and keeps the record", R"(
            firmware GETEVENT fails | event 0x7000 | expect next request GETEVENT() failed
            expect no request GETEVENT() = *
            advance 20ms | expect request GETEVENT() = 0x7000 0x0
            check registry SVC\Parameters\Notification Type2 = 1)"},
        {"an empty answer is no event", R"(
            firmware GETEVENT bytes 0 | event 0x7000 | advance 1s
            check registry SVC\Parameters\Notification Type2 = 0)"},
        {"nor is one that is too long", R"(
            firmware GETEVENT bytes 9 | event 0x7000 | advance 1s
            check registry SVC\Parameters\Notification Type2 = 0)"},
        {"a short one is filled up with zeros", R"(
            firmware GETEVENT bytes 2 | event 0x7000 5
            expect request GETEVENT() = 0x7000 0x5 bytes 2
            check registry SVC\Parameters\Notification Type2 = 1)"},
        {"no device: 20 ms, then again", R"(
            driver secondary missing for 45ms | event 0x7000 | advance 59ms
            expect no request GETEVENT*
            advance 1ms | expect request GETEVENT() = 0x7000 0x0)"},
        {"no primary device: the event is dropped", R"(
            driver primary missing | event 0x7000 | expect next request GETEVENT() = 0x7000 0x0
            driver present | advance 1m | check registry SVC\Parameters\Notification Type2 = 0)"},
    };
    run_cases(R"(
        start | advance 1s | event 0x8000)",
              cases);
    Bench bench;
    sim::run_on_thread([] {
        HardwareEvent event = {1, 1};
        sim::set_driver_present(true, false);
        EXPECT_EQ(ERROR_INVALID_HANDLE, ChkHotkeyEvent(&event));
        EXPECT_EQ(0u, event.code);
        sim::set_driver_present(true, true);
        EXPECT_EQ(ERROR_BUFFER_OVERFLOW, ChkHotkeyEvent(&event)); // nothing is pending
        EXPECT_EQ(1u, DispatchHotKey({0x8000, 0}));
        EXPECT_EQ(0u, DispatchHotKey({0x8000, 1}));
        EXPECT_EQ(0u, DispatchHotKey({0x6011, 0}));
    });
}

TEST(Pump, EventsAreHandledOneByOneInTheirOrder) {
    Bench bench;
    bench.started();
    bench.run(R"(
        together | event 0x5001 | event 0x5002 | event 0x7000 | end
        expect request GETEVENT() = 0x5001 0x0
        expect registry SVC\Transform\CurrentStatus Lid = 0x1
        expect next request GETEVENT() = 0x5002 0x0
        expect registry SVC\Transform\CurrentStatus Lid = 0x2
        expect next request GETEVENT() = 0x7000 0x0
        check registry SVC\Parameters\Notification Type2 = 0x31
        advance 10s | check handles 0)");
    EXPECT_EQ(0u, sim::pending_events());
}

TEST(Pump, DriverSignals) {
    Bench bench;
    bench.started();
    bench.run(R"(
        signal Start | signal Sleep | signal Resume | expect no *
        event 0x7000 | expect request GETEVENT*
        signal Stop | expect next request UNREGISTEREVENTS(48 bytes)
        event 0x7000 | advance 1m | expect no request* | check status RUNNING
        stop | expect status STOPPED 0/0)");
}

// A paused pump leaves the driver's events as they are set: each has its own name. Then all but the last are
// reset, and at the driver's Stop the handles are closed.
TEST(Pump, EventsHaveTheirNames) {
    Bench bench;
    bench.started();
    bench.run("handler 2");
    static const std::string names[] = {"Start", "Sleep", "Resume", "Stop", "NotifyEvent"};
    const auto open = [](const std::string& name) {
        const auto wide = sim::widen("Global\\MestraPowerManagementDriverEventNotify" + name);
        return CreateEventW(nullptr, TRUE, FALSE, reinterpret_cast<LPCWSTR>(wide.c_str()));
    };
    const auto set = [&open](const std::string& name) {
        bool result = false;
        sim::run_on_thread([&] {
            HANDLE event = open(name);
            result = WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
            CloseHandle(event);
        });
        return result;
    };
    HANDLE kept[] = {open("Start"), open("Stop")};
    for (const std::string& name : names) {
        EXPECT_FALSE(set(name)) << name;
        bench.run(name == "NotifyEvent" ? "event 0x7000" : "signal " + name);
        EXPECT_TRUE(set(name)) << name;
    }
    const size_t handles = sim::handle_count(sim::service_process());
    bench.run("handler 3");
    EXPECT_EQ(handles - 5, sim::handle_count(sim::service_process()));
    EXPECT_FALSE(set("Start") || set("Stop"));
    for (HANDLE event : kept)
        CloseHandle(event);
}

TEST(Pump, AMissingEventNeitherSpinsNorStopsTheOthers) {
    // The five notification events are the last that the start creates.
    Bench bench;
    bench.machine.count_calls = true;
    bench.started();
    const std::uint64_t created = bench.machine.call_counts["CreateEventW"];
    for (std::uint64_t lost = 0; lost < 5; ++lost) {
        SCOPED_TRACE(lost);
        bench.run("stop");
        bench.machine.fail_name = "CreateEventW";
        bench.machine.fail_countdown = created - lost;
        bench.started();
        bench.machine.call_counts.clear();
        bench.run("advance 1m");
        EXPECT_LE(bench.machine.call_counts["WaitForMultipleObjects"], 31u);
        // Only with its own event lost does the pump not hear of events.
        bench.run(lost == 0 ? R"(
            event 0x7000 | expect no request* | check status RUNNING)"
                            : "event 0x7000\nexpect request GETEVENT() = 0x7000 0x0");
        // What there is of them is closed at the driver's stop, unless the lost one tells of that.
        bench.run(lost == 3 ? "signal Stop | expect no request*"
                            : "signal Stop | expect request UNREGISTEREVENTS*");
    }
}

TEST(Pump, OneEventOfFive) {
    Bench bench;
    std::string taken;
    for (const char* name : {"Start", "Stop", "Sleep", "Resume"})
        taken += sim::format("windows object \"MestraPowerManagementDriverEventNotify%s\" mutex\n", name);
    bench.started(taken);
    bench.run("event 0x7000\nexpect request GETEVENT() = 0x7000 0x0");
}

TEST(Pump, WithoutAnyEventItSleeps) {
    // Another program has taken all five names for something else.
    Bench bench;
    std::vector<sim::ObjectRef> taken;
    for (const char* name : {"Start", "Stop", "Sleep", "Resume", "NotifyEvent"}) {
        taken.push_back(
            sim::make_object(sim::Kind::Mutex, std::string("MestraPowerManagementDriverEventNotify") + name));
        sim::open_handle(taken.back());
        sim::remember_named(taken.back());
    }
    bench.started();
    bench.machine.count_calls = true;
    bench.run(R"(
        advance 1m | event 0x7000 | expect no request*)");
    EXPECT_LE(bench.machine.call_counts["Sleep"], 31u);
    bench.run("stop\ncheck status STOPPED");
}

// ---- the table ----

namespace {

struct NotifyRow {
    DWORD code;
    const char* value; // Type2 or Type22
    DWORD k;
};

} // namespace

// clang-format off
static const NotifyRow g_notifyRows[] = {
    {0x0015, "Type2", 21}, {0x3006, "Type2", 8},  {0x4010, "Type2", 11}, {0x4011, "Type2", 12},
    {0x4012, "Type22", 3}, {0x4013, "Type22", 4}, {0x5001, "Type2", 5},  {0x5002, "Type2", 6},
    {0x5009, "Type2", 28}, {0x500A, "Type2", 29}, {0x500B, "Type2", 2},  {0x500C, "Type2", 3},
    {0x500D, "Type2", 15}, {0x5012, "Type22", 2}, {0x5020, "Type22", 1}, {0x5030, "Type2", 10},
    {0x6000, "Type2", 13}, {0x6001, "Type2", 23}, {0x6005, "Type2", 14}, {0x6020, "Type2", 31},
    {0x6030, "Type2", 9},  {0x6031, "Type22", 7}, {0x6032, "Type22", 8}, {0x6040, "Type2", 16},
    {0x6050, "Type2", 17}, {0x6060, "Type2", 18}, {0x6070, "Type2", 19}, {0x6080, "Type2", 20},
    {0x6090, "Type2", 22}, {0x60A0, "Type2", 25}, {0x60B0, "Type2", 26}, {0x60B1, "Type2", 27},
    {0x60C0, "Type2", 30}, {0x60D0, "Type2", 24}, {0x60E0, "Type22", 5}, {0x60F0, "Type22", 6},
    {0x7000, "Type2", 1},
};
// clang-format on

static const char g_type2Key[] = "SVC\\Parameters\\Notification";
static const char g_type22Key[] = "SVC\\Parameters2\\Type20\\Notification";

TEST(Table, EachEventFlipsItsOwnNotificationBitOnce) {
    Bench bench;
    bench.started();
    for (const NotifyRow& row : g_notifyRows) {
        SCOPED_TRACE(row.code);
        const bool type2 = std::string(row.value) == "Type2";
        const DWORD before2 = sim::registry_dword(g_type2Key, "Type2");
        const DWORD before22 = sim::registry_dword(g_type22Key, "Type22");
        sim::post_event(row.code);
        bench.machine.settle();
        EXPECT_EQ(before2 ^ (type2 ? 1u << (row.k - 1) : 0), sim::registry_dword(g_type2Key, "Type2"));
        EXPECT_EQ(before22 ^ (type2 ? 0 : 1u << (row.k - 1)), sim::registry_dword(g_type22Key, "Type22"));
        // Bits 8 to 11 do not matter to the table, all others do.
        sim::post_event(row.code ^ 0x400);
        sim::post_event(row.code ^ 0x10000);
        bench.machine.settle();
        EXPECT_EQ(before2, sim::registry_dword(g_type2Key, "Type2"));
        EXPECT_EQ(before22, sim::registry_dword(g_type22Key, "Type22"));
    }
}

// Every operation of a row shows by its first effect; the notification stands before or behind it.
static const ScriptCase g_rowActions[] = {
    {"dock", R"(
        event 0x4010 | expect registry SVC\Parameters\Notification Type2 = 0x400
        expect next request DOCKMODE(0x0) = 0x0
        event 0x4011 | expect registry SVC\Parameters\Notification Type2 = 0xc00
        expect next request DOCKMODE(0x0) = 0x0)"},
    {"the primary device stays open until the action has ended", R"(
        firmware DOCKMODE takes 1s | event 0x4010 | check handles 2 | advance 1s | check handles 0)"},
    {"option", R"(
        event 0x4012 | expect request GOPT(0x0) = 0x102 | expect request GOPT(0x200) = 0x0
        expect request GOPT(0x200) = 0x0
        expect registry SVC\Parameters2\Type20\Notification Type22 = 0x4
        event 0x4013 | expect request GOPT(0x0) = 0x102 | expect request GOPT(0x200) = 0x0
        expect registry SVC\TMC\TIO CurrentStatus = 0x0 | expect request GOPT(0x200) = 0x0
        expect registry SVC\Parameters2\Type20\Notification Type22 = 0xc)"},
    {"lid", R"(
        event 0x5001 | expect registry SVC\Parameters\Notification Type2 = 0x10
        expect next request SETLIDBEEP(0x1)
        expect next registry SVC\Transform\CurrentStatus Lid = 0x1
        event 0x5002 | expect registry SVC\Parameters\Notification Type2 = 0x30
        expect next request SETLIDBEEP(0x0)
        expect next registry SVC\Transform\CurrentStatus Lid = 0x2
        registry delete SVC\Transform\CurrentStatus | event 0x5001
        expect request SETLIDBEEP(0x1) | expect no registry SVC\Transform*)"},
    {"pointing stick", R"(
        event 0x5007 | expect request MOUSEDATA(0x0)
        event 0x5008 | expect request MOUSEDATA(0x1)
        device stick missing | event 0x5008 | expect no request MOUSEDATA*)"},
    {"panel", R"(
        event 0x5010 | expect request PWMSET(0x0) = 0x0)"},
    {"graphics temperature", R"(
        event 0x6031 | expect registry SVC\Parameters2\Type20\Notification Type22 = 0x40
        expect next request DGPUTEMP(0x0) = 0x0)"},
    {"posture", R"(
        event 0x60C0 | expect registry SVC\Parameters\Notification Type2 = 0x20000000
        expect next request GMMS(0x0) = 0x1
        expect registry SVC\Transform\CurrentStatus MM = 0x1 | expect request GMMS(0x0) = 0x1
        expect registry SVC\TMC\MPH CurrentStatus = 0x1)"},
    {"hinge angle", R"(
        event 0x60F0 | expect registry SVC\Parameters2\Type20\Notification Type22 = 0x20
        expect next request THERMALMODE(0x0) = 0x0)"},
    {"forced sleep", R"(
        event 0x6012 | expect call SetSuspendState(0, 1, 1) = 1
        event 0x6022 | expect call SetSuspendState(0, 1, 1) = 1)"},
    {"hibernation", R"(
        event 0x100C | expect call SetSystemPowerState(0, 0) = 1)"},
    {"wake-up and bus disconnect", R"(
        event 0x2404 | event 0x3003 | advance 3s | expect call SetSystemPowerState(0, 0) = 1
        event 0x2105 | event 0x4003 | advance 3s | expect call SetSuspendState(0, 0, 1) = 1
        event 0x2204 | event 0x4003 | advance 3s | expect call SetSuspendState(0, 0, 1) = 1)"},
    {"battery", R"(
        event 0x2013 | advance 4999ms | expect no call*
        advance 1ms | expect call SetSuspendState(1, 1, 1) = 1)"},
    {"nothing", R"(
        event 0x2020 | expect next request GETEVENT* | expect next request MHKV*
        expect no registry*
        event 0x6011 | expect no registry*
        event 0x1003 | expect no call*
        event 0x8000 | expect no registry* | expect no call*)"},
};

TEST(Table, RowsRunTheirActionsInOrder) {
    const std::string setup = std::string(g_busyMachine) + R"(
        ini "C:\Windows\LidBeep.ini" LidCloseBeep Status 1 | start | advance 3s | mark)";
    run_cases(setup, g_rowActions);
}

// ---- classic hot keys and pages ----

static const ScriptCase g_keysAndPages[] = {
    {"any current setting makes every classic key visible", R"(
        firmware MHKN = 0x80 | start | advance 1s
        registry set SVC\Parameters\Notification @ dword 0 | event 0x1005
        check registry SVC\Parameters\Notification @ = 0x10
        event 0x1005 | check registry SVC\Parameters\Notification @ = 0
        event 0x1000 | check registry SVC\Parameters\Notification @ = 0x80000000
        event 0x1020 | check registry SVC\Parameters\Notification @ = 0
        event 0x1021 | check registry SVC\Parameters\Notification @ = 1
        event 0x1405 | check registry SVC\Parameters\Notification @ = 1)"},
    {"none hides them", R"(
        start | advance 1s | event 0x1005 | expect no registry*)"},
    {"an absent or strange value counts as 0, a missing key is not made", R"(
        firmware MHKN = 1 | start | advance 1s | registry delete SVC\Parameters\Notification @
        event 0x1001 | check registry SVC\Parameters\Notification @ = 1
        registry set SVC\Parameters\Notification @ raw 4 0102030405060708090a | event 0x1002
        check registry SVC\Parameters\Notification @ = 2
        registry delete SVC\Parameters\Notification | event 0x1002
        check registry SVC\Parameters\Notification absent)"},
    {"a second word leaves the classic notification alone", R"(
        firmware MHKN = 1 | start | advance 1s
        registry set SVC\Parameters\Notification @ dword 0 | event 0x100C 1
        check registry SVC\Parameters\Notification @ = 0x800 | expect no call*
        expect no request MHKV*
        event 0x5001 1 | expect no registry*)"},
    {"a claimed key has no action, and the firmware is not asked", R"(
        registry set SVC\Parameters\OverrideSetting @ dword 0x800 | firmware MHKN = 1 | start
        advance 1s | registry set SVC\Parameters\Notification @ dword 0 | event 0x100C
        expect no call* | expect no request MHKV*
        check registry SVC\Parameters\Notification @ = 0x800
        registry set SVC\Parameters\OverrideSetting @ sz "x" | event 0x100C | expect no call*
        registry set SVC\Parameters\OverrideSetting @ dword 0 | event 0x100C | expect call *)"},
    {"only keys 3 and 12 can be claimed", R"(
        registry set SVC\Parameters\OverrideSetting @ dword 0xfffff7ff | start | advance 1s
        event 0x100C | expect call SetSystemPowerState(0, 0) = 1
        event 0x1005 | expect request MHKV(0x0) = 0x200
        event 0x1003 | expect no request MHKV*)"},
    {"pages notify and do nothing else", R"(
        firmware MHKN(3) = 1 | start | advance 1s | event 0x1303
        check registry SVC\Parameters2\Type10\Notification Type13 = 5
        registry delete SVC\Parameters2\Type10\Notification Type13 | event 0x1303
        check registry SVC\Parameters2\Type10\Notification Type13 = 4
        event 0x110C | expect no registry* | expect no call*)"},
    {"page 2 likewise", R"(
        firmware MHKN(2) = 1 | start | advance 1s | event 0x1102
        check registry SVC\Parameters2\Type10\Notification Type12 = 3
        registry delete SVC\Parameters2\Type10\Notification Type12 | event 0x1102
        check registry SVC\Parameters2\Type10\Notification Type12 = 2
        event 0x130C | expect no registry* | expect no call*)"},
    {"without pages the code is looked up as a classic one", R"(
        start | advance 1s | firmware MHKV = 0x100 | event 0x130C
        expect call SetSystemPowerState(0, 0) = 1
        firmware MHKV fails | event 0x110C | expect call SetSystemPowerState(0, 0) = 1
        firmware MHKV = 0x300 | event 0x110C | expect call SetSystemPowerState(0, 0) = 1
        firmware MHKV = 0x200 | event 0x120C | expect call SetSystemPowerState(0, 0) = 1)"},
};

TEST(HotKeys, NotificationClaimsAndPages) {
    run_cases("", g_keysAndPages);
}

// A code that differs from a known one in one bit is another one: no row's, and no page's.
TEST(Table, EveryBitOfACodeCounts) {
    Bench bench;
    bench.started(
        "firmware MHKN(2) = 1\nfirmware MHKN(3) = 1\nfirmware GOPT(0) = 0x102\nfirmware GOPT(0x100) = 1\n");
    const std::string notification = "SVC\\Parameters2\\Type10\\Notification";
    for (const char* page : {"Type12", "Type13"})
        sim::registry_set(notification, page, REG_DWORD, std::vector<BYTE>(4));
    const size_t first = bench.machine.trace.size();
    for (unsigned bit = 10; bit < 16; ++bit) { // what stands above is no part of the page
        sim::post_event(0x1101u ^ 1u << bit);
        sim::post_event(0x1301u ^ 1u << bit);
    }
    for (unsigned bit = 16; bit < 32; ++bit)
        sim::post_event(0x4012u | 1u << bit);
    bench.machine.settle();
    EXPECT_EQ(0u, traced("request GOPT", first));
    for (const char* page : {"Type12", "Type13"})
        EXPECT_EQ(0, sim::registry_dword(notification, page)) << page;
}
