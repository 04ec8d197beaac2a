// The service control manager as a client sees it.
#include "tests/platform/probe.h"

static const struct {
    const char* name;
    DWORD control;
} g_controls[] = {
    {"0", 0},
    {"pause", SERVICE_CONTROL_PAUSE},
    {"continue", SERVICE_CONTROL_CONTINUE},
    {"interrogate", SERVICE_CONTROL_INTERROGATE},
    {"shutdown", 5},
    {"parameters", SERVICE_CONTROL_PARAMCHANGE},
    {"net-bind-add", SERVICE_CONTROL_NETBINDADD},
    {"net-bind-remove", 8},
    {"net-bind-enable", 9},
    {"net-bind-disable", SERVICE_CONTROL_NETBINDDISABLE},
    {"device-event", 11},
    {"hardware-profile", 12},
    {"power", SERVICE_CONTROL_POWEREVENT},
    {"session", 14},
    {"before-shutdown", 15},
    {"127", 127},
    {"128", 128},
    {"255", 255},
    {"256", 256},
    {"largest", 0xFFFFFFFF},
};

static DWORD control_with(SC_HANDLE manager, const WCHAR* name, DWORD access, DWORD control) {
    SC_HANDLE service = OpenServiceW(manager, name, access);
    SERVICE_STATUS status = {};
    const DWORD error = ERROR_OF(ControlService(service, control, &status));
    CloseServiceHandle(service);
    return error;
}

static DWORD queried(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return QueryServiceStatus(service, &status) ? status.dwCurrentState : 1000 + GetLastError();
}

static void probe_manager(SC_HANDLE manager) {
    group("manager");
    fact("opened", manager != nullptr);
    fact("service-missing", ERROR_OF(OpenServiceW(manager, L"ZorpmNone", SERVICE_QUERY_STATUS)));
    fact("service-empty-name", ERROR_OF(OpenServiceW(manager, L"", SERVICE_QUERY_STATUS)));
    fact("service-of-null", ERROR_OF(OpenServiceW(nullptr, L"ZorpmNone", SERVICE_QUERY_STATUS)));
    fact("close-null", ERROR_OF(CloseServiceHandle(nullptr)));
    SERVICE_STATUS status = {};
    fact("query-null", ERROR_OF(QueryServiceStatus(nullptr, &status)));
    fact("control-null", ERROR_OF(ControlService(nullptr, SERVICE_CONTROL_INTERROGATE, &status)));
    fact("close", CloseServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)));
    fact("handler-of-no-service",
         ERROR_OF(RegisterServiceCtrlHandlerExW(
             L"ZorpmNone", [](DWORD, DWORD, LPVOID, LPVOID) { return DWORD{0}; }, nullptr)));
    const SERVICE_TABLE_ENTRYW table[] = {{const_cast<WCHAR*>(L"ZorpmNone"), [](DWORD, LPWSTR*) {}},
                                          {nullptr, nullptr}};
    fact("dispatcher-of-a-program", ERROR_OF(StartServiceCtrlDispatcherW(table)));
}

static void probe_status(SC_HANDLE service) {
    group("service-status");
    SERVICE_STATUS status = {};
    fact("query", QueryServiceStatus(service, &status));
    fact("type", status.dwServiceType);
    fact("state", status.dwCurrentState);
    fact("accepted", status.dwControlsAccepted);
    fact("exit-code", status.dwWin32ExitCode);
    SERVICE_STATUS_PROCESS longer = {};
    auto* buffer = reinterpret_cast<BYTE*>(&longer);
    DWORD needed = 99;
    fact("long",
         ERROR_OF(QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, buffer, sizeof(longer), &needed)));
    fact("long-needed", needed);
    fact("long-state", longer.dwCurrentState);
    fact("long-short", ERROR_OF(QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, buffer, 35, &needed)));
    fact("long-short-needed", needed);
    fact("long-nothing",
         ERROR_OF(QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, nullptr, 0, &needed)));
    fact("long-level", ERROR_OF(QueryServiceStatusEx(service, static_cast<SC_STATUS_TYPE>(1), buffer,
                                                     sizeof(longer), &needed)));
}

void probe_services() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    probe_manager(manager);
    const WCHAR* name = probe_service();
    if (name == nullptr)
        return;
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_ALL_ACCESS);
    probe_status(service);
    group("control");
    SERVICE_STATUS status = {};
    for (const auto& row : g_controls)
        fact(row.name, ERROR_OF(ControlService(service, row.control, &status)));
    ControlService(service, SERVICE_CONTROL_INTERROGATE, &status);
    fact("interrogate-state", status.dwCurrentState);
    group("control-right");
    fact("stop-to-asker", control_with(manager, name, SERVICE_QUERY_STATUS, SERVICE_CONTROL_STOP));
    fact("interrogate-to-asker",
         control_with(manager, name, SERVICE_QUERY_STATUS, SERVICE_CONTROL_INTERROGATE));
    fact("128-to-stopper", control_with(manager, name, SERVICE_STOP, 128));
    fact("128", control_with(manager, name, SERVICE_USER_DEFINED_CONTROL, 128));
    fact("unknown-to-asker", control_with(manager, name, SERVICE_QUERY_STATUS, 127));
    fact("name-other-case", ERROR_OF(OpenServiceW(manager, name[0] == L'M' ? L"mplatsvc" : L"zorpmprobe",
                                                  SERVICE_QUERY_STATUS)));
    group("control");
    fact("stop", ERROR_OF(ControlService(service, SERVICE_CONTROL_STOP, &status)));
    for (int i = 0; i < 100 && queried(service) != SERVICE_STOPPED; ++i)
        Sleep(50);
    fact("stop-state", queried(service));
    group("control-stopped");
    for (const auto& row : g_controls)
        fact(row.name, ERROR_OF(ControlService(service, row.control, &status)));
    fact("stop", ERROR_OF(ControlService(service, SERVICE_CONTROL_STOP, &status)));
    QueryServiceStatus(service, &status);
    fact("accepted", status.dwControlsAccepted);
}
