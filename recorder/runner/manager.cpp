#include "recorder/runner/manager.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "recorder/clock/turns.h"
#include "recorder/runner/images.h"
#include "recorder/runner/output.h"
#include "recorder/runner/power.h"

namespace runner {

namespace {

struct Control {
    DWORD code = 0;
    DWORD event_type = 0;
    std::vector<BYTE> event_data;
    bool during_start = false; // may reach a service that still starts
    bool settled = false;      // the handler has returned, or nobody waits for that any longer
    HANDLE answered = nullptr; // of a program that waits for it
    DWORD error = NO_ERROR;
    SERVICE_STATUS status = {};
};
using ControlRef = std::shared_ptr<Control>;

} // namespace

constexpr DWORD START_WAIT_HINT_MS = 2000;
constexpr DWORD ANSWER_LIMIT_MS = 30000;
const GUID g_monitorPowerOn = {0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};
static const auto g_statusHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(ULONG_PTR{0x5EE1});

static SERVICE_STATUS g_status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
static DWORD g_process = 0; // 0: none
static bool g_dispatching = false;
static LPHANDLER_FUNCTION_EX g_handler = nullptr;
static LPVOID g_context = nullptr;
static LPSERVICE_MAIN_FUNCTIONW g_serviceMain = nullptr;
static std::deque<ControlRef> g_held;   // accepted, and held back until the one before is answered
static ControlRef g_asked;              // passed on, its answer awaited
static std::deque<ControlRef> g_passed; // what the dispatcher has yet to hand to the handler
static HANDLE g_work = nullptr;         // wakes the dispatcher
static HANDLE g_asking = nullptr;       // wakes the watch
static HANDLE g_answered = nullptr;     //
static std::vector<GUID> g_settings;    // registered
static std::vector<std::pair<GUID, DWORD>> g_values = {{g_monitorPowerOn, 1}};
static bool g_toldAtRegistration = false;

const SERVICE_STATUS& service_status() {
    return g_status;
}

DWORD service_process() {
    return g_process;
}

static void refuse(DWORD code) {
    effect("refused control %lu", code);
}

static void signal_event(HANDLE event) {
    SetEvent(event);
    turns::signalled();
}

static void pass_on() {
    if (g_asked != nullptr || g_held.empty())
        return;
    g_asked = g_held.front();
    g_held.pop_front();
    g_passed.push_back(g_asked);
    signal_event(g_work);
    signal_event(g_asking);
}

static void settle_control(const ControlRef& control, DWORD error) {
    if (control->settled)
        return;
    control->settled = true;
    control->error = error;
    control->status = g_status;
    if (control->answered != nullptr)
        signal_event(control->answered);
    else if (error != NO_ERROR)
        refuse(control->code);
    if (g_asked == control) {
        g_asked = nullptr;
        signal_event(g_answered);
        pass_on();
    }
}

// Gives up on handlers that take too long.
static DWORD WINAPI watch_answers(LPVOID) {
    for (;;) {
        turns::wait(1, &g_asking, FALSE, INFINITE);
        const ControlRef control = g_asked;
        while (control != nullptr && !control->settled) {
            if (turns::wait(1, &g_answered, FALSE, ANSWER_LIMIT_MS) == WAIT_TIMEOUT)
                settle_control(control, ERROR_SERVICE_REQUEST_TIMEOUT);
        }
    }
}

// A process that ends without having said so leaves a stopped service.
static void service_ended() {
    g_process = 0;
    if (g_status.dwCurrentState != SERVICE_STOPPED) {
        g_status.dwCurrentState = SERVICE_STOPPED;
        g_status.dwControlsAccepted = 0;
        g_status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    }
    while (g_asked != nullptr)
        settle_control(g_asked, ERROR_SERVICE_NOT_ACTIVE);
}

void service_start() {
    if (g_process != 0) {
        effect("refused start");
        return;
    }
    if (g_work == nullptr) {
        g_work = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        g_asking = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        g_answered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        CloseHandle(turns::start_thread("machine", watch_answers, nullptr, 0, nullptr));
    }
    g_handler = nullptr;
    g_passed.clear();
    g_dispatching = false;
    g_settings.clear();
    ResetEvent(g_work);
    take_service_token();
    g_status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, START_WAIT_HINT_MS};
    g_process = start_image({"zorpm_image", "dispatcher", "", "", service_ended});
}

