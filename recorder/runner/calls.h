// The calls of the product that end in the runner instead of in Windows, by name: each has a row in the
// runner's table (wrapped.cpp) and a slot in every image (recorder/image/).
#pragma once

// clang-format off
#define RUNNER_CALLS(CALL) \
    CALL(LoadLibraryExW) CALL(GetProcAddress) CALL(GetVersionExW) CALL(SetSystemPowerState) CALL(ExitWindowsEx) \
    CALL(CLSIDFromProgID) CALL(CoCreateInstance) CALL(CoInitializeSecurity) CALL(AdjustTokenPrivileges) \
    CALL(WaitForSingleObject) CALL(WaitForMultipleObjects) CALL(SignalObjectAndWait) CALL(Sleep) \
    CALL(CreateThread) CALL(ExitThread) CALL(TerminateThread) CALL(SuspendThread) CALL(ResumeThread) \
    CALL(CreateEventW) CALL(SetEvent) CALL(CreateMutexW) CALL(ReleaseMutex) CALL(GetMessageW) CALL(SetTimer) \
    CALL(KillTimer) CALL(GetLocalTime) CALL(GetTickCount64) CALL(StartServiceCtrlDispatcherW) \
    CALL(RegisterServiceCtrlHandlerExW) CALL(SetServiceStatus) CALL(RegisterPowerSettingNotification) \
    CALL(OpenSCManagerW) CALL(OpenServiceW) CALL(ControlService) CALL(QueryServiceStatus) \
    CALL(QueryServiceStatusEx) CALL(CloseServiceHandle) CALL(DeviceIoControl) CALL(CreateFileW) CALL(WriteFile) \
    CALL(DeleteFileW) CALL(CloseHandle) CALL(RegOpenKeyExW) CALL(RegCreateKeyExW) CALL(RegCloseKey) \
    CALL(RegSetValueExW) CALL(RegDeleteKeyW) CALL(RegNotifyChangeKeyValue) CALL(RegLoadKeyW) CALL(RegUnLoadKeyW) CALL(LookupAccountNameW) CALL(SHGetFolderPathW) \
    CALL(CreateProcessW) CALL(GetExitCodeProcess) CALL(GetStdHandle) CALL(GetFileType) CALL(AttachConsole) \
    CALL(GetConsoleMode) CALL(WriteConsoleW) CALL(SetConsoleCtrlHandler) CALL(GetModuleHandleW) \
    CALL(RegisterClassExW) CALL(CreateWindowExW)
// clang-format on
