// What --trace-all tells: every operation's entry and end, and why the service acts or does not.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex.h>
#include <set>
#include <sstream>

#include "tests/support/bench.h"

// These do not end: their thread or process is terminated, or ends itself.
static const char g_endless[] = R"(
    PHThreadProc PHOverrideThreadProc PHType12ThreadProc PHType12OverrideThreadProc PHType13ThreadProc
    PHType13OverrideThreadProc LCDCSWatchdogThreadProc LCDCSTimerThreadProc PmHelperMain
)";

static std::vector<std::string> words_of(const char* text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

// What the scenarios leave out.
static const char g_otherOperations[] = R"(
windows hibernate forbidden | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001
firmware DYTC = 0x1 | firmware GOPT(0) = 0x102 | firmware GOPT(0x100) = 1
firmware GOPT(0x200) = 0x10001 | firmware TABGETSTATE = 8
registry set SVC\Status LastSystemTransformation dword 0
registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS SystemFamily sz "Corbel K11 Tablet" | start
advance 3s | event 0x4012 | firmware GOPT(0x200) = 1 | event 0x4012 | control 134 | control 135
control 138 | firmware THERMALMODE = 3 | advance 2s | event 0x60F0 | event 0x1003 | event 0x2013
event 0x5007 | advance 6s | signal Stop | advance 1s
)";

static void run_traced(const std::string& script, std::set<std::string>* said) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.run(script);
    for (const sim::TraceLine& line : bench.machine.trace) {
        if (line.text.starts_with("says "))
            said->insert(line.text.substr(5, line.text.find('(') - 5));
    }
}

static std::set<std::string> run_scenarios() {
    std::set<std::string> said;
    for (const auto& entry : std::filesystem::directory_iterator(ZORPM_SOURCE_DIR "/scenarios")) {
        if (entry.path().extension() != ".txt")
            continue;
        SCOPED_TRACE(entry.path().string());
        run_traced(text_of_file(entry.path()), &said);
    }
    run_traced(g_otherOperations, &said);
    return said;
}

// The operations of the service that the sources name: by themselves, in a table, or as a word for the
// firmware.
static std::set<std::string> operations_of_sources() {
    regex_t named; // the C library's: the standard's takes longer to compile than all of this file
    EXPECT_EQ(
        0, regcomp(&named,
                   R"re(OPERATION\([^,()]+,[[:space:]]*([A-Za-z0-9_]+),)re"
                   R"re(|TRACE_NAME\(L"(Adaptive[A-Za-z0-9_]+)"\)|THERMAL_[^"]*"(Adaptive[A-Za-z0-9_]+))re",
                   REG_EXTENDED));
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(ZORPM_SOURCE_DIR "/src")) {
        const std::string path = entry.path().string();
        if (entry.is_directory() || path.find("/ctl/") != std::string::npos || path.ends_with("trace.h"))
            continue;
        const std::string text = text_of_file(entry.path());
        regmatch_t found[4];
        for (const char* rest = text.c_str(); regexec(&named, rest, 4, found, 0) == 0;
             rest += found[0].rm_eo) {
            for (size_t k = 1; k < 4; ++k) {
                if (found[k].rm_so >= 0)
                    names.insert(std::string(rest + found[k].rm_so, rest + found[k].rm_eo));
            }
        }
    }
    regfree(&named);
    return names;
}

TEST(Trace, EveryOperationShowsItsEntryAndItsEnd) {
    const std::set<std::string> said = run_scenarios();
    std::set<std::string> operations = operations_of_sources();
    EXPECT_LT(280u, operations.size());
    for (const std::string& name : words_of(g_endless)) {
        EXPECT_TRUE(said.contains("Enter " + name)) << name;
        operations.erase(name);
    }
    for (const std::string& name : operations) {
        EXPECT_TRUE(said.contains("Enter " + name)) << name;
        EXPECT_TRUE(said.contains("Return " + name) || said.contains("Exit " + name)) << name;
    }
}

