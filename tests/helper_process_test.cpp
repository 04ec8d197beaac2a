// The helper process: its window, its six commands, the store that it shares with its clients.
#include "sim/windows/desktop.h"
#include "sim/windows/messages.h"
#include "sim/windows/modules.h"
#include "sim/windows/power.h"
#include "tests/support/bench.h"

static const std::string g_store = "HKCR\\QWRSAUTO.PMHELPER\\";

static const ScriptCase g_commands[] = {
    {"the global policy is saved", R"(
        helper 1 | expect next registry create HKCR\QWRSAUTO.PMHELPER\GlobalPowerPolicy
        expect next registry HKCR\QWRSAUTO.PMHELPER\GlobalPowerPolicy Policies = *
        expect next result helper 1 = 0)"},
    {"unless it cannot be read", R"(
        fail ReadGlobalPwrPolicy | helper 1 | expect next result helper 1 = 0)"},
    {"the active scheme's index is saved", R"(
        helper 2
        expect registry HKCR\QWRSAUTO.PMHELPER\PowerPolicies CurrentPwrPolicy = 02000000
        expect next result helper 2 = 0)"},
    {"unless it cannot be read", R"(
        windows scheme fails | helper 2 | expect next result helper 2 = 0)"},
    {"a store that refuses is ignored", R"(
        registry set HKCR\QWRSAUTO.PMHELPER | registry refuse HKCR\QWRSAUTO.PMHELPER | helper 2
        expect next result helper 2 = 0)"},
    {"a scheme that cannot be read is neither saved nor restored", R"(
        fail ReadPwrScheme | helper 3 | expect next result helper 3 = 0
        fail ReadPwrScheme | helper 4 | expect next result helper 4 = 0)"},
    {"without a stored policy the system's own is activated", R"(
        helper 4 | expect next call SetActivePwrScheme(2, null, policy) = 1
        expect next result helper 4 = 0)"},
    {"without an index scheme 0 is restored", R"(
        windows scheme fails | helper 4
        expect next call SetActivePwrScheme(0, null, policy) = 1)"},
    {"monitor off", R"(
        helper 5 | expect next call WritePwrScheme(2) = 1
        expect next call SetActivePwrScheme(2, null, null) = 1
        expect next call WritePwrScheme(2) = 1 | expect next result helper 5 = 2)"},
    {"monitor off without an index", R"(
        windows scheme fails | helper 5 | expect next result helper 5 = 0)"},
    {"monitor off without the scheme", R"(
        fail ReadPwrScheme | helper 5 | expect next result helper 5 = 2)"},
    {"a scheme is activated", R"(
        helper 6 3 | expect next call SetActivePwrScheme(3, null, null) = 1
        expect next result helper 6 = 0
        helper 5 | expect result helper 5 = 3)"},
    {"other commands do nothing", R"(
        helper 0 | expect next result helper 0 = 0
        helper 7 3 | expect next result helper 7 = 0
        helper 0x100000001 | expect next result helper 4294967297 = 0
        helper 0xFFFFFFFF | expect next result helper 4294967295 = 0)"},
    {"no library, no effect", R"(
        windows powrprof missing | helper 1 | helper 2 | helper 3 | helper 4 | helper 5
        expect next result helper 5 = 0
        helper 6 3 | expect next result helper 6 = 0
        check registry HKCR\QWRSAUTO.PMHELPER absent)"},
};

TEST(Helper, Commands) {
    run_cases("windows scheme 2\nrun \"-helper\"", g_commands);
}

// A new key of the store is the machine's: an ordinary user's helper finds none that it may write, until a
// client has made the user's own.
TEST(Helper, TheStoreOfAnOrdinaryUser) {
    static const ScriptCase rows[] = {
        {"nothing is saved", R"(
            helper 1 | expect next result helper 1 = 0
            helper 2 | expect next result helper 2 = 0
            helper 3 | expect next result helper 3 = 0
            check registry HKCR\QWRSAUTO.PMHELPER absent)"},
        {"not in the machine's either, which is read", R"(
            registry set HKCR\QWRSAUTO.PMHELPER\PowerPolicies Policies binary 0102 | helper 3
            expect next result helper 3 = 0
            helper 4 | expect next call SetActivePwrScheme(2, null, policy) = 1)"},
        {"the user's own", R"(
            registry set HKCU\Software\Classes\QWRSAUTO.PMHELPER\PowerPolicies | helper 2
            expect next registry HKCR\QWRSAUTO.PMHELPER\PowerPolicies CurrentPwrPolicy = 02000000
            check registry HKCU\Software\Classes\QWRSAUTO.PMHELPER\PowerPolicies CurrentPwrPolicy = 02000000
            check registry HKLM\SOFTWARE\Classes\QWRSAUTO.PMHELPER absent)"},
        {"who was started before is an administrator's", R"(
            windows user administrator | run "-helper" session 2 | windows user standard
            helper session 2 2
            expect next registry create HKCR\QWRSAUTO.PMHELPER\PowerPolicies
            check registry HKLM\SOFTWARE\Classes\QWRSAUTO.PMHELPER present)"},
    };
    run_cases("windows scheme 2\nwindows user standard\nrun \"-helper\"", rows);
}

TEST(Helper, OneInEverySession) {
    Bench bench;
    bench.run(R"(
        helper 2 | expect next refused helper 2
        helper close | expect next refused helper close
        run "-helper" | run "-HELPER" | expect next process "-HELPER" ended 0
        run "-helper" session 2 | run "-helper" session 0 | expect no process *
        windows scheme 1 | helper session 2 5 | expect result helper 5 = 1
        helper session 0 5 | expect result helper 5 = 1
        helper session 3 5 | expect next refused helper 5
        helper close | helper 5 | expect next refused helper 5)");
    // The window is gone, the process lives on and keeps its place.
    EXPECT_NE(nullptr, sim::find_process("-helper", 1));
    bench.run(R"(
        run "-helper" | expect process "-helper" ended 0
        helper session 2 2 | expect result helper 2 = 0)");
}

