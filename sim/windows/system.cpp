// Version, local time, folders and debug output.
#include "sim/windows/system.h"

#include <cstdio>
#include <iterator>
#include <utility>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

namespace {

struct Installation {
    DWORD major = 10;
    DWORD minor = 0;
    // Local time at virtual time 0, in seconds since 1970 as if it were UTC: 2021-06-01 09:00:00.
    std::int64_t epoch_seconds = 1622538000;
    std::string executable = "C:\\Windows\\System32\\zorpmsvc.exe";
};

} // namespace

static Installation& installation() {
    return machine_state<Installation>();
}

void set_executable(const std::string& path) {
    installation().executable = path;
}

std::int64_t local_seconds() {
    return installation().epoch_seconds + static_cast<std::int64_t>(machine().now / 1000);
}

namespace {

struct Release {
    DWORD major;
    DWORD minor;
    DWORD build;
};

} // namespace

// What an executable without a manifest is told: the last one of these that the machine has come to.
static const Release& told_release(DWORD major, DWORD minor) {
    static const Release releases[] = {{6, 2, 9200}, {6, 1, 7601}, {6, 0, 6002},
                                       {5, 2, 3790}, {5, 1, 2600}, {5, 0, 2195}};
    const Release* told = releases;
    while (told + 1 != std::end(releases) && std::pair(major, minor) < std::pair(told->major, told->minor))
        ++told;
    return *told;
}

static const char g_windowsFolder[] = "C:\\Windows";
static const char g_systemFolder[] = "C:\\Windows\\System32";

// Days since 1970-01-01 of a date of the Gregorian calendar, and back.
static std::int64_t days_from_date(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto year_of_era = static_cast<unsigned>(year - era * 400);
    const unsigned day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * 146097 + std::int64_t{year_of_era} * 365 + year_of_era / 4 - year_of_era / 100 +
           day_of_year - 719468;
}

static void date_from_days(std::int64_t days, SYSTEMTIME* time) {
    time->wDayOfWeek = static_cast<WORD>(((days % 7) + 11) % 7);
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto day_of_era = static_cast<unsigned>(days - era * 146097);
    const unsigned year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const unsigned day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const unsigned shifted = (5 * day_of_year + 2) / 153;
    const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
    time->wDay = static_cast<WORD>(day_of_year - (153 * shifted + 2) / 5 + 1);
    time->wMonth = static_cast<WORD>(month);
    time->wYear = static_cast<WORD>(static_cast<std::int64_t>(year_of_era) + era * 400 + (month <= 2));
}

static UINT folder(LPWSTR buffer, UINT characters, const char* path) {
    const DWORD length = put_wide(buffer, characters, path);
    return length != 0 ? length : static_cast<UINT>(widen(path).size() + 1);
}

} // namespace sim

using namespace sim;

extern "C" {

void WINAPI OutputDebugStringW(LPCWSTR text) {
    if (!machine().keep_details)
        return;
    drop_noted_call("GetLastError"); // the trace routine keeps the error: no call of the service's own
    SIM_NOTE();
    std::string line = narrow(text);
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    trace_detail("says %s", line.c_str());
}

BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (version->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        violation("GetVersionExW: size field %u", version->dwOSVersionInfoSize);
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const Release& told = told_release(installation().major, installation().minor);
    version->dwMajorVersion = told.major;
    version->dwMinorVersion = told.minor;
    version->dwBuildNumber = told.build;
    version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    version->szCSDVersion[0] = 0;
    return TRUE;
}

void WINAPI GetLocalTime(SYSTEMTIME* time) {
    SIM_VISIT();
    const std::int64_t seconds = local_seconds();
    const std::int64_t days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
    const auto of_day = static_cast<unsigned>(seconds - days * 86400);
    date_from_days(days, time);
    time->wHour = static_cast<WORD>(of_day / 3600);
    time->wMinute = static_cast<WORD>(of_day / 60 % 60);
    time->wSecond = static_cast<WORD>(of_day % 60);
    time->wMilliseconds = static_cast<WORD>(machine().now % 1000);
}

ULONGLONG WINAPI GetTickCount64() {
    SIM_VISIT();
    return machine().now;
}

UINT WINAPI GetWindowsDirectoryW(LPWSTR buffer, UINT characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    return folder(buffer, characters, g_windowsFolder);
}

UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    return folder(buffer, characters, g_systemFolder);
}

DWORD WINAPI GetModuleFileNameW(HMODULE, LPWSTR buffer, DWORD characters) {
    SIM_CALL(0, ERROR_GEN_FAILURE);
    const std::u16string path = widen(installation().executable);
    if (const DWORD length = put_wide(buffer, characters, installation().executable))
        return length;
    for (DWORD i = 0; i + 1 < characters; ++i)
        buffer[i] = static_cast<WCHAR>(path[i]);
    if (characters > 0)
        buffer[characters - 1] = 0;
    set_last_error(ERROR_INSUFFICIENT_BUFFER);
    return characters;
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_version(Tokens& tokens) {
    const std::string text = tokens.word();
    unsigned major = 0;
    unsigned minor = 0;
    if (std::sscanf(text.c_str(), "%u.%u", &major, &minor) != 2)
        tokens.fail("MAJOR.MINOR expected");
    return [major, minor] {
        installation().major = major;
        installation().minor = minor;
    };
}

static Action compile_time(Tokens& tokens) {
    const std::string text = tokens.text();
    int year = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text.c_str(), "%d-%u-%u %u:%u:%u", &year, &month, &day, &hour, &minute, &second) != 6 ||
        month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59)
        tokens.fail("\"YYYY-MM-DD hh:mm:ss\" expected");
    const std::int64_t seconds = days_from_date(year, month, day) * 86400 + std::int64_t{hour} * 3600 +
                                 std::int64_t{minute} * 60 + second;
    return [seconds] {
        installation().epoch_seconds = seconds - static_cast<std::int64_t>(machine().now / 1000);
    };
}

static const Commands g_commands({
    {"windows version", Use::Machine, compile_version, "MAJOR.MINOR - what the machine runs"},
    {"windows time", Use::Machine, compile_time, "\"YYYY-MM-DD hh:mm:ss\" - local time now"},
});

} // namespace sim
