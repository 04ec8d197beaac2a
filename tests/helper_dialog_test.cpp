// The service's monitor-off request: without effect from Vista on, the dialog and its manoeuvre before.
#include "sim/windows/desktop.h"
#include "sim/windows/messages.h"
#include "sim/windows/modules.h"
#include "sim/windows/power.h"
#include "tests/support/sweep.h"

static const std::string g_index = R"(
    registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy sz "3"
)";
// A service before Vista whose user has scheme 3 in use.
static const std::string g_world = "windows version 5.2\n" + g_index + R"(
    registry set "HKU\.DEFAULT\Control Panel\PowerCfg\PowerPolicies\3" Policies binary 0102030405
    start | advance 2s
)";

static const ScriptCase g_withoutEffect[] = {
    {"from Vista on", R"(
        start | advance 1s | control 130 | advance 1h | expect no *)"},
    {"nor has hot key 3", R"(
        start | advance 1s | event 0x1003 | advance 1h | expect no dialog *)"},
    {"the user is looked up nevertheless", R"(
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "X"
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"
        windows account anna S-1-5-21-1-2-3-1001
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1-2-3-1001" ProfileImagePath expand "%SystemDrive%\Users\Anna"
        windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4"
        start | advance 1s | control 130
        expect next call RegLoadKeyW("S-1-5-21-1-2-3-1001", "C:\Users\Anna\ntuser.dat") = 0
        expect no dialog *)"},
    {"no index", R"(
        windows version 5.2 | registry delete "HKU\.DEFAULT\Control Panel\PowerCfg" | start
        advance 1s | control 130 | advance 1h | expect no *)"},
    {"another session has the console", R"(
        windows version 5.2 | windows console-session 1 | start | advance 1s | control 130
        advance 1h | expect no *)"},
    {"its session is unknown", R"(
        windows version 5.2 | start | advance 1s | fail ProcessIdToSessionId | control 130
        advance 1h | expect no *)"},
    {"no input desktop", R"(
        windows version 5.2 | windows desktop refused | start | advance 1s | control 130
        expect no *)"},
    {"a failed switch skips its showing only", R"(
        windows version 5.2 | start | advance 1s | fail SetThreadDesktop | control 130
        expect count 1 dialog 101 opened
        input key | expect dialog 101 ended 1)"},
    {"so does an unknown desktop of its own", R"(
        windows version 5.2 | start | advance 1s | fail GetThreadDesktop | control 130
        expect count 1 dialog 101 opened
        input key | expect next call SetActivePwrScheme(3, null, null) = 1 | expect dialog 101 ended 1
        advance 1h | expect no dialog 101 opened)"},
};

TEST(MonitorOff, RequestsWithoutEffect) {
    run_cases(g_index, g_withoutEffect);
}

