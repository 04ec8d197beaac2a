// Speaks to the stand-in driver: "event CODE" posts a hardware event, "answer FUNCTION WORD" changes an
// answer, "last FUNCTION WORD" exits with 0 when the last request of that function began with WORD; looks for
// two seconds. Numbers are hexadecimal.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

static constexpr DWORD code(DWORD function) {
    return (0x22u << 16) | (function << 2);
}

static bool tell(DWORD function, DWORD first, DWORD second, DWORD* answer) {
    HANDLE device = CreateFileW(L"\\\\.\\PMDRVS", GENERIC_READ | GENERIC_WRITE,
                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD words[] = {first, second};
    DWORD bytes = 0;
    const BOOL sent = DeviceIoControl(device, code(function), words, sizeof(words), answer, sizeof(*answer),
                                      &bytes, nullptr);
    if (!sent)
        printf("refused, error %lu\n", GetLastError());
    CloseHandle(device);
    return sent;
}

static int look_for(DWORD question, DWORD function, DWORD word) {
    DWORD found = 0;
    for (int i = 0; i < 20; ++i) {
        if (tell(question, function, 0, &found) && found == word)
            return 0;
        Sleep(100);
    }
    printf("function 0x%lx: found 0x%lx\n", function, found);
    return 1;
}

int wmain(int argc, wchar_t** argv) {
    const DWORD first = argc > 2 ? wcstoul(argv[2], nullptr, 16) : 0;
    const DWORD second = argc > 3 ? wcstoul(argv[3], nullptr, 16) : 0;
    DWORD answer = 0;
    if (argc == 3 && wcscmp(argv[1], L"event") == 0)
        return tell(0x7F1, first, 0, &answer) ? 0 : 1;
    if (argc == 4 && wcscmp(argv[1], L"answer") == 0)
        return tell(0x7F0, first, second, &answer) ? 0 : 1;
    if (argc == 4 && wcscmp(argv[1], L"last") == 0)
        return look_for(0x7F2, first, second);
    if (argc == 4 && wcscmp(argv[1], L"state") == 0)
        return look_for(0x7F3, first, second);
    return 2;
}