// ---- controls ----

static bool reachable(bool during_start) {
    const DWORD state = g_status.dwCurrentState;
    return g_process != 0 && g_handler != nullptr &&
           (state == SERVICE_RUNNING || state == SERVICE_PAUSED || state == SERVICE_PAUSE_PENDING ||
            state == SERVICE_CONTINUE_PENDING || (during_start && state == SERVICE_START_PENDING));
}

static ControlRef make_control(DWORD code, DWORD event_type = 0) {
    auto control = std::make_shared<Control>();
    control->code = code;
    control->event_type = event_type;
    return control;
}

static void send_through_manager(const ControlRef& control) {
    g_held.push_back(control);
    pass_on();
}

static void call_handler(const ControlRef& control) {
    if (!reachable(false))
        return refuse(control->code);
    g_passed.push_back(control);
    signal_event(g_work);
}

// clang-format off
static const struct { DWORD first; DWORD last; DWORD accepted_with; } g_controls[] = {
    {SERVICE_CONTROL_STOP,        SERVICE_CONTROL_STOP,           SERVICE_ACCEPT_STOP},
    {SERVICE_CONTROL_PAUSE,       SERVICE_CONTROL_CONTINUE,       SERVICE_ACCEPT_PAUSE_CONTINUE},
    {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_INTERROGATE,    0},
    {SERVICE_CONTROL_PARAMCHANGE, SERVICE_CONTROL_PARAMCHANGE,    SERVICE_ACCEPT_PARAMCHANGE},
    {SERVICE_CONTROL_NETBINDADD,  SERVICE_CONTROL_NETBINDDISABLE, SERVICE_ACCEPT_NETBINDCHANGE},
    {128,                         255,                            0},
};
// clang-format on

static DWORD error_of_control(DWORD code) {
    const auto* rule = std::find_if(std::begin(g_controls), std::end(g_controls), [code](const auto& row) {
        return code >= row.first && code <= row.last;
    });
    const DWORD state = g_process != 0 ? g_status.dwCurrentState : DWORD{SERVICE_STOPPED};
    if (rule == std::end(g_controls))
        return ERROR_INVALID_PARAMETER;
    if (state == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING)
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    return (g_status.dwControlsAccepted & rule->accepted_with) == rule->accepted_with
               ? NO_ERROR
               : ERROR_INVALID_SERVICE_CONTROL;
}

void service_control(DWORD code, Via via) {
    if (via == Via::Handler)
        call_handler(make_control(code));
    else if (error_of_control(code) != NO_ERROR)
        refuse(code);
    else
        send_through_manager(make_control(code));
}

DWORD service_send_control(DWORD code, SERVICE_STATUS* status) {
    const DWORD error = error_of_control(code);
    if (error != NO_ERROR) {
        if (error != ERROR_INVALID_PARAMETER)
            *status = g_status;
        return error;
    }
    const ControlRef control = make_control(code);
    control->answered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    send_through_manager(control);
    turns::wait(1, &control->answered, FALSE, INFINITE);
    if (control->error != ERROR_SERVICE_REQUEST_TIMEOUT)
        *status = control->status;
    return control->error;
}

void service_stop() {
    if (error_of_control(SERVICE_CONTROL_STOP) == NO_ERROR)
        send_through_manager(make_control(SERVICE_CONTROL_STOP));
    else
        effect("refused stop");
}

void service_power_event(DWORD type, Via via) {
    const ControlRef control = make_control(SERVICE_CONTROL_POWEREVENT, type);
    if (via == Via::Handler)
        call_handler(control);
    else if ((g_status.dwControlsAccepted & SERVICE_ACCEPT_POWEREVENT) == 0 || !reachable(false))
        refuse(control->code);
    else
        send_through_manager(control);
}

