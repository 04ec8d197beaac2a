// What the service publishes for hot-key clients at its start, and the notification bits.
#include <set>

#include "hotkeys/ph_notification.h"
#include "tests/support/bench.h"

// Every page answers with masks of its own, to tell them apart.
static const char KEYS_FIRMWARE[] = R"(
    firmware MHKA(0) = 0x10 | firmware MHKA(1) = 0x884 | firmware MHKA(2) = 0x22
    firmware MHKA(3) = 0x33 | firmware MHKN(0) = 0x50 | firmware MHKN(1) = 0x51
    firmware MHKN(2) = 0x52 | firmware MHKN(3) = 0x53
)";

static const char EXTENDED[] = R"(
    expect next request MHKA(0x2) = 0x22
    expect next registry create SVC\Parameters2\Type10\Capability
    expect next registry SVC\Parameters2\Type10\Capability Type12 = 0x22
    expect next request MHKA(0x3) = 0x33
    expect next registry SVC\Parameters2\Type10\Capability Type13 = 0x33
    expect next request MHKN(0x2) = 0x52
    expect next registry create SVC\Parameters2\Type10\CurrentSetting
    expect next registry SVC\Parameters2\Type10\CurrentSetting Type11 = 0x0
    expect next registry SVC\Parameters2\Type10\CurrentSetting Type12 = 0x52
    expect next request MHKN(0x3) = 0x53
    expect next registry SVC\Parameters2\Type10\CurrentSetting Type13 = 0x53
    expect next registry create SVC\Parameters2\Type10\OverrideSetting
    expect next registry SVC\Parameters2\Type10\OverrideSetting @ = 0x0
    expect next registry create SVC\Parameters2\Type10\Notification
    expect next registry SVC\Parameters2\Type10\Notification Type11 = 0x0
    expect next registry SVC\Parameters2\Type10\Notification Type12 = 0x52
    expect next registry SVC\Parameters2\Type10\Notification Type13 = 0x53
    expect next registry create SVC\Parameters2\Type20\Capability
    expect next registry SVC\Parameters2\Type20\Capability Type21 = 0x0
    expect next registry SVC\Parameters2\Type20\Capability Type22 = 0x0
    expect next registry create SVC\Parameters2\Type20\Notification
    expect next registry SVC\Parameters2\Type20\Notification Type21 = 0x0
    expect next registry SVC\Parameters2\Type20\Notification Type22 = 0x0
    expect next registry SVC\Parameters2\Type10\CurrentSetting @ = 0x52
)";

namespace {

struct VersionCase {
    const char* name;
    const char* version;
    std::string script;
};

} // namespace

