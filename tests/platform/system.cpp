// Memory, time, folders, the version, libraries, resources, other processes.
#include <windows.h>
#include <shlobj.h>
#include <strsafe.h>
#include <utility>

#include "tests/platform/probe.h"

static void probe_memory() {
    group("memory");
    auto* zeroed = static_cast<BYTE*>(LocalAlloc(LPTR, 64));
    DWORD sum = 0;
    for (int i = 0; i < 64; ++i)
        sum += zeroed[i];
    fact("zeroed", sum);
    fact("free", LocalFree(zeroed) == nullptr);
    fact("free-null", LocalFree(nullptr) == nullptr);
    HLOCAL nothing = LocalAlloc(LMEM_FIXED, 0);
    fact("of-nothing", nothing != nullptr);
    fact("free-of-nothing", LocalFree(nothing) == nullptr);
    fact("aligned", reinterpret_cast<ULONG_PTR>(LocalAlloc(LMEM_FIXED, 5)) % 16);
}

static void probe_time() {
    group("time");
    const ULONGLONG before = GetTickCount64();
    Sleep(60);
    const ULONGLONG slept = GetTickCount64() - before;
    fact("sleep", slept >= 44 && slept < 2000);
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const ULONGLONG start = GetTickCount64();
    fact("wait", WaitForSingleObject(event, 60));
    const ULONGLONG waited = GetTickCount64() - start;
    fact("waited", waited >= 44 && waited < 2000);
    SYSTEMTIME time = {};
    GetLocalTime(&time);
    fact("year", time.wYear >= 2021 && time.wYear < 2100);
    fact("month", time.wMonth >= 1 && time.wMonth <= 12);
    fact("day", time.wDay >= 1 && time.wDay <= 31);
    // The day of the week, from the date: Sunday is 0.
    static const int shifts[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
    const int year = time.wYear - (time.wMonth < 3);
    const int day =
        (year + year / 4 - year / 100 + year / 400 + shifts[(time.wMonth + 11) % 12] + time.wDay) % 7;
    fact("day-of-week", time.wDayOfWeek == day);
    fact("hour", time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000);
}

// In lower case: the folder is written in either.
static void fact_lower(const char* name, const WCHAR* text) {
    WCHAR lower[MAX_PATH];
    StringCchCopyW(lower, MAX_PATH, text);
    for (WCHAR& character : lower)
        character = character >= L'A' && character <= L'Z' ? static_cast<WCHAR>(character + 32) : character;
    fact_text(name, lower);
}

static void probe_folders() {
    group("folder");
    WCHAR buffer[MAX_PATH] = L"";
    fact("windows", GetWindowsDirectoryW(buffer, MAX_PATH));
    fact_lower("windows-path", buffer);
    fact("windows-exact", GetWindowsDirectoryW(buffer, 11));
    fact("windows-short", GetWindowsDirectoryW(buffer, 10));
    fact("windows-no-room", GetWindowsDirectoryW(nullptr, 0));
    fact("system", GetSystemDirectoryW(buffer, MAX_PATH));
    fact_lower("system-path", buffer);
    fact("system-short", GetSystemDirectoryW(buffer, 19));
    for (const auto& [name, folder] :
         {std::pair("shell-windows", CSIDL_WINDOWS), std::pair("shell-system", CSIDL_SYSTEM)}) {
        fact(name,
             SHGetFolderPathW(nullptr, folder | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, buffer));
        group("folder-path");
        fact_lower(name, buffer);
        group("folder");
    }
    fact("shell-unknown",
         SHGetFolderPathW(nullptr, 0x7F | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, buffer));
    const DWORD whole = GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    fact("program", whole == static_cast<DWORD>(lstrlenW(buffer)));
    SetLastError(0);
    fact("program-exact", GetModuleFileNameW(nullptr, buffer, whole + 1) == whole);
    fact("program-short", GetModuleFileNameW(nullptr, buffer, whole) == whole);
    fact("program-short-error", GetLastError());
    fact("program-short-ended", lstrlenW(buffer) == static_cast<int>(whole - 1));
    fact("program-5", GetModuleFileNameW(nullptr, buffer, 5));
    fact("program-5-ended", buffer[4] == 0);
}

static void probe_version() {
    group("version");
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    fact("told", ERROR_OF(GetVersionExW(&version)));
    fact("major", version.dwMajorVersion);
    fact("minor", version.dwMinorVersion);
    fact("platform", version.dwPlatformId);
    version.dwOSVersionInfoSize = 10;
    fact("wrong-size", ERROR_OF(GetVersionExW(&version)));
}

// ---- libraries and resources ----

static void probe_libraries() {
    group("library");
    constexpr DWORD SYSTEM = LOAD_LIBRARY_SEARCH_SYSTEM32;
    fact("missing", ERROR_OF(LoadLibraryExW(L"zorpmnone.dll", nullptr, SYSTEM)));
    HMODULE library = LoadLibraryExW(L"powrprof.dll", nullptr, SYSTEM);
    fact("loaded", library != nullptr);
    HMODULE again = LoadLibraryExW(L"POWRPROF.DLL", nullptr, SYSTEM);
    fact("again-the-same", again == library);
    fact("without-extension", ERROR_OF(LoadLibraryExW(L"powrprof", nullptr, SYSTEM)));
    for (const char* name :
         {"CallNtPowerInformation", "IsPwrHibernateAllowed", "SetSuspendState", "GetActivePwrScheme",
          "SetActivePwrScheme", "ReadPwrScheme", "WritePwrScheme", "ReadGlobalPwrPolicy"}) {
        group("powrprof-has");
        fact(name, ERROR_OF(GetProcAddress(library, name)));
    }
    group("library");
    fact("function-missing", ERROR_OF(GetProcAddress(library, "ZorpmNone")));
    fact("function-other-case", ERROR_OF(GetProcAddress(library, "setsuspendstate")));
    fact("free-once", FreeLibrary(library));
    fact("still-there", ERROR_OF(GetProcAddress(again, "SetSuspendState")));
    fact("free-null", ERROR_OF(FreeLibrary(nullptr)));
    fact("function-of-null-missing", ERROR_OF(GetProcAddress(nullptr, "ZorpmNone")));
    HMODULE kernel = LoadLibraryExW(L"kernel32.dll", nullptr, SYSTEM);
    fact("session-of-process", ERROR_OF(GetProcAddress(kernel, "ProcessIdToSessionId")));
    fact("console-session", ERROR_OF(GetProcAddress(kernel, "WTSGetActiveConsoleSessionId")));
    fact("own-module", GetModuleHandleW(nullptr) != nullptr);
    using SessionOf = BOOL(WINAPI*)(DWORD, DWORD*);
    const auto session_of =
        reinterpret_cast<SessionOf>(reinterpret_cast<void*>(GetProcAddress(kernel, "ProcessIdToSessionId")));
    DWORD session = 0;
    fact("own-session", ERROR_OF(session_of(GetCurrentProcessId(), &session)));
    fact("session-of-nobody", ERROR_OF(session_of(0x7FFFFFF0, &session)));
}

static void probe_resources() {
    group("resource");
    HRSRC found = FindResourceW(nullptr, MAKEINTRESOURCEW(105), RT_RCDATA);
    fact("found", found != nullptr);
    fact("size", SizeofResource(nullptr, found) > 1000);
    const auto* text = static_cast<const char*>(LockResource(LoadResource(nullptr, found)));
    fact("text", text != nullptr && text[0] != 0);
    fact("missing", ERROR_OF(FindResourceW(nullptr, MAKEINTRESOURCEW(106), RT_RCDATA)));
    fact("missing-type", ERROR_OF(FindResourceW(nullptr, MAKEINTRESOURCEW(105), MAKEINTRESOURCEW(77))));
    fact("lock-null", LockResource(nullptr) == nullptr);
    fact("load-null", LoadResource(nullptr, nullptr) == nullptr);
    fact("size-null", SizeofResource(nullptr, nullptr));
}

// ---- processes ----

static DWORD starts(const WCHAR* application, const WCHAR* line, PROCESS_INFORMATION* process) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    WCHAR command[60];
    StringCchCopyW(command, ARRAYSIZE(command), line);
    *process = {};
    // As the service starts one by its path, and the control program one by its command line.
    const bool by_path = application != nullptr;
    return ERROR_OF(CreateProcessW(application, command, nullptr, nullptr, !by_path,
                                   by_path ? CREATE_NEW_PROCESS_GROUP : 0, nullptr, nullptr, &startup,
                                   process));
}

