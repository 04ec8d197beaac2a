// The service control manager: one service, its status, its dispatcher thread and the controls it is sent.
#include "sim/windows/scm.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"

namespace sim {

namespace {

struct Control {
    DWORD code = 0;
    DWORD event_type = 0;
    std::vector<BYTE> event_data;
    ObjectRef handled = make_event(true); // the handler has returned
};

struct ServiceManager {
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
    Process* process = nullptr;
    LPHANDLER_FUNCTION_EX handler = nullptr;
    LPVOID context = nullptr;
    std::deque<Control> controls;
    ObjectRef work = make_event(); // wakes the dispatcher
    bool dispatching = false;
    std::vector<GUID> settings;
};

} // namespace

static ServiceManager& scm() {
    return machine_state<ServiceManager>();
}

constexpr DWORD START_WAIT_HINT_MS = 2000; // until the service says otherwise
static const char g_serviceName[] = "ZORPMSVC";
static const GUID g_monitorPowerOn = {
    0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};
static const char* const g_stateNames[] = {"",        "STOPPED",          "START_PENDING", "STOP_PENDING",
                                           "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};

// The body of the status handle's object is not needed: the handle stands for the one service.
static const SERVICE_STATUS_HANDLE g_statusHandle =
    reinterpret_cast<SERVICE_STATUS_HANDLE>(std::uintptr_t{0x5EE1});

SERVICE_STATUS service_status() {
    return scm().status;
}

Process* service_process() {
    ServiceManager& manager = scm();
    return manager.process != nullptr && !manager.process->ended ? manager.process : nullptr;
}

void service_start() {
    ServiceManager& manager = scm();
    if (service_process() != nullptr) {
        trace("refused start");
        return;
    }
    manager.handler = nullptr;
    manager.controls.clear();
    manager.dispatching = false;
    manager.settings.clear();
    manager.status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, START_WAIT_HINT_MS};
    manager.process = start_process("", 0, true);
    // A process that ends without having said so leaves a stopped service.
    Process* process = manager.process;
    start_thread(machine().host, "machine", [process] {
        wait_for({process->object}, false, INFINITE);
        if (scm().process == process && scm().status.dwCurrentState != SERVICE_STOPPED) {
            scm().status.dwCurrentState = SERVICE_STOPPED;
            scm().status.dwControlsAccepted = 0;
            scm().status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
        }
        return DWORD{0};
    });
}

static bool reachable() {
    const ServiceManager& manager = scm();
    const DWORD state = manager.status.dwCurrentState;
    return service_process() != nullptr && manager.handler != nullptr &&
           (state == SERVICE_RUNNING || state == SERVICE_PAUSED || state == SERVICE_PAUSE_PENDING ||
            state == SERVICE_CONTINUE_PENDING);
}

static void deliver(Control control) {
    if (!reachable()) {
        trace("refused control %u", control.code);
        return;
    }
    scm().controls.push_back(std::move(control));
    signal_object(*scm().work);
}

// A program that sends a control waits until the handler has returned, or the service is gone.
static void wait_until_handled() {
    wait_for({scm().controls.back().handled, scm().process->object}, false, INFINITE);
}

void service_control(DWORD code) {
    deliver({code, 0, {}});
}

DWORD service_send_control(DWORD code, SERVICE_STATUS* status) {
    ServiceManager& manager = scm();
    *status = manager.status;
    if (service_process() == nullptr)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (!reachable() ||
        (code == SERVICE_CONTROL_STOP && (manager.status.dwControlsAccepted & SERVICE_ACCEPT_STOP) == 0))
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    service_control(code);
    if (current() != nullptr)
        wait_until_handled();
    return ERROR_SUCCESS;
}

void service_stop() {
    SERVICE_STATUS status;
    if (service_send_control(SERVICE_CONTROL_STOP, &status) != ERROR_SUCCESS)
        trace("refused stop");
}

void service_power_event(DWORD type) {
    deliver({SERVICE_CONTROL_POWEREVENT, type, {}});
}

void service_power_setting(const GUID& setting, DWORD value) {
    std::vector<BYTE> data(sizeof(GUID) + 2 * sizeof(DWORD));
    const DWORD length = sizeof(value);
    std::memcpy(data.data(), &setting, sizeof(setting));
    std::memcpy(data.data() + sizeof(GUID), &length, sizeof(length));
    std::memcpy(data.data() + sizeof(GUID) + sizeof(length), &value, sizeof(value));
    deliver({SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE, data});
}

// Runs the handler for each control until the service has stopped.
static void dispatch_controls() {
    ServiceManager& manager = scm();
    while (manager.status.dwCurrentState != SERVICE_STOPPED) {
        if (manager.controls.empty()) {
            wait_for({manager.work}, false, INFINITE);
            continue;
        }
        Control control = std::move(manager.controls.front());
        manager.controls.pop_front();
        if (!reachable()) {
            // It was accepted before the service began to stop.
            trace("refused control %u", control.code);
            continue;
        }
        trace_detail("control %u type 0x%x", control.code, control.event_type);
        void* data = control.event_data.empty() ? nullptr : control.event_data.data();
        if (manager.handler(control.code, control.event_type, data, manager.context) != NO_ERROR)
            violation("the control handler returned an error for %u", control.code);
        signal_object(*control.handled);
    }
}

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
    SIM_CALL(FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    ServiceManager& manager = scm();
    if (!current_process()->is_service) {
        set_last_error(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        return FALSE;
    }
    if (narrow(table[0].lpServiceName) != g_serviceName || table[1].lpServiceName != nullptr ||
        table[1].lpServiceProc != nullptr)
        violation("StartServiceCtrlDispatcherW: not the one service");
    manager.dispatching = true;
    const LPSERVICE_MAIN_FUNCTIONW service_main = table[0].lpServiceProc;
    start_thread(current_process(), "ServiceMain", [service_main] {
        std::u16string name = widen(g_serviceName);
        WCHAR* arguments[] = {reinterpret_cast<WCHAR*>(name.data()), nullptr};
        service_main(1, arguments);
        return DWORD{0};
    });
    dispatch_controls();
    return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR name, LPHANDLER_FUNCTION_EX handler,
                                                           LPVOID context) {
    SIM_CALL(nullptr, ERROR_SERVICE_DOES_NOT_EXIST);
    if (!same_text(narrow(name), g_serviceName) || !scm().dispatching) {
        set_last_error(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    scm().handler = handler;
    scm().context = context;
    return g_statusHandle;
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE service, LPSERVICE_STATUS status) {
    SIM_CALL(FALSE, ERROR_INVALID_HANDLE);
    ServiceManager& manager = scm();
    if (service != g_statusHandle) {
        violation("SetServiceStatus: no status handle");
        set_last_error(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (status->dwCurrentState < SERVICE_STOPPED || status->dwCurrentState > SERVICE_PAUSED ||
        status->dwServiceType != SERVICE_WIN32_OWN_PROCESS)
        violation("SetServiceStatus: state %u type 0x%x", status->dwCurrentState, status->dwServiceType);
    if (manager.status.dwCurrentState == SERVICE_STOPPED)
        violation("SetServiceStatus: after SERVICE_STOPPED");
    manager.status = *status;
    std::string checkpoint;
    if (status->dwCheckPoint != 0)
        checkpoint = format(" checkpoint %u", status->dwCheckPoint);
    trace("status %s %u/%u%s", g_stateNames[std::min<DWORD>(status->dwCurrentState, SERVICE_PAUSED)],
          status->dwWin32ExitCode, status->dwServiceSpecificExitCode, checkpoint.c_str());
    if (status->dwCurrentState == SERVICE_STOPPED)
        signal_object(*manager.work);
    return TRUE;
}

HPOWERNOTIFY WINAPI RegisterPowerSettingNotification(HANDLE recipient, LPCGUID setting, DWORD flags) {
    SIM_CALL(nullptr, ERROR_INVALID_PARAMETER);
    if (recipient != static_cast<HANDLE>(g_statusHandle) || flags != DEVICE_NOTIFY_SERVICE_HANDLE) {
        violation("RegisterPowerSettingNotification: no service handle");
        set_last_error(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    scm().settings.push_back(*setting);
    return open_handle(make_object(Kind::PowerNotify, "power setting"));
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_start(Tokens&) {
    return service_start;
}

static Action compile_stop(Tokens&) {
    return service_stop;
}

static Action compile_control(Tokens& tokens) {
    const auto code = static_cast<DWORD>(tokens.number());
    return [code] { service_control(code); };
}

static bool read_guid(const std::string& text, GUID* guid) {
    unsigned b[8];
    unsigned d1 = 0, d2 = 0, d3 = 0;
    const char* at = text.c_str() + (text[0] == '{');
    if (std::sscanf(at, "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &d1, &d2, &d3, &b[0], &b[1], &b[2], &b[3],
                    &b[4], &b[5], &b[6], &b[7]) != 11)
        return false;
    guid->Data1 = d1;
    guid->Data2 = static_cast<WORD>(d2);
    guid->Data3 = static_cast<WORD>(d3);
    for (int i = 0; i < 8; ++i)
        guid->Data4[i] = static_cast<BYTE>(b[i]);
    return true;
}

static Action compile_power(Tokens& tokens) {
    switch (tokens.choice({"resume", "monitor", "setting", "event"})) {
    case 0:
        return [] { service_power_event(PBT_APMRESUMESUSPEND); };
    case 1: {
        const auto value = static_cast<DWORD>(tokens.number());
        return [value] { service_power_setting(g_monitorPowerOn, value); };
    }
    case 2: {
        GUID guid = {};
        if (!read_guid(tokens.word(), &guid))
            tokens.fail("GUID expected");
        const auto value = static_cast<DWORD>(tokens.number());
        return [guid, value] { service_power_setting(guid, value); };
    }
    default: {
        const auto type = static_cast<DWORD>(tokens.number());
        return [type] { service_power_event(type); };
    }
    }
}

static Action compile_run(Tokens& tokens) {
    const std::string line = tokens.text();
    if (line == "zorpmctl") {
        std::string arguments;
        while (!tokens.done())
            arguments += (arguments.empty() ? "" : " ") + tokens.word();
        return [arguments] { start_control_program(arguments); };
    }
    const DWORD session = tokens.accept("session") ? static_cast<DWORD>(tokens.number()) : 1;
    return [=] { start_process(line, session); };
}

static Action compile_check_status(Tokens& tokens) {
    const std::string state = tokens.word();
    const bool known = std::any_of(std::begin(g_stateNames), std::end(g_stateNames),
                                   [&](const char* name) { return same_text(name, state); });
    if (!known)
        tokens.fail("no such state: " + state);
    const std::string codes = tokens.done() ? "" : tokens.word();
    // cppcheck-suppress returnDanglingLifetime ; captured by value
    return [=] {
        const SERVICE_STATUS& now = scm().status;
        const std::string is = g_stateNames[now.dwCurrentState];
        const std::string has = format("%u/%u", now.dwWin32ExitCode, now.dwServiceSpecificExitCode);
        expectation(same_text(is, state) && (codes.empty() || codes == has),
                    "status " + state + " " + codes + ", it is " + is + " " + has);
    };
}

static const Commands g_commands({
    {"start", Use::Drive, compile_start},
    {"stop", Use::Drive, compile_stop},
    {"control", Use::Drive, compile_control},
    {"power", Use::Drive, compile_power},
    {"run", Use::Drive, compile_run},
    {"check status", Use::Check, compile_check_status},
});

} // namespace sim
