// One trace routine for the whole system.
#pragma once

#include <windows.h>

// Formats one message (wide printf format, at most 511 characters, cut beyond that) and hands it to the
// debugger. A release build (NDEBUG) discards everything. Keeps the thread's last-error code.
void Trace(const wchar_t* format, ...);
