#include "recorder/lines.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "driver/ioctl.h"

namespace lines {

// ---- texts ----

std::string narrow(const wchar_t* text) {
    if (text == nullptr)
        return "";
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(bytes), 0);
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), bytes, nullptr, nullptr);
    result.resize(static_cast<size_t>(bytes) - 1);
    return result;
}

std::wstring widen(const std::string& text) {
    const int letters = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    std::wstring result(static_cast<size_t>(letters), 0);
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, result.data(), letters);
    result.resize(static_cast<size_t>(letters) - 1);
    return result;
}

std::string small(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c); });
    return text;
}

static std::string format(const char* pattern, unsigned long long value) {
    char text[64];
    std::snprintf(text, sizeof(text), pattern, value);
    return text;
}

// ---- the service control manager ----

const char* const g_stateNames[SERVICE_PAUSED + 1] = {
    "", "STOPPED", "START_PENDING", "STOP_PENDING", "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};

std::string status_line(const SERVICE_STATUS& status) {
    std::string line = std::string("status ") + g_stateNames[status.dwCurrentState % (SERVICE_PAUSED + 1)] +
                       " " + std::to_string(status.dwWin32ExitCode) + "/" +
                       std::to_string(status.dwServiceSpecificExitCode);
    if (status.dwCheckPoint != 0)
        line += " checkpoint " + std::to_string(status.dwCheckPoint);
    return line;
}

// ---- devices ----

// clang-format off
static const struct { const wchar_t* part; const char* name; } g_devicePaths[] = {
    {L"317fc439-3f77-41c8-b09e-08ad63272aa3", "slate"},
    {L"a84e689b-0dce-493a-a164-acde05478fc3", "dock"},
    {L"30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a", "button"},
    {L"\\\\.\\zorpmdrv", ""},
    {L"\\\\.\\pmdrvs", ""},
    {L"\\\\.\\sx4track", ""},
};
// clang-format on

const char* device_name(const wchar_t* path) {
    std::wstring lower = path;
    CharLowerW(lower.data());
    for (const auto& row : g_devicePaths) {
        if (lower.find(row.part) != std::wstring::npos)
            return row.name;
    }
    return nullptr;
}

// ---- the driver ----

// clang-format off
static const struct { DWORD code; const char* name; } g_requests[] = {
#define REQUEST_NAME(name, device, function, in, out) {PmdrvCode(function), #name},
    PMDRV_IOCTL_CATALOGUE(REQUEST_NAME)
#undef REQUEST_NAME
    {IOCTL_POINTING_STICK_MOUSE_DATA, "MOUSEDATA"},
};
// clang-format on

std::string method_of(DWORD code) {
    for (const auto& row : g_requests) {
        if (row.code == code)
            return row.name;
    }
    return format("0x%llx", code);
}

std::string shown_request(DWORD code, const DWORD* in, DWORD in_bytes) {
    const std::string name = "request " + method_of(code);
    const bool optional = code == IOCTL_PMDRV_GETLIDSTATUS || code == IOCTL_PMDRV_LCDCSGETSTATE;
    if (in_bytes > 8)
        return name + "(" + std::to_string(in_bytes) + " bytes)";
    if (in_bytes == 8)
        return name + "(" + std::to_string(in[0]) + ", " + std::to_string(in[1]) + ")";
    return name + (in_bytes == 0 || optional ? "()" : format("(0x%llx)", in[0]));
}

std::string shown_answer(DWORD code, const DWORD* out, DWORD out_bytes, DWORD returned) {
    if (out_bytes != 4 && code != IOCTL_PMDRV_GETEVENT)
        return "";
    const unsigned bits = 8 * std::min<DWORD>(returned, 4);
    std::string text = format(" = 0x%llx", out_bytes == 4 ? out[0] & ((1ull << bits) - 1) : out[0]);
    if (code == IOCTL_PMDRV_GETEVENT)
        text += format(" 0x%llx", out[1]);
    return returned != out_bytes ? text + " bytes " + std::to_string(returned) : text;
}

// ---- the registry ----

static std::map<HKEY, std::string> g_keys;
// clang-format off
static const struct { HKEY key; const char* name; } g_roots[] = {
    {HKEY_CLASSES_ROOT, "HKCR"}, {HKEY_CURRENT_USER, "HKCU"}, {HKEY_LOCAL_MACHINE, "HKLM"}, {HKEY_USERS, "HKU"},
};
// clang-format on

std::string key_path(HKEY key) {
    for (const auto& root : g_roots) {
        if (root.key == key)
            return root.name;
    }
    const auto found = g_keys.find(key);
    return found != g_keys.end() ? found->second : "?";
}

void keep_key(HKEY key, const std::string& path) {
    g_keys[key] = path;
}

void forget_key(HKEY key) {
    g_keys.erase(key);
}

std::string joined(HKEY key, const wchar_t* path) {
    const std::string below = narrow(path);
    return key_path(key) + (below.empty() ? "" : "\\" + below);
}

std::string shown_path(const std::string& path) {
    static const char service[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC";
    constexpr size_t length = sizeof(service) - 1;
    if (path.size() >= length && _strnicmp(path.c_str(), service, length) == 0 &&
        (path.size() == length || path[length] == '\\'))
        return "SVC" + path.substr(length);
    return path;
}

static std::string shown_text(const std::wstring& text) {
    return "\"" + narrow(text.c_str()) + "\"";
}

std::string shown_data(DWORD type, const BYTE* data, DWORD bytes) {
    if (type == REG_DWORD && bytes == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, data, sizeof(number));
        return format("0x%llx", number);
    }
    std::string text;
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ) {
        std::wstring all(bytes / sizeof(wchar_t), 0);
        std::memcpy(all.data(), data, all.size() * sizeof(wchar_t));
        for (size_t at = 0; at < all.size() && all[at] != 0; at = all.find(L'\0', at) + 1) {
            text += (text.empty() ? "" : " ") + shown_text(all.substr(at, all.find(L'\0', at) - at));
            if (type != REG_MULTI_SZ || all.find(L'\0', at) == std::wstring::npos)
                break;
        }
        return text.empty() ? "\"\"" : text;
    }
    for (DWORD i = 0; i < bytes; ++i)
        text += format("%02llx", data[i]);
    return text;
}

std::string value_name(const wchar_t* name) {
    const std::string text = narrow(name);
    return text.empty() ? "@" : text;
}

} // namespace lines
