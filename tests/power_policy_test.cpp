// The user's power policy: who the user is, where the hive is, what is read and written.
#include <algorithm>
#include <functional>

#include "power/powrprof.h"
#include "power/privileges.h"
#include "power/user_policy.h"
#include "sim/windows/disk.h"
#include "sim/windows/power.h"
#include "sim/windows/security.h"
#include "tests/support/bench.h"

static std::string text_of_sid(std::vector<BYTE> authority, std::vector<DWORD> sub_authorities) {
    BYTE sid[8 + 4 * 16] = {SID_REVISION, static_cast<BYTE>(sub_authorities.size())};
    std::copy(authority.begin(), authority.end(), sid + 2);
    for (size_t i = 0; i < sub_authorities.size(); ++i)
        std::memcpy(sid + 8 + 4 * i, &sub_authorities[i], 4);
    // The buffer ends where it says, so that the sanitizer sees one character too many.
    const DWORD needed = 24 * static_cast<DWORD>(sub_authorities.size()) + 56;
    std::vector<WCHAR> text(needed);
    DWORD size = needed - 1;
    SetLastError(0);
    EXPECT_FALSE(SidToString(sid, text.data(), &size));
    EXPECT_EQ(needed, size);
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    EXPECT_TRUE(SidToString(sid, text.data(), &size));
    return sim::narrow(text.data());
}

TEST(UserPolicy, SidText) {
    Bench bench;
    sim::run_on_thread([] {
        const DWORD most = 0xFFFFFFFF;
        EXPECT_EQ("S-1-5-21-1-2-3-1001", text_of_sid({0, 0, 0, 0, 0, 5}, {21, 1, 2, 3, 1001}));
        EXPECT_EQ("S-1-5", text_of_sid({0, 0, 0, 0, 0, 5}, {}));
        EXPECT_EQ("S-1-2168595480-4294967295", text_of_sid({0, 0, 0x81, 0x42, 0x24, 0x18}, {most}));
        EXPECT_EQ("S-1-0x01020304050a-7", text_of_sid({1, 2, 3, 4, 5, 10}, {7}));
        EXPECT_EQ("S-1-0x00ff00000000", text_of_sid({0, 255, 0, 0, 0, 0}, {}));
        std::string longest = "S-1-0xffffffffffff";
        for (int i = 0; i < 15; ++i)
            longest += "-4294967295";
        EXPECT_EQ(longest, text_of_sid({255, 255, 255, 255, 255, 255}, std::vector<DWORD>(15, most)));
        BYTE bad[] = {2, 1, 0, 0, 0, 0, 0, 5, 1, 0, 0, 0};
        WCHAR text[100];
        DWORD size = 100;
        EXPECT_FALSE(SidToString(bad, text, &size));
    });
}

TEST(Privileges, AreGivenUpToo) {
    Bench bench;
    sim::run_on_thread([] {
        for (const BOOL enable : {TRUE, FALSE}) {
            EXPECT_TRUE(EnablePrivilege(SE_SHUTDOWN_NAME, enable));
            EXPECT_EQ(enable != FALSE, sim::privilege_enabled("SeShutdownPrivilege", "test"));
        }
    });
}

static const char g_winlogon[] = R"(
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "CALDER"
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"
    windows account anna S-1-5-21-1-2-3-1001)";

// After a step that fails the next ones are not tried.
TEST(Privileges, StepsThatFail) {
    const struct {
        const char* fails;
        const char* not_tried;
        std::function<BOOL()> operation;
    } rows[] = {
        {"OpenProcessToken", "LookupPrivilegeValueW", [] { return EnableShutdownPrivilege(); }},
        {"LookupPrivilegeValueW", "AdjustTokenPrivileges", [] { return EnableShutdownPrivilege(); }},
        {"LoadLibraryExW", "GetProcAddress", [] { return PowrProfIsPwrHibernateAllowed(); }},
        {"LocalAlloc", "LookupAccountNameW",
         [] {
             WCHAR user[SID_STRING_CHARACTERS];
             return GetDefaultUserSidString(user);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fails);
        Bench bench;
        bench.run(g_winlogon);
        bench.machine.count_calls = true;
        sim::run_on_thread([&] {
            bench.machine.fail_name = row.fails;
            bench.machine.fail_countdown = 1;
            EXPECT_FALSE(row.operation());
            EXPECT_EQ(0u, sim::handle_count(sim::current_process()));
        });
        EXPECT_EQ(row.fails, bench.machine.failed_call);
        EXPECT_EQ(0u, bench.machine.call_counts[row.not_tried]);
    }
}

// The profile is in the registry, its folder on the disk, the hive in it but not loaded.
static const char g_profile[] = R"(
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1-2-3-1001" ProfileImagePath expand "%SystemDrive%\Users\Anna"
    windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")";

namespace {

struct UserCase {
    const char* name;
    std::string script; // behind the user and, where there is one, his profile
    const char* user = ".DEFAULT";
    const char* effects = "";
    bool profile = true;
};

} // namespace

static std::string repeated(const char* text, size_t times) {
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

#define SET_LOGON R"(registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" )"
#define SET_PROFILE                                                                                          \
    R"(registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1-2-3-1001" ProfileImagePath )"
static const char g_noLogon[] =
    R"(registry delete "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon")";
static const char g_anna[] = "S-1-5-21-1-2-3-1001";
static const char g_loaded[] = R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "C:\Users\Anna\ntuser.dat") = 0)";
// 130 characters, all of them used.
static const std::string g_full = repeated("6100", 130);