// What has happened from `first` on, each with its first argument unless that is a handle; what lets go of
// something only says so. `kinds` (separated by blanks, _ for a blank): these beginnings alone.
static std::string in_order(const std::vector<sim::TraceLine>& trace, size_t first, const char* kinds) {
    const std::vector<std::string> wanted = words_of(kinds);
    std::string order;
    for (size_t i = first; i < trace.size(); ++i) {
        std::string text = trace[i].text;
        if (text.starts_with("says Enter Close") || text.starts_with("says Enter TerminateAdaptive"))
            text.erase(0, 11);
        const auto begins = [&text](std::string kind) {
            std::replace(kind.begin(), kind.end(), '_', ' ');
            return text.starts_with(kind);
        };
        if (text.starts_with("says") ||
            (!wanted.empty() && std::none_of(wanted.begin(), wanted.end(), begins)))
            continue;
        const size_t argument = text.find('(');
        const bool shown = argument != std::string::npos && isalpha(text[argument + 1]);
        order +=
            (shown ? text.substr(0, text.find_first_of(",)", argument)) + ")" : text.substr(0, argument)) +
            (text.ends_with("((nil))") ? "(0); " : "; ");
    }
    return order;
}

// Of what a client, a firmware or a user could see in between, little shows afterwards.
TEST(Trace, OrderOfTheServicesControls) {
    const struct {
        const char* script;
        const char* kinds;
        const char* calls; // the last ones
    } rows[] = {
        {"handler 2", "",
         "control 2 type 0x0; status PAUSE_PENDING 0/0 checkpoint 1; SuspendThread; status PAUSED 0/0; "},
        {"handler 3", "",
         "control 3 type 0x0; status CONTINUE_PENDING 0/0 checkpoint 1; ResumeThread; status RUNNING 0/0; "},
        {"stop", "",
         "control 1 type 0x0; status STOP_PENDING 0/0 checkpoint 1; TerminateThread(PHThreadProc); "
         "TerminateThread(PHOverrideThreadProc); TerminateThread(LCDCSTimerThreadProc); SetEvent; "
         "status STOP_PENDING 0/0 checkpoint 2; TerminateThread(TerminalThread); "
         "status STOP_PENDING 0/0 checkpoint 3; CreateFileW; request CONNECT; "
         R"(registry delete HKLM\Software\ZOR\ZORPM; CloseHandle; CloseHandle; Close5nitInterface; )"
         "TerminateAdaptiveCooling; CloseHandle; status STOPPED 0/0; ClosePMDriver; CloseHandle; "
         "process \"\" ended 0; "},
        {"start", "status CreateThread RegisterPower request_DYTC request_TABGET query_HKLM\\HARDWARE",
         "status START_PENDING 0/0 checkpoint 1; status START_PENDING 0/0 checkpoint 2; "
         "status START_PENDING 0/0 checkpoint 3; status START_PENDING 0/0 checkpoint 4; "
         "status START_PENDING 0/0 checkpoint 5; CreateThread(PHThreadProc); "
         "CreateThread(PHOverrideThreadProc); "
         "CreateThread(PHType12ThreadProc); CreateThread(PHType12OverrideThreadProc); "
         "CreateThread(PHType13ThreadProc); CreateThread(PHType13OverrideThreadProc); "
         "CreateThread(LCDCSTimerThreadProc); query HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion; "
         "query HKLM\\HARDWARE\\DESCRIPTION\\System SystemBiosVersion; request DYTC; "
         "RegisterPowerSettingNotification; request TABGETSTATE; CreateThread(CreatePnPTaskThreadProc); "
         "query HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS SystemFamily; CreateThread(TerminalThread); "
         "CreateThread(CPUStateC3C4MonitorThreadProc); status RUNNING 0/0; "},
        {"stop | fail CreateThread 9 | start", "status_STOPPED Close",
         "status STOPPED 1066/680001; ClosePMDriver; CloseHandle; "},
    };
    Bench bench;
    bench.machine.keep_details = true;
    bench.started(R"(registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion" ReleaseId sz "1809")");
    for (const auto& row : rows) {
        const size_t first = bench.machine.trace.size();
        bench.run(row.script);
        const std::string order = in_order(bench.machine.trace, first, row.kinds);
        EXPECT_TRUE(order.ends_with(row.calls)) << row.script << ": " << order;
    }
}

