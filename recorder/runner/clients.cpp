#include "recorder/runner/clients.h"

#include <cstring>
#include <map>
#include <memory>
#include <shlobj.h>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/images.h"
#include "recorder/runner/manager.h"
#include "recorder/runner/output.h"
#include "recorder/runner/settings.h"

namespace runner {

// ---- the service control manager, from its other side ----

static const char g_ownService[] = "ZORPMSVC";
static const char g_platformService[] = "MPLATSVC"; // installed, and stopped
static std::map<SC_HANDLE, std::string> g_services; // open handles; the manager's own is ""

static bool same_name(const std::string& one, const char* other) {
    return _stricmp(one.c_str(), other) == 0;
}

static SC_HANDLE new_handle(const std::string& name) {
    static ULONG_PTR last = 0x5C0000;
    const auto handle = reinterpret_cast<SC_HANDLE>(last += 4);
    g_services[handle] = name;
    return handle;
}

SC_HANDLE WINAPI open_manager(LPCWSTR, LPCWSTR, DWORD) {
    return new_handle("");
}

SC_HANDLE WINAPI open_service(SC_HANDLE, LPCWSTR name, DWORD) {
    if (told_to_fail("OpenServiceW", ERROR_ACCESS_DENIED))
        return nullptr;
    const std::string wanted = narrow(name);
    if (same_name(wanted, g_ownService) || same_name(wanted, g_platformService))
        return new_handle(wanted);
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
}

static SERVICE_STATUS status_of(SC_HANDLE service) {
    return same_name(g_services[service], g_ownService)
               ? service_status()
               : SERVICE_STATUS{SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
}

BOOL WINAPI control_service(SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
    const std::string name = g_services[service];
    DWORD error = ERROR_SERVICE_NOT_ACTIVE;
    if (same_name(name, g_ownService))
        error = service_send_control(control, status);
    else
        *status = status_of(service);
    effect("call ControlService(\"%s\", %lu) = %d", name.c_str(), control, error == ERROR_SUCCESS);
    SetLastError(error);
    return error == ERROR_SUCCESS;
}

BOOL WINAPI query_status(SC_HANDLE service, SERVICE_STATUS* status) {
    *status = status_of(service);
    return TRUE;
}

BOOL WINAPI query_status_ex(SC_HANDLE service, SC_STATUS_TYPE, BYTE* buffer, DWORD bytes, DWORD* needed) {
    SERVICE_STATUS_PROCESS status = {};
    const SERVICE_STATUS now = status_of(service);
    std::memcpy(&status, &now, sizeof(now));
    *needed = sizeof(status);
    if (bytes < sizeof(status)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (same_name(g_services[service], g_ownService))
        status.dwProcessId = service_process();
    std::memcpy(buffer, &status, sizeof(status));
    return TRUE;
}

BOOL WINAPI close_service(SC_HANDLE service) {
    return g_services.erase(service) != 0;
}

// ---- programs: each is an event that comes when it ends ----

namespace {

struct Program {
    DWORD duration = 0;
    DWORD code = 0;
};

struct Started {
    HANDLE ended;
    Program program;
};

} // namespace

static std::map<std::string, Program> g_programs; // by name, small letters
static std::map<HANDLE, Started> g_started;

void add_program(const std::string& name, DWORD duration, DWORD code) {
    g_programs[small(name)] = {duration, code};
}

static const Program* known_program(const std::string& path) {
    const auto found = g_programs.find(small(path.substr(path.rfind('\\') + 1)));
    return found != g_programs.end() ? &found->second : nullptr;
}

static DWORD WINAPI run_program(LPVOID parameter) {
    const std::unique_ptr<Started> started(static_cast<Started*>(parameter));
    turns::sleep(started->program.duration);
    SetEvent(started->ended);
    CloseHandle(started->ended);
    turns::signalled();
    return 0;
}

static void start_program(const Program& program, PROCESS_INFORMATION* process) {
    HANDLE ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE own = nullptr;
    DuplicateHandle(GetCurrentProcess(), ended, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
    *process = {ended, CreateEventW(nullptr, TRUE, FALSE, nullptr), 1, 1};
    g_started[ended] = {own, program};
    CloseHandle(turns::start_thread("program", run_program, new Started{own, program}, 0, nullptr, 0));
}

static DWORD start_error(const std::wstring& path) {
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES)
        return ERROR_ACCESS_DENIED;
    const std::wstring folder = path.substr(0, path.rfind(L'\\'));
    return GetFileAttributesW(folder.c_str()) == INVALID_FILE_ATTRIBUTES ? ERROR_PATH_NOT_FOUND
                                                                         : ERROR_FILE_NOT_FOUND;
}

// By its path: a file that is there; by its command line: a program of the script.
BOOL WINAPI create_process(LPCWSTR application, LPWSTR command_line, SECURITY_ATTRIBUTES*,
                           SECURITY_ATTRIBUTES*, BOOL, DWORD, LPVOID, LPCWSTR, STARTUPINFOW*,
                           PROCESS_INFORMATION* process) {
    const std::string line = narrow(command_line);
    const std::string name = application != nullptr ? narrow(application) : line.substr(0, line.find(' '));
    const Program* program = known_program(name);
    const DWORD attributes =
        application != nullptr ? GetFileAttributesW(application) : INVALID_FILE_ATTRIBUTES;
    const bool starts = application != nullptr ? attributes != INVALID_FILE_ATTRIBUTES &&
                                                     (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0
                                               : program != nullptr;
    const std::string shown = application != nullptr ? "\"" + name + "\"" : "null";
    effect("call CreateProcessW(%s, \"%s\") = %d", shown.c_str(), line.c_str(), starts);
    if (starts)
        start_program(program != nullptr ? *program : Program{}, process);
    else
        SetLastError(application != nullptr ? start_error(application) : DWORD{ERROR_FILE_NOT_FOUND});
    return starts;
}

BOOL WINAPI exit_code_of_process(HANDLE process, DWORD* code) {
    const auto found = g_started.find(process);
    if (found == g_started.end())
        return REAL(GetExitCodeProcess)(process, code);
    *code = WaitForSingleObjectEx(process, 0, FALSE) == WAIT_OBJECT_0 ? found->second.program.code
                                                                      : DWORD{STILL_ACTIVE};
    return TRUE;
}

// ---- files and folders ----

BOOL delete_any_file(const wchar_t* path) {
    SECURITY_DESCRIPTOR everybody;
    if (REAL(DeleteFileW)(path))
        return TRUE;
    const DWORD error = GetLastError();
    if (error != ERROR_ACCESS_DENIED ||
        !InitializeSecurityDescriptor(&everybody, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&everybody, TRUE, nullptr, FALSE) ||
        !SetFileSecurityW(path, DACL_SECURITY_INFORMATION, &everybody)) {
        SetLastError(error);
        return FALSE;
    }
    return REAL(DeleteFileW)(path);
}

// As Windows spells them; Wine has small letters.
HRESULT WINAPI folder_path(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path) {
    static const wchar_t* const spellings[] = {L"C:\\Windows", L"C:\\Windows\\system32"};
    const HRESULT result = REAL(SHGetFolderPathW)(owner, folder, token, flags, path);
    for (const wchar_t* spelling : spellings) {
        if (SUCCEEDED(result) && lstrcmpiW(path, spelling) == 0)
            lstrcpyW(path, spelling);
    }
    return result;
}

} // namespace runner