static const VersionCase g_versions[] = {
    {"0x100", "= 0x100", R"(
        expect request MHKV(0x0) = 0x100 | expect next request MHKA(0x0) = 0x10
        expect registry SVC\Parameters\InterfaceVersion @ = 0x102
        expect next request MHKN(0x0) = 0x50
        expect registry SVC\Parameters\Notification @ = 0x50
        expect next registry SVC\Parameters\Notification Type2 = 0x0
        expect next request MHKV(0x0) = 0x100
        expect next registry create SVC\Parameters2\Type10\Capability
        expect next registry SVC\Parameters2\Type10\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters2*)"},
    {"0x200", "= 0x200",
     std::string(R"(
         expect request MHKV(0x0) = 0x200 | expect next request MHKA(0x1) = 0x884
         expect next registry create SVC\Parameters\Capability
         expect next registry SVC\Parameters\Capability @ = 0x884
         expect next registry SVC\Parameters\Capability IsExistPMInternalFunction = 0x804
         expect next registry SVC\Parameters\Capability OverrideCapability = 0x804
         expect next registry SVC\Parameters\Capability Type2 = 0x7fffffff
         expect next registry create SVC\Parameters\InterfaceVersion
         expect next registry SVC\Parameters\InterfaceVersion @ = 0x201
         expect next request MHKN(0x1) = 0x51
         expect next registry create SVC\Parameters\CurrentSetting
         expect next registry SVC\Parameters\CurrentSetting @ = 0x51
         expect next registry create SVC\Parameters\OverrideSetting
         expect next registry SVC\Parameters\OverrideSetting @ = 0x0
         expect next registry create SVC\Parameters\Notification
         expect next registry SVC\Parameters\Notification @ = 0x51
         expect next registry SVC\Parameters\Notification Type2 = 0x0
         expect next request MHKV(0x0) = 0x200)") +
         EXTENDED},
    {"between", "= 0x180", R"(
        expect registry SVC\Parameters\InterfaceVersion @ = 0x181
        expect count 2 registry *SVC\Parameters\*
        expect registry SVC\Parameters2\Type10\Capability @ = 0x0 | expect count 0 request MHKN*)"},
    {"above", "= 0x300",
     std::string(R"(
         expect registry SVC\Parameters\InterfaceVersion @ = 0x301
         expect count 2 registry *SVC\Parameters\* | expect next request MHKV(0x0) = 0x300)") +
         EXTENDED},
    {"the last", "= 0xffffffff", "expect registry SVC\\Parameters\\InterfaceVersion @ = 0x0"},
    {"too old", "= 0xff", R"(
        expect registry SVC\Parameters\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters\* | expect next request MHKV(0x0) = 0xff
        expect next registry create SVC\Parameters2\Type10\Capability
        expect next registry SVC\Parameters2\Type10\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters2*)"},
    {"unknown", "fails", R"(
        expect registry SVC\Parameters\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters\*
        expect registry SVC\Parameters2\Type10\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters2*)"},
    {"half an answer", "= 0x100 bytes 1", R"(
        expect registry SVC\Parameters\Capability @ = 0x0
        check registry SVC\Parameters\InterfaceVersion absent)"},
    {"nothing can be asked, nor published",
     "fails | registry refuse SVC\\Parameters\\Capability\n"
     "registry refuse SVC\\Parameters2\\Type10\\Capability",
     R"(
        expect status RUNNING 0/0 | expect no registry *Capability*)"},
    {"the device goes away for the extended part", "= 0x200 times 1\nfirmware MHKV fails", R"(
        expect registry SVC\Parameters\InterfaceVersion @ = 0x201
        expect registry SVC\Parameters2\Type10\Capability @ = 0x0
        expect count 2 registry *SVC\Parameters2*)"},
};

TEST(HotkeyInterface, EveryVersionOfTheFirmwareGetsItsInterface) {
    for (const VersionCase& row : g_versions) {
        SCOPED_TRACE(row.name);
        Bench bench;
        bench.run(KEYS_FIRMWARE + std::string("firmware MHKV ") + row.version + "\nstart\n" + row.script);
    }
}

// What each step of the extended pages says when it fails.
TEST(HotkeyInterface, EachFailureIsTold) {
#ifdef NDEBUG
    GTEST_SKIP() << "the messages are discarded in this build";
#endif
    std::set<std::string> said;
    for (const char* call : {"DeviceIoControl", "RegCreateKeyExW", "CreateEventW", "CreateThread"}) {
        for (std::uint64_t number = 1; number <= 30; ++number) {
            Bench bench;
            bench.machine.keep_details = true;
            bench.run(sim::format("%s firmware MHKV = 0x200\nfail %s %d\nstart\nadvance 1s\n", KEYS_FIRMWARE,
                                  call, static_cast<int>(number)));
            for (const sim::TraceLine& line : bench.machine.trace) {
                if (line.text.starts_with("says Error: Initialize_"))
                    said.insert(line.text.substr(23, line.text.find(" (", 23) - 23));
            }
        }
    }
    EXPECT_EQ((std::set<std::string>{
                  "Registry_Type10_Capability(): Couldn't call MHKV or MHKV < 0x200.",
                  "Registry_Type10_Capability(): Couldn't call MHKA.",
                  "Registry_Type10_Capability(): Couldn't call MHKA",
                  "Registry_Type10_Capability(): Couldn't write type12 default capability registry.",
                  "Registry_Type10_Capability(): Couldn't write type13 default capability registry.",
                  "Registry_Type10_CurrentSetting(): Couldn't call MHKN",
                  "Registry_Type10_CurrentSetting(): Couldn't write type11 current setting registry.",
                  "Registry_Type10_CurrentSetting(): Couldn't write type12 current setting registry.",
                  "Registry_Type10_CurrentSetting(): Couldn't write type13 current setting registry.",
                  "Registry_Type10_OverrideSetting(): Cannot initialize type10 override setting registry.",
                  "Registry_Type10_Notification(): Couldn't write type11 notification registry.",
                  "Registry_Type10_Notification(): Couldn't write type12 notification registry.",
                  "Registry_Type10_Notification(): Couldn't write type13 notification registry.",
                  "PH_Ex_Thread(): fail to create Type12 event.",
                  "PH_Ex_Thread(): fail to create Type12 thread.",
                  "PH_Ex_Thread(): fail to create Type12OverrideEvent.",
                  "PH_Ex_Thread(): fail to create Type12 Override thread.",
                  "PH_Ex_Thread(): fail to create Type13 event.",
                  "PH_Ex_Thread(): fail to create Type13 thread.",
                  "PH_Ex_Thread(): fail to create Type13 Override event.",
                  "PH_Ex_Thread(): fail to create Type13 Override thread."}),
              said);
}