namespace {

struct Decision {
    const char* setup;
    const char* script;
    const char* said; // the whole line
};

} // namespace

// Why the service acts or does not.
static const Decision g_decisions[] = {
    {"firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 0x00040001\nfirmware DYTC = 1\n"
     "firmware GOPT(0) = 0x101\nfirmware GOPT(0x100) = 1\nfirmware GOPT(0x200) = 2",
     "control 142", "Option is attached(): only the report is published"},
    {"firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 0x00040001\nfirmware DYTC = 1",
     "control 134\nevent 0x4012", "Enabled(): Glbal flag OFF. (function 2)"},
    {"", "event 0x4012", "RouteByVersion(): Routing failed (version 0x0)"},
    {"firmware MHKV = 0x100\nfirmware MHKA = 0xff0fff",
     "registry set SVC\\Parameters\\OverrideSetting @ dword 0x800\nadvance 1s\nevent 0x100C",
     "DispatchHotKey(): 0x100c is taken over by a client"},
    {"", "event 0x5009", "FollowPosture(): no Harrow platform, nothing to do"},
    {"hardware \"INT33D6\" present\nfirmware GMMS = 1", "event 0x60C0",
     "DriveIndicator(): no support, laptop/slate indicator left alone"},
    {"firmware GMMS = 9", "event 0x60C0", "DrivePostureIndicator(): no posture 9, indicator left alone"},
    {"", "registry delete SVC\\Parameters2\\Type20\\Notification\nevent 0x5012",
     "FlipBits(0x2): no key "
     "SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC\\Parameters2\\Type20\\Notification, "
     "nobody is told"},
    {"", "event 0x4003", "ReturnToSleepOnDisconnect(): no return to sleep is armed"},
    {"", "handler power event 4", "HandlePowerEvent(): 0x4 is of no interest"},
};

#define V2                                                                                                   \
    "firmware DYTC(0) = 0x20000001\nfirmware DYTC(0x100) = 0x20010000\nfirmware DYTC(3) = 0x201\n"           \
    "firmware GOPT(0) = 0x103\n"                                                                             \
    "firmware GOPT(0x100) = 4\nfirmware GOPT(0x200) = 3\nregistry set SVC\\TMCT\\Parameters SPCT dword 30\n"
#define V3     "firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 0x03ff0001\nfirmware DYTC = 1\n"
#define HARROW "registry set HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion sz \"GDET40W\"\n"