// Made as it is and never shown; WM_QUIT is the one message that ends the loop.
TEST(Helper, WindowAndQuit) {
    Bench bench;
    bench.run(R"(
        run "-helper"
        expect next window class PmHelperWindowClass style 0x3 background 6 cursor 32512
        expect next window PmHelperWindowClass created style 0x80000000 extended 0x80 at 100 100 size 100 100
        expect no process * | expect count 2 window *
        helper quit | expect next process "-helper" ended 0)");
}

TEST(Helper, WithoutAWindowItEnds) {
    run_cases("", {{"no window", R"(
        fail CreateWindowExW | run "-helper" | expect process "-helper" ended 0)"},
                   {"no class, so no window", R"(
                       fail RegisterClassExW | run "-helper" | expect next process *)"},
                   {"no cursor is no matter", R"(
                       fail LoadCursorW | run "-helper" | helper 2 | expect result helper 2 = 0)"},
                   {"the loop fails", R"(
                       fail GetMessageW | run "-helper" | expect process "-helper" ended 0)"}});
}

TEST(Helper, OtherMessagesAreNoCommands) {
    Bench bench;
    // As long as its message cannot be registered, no other message may pass for it.
    sim::screen().registering_fails = true;
    bench.run("run \"-helper\"");
    const HWND window = sim::find_window("PmHelperWindowClass");
    ASSERT_NE(nullptr, window);
    const UINT message = sim::registered_message("PmHelperMessage");
    for (const UINT other : {WM_NULL, message + 1, message - 1, WM_COMMAND, WM_KEYDOWN})
        sim::post_message(window, other, 6, 3);
    bench.machine.settle();
    EXPECT_EQ(0u, sim::module_loads("powrprof.dll"));
    sim::screen().registering_fails = false;
    bench.run("helper 6 3\nexpect call SetActivePwrScheme(3, null, null) = 1");
}

TEST(Helper, MonitorOffTouchesFourFieldsOfTheActivatedCopyOnly) {
    Bench bench;
    bench.run("windows scheme 2\nrun \"-helper\"");
    const POWER_POLICY before = sim::power_scheme(2);
    POWER_POLICY expected = before;
    expected.user.VideoTimeoutAc = expected.user.VideoTimeoutDc = 1;
    expected.user.SpindownTimeoutAc = expected.user.SpindownTimeoutDc = 1;
    bench.run("helper 5");
    EXPECT_EQ(0, std::memcmp(&expected, &sim::power().applied, sizeof(expected)));
    EXPECT_EQ(0, std::memcmp(&before, &sim::power_scheme(2), sizeof(before)));
    bench.run("helper 6 2");
    EXPECT_EQ(0, std::memcmp(&before, &sim::power().applied, sizeof(before)));
}

TEST(Helper, SavingAndRestoring) {
    Bench bench;
    bench.run("windows scheme 1\nrun \"-helper\"");
    auto* global = reinterpret_cast<BYTE*>(&sim::power().global);
    for (size_t i = 0; i < sizeof(GLOBAL_POWER_POLICY); ++i)
        global[i] = static_cast<BYTE>(i);
    bench.run("helper 1\nhelper 3");
    const sim::RegistryValue* saved = sim::registry_value(g_store + "GlobalPowerPolicy", "Policies");
    ASSERT_TRUE(saved != nullptr && saved->bytes.size() == 176 && saved->type == REG_BINARY);
    EXPECT_EQ(0, std::memcmp(global, saved->bytes.data(), 176));
    saved = sim::registry_value(g_store + "PowerPolicies", "Policies");
    ASSERT_TRUE(saved != nullptr && saved->bytes.size() == 80 && saved->type == REG_BINARY);
    EXPECT_EQ(0, std::memcmp(&sim::power_scheme(1), saved->bytes.data(), 80));

    const struct {
        size_t stored;
        DWORD type;
        size_t used; // bytes of the store's value that are activated
    } rows[] = {{80, REG_BINARY, 80}, {40, REG_BINARY, 40}, {0, REG_BINARY, 0},
                {81, REG_BINARY, 0},  {80, REG_SZ, 0},      {1000, REG_BINARY, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        POWER_POLICY expected = sim::power_scheme(3);
        std::memset(&expected, 0xA5, row.used);
        sim::registry_set(g_store + "PowerPolicies", "Policies", row.type,
                          std::vector<BYTE>(row.stored, 0xA5));
        sim::power().active_scheme = 3;
        bench.run("helper 4\nexpect next call SetActivePwrScheme(3, null, policy) = 1");
        EXPECT_EQ(0, std::memcmp(&expected, &sim::power().applied, sizeof(expected)));
        sim::power().schemes.erase(3);
    }
}

TEST(Helper, NothingGrowsWithEveryCommand) {
    Bench bench;
    bench.run(R"(
        run "-helper" | helper 1 | helper 2 | helper 3)");
    sim::Process* helper = sim::find_process("-helper", 1);
    const size_t handles = sim::handle_count(helper);
    const size_t loads = sim::module_loads("powrprof.dll");
    for (int i = 0; i < 10; ++i)
        bench.run(R"(
            helper 1 | helper 2 | helper 3 | helper 4 | helper 5 | helper 6 2)");
    EXPECT_EQ(handles, sim::handle_count(helper));
    EXPECT_EQ(0u, sim::loaded_modules());
    EXPECT_EQ(loads + 10 * size_t{1 + 1 + 2 + 3 + 5 + 1}, sim::module_loads("powrprof.dll"));
}
