#include "tests/platform/probe.h"

#include <cstdio>

static const char* g_group = "";

void group(const char* name) {
    g_group = name;
}

void fact_number(const char* name, unsigned long long value) {
    char text[32];
    std::snprintf(text, sizeof(text), value < 0x10000 ? "%llu" : "0x%llx", value);
    write_fact(g_group, name, text);
}

// In quotes; what is not printable ASCII in hexadecimal.
void fact_text(const char* name, const WCHAR* text) {
    constexpr size_t LONGEST_CHARACTER = sizeof("\\u1234");
    char shown[400];
    size_t length = 0;
    shown[length++] = '"';
    for (; *text != 0 && length + LONGEST_CHARACTER + 1 < sizeof(shown); ++text) {
        if (*text >= 0x20 && *text < 0x7F)
            shown[length++] = static_cast<char>(*text);
        else
            length += static_cast<size_t>(
                std::snprintf(shown + length, LONGEST_CHARACTER, "\\u%04x", static_cast<unsigned>(*text)));
    }
    shown[length++] = '"';
    shown[length] = '\0';
    write_fact(g_group, name, shown);
}

DWORD last_error_of_failure() {
    constexpr DWORD UNTOLD = 0xFFFF;
    const DWORD error = GetLastError();
    return error != 0 ? error : UNTOLD;
}

DWORD on_thread(LPTHREAD_START_ROUTINE start, void* parameter) {
    DWORD code = 0xDEAD;
    HANDLE thread = CreateThread(nullptr, 0, start, parameter, 0, nullptr);
    if (WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0)
        GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    return code;
}

void switch_privilege(const WCHAR* name, bool on) {
    HANDLE token = nullptr;
    TOKEN_PRIVILEGES state = {};
    state.PrivilegeCount = 1;
    state.Privileges[0].Attributes = on ? SE_PRIVILEGE_ENABLED : 0;
    LookupPrivilegeValueW(nullptr, name, &state.Privileges[0].Luid);
    OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token);
    AdjustTokenPrivileges(token, FALSE, &state, 0, nullptr, nullptr);
    CloseHandle(token);
}

void probe_events();
void probe_waits();
void probe_mutexes();
void probe_threads();
void probe_registry_keys();
void probe_registry_values();
void probe_registry_watch();
void probe_registry_hives();
void probe_settings();
void probe_files();
void probe_text();
void probe_system();
void probe_programs();
void probe_services();
void probe_security();
void probe_power();
void probe_windows();
void probe_devices();
void probe_com();

const ProbeGroup g_probeGroups[] = {
    {"events", probe_events},
    {"waits", probe_waits},
    {"mutexes", probe_mutexes},
    {"threads", probe_threads},
    {"registry-keys", probe_registry_keys},
    {"registry-values", probe_registry_values},
    {"registry-watch", probe_registry_watch},
    {"registry-hives", probe_registry_hives},
    {"settings", probe_settings},
    {"files", probe_files},
    {"text", probe_text},
    {"system", probe_system},
    {"programs", probe_programs},
    {"services", probe_services},
    {"security", probe_security},
    {"power", probe_power},
    {"windows", probe_windows},
    {"devices", probe_devices},
    {"com", probe_com},
};
const unsigned g_probeGroupCount = ARRAYSIZE(g_probeGroups);
