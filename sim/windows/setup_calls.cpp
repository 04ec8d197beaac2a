#include "sim/windows/setup_calls.h"

#include "sim/windows/plain_files.h"
#include "sim/windows/scm.h"

// The executable's one data resource, the bytes of the file.
asm(".section .rodata\n"
    ".global zorpm_embedded_inf, zorpm_embedded_inf_end\n"
    "zorpm_embedded_inf:\n"
    ".incbin \"" ZORPM_SOURCE_DIR "/src/setup/zorpmdrv.inf\"\n"
    "zorpm_embedded_inf_end:\n"
    ".byte 0\n"
    ".previous\n");
extern "C" const char zorpm_embedded_inf[];
extern "C" const char zorpm_embedded_inf_end[];

namespace sim {

struct OtherServices {
    bool installed = true;
    bool running = false;
    bool redirection_works = false;
};

struct Redirection {
    bool off = false;
};

static OtherServices& others() {
    return machine_state<OtherServices>();
}

void set_platform_service(bool installed, bool running) {
    others().installed = installed;
    others().running = running;
}

void set_redirection_works(bool works) {
    others().redirection_works = works;
}

bool redirection_off(Process* process) {
    return process_state<Redirection>(process).off;
}

std::string embedded_inf() {
    return {zorpm_embedded_inf, zorpm_embedded_inf_end};
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
    if (!others().running)
        return ERROR_SERVICE_NOT_ACTIVE;
    others().running = false;
    return ERROR_SUCCESS;
}

constexpr DWORD SERVICE_STOP = 0x20;
constexpr DWORD RESOURCE_NOT_THERE = 1814;
constexpr ULONG_PTR RESOURCE = 0x7E5;

static bool is_id(LPCWSTR name, WORD id) {
    return reinterpret_cast<ULONG_PTR>(name) == id;
}

} // namespace sim

using namespace sim;

extern "C" {

HRSRC WINAPI FindResourceW(HMODULE, LPCWSTR name, LPCWSTR type) {
    SIM_CALL(nullptr, RESOURCE_NOT_THERE);
    if (is_id(name, 105) && is_id(type, 10))
        return reinterpret_cast<HRSRC>(RESOURCE);
    set_last_error(RESOURCE_NOT_THERE);
    return nullptr;
}

HGLOBAL WINAPI LoadResource(HMODULE, HRSRC resource) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    return resource;
}

LPVOID WINAPI LockResource(HGLOBAL loaded) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    return loaded != nullptr ? const_cast<char*>(zorpm_embedded_inf) : nullptr;
}

DWORD WINAPI SizeofResource(HMODULE, HRSRC) {
    SIM_CALL(0, RESOURCE_NOT_THERE);
    return static_cast<DWORD>(zorpm_embedded_inf_end - zorpm_embedded_inf);
}

BOOL WINAPI Wow64DisableWow64FsRedirection(PVOID* old) {
    SIM_CALL(FALSE, ERROR_INVALID_FUNCTION);
    if (!others().redirection_works) {
        set_last_error(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    process_state<Redirection>().off = true;
    *old = reinterpret_cast<PVOID>(RESOURCE);
    return TRUE;
}

BOOL WINAPI Wow64RevertWow64FsRedirection(PVOID old) {
    SIM_VISIT();
    if (!process_state<Redirection>().off || old != reinterpret_cast<PVOID>(RESOURCE))
        violation("Wow64RevertWow64FsRedirection: nothing was turned off");
    process_state<Redirection>().off = false;
    return TRUE;
}

BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR command_line, LPSECURITY_ATTRIBUTES,
                           LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD flags, LPVOID environment,
                           LPCWSTR directory, STARTUPINFOW* startup, PROCESS_INFORMATION* process) {
    SIM_CALL(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    const std::string program = narrow(application);
    const std::string line = narrow(command_line);
    if (application == nullptr) { // by its command line, as the control program does
        process->hProcess = start_plain_program(line);
        process->hThread =
            process->hProcess != nullptr ? open_handle(make_object(Kind::Thread, line)) : nullptr;
        return process->hProcess != nullptr;
    }
    STARTUPINFOW zeroed = {};
    zeroed.cb = sizeof(zeroed);
    if (std::memcmp(startup, &zeroed, sizeof(zeroed)) != 0)
        violation("CreateProcessW: the startup record is not zeroed");
    if (inherit != FALSE || flags != CREATE_NEW_PROCESS_GROUP || environment != nullptr ||
        directory != nullptr)
        violation("CreateProcessW: inherit %d flags 0x%x", inherit, flags);
    const PlainFile* file = find_file(program);
    const bool starts = file != nullptr && !file->directory;
    trace("call CreateProcessW(\"%s\", \"%s\") = %d", program.c_str(), line.c_str(), starts);
    if (!starts) {
        set_last_error(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    process->hProcess = open_handle(make_object(Kind::Process, program));
    process->hThread = open_handle(make_object(Kind::Thread, program));
    process->dwProcessId = 4;
    process->dwThreadId = 8;
    return TRUE;
}

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    return open_service_handle(Kind::ServiceManager, "service control manager", access);
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR wide_name, DWORD access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (service_entry(manager, Kind::ServiceManager, SC_MANAGER_CONNECT, "OpenServiceW") == nullptr)
        return nullptr;
    const std::string name = narrow(wide_name);
    if (!same_text(name, "ZORPMSVC") && !(same_text(name, "MPLATSVC") && others().installed)) {
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
