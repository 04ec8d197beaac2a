// COM: apartments, security, classes.
#pragma once

#include <windows.h>

#define COINIT_MULTITHREADED     0u
#define COINIT_APARTMENTTHREADED 2u

#define CLSCTX_INPROC_SERVER 0x1u
#define CLSCTX_LOCAL_SERVER  0x4u
#define CLSCTX_REMOTE_SERVER 0x10u

#define RPC_C_AUTHN_LEVEL_PKT       4u
#define RPC_C_IMP_LEVEL_IMPERSONATE 3u
#define EOAC_NONE                   0u

extern "C" {
HRESULT WINAPI CoInitialize(LPVOID reserved);
HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD model);
void WINAPI CoUninitialize();
HRESULT WINAPI CoInitializeSecurity(PVOID descriptor, LONG service_count, PVOID services, PVOID reserved1,
                                    DWORD authentication, DWORD impersonation, PVOID list, DWORD capabilities,
                                    PVOID reserved2);
HRESULT WINAPI CLSIDFromProgID(LPCWSTR program, CLSID* found);
HRESULT WINAPI CoCreateInstance(REFCLSID wanted, IUnknown* outer, DWORD context, REFIID interface_id,
                                LPVOID* object);
}
