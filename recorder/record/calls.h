// The wrappers: each calls Windows and tells what the call did, and what came in by it. Where a call cannot
// wait, it is made with the lines' lock held: then no other thread's line comes between it and its own.
#pragma once

#include "recorder/record/os.h"

namespace record {

// ---- threads.cpp ----

HANDLE WINAPI create_thread(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE procedure,
                            LPVOID parameter, DWORD flags, DWORD* id);
BOOL WINAPI terminate_thread(HANDLE thread, DWORD code);
DWORD WINAPI suspend_thread(HANDLE thread);
DWORD WINAPI resume_thread(HANDLE thread);
HANDLE WINAPI create_event(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, LPCWSTR name);
HANDLE WINAPI create_mutex(SECURITY_ATTRIBUTES* security, BOOL owned, LPCWSTR name);
BOOL WINAPI set_event(HANDLE event);
BOOL WINAPI reset_event(HANDLE event);
DWORD WINAPI wait_for_one(HANDLE object, DWORD timeout);
DWORD WINAPI wait_for_many(DWORD count, const HANDLE* objects, BOOL all, DWORD timeout);
DWORD WINAPI signal_and_wait(HANDLE signal, HANDLE object, DWORD timeout, BOOL alertable);
void WINAPI sleep(DWORD duration);
void WINAPI local_time(SYSTEMTIME* time);
void forget_event(HANDLE event); // it is closed

// ---- service.cpp ----

BOOL WINAPI start_dispatcher(const SERVICE_TABLE_ENTRYW* table);
SERVICE_STATUS_HANDLE WINAPI register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context);
BOOL WINAPI set_status(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status);
HPOWERNOTIFY WINAPI register_power_setting(HANDLE recipient, LPCGUID setting, DWORD flags);
SC_HANDLE WINAPI open_service(SC_HANDLE manager, LPCWSTR name, DWORD access);
BOOL WINAPI control_service(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);

// ---- devices.cpp ----

HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                          DWORD disposition, DWORD flags, HANDLE pattern);
BOOL WINAPI read_file(HANDLE file, LPVOID data, DWORD bytes, DWORD* read, OVERLAPPED* overlapped);
BOOL WINAPI write_file(HANDLE file, LPCVOID data, DWORD bytes, DWORD* written, OVERLAPPED* overlapped);
BOOL WINAPI close_handle(HANDLE handle);
BOOL WINAPI device_control(HANDLE device, DWORD code, LPVOID in, DWORD in_bytes, LPVOID out, DWORD out_bytes,
                           DWORD* returned, OVERLAPPED* overlapped);
BOOL WINAPI enum_device(HDEVINFO devices, DWORD index, SP_DEVINFO_DATA* device);
BOOL WINAPI enum_interface(HDEVINFO devices, SP_DEVINFO_DATA* device, const GUID* interface_class,
                           DWORD index, SP_DEVICE_INTERFACE_DATA* found);
BOOL WINAPI device_property(HDEVINFO devices, SP_DEVINFO_DATA* device, DWORD property, DWORD* type,
                            BYTE* data, DWORD bytes, DWORD* needed);
BOOL WINAPI delete_file(LPCWSTR path);
DWORD WINAPI file_attributes(LPCWSTR path);
UINT WINAPI profile_int(LPCWSTR section, LPCWSTR key, INT otherwise, LPCWSTR path);
BOOL WINAPI create_process(LPCWSTR program, LPWSTR line, SECURITY_ATTRIBUTES* process_security,
                           SECURITY_ATTRIBUTES* thread_security, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR folder, STARTUPINFOW* startup,
                           PROCESS_INFORMATION* process);

// ---- registry.cpp ----

LSTATUS WINAPI open_key(HKEY key, LPCWSTR path, DWORD options, REGSAM access, HKEY* result);
LSTATUS WINAPI create_key(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options,
                          REGSAM access, SECURITY_ATTRIBUTES* security, HKEY* result, DWORD* disposition);
LSTATUS WINAPI close_key(HKEY key);
LSTATUS WINAPI query_value(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes);
LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD bytes);
LSTATUS WINAPI delete_key(HKEY key, LPCWSTR path);
LSTATUS WINAPI load_key(HKEY key, LPCWSTR name, LPCWSTR file);
LSTATUS WINAPI unload_key(HKEY key, LPCWSTR name);
LSTATUS WINAPI notify_change(HKEY key, BOOL below, DWORD filter, HANDLE event, BOOL asynchronous);
void tell_start_values(); // all below the service's key, and what it reads elsewhere

// ---- power.cpp ----

HMODULE WINAPI load_library(LPCWSTR name, HANDLE file, DWORD flags);
FARPROC WINAPI find_function(HMODULE library, const char* name);
BOOL WINAPI set_system_power_state(BOOL suspend, BOOL force);
BOOL WINAPI exit_windows(UINT flags, DWORD reason);
BOOL WINAPI open_token(HANDLE process, DWORD access, HANDLE* token);
BOOL WINAPI look_up_privilege(LPCWSTR system, LPCWSTR name, LUID* luid);
BOOL WINAPI adjust_privileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* privileges, DWORD bytes,
                              TOKEN_PRIVILEGES* previous, DWORD* previous_bytes);
BOOL WINAPI look_up_account(LPCWSTR system, LPCWSTR name, PSID sid, DWORD* sid_bytes, LPWSTR domain,
                            DWORD* domain_letters, SID_NAME_USE* use);

// ---- com.cpp ----

HRESULT WINAPI initialize_com(LPVOID reserved);
HRESULT WINAPI class_of_name(LPCOLESTR name, CLSID* result);
HRESULT WINAPI create_instance(REFCLSID name, IUnknown* outer, DWORD context, REFIID wanted, void** object);

} // namespace record
