#include "sim/windows/scm_client.h"

#include <cstring>

#include "sim/machine/machine.h"
#include "sim/windows/scm.h"

namespace sim {

constexpr DWORD SERVICE_STOP = 0x20;

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

constexpr DWORD FIRST_USER_CONTROL = 128;

static DWORD send_control(const std::string& name, DWORD control, SERVICE_STATUS* status) {
    if (control != SERVICE_CONTROL_STOP && (control < FIRST_USER_CONTROL || control > 255))
        return ERROR_INVALID_PARAMETER;
    if (same_text(name, "ZORPMSVC"))
        return service_send_control(control, status);
    if (!platform_service().running)
        return ERROR_SERVICE_NOT_ACTIVE;
    platform_service().running = false;
    return ERROR_SUCCESS;
}

} // namespace sim

using namespace sim;

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    return open_service_handle(Kind::ServiceManager, "service control manager", access);
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR wide_name, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (service_entry(manager, Kind::ServiceManager, SC_MANAGER_CONNECT, "OpenServiceW") == nullptr)
        return nullptr;
    const std::string name = narrow(wide_name);
    if (!same_text(name, "ZORPMSVC") && !(same_text(name, "MPLATSVC") && platform_service().installed)) {
        set_last_error(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    return open_service_handle(Kind::Service, name, access);
}

BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const DWORD access = control == SERVICE_CONTROL_STOP ? SERVICE_STOP : SERVICE_USER_DEFINED_CONTROL;
    HandleEntry* entry = service_entry(service, Kind::Service, access, "ControlService");
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
    if (service_entry(service, Kind::Service, SERVICE_QUERY_STATUS, "QueryServiceStatus") == nullptr)
        return FALSE;
    *status = service_status();
    return TRUE;
}

BOOL WINAPI QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE, LPBYTE buffer, DWORD bytes,
                                 LPDWORD needed) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    if (service_entry(service, Kind::Service, SERVICE_QUERY_STATUS, "QueryServiceStatusEx") == nullptr)
        return FALSE;
    const SERVICE_STATUS now = service_status();
    SERVICE_STATUS_PROCESS status = {};
    *needed = sizeof(status);
    if (bytes < sizeof(status)) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(&status, &now, sizeof(now));
    status.dwProcessId = service_process() != nullptr ? service_process()->id : 0;
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
