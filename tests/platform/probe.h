// Facts of the platform, one a line: "group.name = value". The groups are compiled twice, for the simulated
// machine and for Windows, and ask only what the simulated machine's headers declare; what the two builds
// need besides is in main_host.cpp and main_windows.cpp. A fact holds no address, id or time.
#pragma once

#include <windows.h>

// ---- what a group uses ----

void group(const char* name); // the facts that follow are its own
void fact_number(const char* name, unsigned long long value);
void fact_text(const char* name, const WCHAR* text);
template <class Number> void fact(const char* name, Number value) {
    if constexpr (sizeof(Number) <= sizeof(DWORD))
        fact_number(name, static_cast<DWORD>(value));
    else
        fact_number(name, static_cast<unsigned long long>(value));
}

// 0, or the last error of a call that has failed.
#define ERROR_OF(call) (SetLastError(0), (call) ? DWORD{0} : last_error_of_failure())
DWORD last_error_of_failure();

// Runs a thread to its end and gives its exit code; 0xDEAD when it does not end.
DWORD on_thread(LPTHREAD_START_ROUTINE start, void* parameter);

// Turns a privilege of the own process on or off, if it is held.
void switch_privilege(const WCHAR* name, bool on);

// ---- what main_host.cpp and main_windows.cpp supply ----

void write_fact(const char* group, const char* name, const char* value);
const WCHAR* probe_folder(); // empty at the group's begin; without a last backslash
void write_settings(const WCHAR* path, const char* text); // a settings file: [section] and key=value lines
const GUID* probe_interface_class();                      // with an interface at least
const WCHAR* probe_service(); // a running service that accepts stop alone; null when none can be had

// ---- the groups ----

struct ProbeGroup {
    const char* name;
    void (*probe)();
};
extern const ProbeGroup g_probeGroups[];
extern const unsigned g_probeGroupCount;