static void probe_processes() {
    group("process");
    PROCESS_INFORMATION process;
    DWORD code = 0;
    fact("missing", starts(nullptr, L"zorpmnone.exe", &process));
    fact("missing-path", starts(L"C:\\Windows\\zorpmnone.exe", L"zorpmnone.exe", &process));
    fact("missing-folder", starts(L"C:\\none\\zorpmnone.exe", L"zorpmnone.exe", &process));
    fact("folder", starts(L"C:\\Windows", L"zorpmnone.exe", &process));
    fact("started", starts(nullptr, L"cmd /c exit 7", &process));
    fact("alive", WaitForSingleObject(process.hProcess, 0));
    fact("alive-code", ERROR_OF(GetExitCodeProcess(process.hProcess, &code)));
    fact("ended", WaitForSingleObject(process.hProcess, 20000));
    fact("ended-stays", WaitForSingleObject(process.hProcess, 0));
    fact("thread-ended", WaitForSingleObject(process.hThread, 0));
    GetExitCodeProcess(process.hProcess, &code);
    fact("code", code);
    fact("close-thread", CloseHandle(process.hThread));
    fact("close", CloseHandle(process.hProcess));
    fact("code-null", ERROR_OF(GetExitCodeProcess(nullptr, &code)));
    fact("own-code", ERROR_OF(GetExitCodeProcess(GetCurrentProcess(), &code)));
    fact("own-code-is-alive", code);
    fact("code-event", ERROR_OF(GetExitCodeProcess(CreateEventW(nullptr, TRUE, TRUE, nullptr), &code)));
    PVOID old = nullptr;
    fact("redirection-of-64-bits", ERROR_OF(Wow64DisableWow64FsRedirection(&old)));
}

void probe_system() {
    probe_memory();
    probe_time();
    probe_folders();
    probe_version();
}

void probe_programs() {
    probe_libraries();
    probe_resources();
    probe_processes();
}
