#include "recorder/real.h"

namespace real {

namespace {

struct AnsiString {
    USHORT bytes;
    USHORT room;
    const char* text;
};

} // namespace

// clang-format off
static const wchar_t* const g_libraries[] = {
    L"kernel32.dll", L"advapi32.dll", L"user32.dll", L"setupapi.dll", L"ole32.dll", L"oleaut32.dll", L"shell32.dll",
    L"ntdll.dll",
};
// clang-format on

// Below GetProcAddress, which may be wrapped itself.
extern "C" __declspec(dllimport) LONG WINAPI
    LdrGetProcedureAddress(HMODULE module, const AnsiString* name, ULONG ordinal, void** function);

void* find(const char* name) {
    const auto bytes = static_cast<USHORT>(lstrlenA(name));
    const AnsiString text = {bytes, static_cast<USHORT>(bytes + 1), name};
    for (const wchar_t* library : g_libraries) {
        const HMODULE module = LoadLibraryW(library); // nearly always there already
        void* function = nullptr;
        if (module != nullptr && LdrGetProcedureAddress(module, &text, 0, &function) >= 0)
            return function;
    }
    ExitProcess(5);
}

} // namespace real