TEST(HotkeyInterface, AStepThatFailsEndsItsOwnPartOnly) {
    struct {
        const char* fault;
        const char* done;    // the last that is still published, or what is published instead
        const char* missing; // the first that is not
    } static const cases[] = {
        {"firmware MHKA(1) fails", "Parameters\\Capability @ = 0", ""},
        {"firmware MHKN(1) fails", "Parameters\\Notification @ = 0", ""},
        {"firmware MHKN(1) = 0xaabb bytes 1", "Parameters\\CurrentSetting @ = 0xbb", ""},
        {"firmware MHKA(2) = 7 bytes 0", "Parameters2\\Type10\\Capability Type12 = 0", ""},
        {"firmware MHKA(3) = 7 bytes 0", "Parameters2\\Type10\\Capability Type13 = 0", ""},
        {"firmware MHKN(2) = 7 bytes 0", "Parameters2\\Type10\\CurrentSetting Type12 = 0", ""},
        {"firmware MHKN(3) = 7 bytes 0", "Parameters2\\Type10\\CurrentSetting Type13 = 0", ""},
        {"registry refuse SVC\\Parameters\\Capability", "Parameters\\CurrentSetting @ = 0x51", ""},
        {"registry refuse SVC\\Parameters\\CurrentSetting", "Parameters\\OverrideSetting @ = 0", ""},
        {"registry refuse SVC\\Parameters\\OverrideSetting", "Parameters\\Notification Type2 = 0", ""},
        {"registry refuse SVC\\Parameters\\Notification", "Parameters2\\Type20\\Notification Type22 = 0", ""},
        {"firmware MHKA(2) fails", "Parameters\\Notification Type2 = 0", "Type10\\Capability @"},
        {"firmware MHKA(3) fails", "Parameters2\\Type10\\Capability Type12 = 0x22",
         "Type10\\Capability Type13"},
        {"firmware MHKN(2) fails", "Parameters2\\Type10\\Capability Type13 = 0x33",
         "Type10\\CurrentSetting Type11"},
        {"firmware MHKN(3) fails", "Parameters2\\Type10\\CurrentSetting Type12 = 0x52",
         "Type10\\CurrentSetting Type13"},
        {"registry refuse SVC\\Parameters2\\Type10\\CurrentSetting",
         "Parameters2\\Type10\\Capability Type13 = 0x33", "Type10\\OverrideSetting @"},
        {"registry refuse SVC\\Parameters2\\Type10\\OverrideSetting",
         "Parameters2\\Type10\\CurrentSetting Type13 = 0x53", "Type10\\Notification Type11"},
        {"registry refuse SVC\\Parameters2\\Type10\\Notification",
         "Parameters2\\Type10\\OverrideSetting @ = 0", "Type20\\Capability Type21"},
        {"registry refuse SVC\\Parameters2\\Type20\\Capability",
         "Parameters2\\Type10\\Notification Type13 = 0x53", "Type20\\Notification Type21"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.fault);
        Bench bench;
        std::string script =
            KEYS_FIRMWARE + std::string(row.fault) + "\nstart\ncheck registry SVC\\" + row.done;
        if (row.missing[0] != '\0')
            script += std::string("\ncheck registry SVC\\Parameters2\\") + row.missing + " absent";
        bench.run(script + "\nstop\ncheck handles 0\n");
    }
    run_case("what follows page 2 is not asked for", R"(
        registry refuse SVC\Parameters2\Type10\Capability | start | expect no request MHKA(0x3)*)");
}

