// zorpmprobe.exe [FILE]: writes the facts of this Windows into FILE, or into zorpmprobe.txt beside itself.
// zorpmprobe.exe --group NAME FILE: one group of them, in a process of its own; and --service is the service
// that the groups about the service control manager speak to.
#include <windows.h>
#include <cstdio>
#include <cwchar>
#include <strsafe.h>

#include "tests/platform/probe.h"

static FILE* g_output = nullptr;
static WCHAR g_program[MAX_PATH];
static WCHAR g_folder[MAX_PATH];
static const struct {
    HKEY root;
    const WCHAR* path;
} g_keys[] = {
    {HKEY_CURRENT_USER, L"Software\\ZorpmProbe"},
    {HKEY_CURRENT_USER, L"Software\\Classes\\ZorpmProbe"},
    {HKEY_USERS, L"ZorpmProbe"},
};
static WCHAR g_serviceName[] = L"ZorpmProbe";
static SERVICE_STATUS_HANDLE g_statusHandle = nullptr;

// Written at once, so that what a group has told is kept when it ends badly.
void write_fact(const char* group, const char* name, const char* value) {
    std::fprintf(g_output, "%s.%s = %s\n", group, name, value);
    std::fflush(g_output);
}

const WCHAR* probe_folder() {
    return g_folder;
}

void write_settings(const WCHAR* path, const char* text) {
    if (FILE* file = _wfopen(path, L"wb")) {
        for (; *text != 0; ++text) {
            if (*text == '\n')
                std::fputc('\r', file);
            std::fputc(*text, file);
        }
        std::fclose(file);
    }
}

const GUID* probe_interface_class() {
    static const GUID monitors = {
        0xE6F07B5F, 0xEE97, 0x4A90, {0xB0, 0x76, 0x33, 0xF5, 0x7B, 0xF4, 0xEA, 0xA7}};
    return &monitors;
}

// ---- the service ----

static void tell_status(DWORD state) {
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, 0, 0, 0, 0, 0};
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SetServiceStatus(g_statusHandle, &status);
}

static DWORD WINAPI handle_control(DWORD control, DWORD, LPVOID, LPVOID) {
    if (control == SERVICE_CONTROL_STOP)
        tell_status(SERVICE_STOPPED);
    return NO_ERROR;
}

static void WINAPI service_main(DWORD, LPWSTR*) {
    g_statusHandle = RegisterServiceCtrlHandlerExW(g_serviceName, handle_control, nullptr);
    tell_status(SERVICE_RUNNING);
}

static int run_service() {
    const SERVICE_TABLE_ENTRYW table[] = {{g_serviceName, service_main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

// Starts a service if need be, and waits: until the manager has begun its own ones, no other starts.
static bool is_running(SC_HANDLE manager, const WCHAR* name) {
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_QUERY_STATUS | SERVICE_START);
    SERVICE_STATUS status = {};
    DWORD error = service != nullptr ? ERROR_SUCCESS : GetLastError();
    const ULONGLONG start = GetTickCount64();
    while (service != nullptr && status.dwCurrentState != SERVICE_RUNNING &&
           GetTickCount64() - start < 40000) {
        Sleep(100);
        QueryServiceStatus(service, &status);
        if (status.dwCurrentState == SERVICE_STOPPED && !StartServiceW(service, 0, nullptr))
            error = GetLastError();
    }
    CloseServiceHandle(service);
    if (status.dwCurrentState != SERVICE_RUNNING)
        std::printf("The service %ls does not run: error %lu\n", name, error);
    return status.dwCurrentState == SERVICE_RUNNING;
}

// Only an administrator may install one.
const WCHAR* probe_service() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    WCHAR command[MAX_PATH + 20];
    StringCchPrintfW(command, ARRAYSIZE(command), L"\"%ls\" --service", g_program);
    CloseServiceHandle(CreateServiceW(manager, g_serviceName, g_serviceName, SERVICE_ALL_ACCESS,
                                      SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                      command, nullptr, nullptr, nullptr, nullptr, nullptr));
    const bool running = is_running(manager, g_serviceName);
    CloseServiceHandle(manager);
    return running ? g_serviceName : nullptr;
}

// Under Wine the platform's own service may not be there yet.
static void start_task_scheduler() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    is_running(manager, L"Schedule");
    CloseServiceHandle(manager);
}

