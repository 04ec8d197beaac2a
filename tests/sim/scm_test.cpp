// The simulated control manager, privileges and power schemes, where they must be as strict as the platform.
#include "sim/windows/modules.h"
#include "sim/windows/power.h"
#include "sim/windows/scm_client.h"
#include "tests/support/sweep.h"

using namespace sim;

// ---- controls ----

namespace {

struct Reply {
    DWORD error = NO_ERROR;
    SERVICE_STATUS status = {};
};

} // namespace

// What a program with all rights is told.
static Reply send_code(const char* service, DWORD code) {
    Reply answer;
    run_on_thread([&] {
        constexpr DWORD ALL = 0x1FF;
        const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        const SC_HANDLE handle =
            OpenServiceW(manager, reinterpret_cast<LPCWSTR>(widen(service).c_str()), ALL);
        answer.error = ControlService(handle, code, &answer.status) ? NO_ERROR : GetLastError();
        CloseServiceHandle(handle);
        CloseServiceHandle(manager);
    });
    return answer;
}

static size_t lines_with(const Bench& bench, const std::string& text) {
    size_t count = 0;
    for (const TraceLine& line : bench.machine.trace)
        count += line.text == text;
    return count;
}

TEST(ScmSim, WhatAProgramIsTold) {
    const char starting[] = "driver missing for 2s\nstart";
    const char stopping[] = "start\nadvance 1s\nfirmware CONNECT takes 10s\nstop";
    const char running[] = "start\nadvance 1s";
    const struct {
        const char* setup;
        DWORD code;
        DWORD error;
        DWORD state; // of the status that it gets
    } rows[] = {
        {"", 133, ERROR_SERVICE_NOT_ACTIVE, SERVICE_STOPPED},
        {starting, 4, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, SERVICE_START_PENDING},
        {starting, 133, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, SERVICE_START_PENDING},
        {stopping, 1, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, SERVICE_STOP_PENDING},
        {stopping, 255, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, SERVICE_STOP_PENDING},
        {running, 10, ERROR_INVALID_SERVICE_CONTROL, SERVICE_RUNNING},
        {running, 256, ERROR_INVALID_PARAMETER, RUBBISH},
        {running, 4, NO_ERROR, SERVICE_RUNNING},
        {running, 255, NO_ERROR, SERVICE_RUNNING},
        {running, 1, NO_ERROR, SERVICE_STOP_PENDING},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(format("%u after '%s'", row.code, row.setup));
        Bench bench;
        bench.run(row.setup);
        bench.machine.keep_details = true;
        const Reply answer = send_code("ZORPMSVC", row.code);
        EXPECT_EQ(row.error, answer.error);
        EXPECT_EQ(row.state, answer.status.dwCurrentState);
        const size_t called = lines_with(bench, format("control %u type 0x0", row.code));
        EXPECT_EQ(row.error == NO_ERROR ? 1u : 0u, called);
    }
}

TEST(ScmSim, ThePlatformsServiceIsAServiceToo) {
    Bench bench;
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, send_code("MPLATSVC", 1).error);
    set_platform_service(true, true);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, send_code("MPLATSVC", 13).error);
    EXPECT_EQ(ERROR_INVALID_SERVICE_CONTROL, send_code("MPLATSVC", 2).error);
    EXPECT_EQ(SERVICE_RUNNING, send_code("MPLATSVC", 4).status.dwCurrentState);
    EXPECT_EQ(NO_ERROR, send_code("MPLATSVC", 1).error);
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, send_code("MPLATSVC", 4).error);
}

TEST(ScmSim, TheManagersRefusalsInAScript) {
    Bench bench;
    bench.run(R"(
        control 133
        expect next refused control 133
        handler 133
        expect next refused control 133
        power resume
        expect next refused control 13
        start
        advance 1s
        control 2
        expect next refused control 2
        expect no status*
        control 256
        expect next refused control 256
        power resume
        expect next refused control 13
        expect no request*
        power event 18
        expect next refused control 13
        power setting {11111111-4510-4526-99E6-E5A17EBD1AEA} 1
        expect next refused control 13
        power monitor 1
        expect request GMMS(0x0) = 0x1
        expect no refused*
        fail RegisterPowerSettingNotification
        stop
        start
        advance 1s
        power monitor 1
        expect next refused control 13
        expect no request*
        handler power monitor 1
        expect request GMMS(0x0) = 0x1
        handler 1
        expect status STOPPED 0/0)");
}

TEST(ScmSim, TheDetailsOfARefusal) {
    for (const auto& [code, detail] :
         {std::pair{3u, "control 3: error 1052"}, {127u, "control 127: error 87"}}) {
        Bench bench;
        bench.started();
        bench.machine.keep_details = true;
        service_control(code);
        EXPECT_EQ(1u, lines_with(bench, detail));
    }
}

