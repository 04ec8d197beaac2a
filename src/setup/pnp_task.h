// The scheduled task that starts the clean-up run.
#pragma once

#include <windows.h>

// TRUE when Windows reports release 1903 or later.
BOOL IsReleaseId1903OrLater();

// Thread procedure: registers the task, trying again every 5 s until it succeeds.
DWORD WINAPI CreatePnPTaskThreadProc(void* parameter);