// What an operation answers where no caller asks.
static const Decision g_results[] = {
    {V2, "", "Return InitAdaptiveCoolingInitTabletOptionControlSettings() 0x00000001"},
    {V2, "", "Return AdaptiveCoolingInitSettings_v2() 0x00000001"},
    {V2, "control 134\nevent 0x4012", "Return AdaptiveCoolingDoOptionAttached() 0x00000000"},
    {V2, "advance 20s\nfirmware GOPT(0x200) = 2\nevent 0x4013\nadvance 60s",
     "Return AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode() 0x00000001"},
    {V2, "firmware GOPT(0x200) = 2\ncontrol 134\nevent 0x4013\nadvance 60s",
     "Return AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode() 0x00000000"},
    {V2, "control 137\ncontrol 137", "Return AdaptiveCoolingTerminateWorkerThread() 0x00000000"},
    {V3, "advance 3s\ncontrol 134\nevent 0x4012",
     "Return AdaptiveCoolingChageThermalModeByTwoInOne_v3() 0x00000000"},
    {V3 "firmware THERMALMODE fails\n", "advance 3s\nevent 0x60F0",
     "Return AdaptiveCoolingThermalModeByHingeSettings_v3() 0x00000000"},
    {V3, "advance 3s\nfirmware GOPT fails\nevent 0x4012",
     "Return AdaptiveCoolingChageThermalModeByTwoInOne_v3() 0x00000000"},
    {V3 "registry refuse SVC\\TMC\\CQH\n", "advance 3s",
     "Return AdaptiveCoolingInitRegKeyForCoolQuietHinge_v3() 0x00000000"},
    {V3, "advance 3s\nfirmware DYTC fails\nevent 0x60F0",
     "Return AdaptiveCoolingThermalModeByHingeSettings_v3() 0x00000000"},
    {V3 "firmware THERMALMODE = 0x3 bytes 0\n", "advance 3s\nevent 0x60F0",
     "Return AdaptiveCoolingGetThermalModeStatusFromBIOS() 0x00000001, 0x0"},
    {V3, "advance 3s\nfirmware DYTC fails\nevent 0x60C0",
     "Return AdaptiveCoolingPivoModeChange() 0x00000000"},
    {"firmware DYTC(0) = 0x30000001\nfirmware DYTC = 1\n", "advance 3s\nevent 0x60F0",
     "Return AdaptiveCoolingThermalModeByHingeSettings_v3() 0x00000000"},
    {"registry set HKLM\\HARDWARE\\DESCRIPTION\\System SystemBiosVersion multi \"X\"\n", "",
     "Return GetSystemBiosVersion() 0x00000001"},
    {"firmware DYTC(0) = 0x30000001 bytes 0\n", "",
     "Return AdaptiveCoolingGetCurrentBIOSInterfaceVersion() 0x00000000"},
    {V3 "firmware GOPT(0) = 0x101\nfirmware GOPT(0x100) = 1\nfirmware GOPT(0x200) = 2\n",
     "advance 3s\ncontrol 134\nevent 0x4012",
     "Return AdaptiveCoolingChageThermalModeByTwoInOne_v3() 0x00000000"},
    {"", "event 0x500A", "Return NotebookScreenRotationFunctionality() 0x00000000"},
    {"firmware GMMS = 1\n", "event 0x60C0",
     "Return SystemTransformationUpdateCurrentSystemStatus() 0x00000001"},
    {"fail RegSetValueExW 1", "", "Return MakeConnect() 0x00000000"},
    {"fail RegSetValueExW 2", "", "Return MakeConnect() 0x00000000"},
    {"firmware GOPT(0) fails", "", "Return OptionStatusInit() 0x00000000"},
    {"firmware GOPT(0) = 0x1", "", "Return OptionStatusInit() 0x00000001"},
    {HARROW, "event 0x500A", "Return NotebookScreenRotationFunctionality() 0x00000000"},
    {HARROW "registry set HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation Enable dword 1\n",
     "registry delete SVC\\Status LastSystemTransformation\nevent 0x500A",
     "Return NotebookScreenRotationFunctionality() 0x00000000"},
    {HARROW, "", "Return GetSystemBiosVersion() 0x00000001"},
    {"", "", "Return Initialize_PH_Ex_Thread() 0x00000001"},
    {"fail CreateThread 3", "", "Return Initialize_PH_Ex_Thread() 0x00000000"},
    {"", "", "Return StartPHWatch() 0x00000001"},
    {"fail CreateThread 1", "", "Return StartPHWatch() 0x00000000"},
};

TEST(Trace, DecisionsAreTold) {
    std::vector<Decision> rows(std::begin(g_decisions), std::end(g_decisions));
    rows.insert(rows.end(), std::begin(g_results), std::end(g_results));
    for (const Decision& row : rows) {
        SCOPED_TRACE(row.said);
        Bench bench;
        bench.machine.keep_details = true;
        bench.started(row.setup);
        bench.run(row.script);
        const auto& lines = bench.machine.trace;
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const sim::TraceLine& line) {
            return !line.effect && line.text == std::string("says ") + row.said;
        }));
    }
}

// Arguments are whole numbers and texts; an answer is a word given out, by an operation that has not failed.
TEST(Trace, ArgumentsAndAnswersAreShown) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.started("firmware MHKV = 0x234\nfirmware GMMS fails");
    std::set<std::string> said;
    for (const sim::TraceLine& line : bench.machine.trace)
        said.insert(line.text);
    EXPECT_TRUE(said.contains("says Enter PMDriverIoControl(0x222434, 0x0)"));
    EXPECT_TRUE(said.contains("says Return PMDriverIoControl() 0x00000001, 0x234"));
    EXPECT_TRUE(said.contains("says Return PMDriverIoControl() 0x00000000"));
    EXPECT_TRUE(said.contains("says Enter FindDevice(\"INT33D6\")"));
}