static void remove_service() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, g_serviceName, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status;
    if (service != nullptr) {
        ControlService(service, SERVICE_CONTROL_STOP, &status);
        DeleteService(service);
        CloseServiceHandle(service);
    }
    CloseServiceHandle(manager);
}

// ---- what a group leaves ----

static void empty_folder() {
    WCHAR pattern[MAX_PATH + 4];
    StringCchPrintfW(pattern, ARRAYSIZE(pattern), L"%ls\\*", g_folder);
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(pattern, &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        WCHAR path[2 * MAX_PATH];
        StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\%ls", g_folder, found.cFileName);
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            DeleteFileW(path);
    }
    FindClose(search);
}

static void clean_up() {
    for (const auto& [root, path] : g_keys) {
        RegDeleteTreeW(root, path);
        RegDeleteKeyW(root, path);
    }
    empty_folder();
}

// ---- running the groups ----

static int run_group(const WCHAR* name, const WCHAR* file) {
    g_output = _wfopen(file, L"ab");
    if (g_output == nullptr)
        return 1;
    for (unsigned i = 0; i < g_probeGroupCount; ++i) {
        WCHAR wide[64];
        StringCchPrintfW(wide, ARRAYSIZE(wide), L"%hs", g_probeGroups[i].name);
        if (lstrcmpW(wide, name) == 0)
            g_probeGroups[i].probe();
    }
    std::fclose(g_output);
    return 0;
}

// A group that hangs or crashes costs its own facts only. Its exit code.
static DWORD start_group(const char* name, const WCHAR* file) {
    WCHAR command[3 * MAX_PATH];
    StringCchPrintfW(command, ARRAYSIZE(command), L"\"%ls\" --group %hs \"%ls\"", g_program, name, file);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return GetLastError();
    DWORD code = 0;
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_TIMEOUT)
        TerminateProcess(process.hProcess, WAIT_TIMEOUT);
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

static int run_groups(const WCHAR* file) {
    DeleteFileW(file);
    start_task_scheduler();
    int bad = 0;
    for (unsigned i = 0; i < g_probeGroupCount; ++i) {
        clean_up();
        const DWORD code = start_group(g_probeGroups[i].name, file);
        std::printf("%s: %s\n", g_probeGroups[i].name, code == 0 ? "done" : "ended early");
        bad += code != 0;
    }
    clean_up();
    remove_service();
    RemoveDirectoryW(g_folder);
    std::printf("Written: %ls\n", file);
    return bad != 0;
}

int wmain(int count, wchar_t** arguments) {
    GetModuleFileNameW(nullptr, g_program, ARRAYSIZE(g_program));
    GetTempPathW(ARRAYSIZE(g_folder) - 20, g_folder);
    StringCchCatW(g_folder, ARRAYSIZE(g_folder), L"ZorpmProbe");
    CreateDirectoryW(g_folder, nullptr);
    if (count > 1 && lstrcmpW(arguments[1], L"--service") == 0)
        return run_service();
    if (count > 3 && lstrcmpW(arguments[1], L"--group") == 0)
        return run_group(arguments[2], arguments[3]);
    WCHAR file[MAX_PATH];
    if (count > 1) {
        GetFullPathNameW(arguments[1], ARRAYSIZE(file), file, nullptr);
    } else {
        StringCchCopyW(file, ARRAYSIZE(file), g_program);
        StringCchCopyW(std::wcsrchr(file, L'\\') + 1, 20, L"zorpmprobe.txt");
    }
    return run_groups(file);
}