// The client hears 1053 after 30 s, the handler goes on, and the next control waits for both.
TEST(ScmSim, AHandlerThatHangs) {
    run_cases("firmware DYTC(0) = 0x30000001\nfirmware DYTC = 1\nstart\nadvance 5s",
              {{"given up, and still done", R"(
                    firmware DYTC takes 31s
                    control 134
                    control 133
                    advance 29999ms
                    expect no refused*
                    advance 1ms
                    expect refused control 134
                    expect no request LCDCSGETSTATE*
                    advance 31s
                    expect request DYTC(0xf2001) = 0x1
                    expect request LCDCSGETSTATE() = 0x2
                    expect no refused control 133)"},
               {"just in time", R"(
                    firmware LCDCSGETSTATE takes 29999ms
                    control 133
                    advance 1m
                    expect request LCDCSGETSTATE() = 0x2
                    expect no refused*)"},
               {"the time of those behind begins when they are passed on", R"(
                    firmware LCDCSGETSTATE takes 20s
                    together
                    control 133
                    control 133
                    control 133
                    end
                    advance 61s
                    expect count 3 request LCDCSGETSTATE() = 0x2
                    expect no refused*)"},
               {"what waits behind a stop is refused", R"(
                    together
                    stop
                    control 133
                    handler 133
                    end
                    expect count 2 refused control 133
                    expect no request LCDCSGETSTATE*)"}});
    Bench bench;
    bench.started("firmware LCDCSGETSTATE takes 40s");
    const Reply answer = send_code("ZORPMSVC", 133);
    EXPECT_EQ(ERROR_SERVICE_REQUEST_TIMEOUT, answer.error);
    EXPECT_EQ(RUBBISH, answer.status.dwCurrentState);
    EXPECT_EQ(2000u + 30000u, bench.machine.now);
    EXPECT_EQ(0u, lines_with(bench, "refused control 133")); // the call's own line says it
    EXPECT_EQ(1u, lines_with(bench, "call ControlService(\"ZORPMSVC\", 133) = 0"));
}

// ---- status reports ----

static SERVICE_STATUS_HANDLE g_handle;
static SERVICE_STATUS g_report;
static DWORD g_reportError;

TEST(ScmSim, InvalidReportsFailAndChangeNothing) {
    const struct {
        const char* name;
        SERVICE_STATUS report;
        DWORD error;
    } rows[] = {
        {"no state", {SERVICE_WIN32_OWN_PROCESS, 0, 0, 0, 0, 0, 0}, ERROR_INVALID_DATA},
        {"a state too high", {SERVICE_WIN32_OWN_PROCESS, 8, 0, 0, 0, 0, 0}, ERROR_INVALID_DATA},
        {"unknown controls",
         {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0x1000, 0, 0, 0, 0},
         ERROR_INVALID_DATA},
        {"another type", {0x20, SERVICE_RUNNING, 0, 0, 0, 0, 0}, ERROR_INVALID_DATA},
        {"all well", {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0xFFF, 0, 0, 0, 0}, NO_ERROR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Bench bench;
        bench.started();
        g_report = row.report;
        g_handle = reinterpret_cast<SERVICE_STATUS_HANDLE>(std::uintptr_t{0x5EE1});
        const SERVICE_STATUS before = service_status();
        run_on_thread(
            [] { g_reportError = SetServiceStatus(g_handle, &g_report) ? NO_ERROR : GetLastError(); });
        EXPECT_EQ(row.error, g_reportError);
        const SERVICE_STATUS expected = row.error == NO_ERROR ? row.report : before;
        const SERVICE_STATUS now = service_status();
        EXPECT_EQ(0, std::memcmp(&expected, &now, sizeof(now)));
        EXPECT_EQ(row.error == NO_ERROR ? 0u : 1u, bench.machine.violations.size());
        bench.machine.violations.clear();
    }
}

// ---- power settings ----

TEST(ScmSim, APresentValueIsToldAtRegistrationOrLater) {
    for (const char* when : {"at-registration", "later"}) {
        for (const DWORD monitor : {0u, 1u}) {
            SCOPED_TRACE(format("%s, monitor %u", when, monitor));
            Bench bench;
            bench.run(
                format("windows power-settings %s\npower monitor %u\nstart\nadvance 1s", when, monitor));
            size_t refreshes = 0;
            for (const TraceLine& line : bench.machine.trace)
                refreshes += line.thread == "dispatcher" && line.text == "request GMMS(0x0) = 0x1";
            EXPECT_EQ(std::string(when) == "at-registration" && monitor == 1, refreshes != 0);
        }
    }
}

// ---- privileges ----

template <class Function> static Function power_function(const char* name) {
    const HMODULE module = LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Whether the call succeeds, and the last error, which tells more.
static std::pair<BOOL, DWORD> enable(const WCHAR* name) {
    HANDLE token = nullptr;
    TOKEN_PRIVILEGES state = {1, {}};
    state.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token));
    EXPECT_TRUE(LookupPrivilegeValueW(nullptr, name, &state.Privileges[0].Luid));
    SetLastError(RUBBISH);
    const BOOL done = AdjustTokenPrivileges(token, FALSE, &state, 0, nullptr, nullptr);
    const DWORD error = GetLastError();
    CloseHandle(token);
    return {done, error};
}

TEST(ScmSim, PrivilegesGrantedDeniedAndRefused) {
    const struct {
        const char* how;
        BOOL adjusted;
        DWORD error;
    } rows[] = {{"granted", TRUE, NO_ERROR},
                {"denied", TRUE, ERROR_NOT_ALL_ASSIGNED},
                {"refused", FALSE, ERROR_ACCESS_DENIED}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        Bench bench;
        bench.run(format("windows privilege SeShutdownPrivilege denied\n"
                         "windows privilege SeShutdownPrivilege %s",
                         row.how));
        run_on_thread([&] {
            using Suspend = BOOLEAN(WINAPI*)(BOOLEAN, BOOLEAN, BOOLEAN);
            const auto suspend = power_function<Suspend>("SetSuspendState");
            EXPECT_FALSE(suspend(FALSE, FALSE, TRUE)); // not enabled yet
            EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, GetLastError());
            const auto [adjusted, error] = enable(SE_SHUTDOWN_NAME);
            EXPECT_EQ(row.adjusted, adjusted);
            EXPECT_EQ(row.error, error);
            const bool works = row.error == NO_ERROR;
            EXPECT_EQ(works, suspend(FALSE, FALSE, TRUE) != FALSE);
            EXPECT_EQ(works, SetSystemPowerState(FALSE, FALSE) != FALSE);
            EXPECT_EQ(works, ExitWindowsEx(12, 0) != FALSE);
            if (!works) {
                EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, GetLastError());
            }
        });
    }
    Bench bench;
    EXPECT_EQ(2, run_text("windows privilege SeNothingPrivilege denied").exit_code);
}

