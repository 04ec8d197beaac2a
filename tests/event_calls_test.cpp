// What each event's row costs, call by call, so that a call too many is seen.
#include <map>

#include "tests/support/bench.h"
#include "tests/support/busy_machine.h"

namespace {

struct Cost {
    std::initializer_list<DWORD> codes;
    const char* calls; // from the driver's signal until the pump waits again
};

#define EVENT_ROW(code, ...) code,
constexpr DWORD g_rows[] = {
#include "events/event_rows.h"
};
#undef EVENT_ROW

const Cost g_costs[] = {
    {{0x0015, 0x1003, 0x3006, 0x5009, 0x500A, 0x500B, 0x500C, 0x500D, 0x5012, 0x5020,
      0x5030, 0x6000, 0x6001, 0x6005, 0x6020, 0x6030, 0x6032, 0x6040, 0x6050, 0x6060,
      0x6070, 0x6080, 0x6090, 0x60A0, 0x60B0, 0x60B1, 0x60D0, 0x60E0, 0x7000},
     "CloseHandle*2 CreateFileW*2 DeviceIoControl*2 RegCloseKey RegOpenKeyExW RegQueryValueExW "
     "RegSetValueExW WaitForMultipleObjects"},
    {{0x100C},
     "AdjustTokenPrivileges*2 CloseHandle*4 CreateFileW*2 DeviceIoControl*2 FreeLibrary GetProcAddress "
     "IsPwrHibernateAllowed LoadLibraryExW LookupPrivilegeValueW*2 OpenProcessToken*2 RegCloseKey "
     "RegOpenKeyExW RegQueryValueExW RegSetValueExW SetSystemPowerState WaitForMultipleObjects"},
    {{0x2004, 0x2005},
     "CloseHandle*2 CreateFileW*2 CreateThread DeviceIoControl*2 Sleep WaitForMultipleObjects"},
    {{0x2013}, "CloseHandle CreateFileW*2 DeviceIoControl*2 Sleep"},
    {{0x2020, 0x3003, 0x4003, 0x6011},
     "CloseHandle*2 CreateFileW*2 DeviceIoControl*2 WaitForMultipleObjects"},
    {{0x4010, 0x4011, 0x60F0},
     "CloseHandle*4 CreateFileW*4 DeviceIoControl*4 RegCloseKey*2 RegCreateKeyExW RegOpenKeyExW "
     "RegQueryValueExW RegSetValueExW*2 ReleaseMutex WaitForMultipleObjects WaitForSingleObject"},
    {{0x4012, 0x4013},
     "CloseHandle*7 CreateFileW*7 DeviceIoControl*7 LocalAlloc*2 LocalFree*2 ReadFile*2 RegCloseKey*3 "
     "RegCreateKeyExW*2 RegOpenKeyExW RegQueryValueExW RegSetValueExW*3 ReleaseMutex*4 "
     "SetupDiDestroyDeviceInfoList*2 SetupDiEnumDeviceInterfaces*2 SetupDiGetClassDevsW*2 "
     "SetupDiGetDeviceInterfaceDetailW*4 WaitForMultipleObjects WaitForSingleObject*4"},
    {{0x5001},
     "CallNtPowerInformation CloseHandle*2 CreateFileW*2 DeviceIoControl*2 FreeLibrary GetPrivateProfileIntW "
     "GetProcAddress LoadLibraryExW RegCloseKey*2 RegOpenKeyExW*2 RegQueryValueExW RegSetValueExW*2 "
     "ReleaseMutex WaitForMultipleObjects WaitForSingleObject"},
    {{0x5002},
     "CloseHandle*3 CreateFileW*3 DeviceIoControl*3 RegCloseKey*2 RegOpenKeyExW*2 RegQueryValueExW "
     "RegSetValueExW*2 ReleaseMutex WaitForMultipleObjects WaitForSingleObject"},
    {{0x5007, 0x5008}, "CloseHandle*3 CreateFileW*3 DeviceIoControl*3 WaitForMultipleObjects"},
    {{0x5010},
     "CLSIDFromProgID CloseHandle*4 CoCreateInstance CoInitialize CreateFileW*4 DeviceIoControl*4 "
     "GetInverterParams SetInverterParams WaitForMultipleObjects"},
    {{0x6012, 0x6022},
     "AdjustTokenPrivileges CloseHandle*3 CreateFileW*2 DeviceIoControl*2 FreeLibrary GetProcAddress "
     "LoadLibraryExW LookupPrivilegeValueW OpenProcessToken SetSuspendState WaitForMultipleObjects"},
    {{0x6031},
     "CloseHandle*3 CreateFileW*3 DeviceIoControl*3 RegCloseKey*2 RegCreateKeyExW RegOpenKeyExW "
     "RegQueryValueExW RegSetValueExW*2 ReleaseMutex WaitForMultipleObjects WaitForSingleObject"},
    {{0x60C0},
     "CloseHandle*7 CreateFileW*7 DeviceIoControl*5 GetLocalTime LocalAlloc*2 LocalFree*2 ReadFile "
     "RegCloseKey*4 RegCreateKeyExW*3 RegOpenKeyExW*2 RegQueryValueExW*3 RegSetValueExW*7 ReleaseMutex*3 "
     "SetupDiDestroyDeviceInfoList*2 SetupDiEnumDeviceInterfaces*2 SetupDiGetClassDevsW*2 "
     "SetupDiGetDeviceInterfaceDetailW*4 WaitForMultipleObjects WaitForSingleObject*3 WriteFile"},
};

std::string calls_of(DWORD code) {
    Bench bench;
    bench.started(std::string(g_busyMachine) +
                  "firmware PWMGET = 200\nfirmware MHKN = 1\nwindows graphics present\n");
    bench.machine.count_calls = true;
    sim::post_event(code);
    bench.machine.settle();
    std::map<std::string, std::uint64_t> sorted(bench.machine.call_counts.begin(),
                                                bench.machine.call_counts.end());
    sorted.erase("OutputDebugStringW");
    std::string text;
    for (const auto& [call, count] : sorted)
        text += (text.empty() ? "" : " ") + call + (count > 1 ? "*" + std::to_string(count) : "");
    return text;
}

TEST(Events, EachRowsCalls) {
    std::map<DWORD, std::string> expected;
    for (const Cost& cost : g_costs) {
        for (const DWORD code : cost.codes)
            expected[code] = cost.calls;
    }
    for (const DWORD code : g_rows)
        EXPECT_EQ(expected[code], calls_of(code)) << sim::format("0x%04X", code);
}

} // namespace