TEST(HotkeyInterface, ARestartKeepsWhatIsTheClientsAndRenewsTheRest) {
    const std::string change = std::string("\nstart\nstop\n") + R"(
        registry set SVC\Parameters\Capability @ dword 1
        registry set SVC\Parameters\CurrentSetting @ dword 2
        registry set SVC\Parameters\OverrideSetting @ dword 0x800
        registry set SVC\Parameters\Notification @ dword 4
        registry set SVC\Parameters\Notification Type2 dword 5
        registry set SVC\Parameters2\Type10\CurrentSetting @ dword 6
        registry set SVC\Parameters2\Type10\CurrentSetting Type12 dword 7
        registry set SVC\Parameters2\Type10\CurrentSetting Type13 dword 8
        registry set SVC\Parameters2\Type10\OverrideSetting @ dword 9
        registry set SVC\Parameters2\Type10\Notification Type12 dword 10
        registry set SVC\Parameters2\Type20\Notification Type22 dword 11 | start
        check registry SVC\Parameters\OverrideSetting @ = 0x800
        check registry SVC\Parameters\Notification Type2 = 0
        check registry SVC\Parameters2\Type10\OverrideSetting @ = 9
    )";
    const struct {
        const char* version;
        const char* script;
    } cases[] = {{"0x100", R"(
        check registry SVC\Parameters\Capability @ = 0x10
        check registry SVC\Parameters\CurrentSetting @ = 0x50
        check registry SVC\Parameters\Notification @ = 0x50)"},
                 {"0x200", R"(
                     check registry SVC\Parameters\Capability @ = 0x884
                     check registry SVC\Parameters\CurrentSetting @ = 0x51
                     check registry SVC\Parameters\Notification @ = 4
                     check registry SVC\Parameters2\Type10\CurrentSetting @ = 0x52
                     check registry SVC\Parameters2\Type10\CurrentSetting Type12 = 0x52
                     check registry SVC\Parameters2\Type10\CurrentSetting Type13 = 0x53
                     check registry SVC\Parameters2\Type10\Notification Type12 = 0x52
                     check registry SVC\Parameters2\Type20\Notification Type22 = 0)"}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.version);
        Bench bench;
        bench.run(KEYS_FIRMWARE + std::string("firmware MHKV = ") + row.version + change + row.script);
    }
    // What is no DWORD counts as not there.
    run_cases("start\nstop\n", {{"text", R"(
        registry set SVC\Parameters\OverrideSetting @ sz "2048"
        registry set SVC\Parameters\Notification @ binary 00
        registry set SVC\Parameters2\Type10\OverrideSetting @ raw 4 0001020304
        firmware MHKN(1) = 0x51 | start | check registry SVC\Parameters\OverrideSetting @ = 0
        check registry SVC\Parameters\Notification @ = 0x51
        check registry SVC\Parameters2\Type10\OverrideSetting @ = 0)"},
                                {"text for the other pages", R"(
        registry set SVC\Parameters2\Type10\OverrideSetting @ sz "2" | start
        check registry SVC\Parameters2\Type10\OverrideSetting @ = 0)"}});
}

TEST(HotkeyInterface, NotificationBitsFlip) {
    const struct {
        void (*notify)(DWORD);
        const char* key;
        const char* value;
    } families[] = {{NotifyPHType2Event, "SVC\\Parameters\\Notification", "Type2"},
                    {NotifyPHType22Event, "SVC\\Parameters2\\Type20\\Notification", "Type22"}};
    const struct {
        DWORD before;
        DWORD k;
        DWORD after;
    } flips[] = {{0, 1, 1},           {1, 1, 0},           {0, 0, 0},  {6, 2, 4},
                 {0, 31, 0x40000000}, {0, 32, 0x80000000}, {0, 33, 1}, {0, 0xFFFFFFFF, 0x40000000}};
    for (const auto& family : families) {
        Bench bench;
        // Neither the key nor the value is made by it, and a value of another kind stays as it is.
        sim::run_on_thread([&] { family.notify(3); });
        EXPECT_FALSE(sim::registry_has_key(family.key));
        sim::registry_create(family.key);
        sim::run_on_thread([&] { family.notify(3); });
        EXPECT_EQ(nullptr, sim::registry_value(family.key, family.value));
        sim::registry_set_text(family.key, family.value, "12");
        sim::run_on_thread([&] { family.notify(3); });
        EXPECT_EQ("12", sim::registry_text(family.key, family.value));
        for (const auto& flip : flips) {
            sim::registry_set_dword(family.key, family.value, flip.before);
            sim::run_on_thread([&] { family.notify(flip.k); });
            EXPECT_EQ(flip.after, sim::registry_dword(family.key, family.value))
                << family.value << " k " << flip.k;
        }
        EXPECT_EQ(0u, sim::handle_count(sim::Kind::Key));
    }
}
