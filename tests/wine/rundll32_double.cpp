// Stands in for rundll32.exe in the Wine prefix: records how it was started.
#include <windows.h>

int wmain() {
    const wchar_t* line = GetCommandLineW();
    HANDLE file = CreateFileW(L"C:\\rundll32.txt", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return 1;
    char text[600] = {};
    WideCharToMultiByte(CP_ACP, 0, line, -1, text, sizeof(text) - 1, nullptr, nullptr);
    DWORD written = 0;
    WriteFile(file, text, static_cast<DWORD>(lstrlenA(text)), &written, nullptr);
    CloseHandle(file);
    return 0;
}
