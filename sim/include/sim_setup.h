// What the installation maintenance uses: resources, files, security descriptors, processes, the service
// control manager as its clients see it.
#pragma once

#include "sim_service.h"

#define RT_RCDATA MAKEINTRESOURCEW(10)

#define SECURITY_MAX_SID_SIZE        68
#define SECURITY_DESCRIPTOR_REVISION 1u

struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;

#define SE_DACL_PRESENT   0x4
#define SE_DACL_PROTECTED 0x1000
using SECURITY_DESCRIPTOR_CONTROL = WORD;

struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    WORD Control;
    PVOID Owner;
    PVOID Group;
    PACL Sacl;
    PACL Dacl;
};
static_assert(sizeof(ACL) == 8 && sizeof(SECURITY_DESCRIPTOR) == 40);

enum WELL_KNOWN_SID_TYPE { WinLocalSystemSid = 22 };

#define CREATE_NEW_PROCESS_GROUP 0x200u

struct STARTUPINFOW {
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
static_assert(sizeof(STARTUPINFOW) == 104);

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};

#define SC_MANAGER_ALL_ACCESS 0xF003Fu
#define SERVICE_ALL_ACCESS    0xF01FFu

extern "C" {
HRSRC WINAPI FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type);
HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource);
LPVOID WINAPI LockResource(HGLOBAL loaded);
DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource);

BOOL WINAPI DeleteFileW(LPCWSTR path);
DWORD WINAPI GetFileAttributesW(LPCWSTR path);
BOOL WINAPI Wow64DisableWow64FsRedirection(PVOID* old);
BOOL WINAPI Wow64RevertWow64FsRedirection(PVOID old);

BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE type, PVOID domain, PVOID sid, DWORD* bytes);
BOOL WINAPI InitializeSecurityDescriptor(PVOID descriptor, DWORD revision);
BOOL WINAPI SetSecurityDescriptorDacl(PVOID descriptor, BOOL present, PACL dacl, BOOL defaulted);
BOOL WINAPI SetSecurityDescriptorControl(PVOID descriptor, SECURITY_DESCRIPTOR_CONTROL bits,
                                         SECURITY_DESCRIPTOR_CONTROL values);

BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR command_line, LPSECURITY_ATTRIBUTES process_security,
                           LPSECURITY_ATTRIBUTES thread_security, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR directory, STARTUPINFOW* startup,
                           PROCESS_INFORMATION* process);

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);
BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);
BOOL WINAPI CloseServiceHandle(SC_HANDLE handle);
}
