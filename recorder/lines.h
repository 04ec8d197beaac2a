// The wording of the lines that tell what the service does, as zorpmsim prints them, and the names of keys,
// devices and requests in them. Nothing here is locked: one thread at a time.
#pragma once

#include <windows.h>
#include <string>

namespace lines {

std::string narrow(const wchar_t* text); // null is ""
std::wstring widen(const std::string& text);
std::string small(std::string text); // in small letters

extern const char* const g_stateNames[SERVICE_PAUSED + 1];
std::string status_line(const SERVICE_STATUS& status);

// Of a path that has been opened: the interface, "" for a device of the driver, null for anything else.
const char* device_name(const wchar_t* path);
std::string method_of(DWORD code); // the request's name
std::string shown_request(DWORD code, const DWORD* in, DWORD in_bytes);
std::string shown_answer(DWORD code, const DWORD* out, DWORD out_bytes, DWORD returned);

// ---- the registry ----

// A root, or a key that was kept: its full path as the product named it; "?" for any other.
std::string key_path(HKEY key);
void keep_key(HKEY key, const std::string& path);
void forget_key(HKEY key);
std::string joined(HKEY key, const wchar_t* path); // of a key and what is named below it
std::string shown_path(const std::string& path);   // the service's key is SVC
std::string value_name(const wchar_t* name);       // the default value is @
std::string shown_data(DWORD type, const BYTE* data, DWORD bytes);

} // namespace lines
