// The registry behind the platform calls, for scripts, tests and other areas. Paths are full: "HKLM\...",
// with "SVC\..." short for the service key. HKCR is the merged view of HKCU\Software\Classes, the user's, and
// HKLM\Software\Classes, the machine's.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

namespace sim {

struct RegistryValue {
    DWORD type = 0;
    std::vector<BYTE> bytes;
};

constexpr DWORD NO_DWORD = ~DWORD{0};

// As another program (never traced): the watchers of the key are told.
void registry_create(const std::string& path);
void registry_set(const std::string& path, const std::string& name, DWORD type, std::vector<BYTE> bytes);
void registry_set_dword(const std::string& path, const std::string& name, DWORD value);
void registry_set_text(const std::string& path, const std::string& name, const std::string& text,
                       DWORD type = REG_SZ);
bool registry_delete(const std::string& path); // the key with all below it
bool registry_delete_value(const std::string& path, const std::string& name);
// Opening or creating it with one of these rights, or whatever rights: error 5.
constexpr REGSAM EVERY_RIGHT = ~REGSAM{0};
void registry_refuse(const std::string& path, REGSAM rights = EVERY_RIGHT);
bool registry_has_key(const std::string& path);
bool registry_is_open(const std::string& path); // a handle is open on the key or on one below it
const RegistryValue* registry_value(const std::string& path, const std::string& name); // null: absent
DWORD registry_dword(const std::string& path, const std::string& name, DWORD otherwise = NO_DWORD);
std::string registry_text(const std::string& path, const std::string& name);
// All keys and values below a path as text lines, to compare states.
std::string registry_dump(const std::string& path);

// A change between a notification and the next call that asks for one on the same handle: the kernel
// remembers it and tells the next call at once (true, as on a new machine). No documentation promises that;
// false forgets it.
void registry_remembers_changes(bool remembers);

// Data written over equal data: told like any other change (true), or not at all. Documented either way.
void registry_tells_of_same_data(bool tells);
// Whether a text written without its null takes along one that stands just behind it in memory. No
// documentation says so.
void registry_takes_null_behind(bool takes);

// Data as traces and expectations show it.
std::string shown_data(DWORD type, const std::vector<BYTE>& bytes);
std::vector<BYTE> wide_bytes(const std::string& text, bool end = true);

} // namespace sim
