// Installs zorpmsvc.exe as a service, starts it on a machine without the power-management driver, and watches
// it give up: after eleven attempts, 300 ms apart, it stops with the service-specific code 680002. Removes
// the service again. Exits 0 when all holds.
#include <windows.h>
#include <cstdio>

namespace {

constexpr wchar_t SERVICE_NAME[] = L"ZORPMSVC";
constexpr DWORD EXIT_CODE = ERROR_SERVICE_SPECIFIC_ERROR;
constexpr DWORD SPECIFIC_CODE = 680002;
constexpr DWORD ATTEMPTS_MS = 11 * 300;
constexpr DWORD SLACK_MS = 5000; // Wine's control manager takes its time
constexpr DWORD LIMIT_MS = 30000;

int Failed(const char* step) {
    printf("%s failed, error %lu\n", step, GetLastError());
    return 1;
}

// The executable lies one folder above this program.
bool ServicePath(wchar_t* path) {
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    for (int folders = 0; length > 0 && folders < 2; --length)
        folders += path[length - 1] == L'\\' ? 1 : 0;
    return length > 0 && length + 14 < MAX_PATH && lstrcpyW(path + length, L"\\zorpmsvc.exe") != nullptr;
}

// 0 when it stops as it should.
int WatchItStop(SC_HANDLE service) {
    const ULONGLONG started = GetTickCount64();
    if (!StartServiceW(service, 0, nullptr))
        return Failed("StartServiceW");
    SERVICE_STATUS status = {};
    DWORD elapsed_ms = 0;
    do {
        Sleep(20);
        if (!QueryServiceStatus(service, &status))
            return Failed("QueryServiceStatus");
        elapsed_ms = static_cast<DWORD>(GetTickCount64() - started);
    } while (status.dwCurrentState != SERVICE_STOPPED && elapsed_ms < LIMIT_MS);

    printf("state %lu, exit code %lu/%lu after %lu ms\n", status.dwCurrentState, status.dwWin32ExitCode,
           status.dwServiceSpecificExitCode, elapsed_ms);
    const bool held = status.dwCurrentState == SERVICE_STOPPED && status.dwWin32ExitCode == EXIT_CODE &&
                      status.dwServiceSpecificExitCode == SPECIFIC_CODE && elapsed_ms + 100 >= ATTEMPTS_MS &&
                      elapsed_ms <= ATTEMPTS_MS + SLACK_MS;
    return held ? 0 : 1;
}

} // namespace

int wmain() {
    wchar_t path[MAX_PATH] = {};
    if (!ServicePath(path))
        return Failed("finding zorpmsvc.exe");
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
    if (manager == nullptr)
        return Failed("OpenSCManagerW");
    SC_HANDLE service = CreateServiceW(manager, SERVICE_NAME, SERVICE_NAME, SERVICE_ALL_ACCESS,
                                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                       path, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (service == nullptr && GetLastError() == ERROR_SERVICE_EXISTS) // left by a run that was ended
        service = OpenServiceW(manager, SERVICE_NAME, SERVICE_ALL_ACCESS);
    int result = service != nullptr ? WatchItStop(service) : Failed("CreateServiceW");
    if (service != nullptr) {
        if (!DeleteService(service))
            result = Failed("DeleteService");
        CloseServiceHandle(service);
    }
    CloseServiceHandle(manager);
    return result;
}
