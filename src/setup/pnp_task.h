// The scheduled task that starts the clean-up run when the Plug and Play configuration changes.
#pragma once

#include <windows.h>

// TRUE when Windows reports release 1903 or later; FALSE when its release cannot be read. "20H2" counts
// as 20.
BOOL IsReleaseId1903OrLater();

// Initialises COM for the calling thread (multithreaded apartment) and COM security for the process. FALSE
// when either fails; COM is then not in use. Balance a TRUE with CoUninitialize.
BOOL InitTaskSchedulerCom();

// Registers the task, replacing one of the same name. FALSE at the first failure, which is traced. Needs COM.
BOOL CreatePnPTask();

// Thread procedure: registers the task, trying again every 5 s until it succeeds. The parameter is not used.
// Returns 0.
DWORD WINAPI CreatePnPTaskThreadProc(void* parameter);

// Delete the service's own task and the platform service's. TRUE when the task is gone or never was. Need
// COM.
BOOL DeletePnPTask();
BOOL DeletePlatformTask();
