// powrprof.dll, loaded from the system directory and freed around every call; never linked.
#pragma once

#include <windows.h>

#include <powrprof.h>

// Nonzero on failure (1 when the library or the function cannot be found), 0 on success.
DWORD PowrProfCallNtPowerInformation(POWER_INFORMATION_LEVEL level, void* input, DWORD input_bytes, void* output,
                                     DWORD output_bytes);

// FALSE also when the library or the function cannot be found; so for all below.
BOOL PowrProfIsPwrHibernateAllowed();
BOOL PowrProfSetSuspendState(BOOL hibernate, BOOL force, BOOL wake_events_disabled);
