#include "common/trace.h"

#include <cstdarg>
#include <strsafe.h>

#ifdef NDEBUG

void Trace(const wchar_t*, ...) {}

#else

void Trace(const wchar_t* format, ...) {
    // Callers trace between a failing step and the report of its error code.
    const DWORD last_error = GetLastError();
    wchar_t text[512] = {};
    va_list arguments;
    va_start(arguments, format);
    StringCchVPrintfW(text, ARRAYSIZE(text), format, arguments);
    va_end(arguments);
    OutputDebugStringW(text);
    SetLastError(last_error);
}

#endif
