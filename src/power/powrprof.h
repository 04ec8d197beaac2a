// powrprof.dll, loaded from the system directory and freed around every call; never linked. The platform's
// own header has no include guard: include this one instead.
#pragma once

#include <windows.h>
#include <powrprof.h>

// Nonzero on failure (1 when the library or the function cannot be found), 0 on success.
DWORD PowrProfCallNtPowerInformation(POWER_INFORMATION_LEVEL level, void* input, DWORD input_bytes,
                                     void* output, DWORD output_bytes);

// FALSE also when the library or the function cannot be found; so for all below.
BOOL PowrProfIsPwrHibernateAllowed();

// May return only after the machine has resumed.
BOOL PowrProfSetSuspendState(BOOL hibernate, BOOL force, BOOL wake_events_disabled);

// The power schemes of the account that the process runs under. Records travel as the platform lays them out;
// a null policy, name or description leaves the stored one.
BOOLEAN PowrProfGetActivePwrScheme(UINT* index);
BOOLEAN PowrProfSetActivePwrScheme(UINT index, GLOBAL_POWER_POLICY* global_policy, POWER_POLICY* policy);
BOOLEAN PowrProfReadPwrScheme(UINT index, POWER_POLICY* policy);
BOOLEAN PowrProfWritePwrScheme(UINT* index, const wchar_t* name, const wchar_t* description,
                               POWER_POLICY* policy);
BOOLEAN PowrProfReadGlobalPwrPolicy(GLOBAL_POWER_POLICY* global_policy);
