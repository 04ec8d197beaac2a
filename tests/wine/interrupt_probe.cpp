// Starts the program of the command line in a console, sends Ctrl-C after three seconds, which is no test of
// speed, and exits as the program does.
#include <windows.h>
#include <stdio.h>
#include <wchar.h>

int wmain(int argc, wchar_t** argv) {
    wchar_t command[1024] = L"";
    for (int i = 1; i < argc && wcslen(command) + wcslen(argv[i]) + 4 < 1024; ++i) {
        wcscat(command, i > 1 ? L" \"" : L"\"");
        wcscat(command, argv[i]);
        wcscat(command, L"\"");
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    FreeConsole();
    if (!AllocConsole() ||
        !CreateProcessW(nullptr, command, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        printf("not started, error %lu\n", GetLastError());
        return 100;
    }
    DWORD status = 101;
    if (WaitForSingleObject(process.hProcess, 3000) == WAIT_TIMEOUT && SetConsoleCtrlHandler(nullptr, TRUE) &&
        GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0))
        WaitForSingleObject(process.hProcess, 5000);
    GetExitCodeProcess(process.hProcess, &status);
    return static_cast<int>(status);
}