// What a call's line begins with, where that is not its name.
static const std::map<std::string, std::string> g_otherWords = {
    {"DeviceIoControl", "request"},
    {"RegSetValueExW", "registry"},
    {"RegQueryValueExW", "query"},
    {"SetServiceStatus", "status"},
    {"RegNotifyChangeKeyValue", "watch"},
    {"ReadFile", "read"},
    {"WriteFile", "write"},
    {"RegDeleteKeyW", "registry"},
    {"RegisterClassExW", "window"},
    {"DestroyWindow", "window"},
    {"DeleteFileW", "file"},
    {"DefWindowProcW", "window"},
    {"OpenInputDesktop", "window"},
    {"SetCapture", "window"},
    {"SetFocus", "window"},
    {"SetForegroundWindow", "window"},
    {"SetThreadDesktop", "window"},
    {"SetWindowPos", "window"},
    {"ShowWindow", "window"},
    {"DialogBoxParamW", "dialog"},
    {"EndDialog", "dialog"},
};

// What is only recognised is told by its name, and so is a dock.
TEST(Trace, NamesOfThermalFunctionsAndDocks) {
#ifdef NDEBUG
    GTEST_SKIP() << "the messages are discarded in this build";
#endif
    Bench bench;
    bench.machine.keep_details = true;
    bench.run("firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x01110001 | start | "
              "advance 1s");
    for (const char* status : {"0", "0x10000", "0x20000", "0x80000"})
        bench.run(sim::format("firmware DOCKMODE = %s | event 0x4010", status));
    std::string said;
    for (const sim::TraceLine& line : bench.machine.trace) {
        for (const char* start :
             {"says AdaptiveCoolingInitSettings_v3(): ", "says AdaptiveCoolingDockModeControlChange(): "}) {
            if (line.text.starts_with(start))
                said += line.text.substr(std::strlen(start)) + "|";
        }
    }
    EXPECT_EQ("Standard is only recognised|Skin Temperature Protection is only recognised|"
              "Vantor dock, set the power|Vantor dock, set the power|Quillon dock, set the power|"
              "Bastion dock, skip|Linkway dock, skip|",
              said);
}

// No places to overtake, and never chosen to fail: they look at what is the caller's own.
static const char* const g_ownCalls[] = {"GetCurrentProcess", "GetCurrentProcessId", "GetCurrentThreadId",
                                         "GetLastError", "SetLastError"};

static std::string first_word(std::string text) {
    if (text.starts_with("call "))
        text.erase(0, 5);
    return text.substr(0, text.find_first_of("( "));
}

// Each call is one line at least, which begins with its name or with the word for its effect.
TEST(Trace, EveryCallIsShown) {
    std::map<std::string, std::uint64_t> shown;
    std::map<std::string, std::uint64_t> made;
    for (const char* name :
         {"demo.txt", "power.txt", "helper.txt", "setup_cleanup.txt", "power_monitor_off.txt"}) {
        Bench bench;
        bench.machine.keep_details = bench.machine.count_calls = true;
        bench.run(text_of_file(std::string(ZORPM_SOURCE_DIR "/scenarios/") + name));
        for (const sim::TraceLine& line : bench.machine.trace)
            ++shown[first_word(line.text)];
        for (const auto& [call, count] : bench.machine.call_counts)
            made[call] += count;
    }
    EXPECT_LT(80u, made.size());
    for (const auto& [call, count] : made) {
        const auto other = g_otherWords.find(call);
        EXPECT_LE(count, shown[call] + (other != g_otherWords.end() ? shown[other->second] : 0)) << call;
    }
    for (const char* call : g_ownCalls)
        EXPECT_LT(0u, shown[call]) << call;
}