// A file's path of 255 characters once it is expanded, which is the limit, and one of 256; what is left of
// that may not be taken for the path.
static const std::string g_stored = R"(C:\)" + repeated("%OS%", 22) + std::string(21, 'a');
static const std::string g_expanded = R"(C:\)" + repeated("Windows_NT", 22) + std::string(21, 'a');
static const std::string g_longLoaded =
    R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", ")" + g_expanded + R"(\ntuser.dat") = 0)";

static const UserCase g_users[] = {
    {"nobody", g_noLogon},
    {"no domain", g_noLogon + std::string(" AltDefaultDomainName")},
    {"no user", g_noLogon + std::string(" AltDefaultUserName")},
    {"a user's name of another type", SET_LOGON R"(AltDefaultUserName multi "anna")"},
    {"a name longer than the limit", SET_LOGON "AltDefaultUserName raw 1 " + g_full + "0000"},
    {"a name as long as the limit, without an end",
     SET_LOGON "AltDefaultUserName raw 1 " + g_full + "\nwindows account " + std::string(130, 'a') +
         " S-1-5-21-1-2-3-1001",
     g_anna, g_loaded},
    {"no such account", SET_LOGON R"(AltDefaultUserName sz "bert")"},
    {"a SID too long for its place", "windows account anna S-1-5-1-2-3-4-5-6-7-8-9"},
    {"the longest that fits",
     "windows account anna S-1-5-1-2-3-4-5-6-7-8 | registry set HKU\\S-1-5-1-2-3-4-5-6-7-8",
     "S-1-5-1-2-3-4-5-6-7-8"},
    {"the hive is loaded already", "registry set HKU\\S-1-5-21-1-2-3-1001", g_anna},
    {"the hive is loaded from the profile", "", g_anna, g_loaded},
    {"the profile's path names the file itself", SET_PROFILE R"(expand "C:\Users\Anna\ntuser.dat")", g_anna,
     g_loaded},
    {"no profile", "", ".DEFAULT", "", false},
    {"a profile's path of another type", SET_PROFILE "binary 43003a00"},
    // Windows would make an empty hive, or follow the link.
    {"the profile is gone", SET_PROFILE R"(expand "C:\Users\Gone")"},
    {"the profile has no hive", R"(file "C:\Users\Anna\ntuser.dat" absent)"},
    {"a folder of the hive's name", R"(file "C:\Users\Anna\ntuser.dat" directory)"},
    {"the hive is a link", R"(file "C:\Users\Anna\ntuser.dat" link)"},
    {"the profile is a link", R"(file "C:\Users\Anna" link)"},
    {"the path names a file in a link",
     R"(file "C:\Users\Anna" link | )" SET_PROFILE R"(expand "C:\Users\Anna\\ntuser.dat")"},
    {"a profile on the network", SET_PROFILE R"(expand "\\server\Anna"
        windows hive "\\server\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")"},
    {"with slashes too", SET_PROFILE R"(expand "//server/Anna"
        windows hive "//server/Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")"},
    {"the hive lies at a drive's root", SET_PROFILE R"(expand "C:\ntuser.dat"
        windows hive "C:\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")",
     g_anna, R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "C:\ntuser.dat") = 0)"},
    {"a path that is not full is no network path", SET_PROFILE R"(expand "A\Anna"
        windows hive "C:\Windows\system32\A\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")",
     g_anna, R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "A\Anna\ntuser.dat") = 0)"},
    {"a folder of two letters", SET_PROFILE R"(expand "AB"
        windows hive "C:\Windows\system32\AB\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")",
     g_anna, R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "AB\ntuser.dat") = 0)"},
    {"a path that names no folder", SET_PROFILE R"(expand "ntuser.dat"
        windows hive "C:\Windows\system32\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")"},
    {"a profile that is the drive", SET_PROFILE R"(expand "C:\"
        windows hive "C:\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")",
     g_anna, R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "C:\\ntuser.dat") = 0)"},
    {"a path that is expanded to the limit",
     SET_PROFILE "expand \"" + g_stored + "\\ntuser.dat\"\nwindows hive \"" + g_expanded +
         R"(\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")",
     g_anna, g_longLoaded.c_str()},
    {"one character more", SET_PROFILE "expand \"" + g_stored + "a\\ntuser.dat\"\nwindows hive \"" +
                               g_expanded +
                               R"(a\ntuser.da" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4")"},
    {"a path too long once it is expanded", SET_PROFILE "expand \"" + repeated("%userprofile%", 8) + "\""},
    {"the restore privilege refused", "windows privilege SeRestorePrivilege refused"},
    {"the restore privilege not held", "windows privilege SeRestorePrivilege denied", ".DEFAULT",
     R"(call RegLoadKeyW("S-1-5-21-1-2-3-1001", "C:\Users\Anna\ntuser.dat") = 1314)"},
};

