// One trace routine for the whole system.
#pragma once

#include <windows.h>

// Formats one message (wide printf format, at most 511 characters, cut beyond that) and hands it to the
// debugger. A release build (NDEBUG) discards everything. Keeps the thread's last-error code.
void Trace(const wchar_t* format, ...);

// A text of a table that only the trace prints: TRACE_NAME(L"..."). A release build has none of them.
#ifdef NDEBUG
#define TRACE_NAME(text) L""
#else
#define TRACE_NAME(text) text
#endif
