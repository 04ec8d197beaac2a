// Windows' own functions, past the wrappers of their names: os::CloseHandle(...). All are found before the
// program begins, so that no thread can be ended in the midst of looking for one.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <setupapi.h>

// The calls that are wrapped, with their wrappers (calls.h).
// clang-format off
#define RECORDED_CALLS(ROW)                                             \
    ROW(AdjustTokenPrivileges,             adjust_privileges)           \
    ROW(CLSIDFromProgID,                   class_of_name)               \
    ROW(CloseHandle,                       close_handle)                \
    ROW(CoCreateInstance,                  create_instance)             \
    ROW(CoInitialize,                      initialize_com)              \
    ROW(ControlService,                    control_service)             \
    ROW(CreateEventW,                      create_event)                \
    ROW(CreateFileW,                       create_file)                 \
    ROW(CreateMutexW,                      create_mutex)                \
    ROW(CreateProcessW,                    create_process)              \
    ROW(CreateThread,                      create_thread)               \
    ROW(DeleteFileW,                       delete_file)                 \
    ROW(DeviceIoControl,                   device_control)              \
    ROW(ExitWindowsEx,                     exit_windows)                \
    ROW(GetFileAttributesW,                file_attributes)             \
    ROW(GetLocalTime,                      local_time)                  \
    ROW(GetPrivateProfileIntW,             profile_int)                 \
    ROW(GetProcAddress,                    find_function)               \
    ROW(LoadLibraryExW,                    load_library)                \
    ROW(LookupAccountNameW,                look_up_account)             \
    ROW(LookupPrivilegeValueW,             look_up_privilege)           \
    ROW(OpenProcessToken,                  open_token)                  \
    ROW(OpenServiceW,                      open_service)                \
    ROW(ReadFile,                          read_file)                   \
    ROW(RegCloseKey,                       close_key)                   \
    ROW(RegCreateKeyExW,                   create_key)                  \
    ROW(RegDeleteKeyW,                     delete_key)                  \
    ROW(RegLoadKeyW,                       load_key)                    \
    ROW(RegNotifyChangeKeyValue,           notify_change)               \
    ROW(RegOpenKeyExW,                     open_key)                    \
    ROW(RegQueryValueExW,                  query_value)                 \
    ROW(RegSetValueExW,                    set_value)                   \
    ROW(RegUnLoadKeyW,                     unload_key)                  \
    ROW(RegisterPowerSettingNotification,  register_power_setting)      \
    ROW(RegisterServiceCtrlHandlerExW,     register_handler)            \
    ROW(ResetEvent,                        reset_event)                 \
    ROW(ResumeThread,                      resume_thread)               \
    ROW(SetEvent,                          set_event)                   \
    ROW(SetServiceStatus,                  set_status)                  \
    ROW(SetSystemPowerState,               set_system_power_state)      \
    ROW(SetupDiEnumDeviceInfo,             enum_device)                 \
    ROW(SetupDiEnumDeviceInterfaces,       enum_interface)              \
    ROW(SetupDiGetDeviceRegistryPropertyW, device_property)             \
    ROW(SignalObjectAndWait,               signal_and_wait)             \
    ROW(Sleep,                             sleep)                       \
    ROW(StartServiceCtrlDispatcherW,       start_dispatcher)            \
    ROW(SuspendThread,                     suspend_thread)              \
    ROW(TerminateThread,                   terminate_thread)            \
    ROW(WaitForMultipleObjects,            wait_for_many)               \
    ROW(WaitForSingleObject,               wait_for_one)                \
    ROW(WriteFile,                         write_file)
// clang-format on

namespace record::os {

#define OS_FUNCTION(name, wrapper) extern decltype(&::name) name;
RECORDED_CALLS(OS_FUNCTION)
#undef OS_FUNCTION

} // namespace record::os