static const ScriptCase g_showings[] = {
    {"until a key is pressed", R"(
        control 130 | expect next window input desktop opened 0x1ff
        expect next window thread desktop input | expect next dialog 101 opened
        expect next window 101 placed 267 280 266 95 top shown
        expect next call SetCursorPos(400, 310)
        expect next window 101 placed 267 280 266 95 topmost | expect next call SendInput(0x2)
        expect next call SendInput(0x4) | expect next window 101 focus
        expect next window 101 foreground | expect next window 1001 hidden
        advance 199ms | expect no dialog 101 ended*
        advance 1ms | expect next call SetCursorPos(400, 310) | expect next window 101 capture
        expect next dialog 101 ended 1 | expect next window thread desktop first
        expect next window input desktop opened 0x1ff | expect next window thread desktop input
        expect next dialog 101 opened
        advance 200ms | expect call SetCursorPos(400, 310) | expect call SetCursorPos(400, 310)
        expect next window 101 capture
        advance 199ms | expect no call SetActivePwrScheme*
        advance 1ms
        expect next registry HKU\.DEFAULT\Control Panel\PowerCfg\PowerPolicies\3 Policies = *
        expect next registry create HKU\.DEFAULT\Control Panel\PowerCfg\GlobalPowerPolicy
        expect next registry HKU\.DEFAULT\Control Panel\PowerCfg\GlobalPowerPolicy Policies = *
        expect next call SetActivePwrScheme(3, null, null) = 1
        expect next registry HKU\.DEFAULT\Control Panel\PowerCfg\PowerPolicies\3 Policies = 0102030405*
        advance 1h | expect count 1 dialog 101 ended 1 | expect count 1 call SetActivePwrScheme*
        input key | expect next call SetActivePwrScheme(3, null, null) = 1
        expect next dialog 101 ended 1 | expect next window thread desktop first
        advance 1h | expect count 1 call *)"},
    {"a key in the first showing brings the second at once, without reactivation", R"(
        control 130 | input key | expect next dialog 101 ended 1 | expect dialog 101 opened
        expect no call SetActive*)"},
    {"a key before the manoeuvre still reactivates", R"(
        control 130 | advance 200ms | input right
        expect next call SetActivePwrScheme(3, null, null) = 1 | expect next dialog 101 ended 1
        advance 1h | expect count 1 call SetActive* | expect no registry *)"},
    {"the middle button", R"(
        control 130 | advance 1s | input middle | expect dialog 101 ended 1)"},
    {"a system command", R"(
        control 130 | advance 1s | input system 0xF060 | expect dialog 101 ended 1)"},
    {"the screen saver is none", R"(
        control 130 | advance 1s | input system 0xF140 | input system 0xF142
        expect no dialog *
        input key | expect dialog 101 ended 1)"},
    {"its own click is one of two tolerated events, a move the other", R"(
        control 130 | advance 1s | input move 10 20 | expect no dialog *
        input move 10 20 | input move 10 20 | expect no dialog *
        input move 11 20 | expect dialog 101 ended 1)"},
    {"to and fro counts", R"(
        control 130 | advance 1s | input move 10 20 | expect no dialog *
        input move 400 310 | expect dialog 101 ended 1)"},
    {"swapped buttons", R"(
        windows buttons swapped | control 130 | expect call SendInput(0x8)
        expect next call SendInput(0x10)
        advance 1s | input move 10 20 | expect no dialog *
        input left | expect dialog 101 ended 1)"},
    {"no work area: as the resource places it, until there is input", R"(
        windows work-area fails | control 130 | expect dialog 101 opened | expect no call *
        advance 1h | expect no dialog 101 ended*
        input left | input left | expect no dialog *
        input left | expect next dialog 101 ended 1 | expect dialog 101 opened
        input key | expect next call SetActivePwrScheme(3, null, null) = 1
        expect next dialog 101 ended 1)"},
    {"a second request is refused and disturbs nothing", R"(
        control 130 | advance 250ms
        registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy sz "5"
        control 130 | expect no dialog *
        event 0x1003 | expect no dialog *
        advance 50ms | expect no dialog *
        input key | expect next call SetActivePwrScheme(3, null, null) = 1
        expect next dialog 101 ended 1
        control 130 | expect dialog 101 opened)"},
    {"foreground and capture refused: it goes on", R"(
        windows foreground refused | windows capture refused | control 130
        expect window 101 foreground refused | expect next window 1001 hidden
        advance 600ms | expect window 101 capture refused | expect dialog 101 ended 1
        expect window 101 capture refused | expect call SetActivePwrScheme(3, null, null) = 1
        input key | expect dialog 101 ended 1)"},
    {"hot key 3 asks for it too", "event 0x1003\nexpect dialog 101 opened"},
    {"a scheme that cannot be read is left alone", R"(
        registry delete "HKU\.DEFAULT\Control Panel\PowerCfg\PowerPolicies\3" | control 130
        advance 1s | expect no registry * | expect no call SetActive*)"},
    {"only the low 29 bits of an index count when it comes back", R"(
        registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy sz "536870919"
        windows scheme 7 | control 130 | advance 250ms | input key
        expect next call SetActivePwrScheme(7, null, null) = 1)"},
    {"and all of them", R"(
        registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy sz "536870911"
        control 130 | advance 250ms | input key
        expect next call SetActivePwrScheme(536870911, null, null) *)"},
    {"a system without sessions has only the console", R"(
        windows console-session 9 | fail GetProcAddress 2 | control 130
        expect dialog 101 opened)"},
};

TEST(MonitorOff, TwoShowings) {
    run_cases(g_world, g_showings);
}

// The window is in the middle of what the bars leave, the cursor half of its width from the screen's edge.
TEST(MonitorOff, BesideABarAtTheLeft) {
    Bench bench;
    sim::screen().work = {100, 54, 900, 600};
    bench.run(g_world + R"(
        control 130 | expect window 101 placed 367 280 266 95 top shown | expect next call SetCursorPos(400, 310))");
}

// The second request's own index, whoever is quicker.
TEST(MonitorOff, EachRequestHasItsIndex) {
    run_seeds(60, [](Bench& bench) {
        bench.run(g_world + R"(
            control 130 | advance 250ms | input key | advance 1s
            registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy sz "7"
            windows scheme 7 | mark | control 130 | advance 250ms | input key | advance 1s
            expect call SetActivePwrScheme(7, null, null) = 1
            expect no call SetActivePwrScheme(3, *)");
    });
}

TEST(MonitorOff, OneSecondIsInForceOnlyWhileTheMonitorIsOff) {
    Bench bench;
    std::string policy;
    for (int i = 0; i < 80; ++i)
        policy += sim::format("%02x", i + 1);
    bench.run("windows version 5.2\n" + g_index +
              "registry set \"HKU\\.DEFAULT\\Control Panel\\PowerCfg\\PowerPolicies\\3\" Policies binary " +
              policy + R"(
                  start | advance 1s | control 130 | advance 1s)");
    const size_t handles = sim::handle_count(sim::service_process());
    std::vector<BYTE> expected(80);
    for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = static_cast<BYTE>(i + 1);
    auto user = [] { return reinterpret_cast<const BYTE*>(&sim::power().applied); };
    EXPECT_EQ(0, std::memcmp(user(), expected.data(), 56));
    for (size_t field = 56; field < 72; field += 4)
        EXPECT_EQ(1u, user()[field] + user()[field + 1] + user()[field + 2] + user()[field + 3]);
    EXPECT_EQ(0, std::memcmp(user() + 72, expected.data() + 72, 8));
    bench.run("input key");
    EXPECT_EQ(0, std::memcmp(user(), expected.data(), 80));
    EXPECT_EQ(handles - 1, sim::handle_count(sim::service_process())); // the input desktop's
    EXPECT_EQ(0u, sim::loaded_modules());
}
