// What ends a command that waits: Ctrl-C, Ctrl-Break, the closing of the console, log-off, shutdown.
#pragma once

#include <windows.h>

// Set when one of them has come; manual reset. Null when it could not be made, which has been told then.
HANDLE CatchInterrupts();

// Also log-off and shutdown, which a program with a console of no own, or none at all, learns by a window:
// makes one that is never shown, on a thread of its own.
void CatchSessionEnd();

// The command has finished what it does at its end: the process may be ended now.
void InterruptHandled();