TEST(UserPolicy, WhoTheUserIs) {
    for (const UserCase& row : g_users) {
        SCOPED_TRACE(row.name);
        Bench bench;
        bench.run(std::string(g_winlogon) + (row.profile ? g_profile : "") + "\n" + row.script);
        sim::run_on_thread([&row] {
            WCHAR user[SID_STRING_CHARACTERS];
            EXPECT_EQ(std::string(row.user) != ".DEFAULT", GetDefaultUserSidString(user) != FALSE);
            EXPECT_EQ(row.user, sim::narrow(user));
            EXPECT_EQ(0u, sim::handle_count(sim::current_process()));
            EXPECT_EQ(0u, sim::current_process()->local_blocks);
        });
        std::string effects;
        for (const sim::TraceLine& line : bench.machine.trace)
            effects += line.text.rfind("process", 0) == 0 ? "" : line.text;
        EXPECT_EQ(row.effects, effects);
    }
}

// Whatever of the look at file and folder fails, nothing is loaded and no privilege enabled for it.
TEST(UserPolicy, ALookThatFailsLoadsNothing) {
    static const struct {
        const char* call;
        std::uint64_t which;
    } rows[] = {{"GetFileAttributesW", 1},
                {"GetFileAttributesW", 2},
                {"GetFileAttributesW", 3},
                {"ExpandEnvironmentStringsW", 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        Bench bench;
        bench.run(std::string(g_winlogon) + g_profile);
        bench.machine.keep_details = true;
        sim::run_on_thread([&] {
            WCHAR user[SID_STRING_CHARACTERS];
            bench.machine.fail_name = row.call;
            bench.machine.fail_countdown = row.which;
            EXPECT_FALSE(GetDefaultUserSidString(user)) << row.which;
            EXPECT_EQ(".DEFAULT", sim::narrow(user));
        });
        EXPECT_EQ(row.call, bench.machine.failed_call);
        for (const sim::TraceLine& line : bench.machine.trace) {
            EXPECT_FALSE(line.text.starts_with("call RegLoadKeyW")) << row.which;
            EXPECT_FALSE(line.text.starts_with("AdjustTokenPrivileges")) << row.which;
            // Without a path there is nothing to look at.
            EXPECT_TRUE(row.call[0] == 'G' || !line.text.starts_with("GetFileAttributesW"));
        }
    }
}

TEST(UserPolicy, AHiveStaysLoadedUntilItIsUnloaded) {
    Bench bench;
    bench.run(std::string(g_winlogon) + g_profile);
    sim::run_on_thread([] {
        DWORD index = 0;
        EXPECT_TRUE(GetCurrentPowerPolicyIndex(&index));
        EXPECT_EQ(4u, index);
        EXPECT_TRUE(GetCurrentPowerPolicyIndex(&index));
        EXPECT_TRUE(LoadUserHive(L"S-1-5-21-1-2-3-1001", nullptr, FALSE));
        EXPECT_FALSE(LoadUserHive(L"S-1-5-21-1-2-3-1001", nullptr, FALSE));
    });
    bench.run("mark\ncheck registry HKU\\S-1-5-21-1-2-3-1001 absent");
}

TEST(UserPolicy, SchemeIndex) {
    const struct {
        const char* data;
        std::int64_t index; // -1: cannot be read
    } rows[] = {
        {R"(sz "3")", 3},    {R"(sz "12 and more")", 12}, {R"(sz "")", 0},
        {R"(sz "none")", 0}, {R"(sz "-3")", 0},           {R"(sz "2147483647")", 0x7FFFFFFF},
        {R"(raw 1 "")", 0},  {R"(raw 1 3500360037)", 56}, {R"(sz "99999999999999999999")", 0x7FFFFFFF},
        {"dword 3", -1},     {"binary 33000000", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.data);
        Bench bench;
        bench.run(std::string(R"(registry set "HKU\.DEFAULT\Control Panel\PowerCfg" CurrentPowerPolicy )") +
                  row.data);
        sim::run_on_thread([&row] {
            DWORD index = 77;
            EXPECT_EQ(row.index >= 0, GetCurrentPowerPolicyIndex(&index) != FALSE);
            EXPECT_EQ(row.index >= 0 ? static_cast<DWORD>(row.index) : 77, index);
        });
    }
}

TEST(UserPolicy, PoliciesAreReadWholeOrNotAtAll) {
    const struct {
        size_t stored;
        DWORD type;
        bool read;
    } rows[] = {{260, REG_BINARY, true}, {176, REG_BINARY, true}, {144, REG_BINARY, true},
                {80, REG_BINARY, true},  {0, REG_BINARY, true},   {261, REG_BINARY, false},
                {144, REG_SZ, false},    {144, REG_DWORD, false}};
    const std::string base = "HKU\\.DEFAULT\\Control Panel\\PowerCfg\\";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        Bench bench;
        std::vector<BYTE> bytes(row.stored);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<BYTE>(i + 1);
        sim::registry_set(base + "GlobalPowerPolicy", "Policies", row.type, bytes);
        sim::registry_set(base + "PowerPolicies\\3", "Policies", row.type, bytes);
        sim::run_on_thread([&] {
            GLOBAL_USER_POWER_POLICY global;
            POWER_POLICY scheme;
            std::memset(&global, 0xEE, sizeof(global));
            std::memset(&scheme, 0xEE, sizeof(scheme));
            EXPECT_EQ(row.read, ReadGlobalUserPowerPolicy(&global) != FALSE);
            EXPECT_EQ(row.read, ReadUserPowerPolicy(3, &scheme) != FALSE);
            EXPECT_FALSE(ReadUserPowerPolicy(4, &scheme));
            bytes.resize(260);
            if (!row.read)
                bytes.assign(260, 0xEE);
            EXPECT_EQ(0, std::memcmp(&global, bytes.data(), 176));
            EXPECT_EQ(0, std::memcmp(&scheme, bytes.data(), 144));
        });
    }
}