TEST(ScmSim, TheHibernationFileAsksForItsPrivilege) {
    Bench bench;
    run_on_thread([] {
        using Information = LONG(WINAPI*)(POWER_INFORMATION_LEVEL, void*, ULONG, void*, ULONG);
        const auto information = power_function<Information>("CallNtPowerInformation");
        BYTE create = TRUE;
        EXPECT_EQ(static_cast<LONG>(0xC0000061), information(SystemReserveHiberFile, &create, 1, nullptr, 0));
        enable(L"SeCreatePagefilePrivilege");
        EXPECT_EQ(0, information(SystemReserveHiberFile, &create, 1, nullptr, 0));
    });
}

// ---- power schemes ----

TEST(ScmSim, SchemesThatDoNotExist) {
    Bench bench;
    bench.run("windows scheme 9\nwindows scheme 8");
    run_on_thread([] {
        const auto read = power_function<BOOLEAN(WINAPI*)(UINT, POWER_POLICY*)>("ReadPwrScheme");
        const auto write =
            power_function<BOOLEAN(WINAPI*)(UINT*, LPCWSTR, LPCWSTR, POWER_POLICY*)>("WritePwrScheme");
        const auto set =
            power_function<BOOLEAN(WINAPI*)(UINT, GLOBAL_POWER_POLICY*, POWER_POLICY*)>("SetActivePwrScheme");
        const auto get = power_function<BOOLEAN(WINAPI*)(UINT*)>("GetActivePwrScheme");
        POWER_POLICY policy = {};
        for (const UINT there : {0u, 5u, 8u, 9u})
            EXPECT_TRUE(read(there, &policy)) << there;
        for (const UINT missing : {6u, 7u, 10u, 0xFFFFFFFFu}) {
            EXPECT_FALSE(read(missing, &policy)) << missing;
            EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
            EXPECT_FALSE(set(missing, nullptr, nullptr)) << missing;
            EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
        }
        UINT index = 0;
        EXPECT_TRUE(get(&index));
        EXPECT_EQ(8u, index);
        index = 6;
        EXPECT_TRUE(write(&index, nullptr, nullptr, &policy));
        EXPECT_TRUE(read(6, &policy));
        EXPECT_TRUE(set(6, nullptr, nullptr));
        power().scheme_fails = true;
        EXPECT_FALSE(get(&index));
        EXPECT_EQ(RUBBISH, index); // nothing of use
    });
}
