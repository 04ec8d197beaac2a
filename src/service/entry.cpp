#include "common/holders.h"
#include "common/process.h"
#include "common/trace.h"
#include "helper/pm_helper.h"
#include "service/service.h"
#include "setup/cleanup.h"

static void RunPnPTask() {
    if (GetPMDRVInstallStatus()) {
        Trace(L"RunPnPTask(): the driver package is there, nothing is removed\n");
        return;
    }
    Trace(L"Uninstall PM driver\n");
    DeleteServiceFiles();
}

static void RunHelper() {
    // The name is local to the logon session: one helper each. A helper that cannot be sure runs.
    HandleHolder mutex(CreateMutexW(nullptr, FALSE, L"HELPERMUTEX"));
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        Trace(L"RunHelper(): this session has one already\n");
        return;
    }
    PmHelperMain();
}

static void RunService() {
    wchar_t name[] = ZORPM_SERVICE_NAME;
    const SERVICE_TABLE_ENTRYW table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    // Fails at once when the process was not started by the service control manager.
    if (!StartServiceCtrlDispatcherW(table))
        Trace(L"RunService(): Error: no dispatcher. (%lu)\n", GetLastError());
}

static bool QueryPlatform() {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExW(&version))
        return false;
    IsNtPlatform = version.dwPlatformId == VER_PLATFORM_WIN32_NT;
    IsVistaOrLater = IsNtPlatform != 0 && version.dwMajorVersion > 5;
    return true;
}

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR command_line, int) {
    g_hInstance = instance;
    if (!QueryPlatform())
        return 0;
    Trace(L"Enter wWinMain(\"%ls\")\n", command_line);
    // The whole text is the switch: nothing is parsed.
    if (lstrcmpiW(command_line, L"-PnPTask") == 0)
        RunPnPTask();
    else if (lstrcmpiW(command_line, L"-helper") == 0)
        RunHelper();
    else
        RunService();
    return 0;
}