TEST(UserPolicy, TheDefaultUsersPoliciesAreWritten) {
    Bench bench;
    sim::run_on_thread([] {
        GLOBAL_POWER_POLICY global = {};
        POWER_POLICY scheme = sim::power_scheme(5);
        global.user.GlobalFlags = 0x12345678;
        const DWORD index = 5;
        EXPECT_TRUE(WriteDefaultGlobalPowerPolicy(&global.user));
        EXPECT_TRUE(WriteDefaultUserPowerPolicy(&index, &scheme.user));
        sim::registry_refuse("HKU\\.DEFAULT\\Control Panel\\PowerCfg");
        EXPECT_FALSE(WriteDefaultGlobalPowerPolicy(&global.user));
        EXPECT_FALSE(WriteDefaultUserPowerPolicy(&index, &scheme.user));
        EXPECT_EQ(0u, sim::handle_count(sim::current_process()));
    });
    const std::string base = "HKU\\.DEFAULT\\Control Panel\\PowerCfg\\";
    const sim::RegistryValue* global = sim::registry_value(base + "GlobalPowerPolicy", "Policies");
    const sim::RegistryValue* scheme = sim::registry_value(base + "PowerPolicies\\5", "Policies");
    ASSERT_TRUE(global != nullptr && scheme != nullptr);
    EXPECT_EQ(REG_BINARY, global->type);
    ASSERT_EQ(176u, global->bytes.size());
    EXPECT_EQ(0x78, global->bytes[172]);
    ASSERT_EQ(80u, scheme->bytes.size());
    EXPECT_EQ(0, std::memcmp(scheme->bytes.data(), &sim::power_scheme(5), 80));
}
