#include "sim/windows/scm_client.h"

#include <cstring>

#include "sim/machine/machine.h"
#include "sim/windows/scm.h"

namespace sim {

namespace {

struct PlatformService {
    bool installed = true;
    bool running = false;
};

} // namespace

static PlatformService& platform_service() {
    return machine_state<PlatformService>();
}

void set_platform_service(bool installed, bool running) {
    platform_service() = {installed, running};
}

// Handles of the service control manager are no kernel handles; CloseHandle on one is a violation as it
// should be.
static SC_HANDLE open_service_handle(Kind kind, const std::string& name, DWORD access) {
    return reinterpret_cast<SC_HANDLE>(open_handle(make_object(kind, name), access));
}

static HandleEntry* service_entry(SC_HANDLE handle, Kind kind, DWORD access, const char* call) {
    HandleEntry* entry = handle_entry(reinterpret_cast<HANDLE>(handle), kind, call);
    if (entry == nullptr || (entry->access & access) == access)
        return entry;
    violation("%s: the handle lacks the access 0x%x", call, access);
    set_last_error(ERROR_ACCESS_DENIED);
    return nullptr;
}

static SERVICE_STATUS platform_service_status() {
    const bool running = platform_service().running;
    return {SERVICE_WIN32_OWN_PROCESS,
            running ? SERVICE_RUNNING : SERVICE_STOPPED,
            running ? SERVICE_ACCEPT_STOP : 0,
            0,
            0,
            0,
            0};
}

static SERVICE_STATUS status_of(const std::string& name) {
    return same_text(name, "ZORPMSVC") ? service_status() : platform_service_status();
}

static DWORD send_control(const std::string& name, DWORD control, SERVICE_STATUS* status) {
    if (same_text(name, "ZORPMSVC"))
        return service_send_control(control, status);
    *status = platform_service_status();
    const DWORD error = control_error(control, status->dwCurrentState, status->dwControlsAccepted);
    if (error == NO_ERROR && control == SERVICE_CONTROL_STOP) {
        platform_service().running = false;
        *status = platform_service_status();
    }
    return error;
}

} // namespace sim

using namespace sim;

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR computer, LPCWSTR database, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (computer != nullptr || database != nullptr)
        violation("OpenSCManagerW: another computer, or another database");
    return open_service_handle(Kind::ServiceManager, "service control manager", access);
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR wide_name, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (service_entry(manager, Kind::ServiceManager, SC_MANAGER_CONNECT, "OpenServiceW") == nullptr)
        return nullptr;
    const std::string name = narrow(wide_name);
    if (name.empty()) {
        set_last_error(ERROR_INVALID_NAME);
        return nullptr;
    }
    if (!same_text(name, "ZORPMSVC") && !(same_text(name, "MPLATSVC") && platform_service().installed)) {
        set_last_error(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    return open_service_handle(Kind::Service, name, access);
}

BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    std::memset(status, RUBBISH & 0xFF, sizeof(*status));
    const ControlRule* rule = control_rule(control);
    HandleEntry* entry =
        service_entry(service, Kind::Service, rule != nullptr ? rule->right : 0, "ControlService");
    if (entry == nullptr)
        return FALSE;
    const ObjectRef object = entry->object;
    const DWORD error = send_control(object->name, control, status);
    trace("call ControlService(\"%s\", %u) = %d", object->name.c_str(), control, error == ERROR_SUCCESS);
    if (error != ERROR_SUCCESS)
        set_last_error(error);
    return error == ERROR_SUCCESS;
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const HandleEntry* entry =
        service_entry(service, Kind::Service, SERVICE_QUERY_STATUS, "QueryServiceStatus");
    if (entry == nullptr)
        return FALSE;
    *status = status_of(entry->object->name);
    return TRUE;
}

BOOL WINAPI QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes,
                                 LPDWORD needed) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const HandleEntry* entry =
        service_entry(service, Kind::Service, SERVICE_QUERY_STATUS, "QueryServiceStatusEx");
    if (entry == nullptr)
        return FALSE;
    if (level != SC_STATUS_PROCESS_INFO) {
        violation("QueryServiceStatusEx: level %u", level);
        return fail_with(ERROR_INVALID_LEVEL);
    }
    const SERVICE_STATUS now = status_of(entry->object->name);
    SERVICE_STATUS_PROCESS status = {};
    *needed = sizeof(status);
    if (bytes < sizeof(status)) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(&status, &now, sizeof(now));
    if (same_text(entry->object->name, "ZORPMSVC") && service_process() != nullptr)
        status.dwProcessId = service_process()->id;
    std::memcpy(buffer, &status, sizeof(status));
    return TRUE;
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE service) {
    SIM_VISIT();
    const auto handle = reinterpret_cast<HANDLE>(service);
    HandleEntry* entry = any_handle(handle, "CloseServiceHandle");
    if (entry != nullptr && entry->object->kind != Kind::Service &&
        entry->object->kind != Kind::ServiceManager) {
        violation("CloseServiceHandle: a handle of another kind");
        return FALSE;
    }
    return close_handle(handle, "CloseServiceHandle");
}

} // extern "C"
