// The service control manager's side.
#include <map>

#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"
#include "recorder/symbols.h"

namespace record {

// ---- begin and end ----

using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);

static OSVERSIONINFOW windows_version() {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    const auto ask = reinterpret_cast<RtlGetVersion>(
        reinterpret_cast<void*>(os::GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    if (ask != nullptr)
        ask(&version);
    return version;
}

static void tell_head(const OSVERSIONINFOW& version) {
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    char line[96];
    std::snprintf(line, sizeof(line), "# Windows %lu.%lu.%lu, %04u-%02u-%02u %02u:%02u UTC",
                  version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber, now.wYear,
                  now.wMonth, now.wDay, now.wHour, now.wMinute);
    if (fresh_journal()) {
        command("# zorpmsim recording 1");
        command("# zorpmsvc " RECORDED_VERSION);
    }
    command(line);
    if (!fresh_journal())
        return;
    command("# replaced: accounts' SIDs, folders of profiles, names of accounts and of this machine");
}

static const char g_lastEffect[] = "process \"\" ended 0";

static void begin() {
    symbols::name_at(nullptr); // reads the file: not later, with the lock held
    if (!begin_journal(usual_settings()))
        return;
    // The bench has no word for a process that was ended in the midst: what comes behind is a file of its
    // own.
    if (!fresh_journal() && !ends_with(g_lastEffect)) {
        const Guard guard;
        begin_new_file();
    }
    const OSVERSIONINFOW version = windows_version();
    {
        const Guard guard;
        tell_head(version);
        const std::string known = "windows version " + std::to_string(version.dwMajorVersion) + "." +
                                  std::to_string(version.dwMinorVersion);
        tell("version", known);
        tell_start_values();
    }
    SYSTEMTIME time;
    local_time(&time);
    begin_clock();
    const Guard guard;
    command("start");
}

static LPSERVICE_MAIN_FUNCTIONW g_serviceMain = nullptr;

static void WINAPI service_main(DWORD count, LPWSTR* arguments) {
    begin();
    if (recording()) {
        const Guard guard;
        name_thread("ServiceMain");
    }
    g_serviceMain(count, arguments);
}

// Returns when the service has stopped; the process ends then.
BOOL WINAPI start_dispatcher(const SERVICE_TABLE_ENTRYW* table) {
    SERVICE_TABLE_ENTRYW own[2] = {table[0], {}};
    g_serviceMain = table[0].lpServiceProc;
    own[0].lpServiceProc = service_main;
    const BOOL dispatched = os::StartServiceCtrlDispatcherW(own);
    if (!recording())
        return dispatched;
    const Guard guard;
    name_thread("dispatcher");
    effect("%s", g_lastEffect);
    end_journal();
    return dispatched;
}

// ---- controls ----

static LPHANDLER_FUNCTION_EX g_handler = nullptr;
static DWORD g_accepted = 0; // what the service has said last that it accepts
static const GUID g_monitorPowerOn = {
    0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};

static std::string guid_text(const GUID& guid) {
    wchar_t text[64] = L"";
    StringFromGUID2(guid, text, ARRAYSIZE(text));
    const std::string plain = lines::narrow(text);
    return plain.size() > 2 ? plain.substr(1, plain.size() - 2) : plain;
}

static std::string power_setting(const void* data) {
    const auto* setting = static_cast<const POWERBROADCAST_SETTING*>(data);
    DWORD value = 0;
    memcpy(&value, setting->Data, std::min<size_t>(setting->DataLength, sizeof(value)));
    if (IsEqualGUID(setting->PowerSetting, g_monitorPowerOn))
        return "power monitor " + std::to_string(value);
    return "power setting " + guid_text(setting->PowerSetting) + " " + std::to_string(value);
}

// On the bench, too, the manager delivers what is accepted; what has come all the same came past it.
static std::string control_line(DWORD code, DWORD type, const void* data) {
    if (code == SERVICE_CONTROL_STOP)
        return "stop";
    const bool power = code == SERVICE_CONTROL_POWEREVENT;
    if (power && type == PBT_POWERSETTINGCHANGE && data != nullptr)
        return power_setting(data);
    if (!power)
        return (code >= 128 || code == SERVICE_CONTROL_INTERROGATE ? "control " : "handler ") +
               std::to_string(code);
    return ((g_accepted & SERVICE_ACCEPT_POWEREVENT) != 0 ? "power event " : "handler power event ") +
           std::to_string(type);
}

static DWORD WINAPI handle(DWORD code, DWORD type, LPVOID data, LPVOID context) {
    if (recording()) {
        const Guard guard;
        name_thread("dispatcher");
        command(control_line(code, type, data));
    }
    return g_handler(code, type, data, context);
}

SERVICE_STATUS_HANDLE WINAPI register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
    g_handler = handler;
    SERVICE_STATUS_HANDLE service = os::RegisterServiceCtrlHandlerExW(name, handle, context);
    if (recording()) {
        const Guard guard;
        outcome("RegisterServiceCtrlHandlerExW", service == nullptr);
    }
    return service;
}

// The line comes first: what the manager does about it - a control, the end of the process - is behind it.
BOOL WINAPI set_status(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status) {
    if (recording()) {
        const Guard guard;
        g_accepted = status->dwControlsAccepted;
        effect("%s", lines::status_line(*status).c_str());
    }
    const BOOL done = os::SetServiceStatus(service, status);
    if (recording() && !done) {
        const Guard guard;
        command("# SetServiceStatus has failed");
    }
    return done;
}

HPOWERNOTIFY WINAPI register_power_setting(HANDLE recipient, LPCGUID setting, DWORD flags) {
    HPOWERNOTIFY registered = os::RegisterPowerSettingNotification(recipient, setting, flags);
    if (recording()) {
        const Guard guard;
        outcome("RegisterPowerSettingNotification", registered == nullptr);
    }
    return registered;
}

// ---- other services ----

static std::map<SC_HANDLE, std::string> g_services;

SC_HANDLE WINAPI open_service(SC_HANDLE manager, LPCWSTR name, DWORD access) {
    SC_HANDLE service = os::OpenServiceW(manager, name, access);
    if (recording() && service != nullptr) {
        const Guard guard;
        g_services[service] = lines::narrow(name);
    }
    return service;
}

BOOL WINAPI control_service(SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
    const BOOL sent = os::ControlService(service, control, status);
    if (recording()) {
        const Guard guard;
        effect("call ControlService(\"%s\", %lu) = %d", g_services[service].c_str(), control, sent);
    }
    return sent;
}

} // namespace record
