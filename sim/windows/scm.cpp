// The service control manager: one service, its status, its dispatcher thread and the controls it is sent.
#include "sim/windows/scm.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>

#include "sim/machine/machine.h"

namespace sim {

namespace {

// A control on its way to the handler.
struct Control {
    DWORD code = 0;
    DWORD event_type = 0;
    std::vector<BYTE> event_data;
    bool during_start = false;            // may reach a service that still starts
    bool from_client = false;             // whose own trace line tells the result
    DWORD error = NO_ERROR;               // with the status, once it is settled
    SERVICE_STATUS status = {};           //
    ObjectRef settled = make_event(true); // the handler has returned, or nobody waits for that any longer
};
using ControlRef = std::shared_ptr<Control>;

struct ServiceManager {
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
    Process* process = nullptr;
    LPHANDLER_FUNCTION_EX handler = nullptr;
    LPVOID context = nullptr;
    std::deque<ControlRef> waiting; // accepted, and held back until the one before is answered
    ControlRef asked;               // passed on, its answer awaited
    std::deque<ControlRef> passed;  // what the dispatcher has yet to hand to the handler
    ObjectRef asking = make_event();
    ObjectRef work = make_event(); // wakes the dispatcher
    bool dispatching = false;
    std::vector<GUID> settings; // registered
};

// The present values of the power settings: those of the machine, not of the service.
struct PowerSettings {
    std::vector<std::pair<GUID, DWORD>> values;
    bool told_at_registration = false;
};

} // namespace

static ServiceManager& scm() {
    return machine_state<ServiceManager>();
}

constexpr DWORD START_WAIT_HINT_MS = 2000; // until the service says otherwise
constexpr Ms ANSWER_LIMIT = 30000;         // for a handler, from when the control was passed on
constexpr DWORD KNOWN_ACCEPTED_CONTROLS = 0xFFF;
static const char g_serviceName[] = "ZORPMSVC";
const GUID g_monitorPowerOn = {0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};
const char* const g_stateNames[SERVICE_PAUSED + 1] = {
    "", "STOPPED", "START_PENDING", "STOP_PENDING", "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};

// The codes that a program may send; all others are the system's own, or none.
static const ControlRule g_controlRules[] = {
    // first, last, accepted with, right of the handle
    {SERVICE_CONTROL_STOP, SERVICE_CONTROL_STOP, SERVICE_ACCEPT_STOP, SERVICE_STOP},
    {SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE, SERVICE_ACCEPT_PAUSE_CONTINUE, SERVICE_PAUSE_CONTINUE},
    {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_INTERROGATE, 0, SERVICE_INTERROGATE},
    {SERVICE_CONTROL_PARAMCHANGE, SERVICE_CONTROL_PARAMCHANGE, SERVICE_ACCEPT_PARAMCHANGE,
     SERVICE_PAUSE_CONTINUE},
    {SERVICE_CONTROL_NETBINDADD, SERVICE_CONTROL_NETBINDDISABLE, SERVICE_ACCEPT_NETBINDCHANGE,
     SERVICE_PAUSE_CONTINUE},
    {128, 255, 0, SERVICE_USER_DEFINED_CONTROL},
};

const ControlRule* control_rule(DWORD code) {
    for (const ControlRule& rule : g_controlRules) {
        if (code >= rule.first && code <= rule.last)
            return &rule;
    }
    return nullptr;
}

DWORD control_error(DWORD code, DWORD state, DWORD accepted) {
    const ControlRule* rule = control_rule(code);
    if (rule == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (state == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING)
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    return (accepted & rule->accepted_with) == rule->accepted_with ? NO_ERROR : ERROR_INVALID_SERVICE_CONTROL;
}

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

// ---- from the manager to the handler ----

static void refuse(DWORD code, DWORD error) {
    trace("refused control %u", code);
    trace_detail("control %u: error %u", code, error);
}

static void pass_on() {
    ServiceManager& manager = scm();
    if (manager.asked != nullptr || manager.waiting.empty())
        return;
    manager.asked = manager.waiting.front();
    manager.waiting.pop_front();
    manager.passed.push_back(manager.asked);
    signal_object(*manager.work);
    signal_object(*manager.asking);
}

static void settle_control(const ControlRef& control, DWORD error) {
    if (control->settled->signaled)
        return;
    control->error = error;
    control->status = scm().status;
    if (error != NO_ERROR && !control->from_client)
        refuse(control->code, error);
    signal_object(*control->settled);
    if (scm().asked == control) {
        scm().asked = nullptr;
        pass_on();
    }
}

// Gives up on handlers that take too long, until the process has ended: then on all that wait. A process
// that ends without having said so leaves a stopped service.
static DWORD watch_service(Process* process) {
    enum { ENDED, ASKING };
    while (wait_for({process->object, scm().asking}, false, INFINITE) == ASKING) {
        const ControlRef control = scm().asked;
        if (control != nullptr &&
            wait_for({process->object, control->settled}, false, ANSWER_LIMIT) == WAIT_TIMEOUT)
            settle_control(control, ERROR_SERVICE_REQUEST_TIMEOUT);
    }
    if (scm().process != process)
        return 0;
    if (scm().status.dwCurrentState != SERVICE_STOPPED) {
        scm().status.dwCurrentState = SERVICE_STOPPED;
        scm().status.dwControlsAccepted = 0;
        scm().status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    }
    while (scm().asked != nullptr)
        settle_control(scm().asked, ERROR_SERVICE_NOT_ACTIVE);
    return 0;
}

void service_start() {
    ServiceManager& manager = scm();
    if (service_process() != nullptr) {
        trace("refused start");
        return;
    }
    while (manager.asked != nullptr)
        settle_control(manager.asked, ERROR_SERVICE_NOT_ACTIVE);
    manager.handler = nullptr;
    manager.passed.clear();
    manager.dispatching = false;
    manager.settings.clear();
    manager.status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, START_WAIT_HINT_MS};
    manager.process = start_process("", 0, true);
    Process* process = manager.process;
    start_thread(machine().host, "machine", [process] { return watch_service(process); });
}

// Whether the handler can be called at all.
static bool reachable(bool during_start) {
    const ServiceManager& manager = scm();
    const DWORD state = manager.status.dwCurrentState;
    return service_process() != nullptr && manager.handler != nullptr &&
           (state == SERVICE_RUNNING || state == SERVICE_PAUSED || state == SERVICE_PAUSE_PENDING ||
            state == SERVICE_CONTINUE_PENDING || (during_start && state == SERVICE_START_PENDING));
}

static ControlRef make_control(DWORD code, DWORD event_type = 0, std::vector<BYTE> event_data = {}) {
    auto control = std::make_shared<Control>();
    control->code = code;
    control->event_type = event_type;
    control->event_data = std::move(event_data);
    return control;
}

static void send_through_manager(const ControlRef& control) {
    scm().waiting.push_back(control);
    pass_on();
}

// Past the manager: nobody waits for the answer.
static void call_handler(const ControlRef& control) {
    if (!reachable(false)) {
        refuse(control->code, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
        return;
    }
    scm().passed.push_back(control);
    signal_object(*scm().work);
}

static DWORD error_of_control(DWORD code) {
    const ServiceManager& manager = scm();
    const DWORD state = service_process() != nullptr ? manager.status.dwCurrentState : SERVICE_STOPPED;
    return control_error(code, state, manager.status.dwControlsAccepted);
}

void service_control(DWORD code, Via via) {
    if (via == Via::Handler)
        return call_handler(make_control(code));
    const DWORD error = error_of_control(code);
    if (error != NO_ERROR)
        refuse(code, error);
    else
        send_through_manager(make_control(code));
}

DWORD service_send_control(DWORD code, SERVICE_STATUS* status) {
    const DWORD error = error_of_control(code);
    if (error != NO_ERROR) {
        if (error != ERROR_INVALID_PARAMETER)
            *status = scm().status;
        return error;
    }
    const ControlRef control = make_control(code);
    control->from_client = current() != nullptr;
    send_through_manager(control);
    if (current() == nullptr)
        return NO_ERROR;
    wait_for({control->settled}, false, INFINITE);
    if (control->error != ERROR_SERVICE_REQUEST_TIMEOUT)
        *status = control->status;
    return control->error;
}

void service_stop() {
    SERVICE_STATUS status;
    if (service_send_control(SERVICE_CONTROL_STOP, &status) != NO_ERROR)
        trace("refused stop");
}

void service_power_event(DWORD type, Via via) {
    const ControlRef control = make_control(SERVICE_CONTROL_POWEREVENT, type);
    if (via == Via::Handler)
        call_handler(control);
    else if ((scm().status.dwControlsAccepted & SERVICE_ACCEPT_POWEREVENT) == 0 || !reachable(false))
        refuse(control->code, ERROR_INVALID_SERVICE_CONTROL);
    else
        send_through_manager(control);
}

// ---- power settings ----

static DWORD* present_value(const GUID& setting) {
    auto& values = machine_state<PowerSettings>().values;
    if (values.empty())
        values.emplace_back(g_monitorPowerOn, 1);
    for (auto& [guid, value] : values) {
        if (guid == setting)
            return &value;
    }
    return nullptr;
}

static ControlRef make_setting_control(const GUID& setting, DWORD value) {
    std::vector<BYTE> data(sizeof(GUID) + 2 * sizeof(DWORD));
    const DWORD length = sizeof(value);
    std::memcpy(data.data(), &setting, sizeof(setting));
    std::memcpy(data.data() + sizeof(GUID), &length, sizeof(length));
    std::memcpy(data.data() + sizeof(GUID) + sizeof(length), &value, sizeof(value));
    ControlRef control = make_control(SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE, std::move(data));
    control->during_start = true;
    return control;
}

// Whoever has registered a setting is told, whatever controls it accepts.
static void tell_setting(const GUID& setting, DWORD value) {
    const auto& settings = scm().settings;
    if (std::find(settings.begin(), settings.end(), setting) == settings.end() || !reachable(true))
        refuse(SERVICE_CONTROL_POWEREVENT, ERROR_INVALID_SERVICE_CONTROL);
    else
        send_through_manager(make_setting_control(setting, value));
}

void service_power_setting(const GUID& setting, DWORD value, Via via) {
    if (via == Via::Handler)
        return call_handler(make_setting_control(setting, value));
    if (DWORD* present = present_value(setting); present != nullptr)
        *present = value;
    else
        machine_state<PowerSettings>().values.emplace_back(setting, value);
    tell_setting(setting, value);
}

void set_power_settings_at_registration(bool at_registration) {
    machine_state<PowerSettings>().told_at_registration = at_registration;
}

// ---- the dispatcher ----

// Runs the handler for each control until the service has stopped.
static void dispatch_controls() {
    ServiceManager& manager = scm();
    while (manager.status.dwCurrentState != SERVICE_STOPPED) {
        if (manager.passed.empty()) {
            wait_for({manager.work}, false, INFINITE);
            continue;
        }
        const ControlRef control = manager.passed.front();
        manager.passed.pop_front();
        if (!reachable(control->during_start)) {
            // It was accepted before the service began to stop.
            settle_control(control, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
            continue;
        }
        trace_detail("control %u type 0x%x", control->code, control->event_type);
        void* data = control->event_data.empty() ? nullptr : control->event_data.data();
        if (manager.handler(control->code, control->event_type, data, manager.context) != NO_ERROR)
            violation("the control handler returned an error for %u", control->code);
        settle_control(control, NO_ERROR);
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
        (status->dwControlsAccepted & ~KNOWN_ACCEPTED_CONTROLS) != 0 ||
        status->dwServiceType != SERVICE_WIN32_OWN_PROCESS) {
        violation("SetServiceStatus: state %u controls 0x%x type 0x%x", status->dwCurrentState,
                  status->dwControlsAccepted, status->dwServiceType);
        return fail_with(ERROR_INVALID_DATA);
    }
    if (manager.status.dwCurrentState == SERVICE_STOPPED)
        violation("SetServiceStatus: after SERVICE_STOPPED");
    manager.status = *status;
    std::string checkpoint;
    if (status->dwCheckPoint != 0)
        checkpoint = format(" checkpoint %u", status->dwCheckPoint);
    trace("status %s %u/%u%s", g_stateNames[status->dwCurrentState], status->dwWin32ExitCode,
          status->dwServiceSpecificExitCode, checkpoint.c_str());
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
    const DWORD* value = present_value(*setting);
    if (machine_state<PowerSettings>().told_at_registration && value != nullptr)
        tell_setting(*setting, *value);
    return open_handle(make_object(Kind::PowerNotify, "power setting"));
}

} // extern "C"
