#include "common/trace.h"

#ifndef NDEBUG

#include <cstdarg>
#include <strsafe.h>

void Trace(const wchar_t* format, ...) {
    // Callers trace between a failing step and the report of its error code.
    const DWORD last_error = GetLastError();
    wchar_t text[TRACE_CHARACTERS] = {};
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(text, ARRAYSIZE(text), format, arguments);
    va_end(arguments);
    OutputDebugStringW(text);
    SetLastError(last_error);
}

static void Append(TraceLine* line, const wchar_t* format, ...) {
    const DWORD used = static_cast<DWORD>(lstrlenW(line->text));
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(line->text + used, TRACE_CHARACTERS - used, format, arguments);
    va_end(arguments);
}

static const wchar_t* Separator(const TraceLine* line) {
    return line->text[0] != L'\0' ? L", " : L"";
}

void AppendNumber(TraceLine* line, DWORD number) {
    Append(line, L"%ls0x%x", Separator(line), number);
}

void AppendText(TraceLine* line, const wchar_t* text) {
    Append(line, text != nullptr ? L"%ls\"%ls\"" : L"%lsdefault", Separator(line), text);
}

#endif