// ---- power settings ----

static ControlRef make_setting_control(const GUID& setting, DWORD value) {
    const ControlRef control = make_control(SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE);
    const DWORD length = sizeof(value);
    control->event_data.resize(sizeof(GUID) + 2 * sizeof(DWORD));
    std::memcpy(control->event_data.data(), &setting, sizeof(setting));
    std::memcpy(control->event_data.data() + sizeof(GUID), &length, sizeof(length));
    std::memcpy(control->event_data.data() + sizeof(GUID) + sizeof(length), &value, sizeof(value));
    control->during_start = true;
    return control;
}

static void tell_setting(const GUID& setting, DWORD value) {
    const bool registered = std::any_of(g_settings.begin(), g_settings.end(),
                                        [&](const GUID& other) { return IsEqualGUID(other, setting); });
    if (!registered || !reachable(true))
        refuse(SERVICE_CONTROL_POWEREVENT);
    else
        send_through_manager(make_setting_control(setting, value));
}

static DWORD* present_value(const GUID& setting) {
    for (auto& [guid, value] : g_values) {
        if (IsEqualGUID(guid, setting))
            return &value;
    }
    return nullptr;
}

void service_power_setting(const GUID& setting, DWORD value, Via via) {
    if (via == Via::Handler)
        return call_handler(make_setting_control(setting, value));
    if (DWORD* present = present_value(setting))
        *present = value;
    else
        g_values.emplace_back(setting, value);
    tell_setting(setting, value);
}

void set_power_settings_at_registration(bool at_registration) {
    g_toldAtRegistration = at_registration;
}

// ---- the wrapped calls ----

static DWORD WINAPI run_service_main(LPVOID) {
    wchar_t name[] = L"ZORPMSVC";
    wchar_t* arguments[] = {name, nullptr};
    g_serviceMain(1, arguments);
    return 0;
}

static void dispatch_controls() {
    while (g_status.dwCurrentState != SERVICE_STOPPED) {
        if (g_passed.empty()) {
            turns::wait(1, &g_work, FALSE, INFINITE);
            continue;
        }
        const ControlRef control = g_passed.front();
        g_passed.pop_front();
        if (!reachable(control->during_start)) {
            settle_control(
                control,
                ERROR_SERVICE_CANNOT_ACCEPT_CTRL); // it was accepted before the service began to stop
            continue;
        }
        void* data = control->event_data.empty() ? nullptr : control->event_data.data();
        g_handler(control->code, control->event_type, data, g_context);
        settle_control(control, NO_ERROR);
    }
}

BOOL start_dispatcher(const SERVICE_TABLE_ENTRYW* table) {
    if (g_process == 0 || current_image() != g_process) {
        SetLastError(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        return FALSE;
    }
    g_dispatching = true;
    g_serviceMain = table[0].lpServiceProc;
    CloseHandle(turns::start_thread("ServiceMain", run_service_main, nullptr, 0, nullptr));
    dispatch_controls();
    return TRUE;
}

SERVICE_STATUS_HANDLE register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
    if (lstrcmpiW(name, L"ZORPMSVC") != 0 || !g_dispatching) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    g_handler = handler;
    g_context = context;
    return g_statusHandle;
}

BOOL set_status(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status) {
    if (service != g_statusHandle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    g_status = *status;
    if (status->dwCurrentState == SERVICE_STOPPED)
        signal_event(g_work);
    return TRUE;
}

HPOWERNOTIFY register_power_setting(HANDLE recipient, LPCGUID setting, DWORD flags) {
    if (recipient != static_cast<HANDLE>(g_statusHandle) || flags != DEVICE_NOTIFY_SERVICE_HANDLE) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    g_settings.push_back(*setting);
    const DWORD* value = present_value(*setting);
    if (g_toldAtRegistration && value != nullptr)
        tell_setting(*setting, *value);
    return CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

} // namespace runner
