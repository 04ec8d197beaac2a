// What other programs than the service ask of Windows: the service control manager from its other side, files
// of the system, programs that are started.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

void add_program(const std::string& name, DWORD duration_ms, DWORD code); // that can be started by name

// Also one that only the local system account may touch, under which the service runs.
BOOL delete_any_file(const wchar_t* path);

// The wrapped calls.
SC_HANDLE WINAPI open_manager(LPCWSTR computer, LPCWSTR database, DWORD access);
SC_HANDLE WINAPI open_service(SC_HANDLE manager, LPCWSTR name, DWORD access);
BOOL WINAPI control_service(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);
BOOL WINAPI query_status(SC_HANDLE service, SERVICE_STATUS* status);
BOOL WINAPI query_status_ex(SC_HANDLE service, SC_STATUS_TYPE level, BYTE* buffer, DWORD bytes,
                            DWORD* needed);
BOOL WINAPI close_service(SC_HANDLE service);
BOOL WINAPI create_process(LPCWSTR application, LPWSTR command_line, SECURITY_ATTRIBUTES* process_security,
                           SECURITY_ATTRIBUTES* thread_security, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR directory, STARTUPINFOW* startup,
                           PROCESS_INFORMATION* process);
BOOL WINAPI exit_code_of_process(HANDLE process, DWORD* code);
HRESULT WINAPI folder_path(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path);

} // namespace runner
