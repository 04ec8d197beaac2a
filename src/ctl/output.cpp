#include "ctl/output.h"

#include <cstdarg>
#include <strsafe.h>

#include "ctl/ctl.h"

constexpr DWORD LINE_CHARACTERS = 1024;

static HANDLE g_hOutput = nullptr;
static HANDLE g_hErrors = nullptr;

// A standard handle that leads somewhere. One of a program without console is null or stale.
static HANDLE StandardHandle(DWORD which) {
    HANDLE handle = GetStdHandle(which);
    return GetFileType(handle) != FILE_TYPE_UNKNOWN ? handle : nullptr;
}

void OpenOutput() {
    g_hOutput = StandardHandle(STD_OUTPUT_HANDLE);
    g_hErrors = StandardHandle(STD_ERROR_HANDLE);
    // Joined in any case: Ctrl-C comes through the console. The standard handles of a redirection stay.
    if (!AttachConsole(ATTACH_PARENT_PROCESS) || (g_hOutput != nullptr && g_hErrors != nullptr))
        return;
    // Kept until the process ends.
    HANDLE console = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, 0, nullptr);
    if (console == INVALID_HANDLE_VALUE)
        return;
    if (g_hOutput == nullptr)
        g_hOutput = console;
    if (g_hErrors == nullptr)
        g_hErrors = console;
}

static void WriteLine(HANDLE to, const wchar_t* text) {
    if (to == nullptr)
        return;
    wchar_t line[RECORD_CHARACTERS + 2];
    StringCchCopyW(line, RECORD_CHARACTERS, text);
    StringCchCatW(line, ARRAYSIZE(line), L"\r\n");
    const auto length = static_cast<DWORD>(lstrlenW(line));
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(to, &mode)) {
        WriteConsoleW(to, line, length, &written, nullptr);
        return;
    }
    char bytes[3 * ARRAYSIZE(line)]; // a UTF-16 unit takes three bytes at most
    const int size = WideCharToMultiByte(CP_UTF8, 0, line, static_cast<int>(length), bytes,
                                         static_cast<int>(sizeof(bytes)), nullptr, nullptr);
    if (size > 0)
        WriteFile(to, bytes, static_cast<DWORD>(size), &written, nullptr);
}

void Print(const wchar_t* format, ...) {
    wchar_t text[LINE_CHARACTERS];
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(text, ARRAYSIZE(text), format, arguments);
    va_end(arguments);
    WriteLine(g_hOutput, text);
}

void Complain(const wchar_t* format, ...) {
    wchar_t text[LINE_CHARACTERS] = L"zorpmctl: ";
    const int name = lstrlenW(text);
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(text + name, ARRAYSIZE(text) - static_cast<DWORD>(name), format, arguments);
    va_end(arguments);
    WriteLine(g_hErrors, text);
}

static void Append(Record* record, const wchar_t* text) {
    StringCchCatW(record->json, RECORD_CHARACTERS - 1, text); // room for the closing brace
}

// Text from outside may hold anything; what JSON does not carry as it stands is escaped.
static void AppendEscaped(Record* record, const wchar_t* text) {
    for (; *text != L'\0'; ++text) {
        wchar_t piece[8];
        const bool plain =
            *text >= L' ' && *text != L'"' && *text != L'\\' && (*text < 0xD800 || *text > 0xDFFF);
        StringCchPrintfW(piece, ARRAYSIZE(piece), plain ? L"%c" : L"\\u%04x", *text);
        Append(record, piece);
    }
}

static void AppendName(Record* record, const wchar_t* name) {
    Append(record, L",\"");
    Append(record, name);
    Append(record, L"\":");
}

Record::Record(const wchar_t* kind) : json(L"{\"kind\":\"") {
    Append(this, kind);
    Append(this, L"\"");
}

void AddText(Record* record, const wchar_t* name, const wchar_t* text) {
    AppendName(record, name);
    Append(record, L"\"");
    AppendEscaped(record, text);
    Append(record, L"\"");
}

void AddNumber(Record* record, const wchar_t* name, DWORD number) {
    wchar_t text[12];
    StringCchPrintfW(text, ARRAYSIZE(text), L"%lu", number);
    AppendName(record, name);
    Append(record, text);
}

void AddFlag(Record* record, const wchar_t* name, bool flag) {
    AppendName(record, name);
    Append(record, flag ? L"true" : L"false");
}

void Tell(Record* record, const wchar_t* format, ...) {
    if (g_arguments.json) {
        StringCchCatW(record->json, RECORD_CHARACTERS, L"}");
        WriteLine(g_hOutput, record->json);
        return;
    }
    wchar_t text[LINE_CHARACTERS];
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(text, ARRAYSIZE(text), format, arguments);
    va_end(arguments);
    WriteLine(g_hOutput, text);
}
