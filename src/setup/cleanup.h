// The clean-up run ("-PnPTask"): removes the service once its driver package is gone.
#pragma once

#include <windows.h>

// FALSE only when the service key names its owner INF files and none of them is in the INF store; TRUE on any
// doubt.
BOOL GetPMDRVInstallStatus();

// TRUE when the INF store holds at least one of the names of a multi-string (each ends in a null, the list in
// an empty name), or when that cannot be told.
BOOL IsINFFileExits(const wchar_t* names);

// Stops the services, deletes the scheduled tasks, writes the INF copy and starts the uninstall without
// waiting for its end. Does nothing when COM is not to be had; any later failure leaves out what depends on
// it.
void DeleteServiceFiles();

// Sends the stop control to a service without waiting for its end; the result of the request, with its last
// error.
BOOL StopPMService(const wchar_t* name);

// Fill `path` (MAX_PATH characters): where the INF copy goes, and the program that runs it. FALSE when the
// system folder is not known or the path does not fit.
BOOL GetINFPath(wchar_t* path);
BOOL GetRunDLLPath(wchar_t* path);

// Writes the embedded INF to a new file that only the local system account may use, replacing one that is
// there. FALSE when the file is not complete.
BOOL CreateINF(const wchar_t* path);
